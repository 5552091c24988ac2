#pragma once

#include "liborb/drivers/software/picturecoder.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace ferin {

/// Memory for coded pictures, all of one room. What comes back is given out again, so that its pages are touched
/// once only; more than mostIdle idle pieces are not kept. Thread-safe; what is out may outlive it.
class CodedMemory
{
public:
    explicit CodedMemory(std::size_t room);
    ~CodedMemory();
    CodedMemory(const CodedMemory &) = delete;
    CodedMemory &operator=(const CodedMemory &) = delete;

    std::size_t room() const;
    /// A piece of room() bytes, of size 0 so far; null bytes when there is no memory.
    CodedPicture take();
    int idle() const;
    /// Has \a pieces idle whose first \a bytes are touched.
    void makeReady(int pieces, std::size_t bytes);

    static constexpr int mostIdle = 64;

private:
    struct Shared;
    std::shared_ptr<Shared> _d;
};

} // namespace ferin
