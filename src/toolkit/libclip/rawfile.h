#pragma once

#include "libclip/clip.h"
#include "libclip/largewrites.h"

#include <cstddef>
#include <span>
#include <string>

namespace clip {

/// A file descriptor with whole reads and writes at a position. Interrupted and short calls are
/// continued. Every call may wait for the medium; calls on different positions may run on different
/// threads, but large writes on one at a time.
class RawFile
{
public:
    RawFile() = default;
    ~RawFile() { close(); }
    RawFile(const RawFile &) = delete;
    RawFile &operator=(const RawFile &) = delete;

    /// Creates \a path for reading and writing, and locks it where the file system has locks; EEXIST
    /// when anything has this name.
    Error create(const std::string &path);
    /// Opens a regular file for reading and writing, and locks it. EWOULDBLOCK when somebody else has
    /// it locked, ELOOP for a link, EINVAL for anything but a regular file.
    Error openToChange(const std::string &path);
    /// Opens a regular file for reading; EINVAL for anything else.
    Error openToRead(const std::string &path);
    /// Reads from \a descriptor, which becomes the object's own; EINVAL for anything but a regular file.
    Error adoptToRead(int descriptor);
    bool isOpen() const { return _descriptor >= 0; }
    /// The open file is the one open at \a descriptor, too.
    bool isOpenAt(int descriptor) const;
    /// The open file is the one that \a path names.
    bool isAt(const std::string &path) const;
    /// Whether a file made by create() is still where it was made. ENODEV when another medium, or
    /// none, is in the place of its folder, or its last name is gone: what is written then is lost
    /// to everybody although every call succeeds.
    Error stillThere() const;
    void close();

    /// Bytes of the file now.
    Error size(std::uint64_t &bytes) const;
    Error writeAt(std::uint64_t offset, std::span<const std::byte> bytes);
    /// EIO when the file ends before \a bytes is full.
    Error readAt(std::uint64_t offset, std::span<std::byte> bytes) const;
    /// Cuts the file; what was reserved behind \a bytes is given back.
    Error truncate(std::uint64_t bytes);
    /// Makes sure that \a bytes from \a offset on can be written, without making the file longer.
    /// ENOSPC or EDQUOT when the medium has no room for them. Where the file system cannot reserve,
    /// the room is only looked for.
    Error reserve(std::uint64_t offset, std::uint64_t bytes);
    /// Calls \a change, after which the file has the time of its last change that it had before. Where that
    /// cannot be it has a new one.
    template<typename Change>
    Error keepingTime(Change change)
    {
        const Time time = lastChange();
        Error error = change();
        setLastChange(time);
        return error;
    }
    /// fdatasync: what is written by now survives a loss of power.
    Error sync();
    /// What lies between the offsets is on the medium and not needed soon: the system need not keep
    /// it in memory.
    void forget(std::uint64_t from, std::uint64_t to);

private:
    struct Time
    {
        std::int64_t seconds = 0;
        long nanoseconds = -1;  ///< below 0 is no time
    };
    Time lastChange() const;
    void setLastChange(const Time &time);

    int _descriptor = -1;
    LargeWrites _large;
    std::string _folder;            ///< of the file made by create()
    std::uint64_t _folderDevice = 0;
};

/// The medium has no room.
bool isFull(const Error &error);
/// The medium is full or the file may not grow, but what was written is sound.
bool isForWantOfSpace(const Error &error);
/// An error of the operation \a what with the system's words.
Error systemError(int code, const char *what);
/// Unlinks \a path, ignoring the outcome.
void removeFile(const std::string &path);
/// Makes a new name in the directory of \a path durable.
Error syncDirectoryOf(const std::string &path);

} // namespace clip
