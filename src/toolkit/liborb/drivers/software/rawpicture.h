#pragma once

#include "libpicture/picture.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace ferin {

/// One raw picture in pooled memory, shared by whoever still needs it: the bus, the coder.
struct RawPicture {
    picture::View view;
};
using RawPictureRef = std::shared_ptr<RawPicture>;

/// A bounded store of raw pictures of one size. take() answers null when all are out: the caller then drops
/// a frame. Memory is touched once and used again. Thread-safe; pictures may outlive the pool.
class RawPicturePool
{
public:
    RawPicturePool(int width, int height, int count);
    ~RawPicturePool();
    RawPictureRef take();
    /// Waits up to \a waitMs for a picture to come back when all are out.
    RawPictureRef take(int waitMs);
    int inUse() const;
    int count() const;

private:
    struct Shared;
    std::shared_ptr<Shared> _d;
};

} // namespace ferin
