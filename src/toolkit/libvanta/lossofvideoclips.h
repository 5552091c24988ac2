#pragma once

#include "liborb/orbidvalue.h"

#include <cstddef>
#include <iterator>

/// A clip of one frame that stands in for a lost input of one raster, scan and family. The frame rate plays no part.
struct LossOfVideoClip {
    int width;
    int height;
    bool isInterlaced;
    OrbIdValue family; ///< the 4:2:2 types share their clips, 4:4:4 has its own
    const char *file;  ///< relative to lossOfVideoDirectory

    constexpr bool hasKeyOf(const LossOfVideoClip &other) const
    {
        return width == other.width && height == other.height && isInterlaced == other.isInterlaced
            && family == other.family;
    }
};

/// The directory those clips are installed in.
inline constexpr char lossOfVideoDirectory[] = "/usr/local/share/media";

inline constexpr OrbIdValue lossOfVideoFamily422 = OrbIdImageProRes422;
inline constexpr OrbIdValue lossOfVideoFamily444 = OrbIdImageProRes4444;

/// All of them, in the order in which one is looked for.
// clang-format off
inline constexpr LossOfVideoClip lossOfVideoClips[] = {
// width height interlaced family             file
    { 720,  486, true,  lossOfVideoFamily422, "prores_422/loss_of_video_525i_422.mov"},
    { 720,  576, true,  lossOfVideoFamily422, "prores_422/loss_of_video_625i_422.mov"},
    {1280,  720, false, lossOfVideoFamily422, "prores_422/loss_of_video_720p_422.mov"},
    {1920, 1080, true,  lossOfVideoFamily422, "prores_422/loss_of_video_1080i_422.mov"},
    {1920, 1080, false, lossOfVideoFamily422, "prores_422/loss_of_video_1080p_422.mov"},
    {2048, 1080, true,  lossOfVideoFamily422, "prores_422/loss_of_video_2ki_422.mov"},
    {2048, 1080, false, lossOfVideoFamily422, "prores_422/loss_of_video_2kp_422.mov"},
    {3840, 2160, true,  lossOfVideoFamily422, "prores_422/loss_of_video_qhdi_422.mov"},
    {3840, 2160, false, lossOfVideoFamily422, "prores_422/loss_of_video_qhdp_422.mov"},
    {4096, 2160, true,  lossOfVideoFamily422, "prores_422/loss_of_video_4ki_422.mov"},
    {4096, 2160, false, lossOfVideoFamily422, "prores_422/loss_of_video_4kp_422.mov"},
    { 720,  486, true,  lossOfVideoFamily444, "prores_444/loss_of_video_525i_444.mov"},
    { 720,  576, true,  lossOfVideoFamily444, "prores_444/loss_of_video_625i_444.mov"},
    {1280,  720, false, lossOfVideoFamily444, "prores_444/loss_of_video_720p_444.mov"},
    {1920, 1080, true,  lossOfVideoFamily444, "prores_444/loss_of_video_1080i_444.mov"},
    {1920, 1080, false, lossOfVideoFamily444, "prores_444/loss_of_video_1080p_444.mov"},
    {2048, 1080, true,  lossOfVideoFamily444, "prores_444/loss_of_video_2ki_444.mov"},
    {2048, 1080, false, lossOfVideoFamily444, "prores_444/loss_of_video_2kp_444.mov"},
    {3840, 2160, true,  lossOfVideoFamily444, "prores_444/loss_of_video_qhdi_444.mov"},
    {3840, 2160, false, lossOfVideoFamily444, "prores_444/loss_of_video_qhdp_444.mov"},
    {4096, 2160, true,  lossOfVideoFamily444, "prores_444/loss_of_video_4ki_444.mov"},
    {4096, 2160, false, lossOfVideoFamily444, "prores_444/loss_of_video_4kp_444.mov"},
};
// clang-format on
static_assert(std::size(lossOfVideoClips) == 22);

constexpr bool lossOfVideoKeysAreDistinct()
{
    for (std::size_t i = 0; i < std::size(lossOfVideoClips); ++i)
        for (std::size_t j = i + 1; j < std::size(lossOfVideoClips); ++j)
            if (lossOfVideoClips[i].hasKeyOf(lossOfVideoClips[j]))
                return false;
    return true;
}
static_assert(lossOfVideoKeysAreDistinct());
