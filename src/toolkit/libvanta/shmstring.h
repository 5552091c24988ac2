#pragma once

#include <atomic>
#include <cstddef>
#include <string>

/// One short text in a named POSIX shared-memory object that any process may read at any time.
/// The object holds the zero-terminated text and nothing else. The writer keeps the size of the object; a
/// text is replaced by bytes of equal length in one go wherever the length allows.
class ShmString
{
public:
    explicit ShmString(const char *name);
    ~ShmString(); ///< unmaps; the object stays for its readers
    ShmString(const ShmString &) = delete;
    ShmString &operator=(const ShmString &) = delete;

    /// Creates or takes over the object with room for \a size bytes, the closing zero included.
    bool create(int size);
    /// Replaces the text, cut to fit; nothing before create().
    void set(const char *text);
    std::string get() const;

private:
    std::string _name;
    char *_memory = nullptr;
    std::size_t _size = 0;
};
