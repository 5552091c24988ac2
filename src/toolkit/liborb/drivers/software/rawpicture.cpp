#include "liborb/drivers/software/rawpicture.h"

#include "liborb/drivers/software/largememory.h"
#include "liborb/drivers/software/rawlayout.h"
#include "liborb/orbthread.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>

namespace ferin {

namespace {

constexpr int macroblockPair = 32; ///< lines: one macroblock of either field
constexpr int lumaBlock = 64;      ///< samples: 128 bytes of luma, 64 of chroma
constexpr int largestSide = 16384;
constexpr std::size_t tailBytes = 256; ///< decoders' vector code may touch these behind the last line

constexpr int roundUp(int value, int step)
{
    return (value + step - 1) / step * step;
}

LargeMemory allocate(const RawLayout &layout)
{
    LargeMemory memory = allocateLarge(layout.bytes);
    if (memory) // the pages are there from now on
        std::memset(memory.get(), 0, layout.bytes);
    return memory;
}

} // namespace

RawLayout RawLayout::of(int width, int height)
{
    RawLayout layout;
    if (width < 2 || height < 1 || width % 2 != 0 || width > largestSide || height > largestSide)
        return layout;
    layout.width = width;
    layout.height = height;
    layout.stride[0] = roundUp(width, lumaBlock);
    if (layout.stride[0] % 2048 == 0) // lines a page apart would share a few lines of the cache
        layout.stride[0] += lumaBlock;
    layout.stride[1] = layout.stride[2] = layout.stride[0] / 2;
    layout.lines = roundUp(height, macroblockPair);
    for (int p = 0; p < 3; ++p) {
        layout.offset[p] = layout.bytes;
        layout.bytes += sizeof(std::uint16_t) * static_cast<std::size_t>(layout.stride[p])
                        * static_cast<std::size_t>(layout.lines);
    }
    layout.bytes += tailBytes;
    return layout;
}

picture::View RawLayout::viewOf(std::uint8_t *memory) const
{
    picture::View view;
    view.width = width;
    view.height = height;
    for (int p = 0; p < 3; ++p) {
        view.plane[p] = reinterpret_cast<std::uint16_t *>(memory + offset[p]);
        view.stride[p] = stride[p];
    }
    return view;
}

/// Outlives the pool as long as pictures are out. Whoever needs new memory gets it without the lock: pages that the
/// machine has yet to find may take longer than a frame.
struct RawPicturePool::Shared {
    struct Slot {
        RawPicture picture;
        LargeMemory memory;
    };

    RawLayout layout;
    int count = 0;
    mutable std::mutex mutex;
    std::condition_variable back;
    std::condition_variable taken;
    std::vector<std::unique_ptr<Slot>> idle; // guarded
    int made = 0;                            // guarded; idle, out, or about to be
    int out = 0;                             // guarded
    std::size_t ahead = 0;                   // guarded; pictures that are kept ready
    bool poolGone = false;                   // guarded

    bool isShort() const { return idle.size() < ahead && made < count; }
    bool has() const { return !idle.empty() || made < count; }

    /// An idle picture, or a new one while there may be more.
    std::unique_ptr<Slot> next(std::unique_lock<std::mutex> &lock)
    {
        if (idle.empty())
            return made < count ? make(lock) : nullptr;
        std::unique_ptr<Slot> slot = std::move(idle.back()); // the one used last is the one the caches know
        idle.pop_back();
        return slot;
    }

    std::unique_ptr<Slot> make(std::unique_lock<std::mutex> &lock)
    {
        ++made;
        lock.unlock();
        auto slot = std::make_unique<Slot>();
        slot->memory = allocate(layout);
        lock.lock();
        if (!slot->memory) {
            --made;
            return nullptr;
        }
        return slot;
    }

    void giveBack(std::unique_ptr<Slot> slot)
    {
        {
            const std::lock_guard lock(mutex);
            --out;
            if (!poolGone)
                idle.push_back(std::move(slot));
        }
        back.notify_one();
    }

    /// Runs on a thread of its own until the pool goes.
    void keepReady()
    {
        std::unique_lock lock(mutex);
        while (true) {
            taken.wait(lock, [this] { return poolGone || isShort(); });
            if (poolGone)
                return;
            std::unique_ptr<Slot> slot = make(lock);
            if (!slot)
                return; // whoever needs one will see for himself
            idle.insert(idle.begin(), std::move(slot));
            back.notify_one();
        }
    }
};

RawPicturePool::RawPicturePool(int width, int height, int count) : _d(std::make_shared<Shared>())
{
    _d->layout = RawLayout::of(width, height);
    _d->count = _d->layout.bytes > 0 ? std::max(count, 0) : 0;
    _d->idle.reserve(static_cast<std::size_t>(_d->count));
}

RawPicturePool::~RawPicturePool()
{
    std::vector<std::unique_ptr<Shared::Slot>> idle;
    {
        const std::lock_guard lock(_d->mutex);
        _d->poolGone = true;
        idle.swap(_d->idle);
    }
    _d->taken.notify_all();
    if (_ahead.joinable())
        _ahead.join();
}

void RawPicturePool::keepReady(int ahead)
{
    if (_ahead.joinable())
        return;
    _d->ahead = static_cast<std::size_t>(std::max(ahead, 0));
    _ahead = std::thread([shared = _d] {
        orbNameThread("pictures");
        orbRankThread(OrbWork::Background);
        shared->keepReady();
    });
}

RawPictureRef RawPicturePool::take()
{
    return take(0);
}

RawPictureRef RawPicturePool::take(int waitMs)
{
    std::unique_ptr<Shared::Slot> slot;
    bool isShort = false;
    {
        std::unique_lock lock(_d->mutex);
        if (waitMs > 0)
            _d->back.wait_for(lock, std::chrono::milliseconds(waitMs), [this] { return _d->has(); });
        slot = _d->next(lock);
        if (slot)
            ++_d->out;
        isShort = _d->isShort();
    }
    if (isShort)
        _d->taken.notify_one();
    if (!slot)
        return nullptr;
    slot->picture.view = _d->layout.viewOf(slot->memory.get());
    RawPicture *picture = &slot->picture;
    return RawPictureRef(picture, [shared = _d, kept = slot.release()](RawPicture *) {
        shared->giveBack(std::unique_ptr<Shared::Slot>(kept));
    });
}

int RawPicturePool::inUse() const
{
    const std::lock_guard lock(_d->mutex);
    return _d->out;
}

int RawPicturePool::ready() const
{
    const std::lock_guard lock(_d->mutex);
    return static_cast<int>(_d->idle.size());
}

int RawPicturePool::count() const
{
    return _d->count;
}

} // namespace ferin
