#include "libclip/commits.h"

#include "libclip/boxwriter.h"
#include "libclip/movfragment.h"

#include <algorithm>
#include <utility>

namespace clip {

namespace {

/// The beginning of a clip is written again when it is closed.
constexpr std::uint64_t remembered = std::uint64_t(1) << 16;

} // namespace

void Commits::reset()
{
    const std::lock_guard lock(_mutex);
    _pending.clear();
    _flipped = { };
    _forgotten = remembered;
    _error = { };
    _frames.store(0);
}

void Commits::add(const Uncommitted &fragment)
{
    const std::lock_guard lock(_mutex);
    _pending.push_back(fragment);
}

bool Commits::hasPending() const
{
    const std::lock_guard lock(_mutex);
    return !_pending.empty();
}

Error Commits::error() const
{
    const std::lock_guard lock(_mutex);
    return _error;
}

void Commits::allAreCommitted(RawFile &file, std::int64_t frames, std::uint64_t end)
{
    std::uint64_t forgotten = 0;
    {
        const std::lock_guard lock(_mutex);
        forgotten = std::exchange(_forgotten, std::max(_forgotten, end));
    }
    _frames.store(frames);
    if (end > forgotten) {
        file.forget(forgotten, end);
    }
}

/// What is committed for good leaves the system's memory: a recording is larger than that and read much later, and new
/// memory all the time is dearer than the same again and again.
Error Commits::commit(RawFile &file)
{
    std::vector<Uncommitted> durable;
    Uncommitted flipped;
    std::uint64_t forgotten = 0;
    {
        const std::lock_guard lock(_mutex);
        if (_error) {
            return _error;
        }
        durable.swap(_pending);
        flipped = _flipped;
        forgotten = std::exchange(_forgotten, std::max(_forgotten, flipped.end));
    }
    Error error = file.sync();
    if (!error) {
        _frames.store(flipped.framesWithIt);
        if (flipped.end > forgotten) {
            file.forget(forgotten, flipped.end);
        }
    }
    BoxWriter type;
    type.code("moof");
    for (const Uncommitted &one : durable) {
        if (!error) {
            error = file.writeAt(one.offset + MovFragment::commitOffset, type.bytes());
        }
    }
    const std::lock_guard lock(_mutex);
    _error = error;
    if (!error && !durable.empty()) {
        _flipped = durable.back();
    }
    return error;
}

} // namespace clip
