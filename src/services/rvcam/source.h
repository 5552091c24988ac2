#pragma once

#include "libpicture/picture.h"

#include <cstdint>

namespace cam {

/// Where the camera's picture and sound come from. Frames are asked for in order, counted from 0.
class Source
{
public:
    Source() = default;
    virtual ~Source() = default;
    Source(const Source &) = delete;
    Source &operator=(const Source &) = delete;

    /// Draws frame \a frame; false when there is no signal, the view is then left as it is.
    virtual bool draw(const picture::View &view, std::int64_t frame) = 0;
    /// Writes the frame's sound as interleaved 24-bit little-endian PCM, \a samples of each
    /// channel.
    virtual void sound(std::uint8_t *out, std::int64_t firstSample, int samples) = 0;
};

} // namespace cam
