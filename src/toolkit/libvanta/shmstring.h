#pragma once

#include <cstddef>
#include <string>

/// One short text in a named POSIX shared-memory object: one process writes it, any process reads
/// it at any time, nobody waits for anybody.
///
/// What lies in the object, from its first byte: the text, and zeros up to the end. So whoever maps
/// it and takes a C string from its start reads the text.
///
/// How it is replaced, so that a reader has the old text or the new one:
/// - The object is written in lines of 16 bytes, from its start. A text of at most 15 bytes, which
/// every
///   timecode is, stands in the first line. Where the machine stores a line in one piece (x86-64
///   with AVX, ARMv8.4) such a text is never there in part, and a reader that takes the line in one
///   piece, as memcpy() of the object does there, never has it in part.
/// - Elsewhere, and for longer texts, a plain reader may meet a text half written for as long as a
/// few
///   stores take. For read() the last byte tells: it is not zero while lines are being written. (A
///   text of the whole size leaves no room for that.)
/// - read() takes a first line that ends in zero as the text where lines come in one piece;
/// otherwise it
///   reads until two readings agree with the last byte zero before, between and behind them.
class ShmString
{
public:
    /// \a storesLines is for tests, which go the other machines' way with false.
    explicit ShmString(const char *name, bool storesLines = machineStoresLines());
    ~ShmString(); ///< unmaps; the object stays for its readers
    ShmString(const ShmString &) = delete;
    ShmString &operator=(const ShmString &) = delete;

    /// Creates or takes over the object with room for \a size bytes, the closing zero included,
    /// rounded up to whole lines; a text that stands there stays. False when the system refuses,
    /// when it is open already, and for a size below 1 or above 4096.
    bool create(int size);
    /// For readers: maps an object that is there. False when there is none.
    bool open();
    /// Replaces the text, cut to fit; nothing unless create() has succeeded.
    void set(const char *text);
    /// The text; empty unless created or opened. A writer that died while it wrote leaves what it
    /// wrote.
    std::string read() const;

    /// Whether 16 aligned bytes are stored and loaded in one piece here.
    static bool machineStoresLines();

private:
    bool map(int fd, std::size_t size, bool isWriter);
    void writeLines(const std::string &bytes);
    bool copyAtRest(std::string &to) const;
    std::string readLines() const;

    std::string _name;
    char *_memory = nullptr;
    std::size_t _size = 0;
    bool _isWriter = false;
    bool _storesLines;
};
