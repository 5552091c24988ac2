#pragma once

#include "liborb/drivers/software/proresby.h"
#include "liborb/drivers/software/rawpicture.h"
#include "liborb/orbimage.h"

#include <QtGlobal>

#include <functional>
#include <memory>

namespace ferin {

/// A picture being decoded. Any thread may look; cancel() saves work that nobody will see.
class DecodeJob
{
public:
    virtual ~DecodeJob() = default;
    virtual bool isDone() const = 0;
    /// Waits up to \a timeoutMs; true when done.
    virtual bool wait(int timeoutMs) = 0;
    /// The decoded picture, converted to planar 10-bit 4:2:2 of the image's raster; null on failure.
    virtual RawPictureRef picture() const = 0;
    virtual void cancel() = 0;
};

/// Decodes coded images (202 to 206, 230, 231) on a small pool of workers, a picture each. Thread-safe.
class DecoderPool
{
public:
    explicit DecoderPool(int workers = 0, ProResBy proRes = ProResBy::Own); ///< 0: one a core
    ~DecoderPool();

    /// Starts decoding \a image (which it keeps). Jobs start in the order of the calls.
    std::shared_ptr<DecodeJob> decode(const OrbImage &image);

private:
    struct Private;
    std::shared_ptr<Private> _d;
};

} // namespace ferin
