#pragma once

#include "libvanta/clip.h"

#include <cstddef>
#include <list>
#include <memory>
#include <string>

namespace lumo::media {

/// A list of clips in a named shared-memory object, guarded by a named mutex. What stands there is a
/// versioned header in host byte order (machine and processes are the same) of magic, version, length and CRC-32 of
/// a serialized ClipList, and who holds the mutex; then the list. Nothing of it is believed before it has been checked.
/// A process that dies with the mutex held stops nobody (see OwnedMutex); the checksum finds a list that was
/// torn by it.
class SharedList
{
public:
    /// Opens or creates "<prefix>_shm" of \a size bytes and "<prefix>_mutex".
    SharedList(const std::string &prefix, std::size_t size);
    ~SharedList();
    SharedList(const SharedList &) = delete;
    SharedList &operator=(const SharedList &) = delete;

    bool isOpen() const;
    /// False when the list is absent, torn or of another version; \a clips is untouched then.
    bool load(std::list<Clip> &clips) const;
    /// False when the list does not fit, and the one before stays; or when the mutex is not to be had.
    bool store(const std::list<Clip> &clips);
    /// Removes the shared objects, for tests.
    static void remove(const std::string &prefix);

private:
    struct Private;
    std::unique_ptr<Private> _d;
};

} // namespace lumo::media
