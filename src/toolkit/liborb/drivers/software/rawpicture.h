#pragma once

#include "libpicture/picture.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <thread>

namespace ferin {

/// One raw picture in pooled memory, shared by whoever still needs it: the bus, the coder.
struct RawPicture {
    picture::View view;
};
using RawPictureRef = std::shared_ptr<RawPicture>;

constexpr int fewestReady = 8; ///< pictures that are ready to be taken

/// Pictures of a third of a second: how far what takes them may fall behind at once.
constexpr int picturesReady(std::int64_t rateNum, std::int64_t rateDen)
{
    return rateDen > 0 ? std::max(static_cast<int>(rateNum / rateDen / 3), fewestReady) : fewestReady;
}

/// A bounded store of raw pictures of one size. take() answers null when all are out: the caller then drops
/// a frame. Memory is touched once and used again. Thread-safe; pictures may outlive the pool.
class RawPicturePool
{
public:
    RawPicturePool(int width, int height, int count);
    ~RawPicturePool();
    RawPicturePool(const RawPicturePool &) = delete;
    RawPicturePool &operator=(const RawPicturePool &) = delete;

    /// From now on new memory is touched in the background, \a ahead pictures before they are taken: the first of
    /// large pictures takes longer than a frame. For takers with a deadline.
    void keepReady(int ahead);
    RawPictureRef take();
    /// Waits up to \a waitMs for a picture to come back when all are out.
    RawPictureRef take(int waitMs);
    int inUse() const;
    /// Pictures that wait to be taken and are in memory already.
    int ready() const;
    int count() const;

private:
    struct Shared;
    std::shared_ptr<Shared> _d;
    std::thread _ahead;
};

} // namespace ferin
