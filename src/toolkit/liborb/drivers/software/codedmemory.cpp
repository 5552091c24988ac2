#include "liborb/drivers/software/codedmemory.h"

#include "liborb/drivers/software/largememory.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <utility>
#include <vector>

namespace ferin {

namespace {

constexpr std::size_t alignment = 64;

} // namespace

/// Outlives its owner as long as pieces are out.
struct CodedMemory::Shared {
    std::size_t room = 0;
    mutable std::mutex mutex;
    std::vector<LargeMemory> idle; // guarded
    bool isOwned = true;           // guarded

    LargeMemory next()
    {
        const std::lock_guard lock(mutex);
        if (idle.empty())
            return allocateLarge(room);
        LargeMemory memory = std::move(idle.back()); // the one that the caches know
        idle.pop_back();
        return memory;
    }

    void giveBack(LargeMemory memory)
    {
        const std::lock_guard lock(mutex);
        if (isOwned && idle.size() < static_cast<std::size_t>(mostIdle))
            idle.push_back(std::move(memory));
    }
};

CodedMemory::CodedMemory(std::size_t room) : _d(std::make_shared<Shared>())
{
    _d->room = (room + alignment - 1) / alignment * alignment;
    _d->idle.reserve(mostIdle);
}

CodedMemory::~CodedMemory()
{
    std::vector<LargeMemory> idle;
    const std::lock_guard lock(_d->mutex);
    _d->isOwned = false;
    idle.swap(_d->idle);
}

std::size_t CodedMemory::room() const
{
    return _d->room;
}

CodedPicture CodedMemory::take()
{
    CodedPicture picture;
    LargeMemory memory = _d->next();
    if (!memory)
        return picture;
    picture.bytes = memory.get();
    picture.release = [shared = _d, kept = memory.release()] { shared->giveBack(LargeMemory(kept)); };
    return picture;
}

int CodedMemory::idle() const
{
    const std::lock_guard lock(_d->mutex);
    return static_cast<int>(_d->idle.size());
}

void CodedMemory::makeReady(int pieces, std::size_t bytes)
{
    std::vector<CodedPicture> taken;
    for (int i = 0; i < pieces; ++i) {
        taken.push_back(take());
        if (taken.back().bytes != nullptr)
            std::memset(taken.back().bytes, 0, std::min(bytes, room()));
    }
    for (const CodedPicture &picture : taken) {
        if (picture.release)
            picture.release();
    }
}

} // namespace ferin
