#pragma once

#include "libclip/boxwriter.h"
#include "libclip/clip.h"

#include <span>
#include <utility>

namespace clip {

/// The sample description of the pictures. \a dnxCompression is the compression number of the
/// pictures themselves where it is known, 0 otherwise.
void writeVideoDescription(BoxWriter &writer, const VideoFormat &video,
                           std::uint32_t dnxCompression);
/// The sample description of interleaved little-endian 24-bit PCM.
void writeSoundDescription(BoxWriter &writer, const AudioFormat &audio);
/// The sample description of the timecode track, with the reel name.
void writeTimecodeDescription(BoxWriter &writer, const ClipInfo &info);

/// Width and height of a pixel: square but for the two standard-definition rasters.
std::pair<int, int> pixelAspect(const VideoFormat &video);
/// The compression number in the header of a DNxHD or DNxHR picture; 0 when it is none.
std::uint32_t dnxCompressionOf(std::span<const std::byte> picture);

} // namespace clip
