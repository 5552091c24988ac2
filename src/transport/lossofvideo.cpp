#include "transport/lossofvideo.h"

#include "liborb/orbidvalue.h"

#include <algorithm>
#include <iterator>

namespace {

struct Row {
    int width;
    int height;
    bool isInterlaced;
    OrbIdValue dataType;
    const char *file;

    constexpr bool hasKeyOf(const Row &other) const
    {
        return width == other.width && height == other.height && isInterlaced == other.isInterlaced
            && dataType == other.dataType;
    }
};

constexpr OrbIdValue family422 = OrbIdImageProRes422;
constexpr OrbIdValue family444 = OrbIdImageProRes4444;

// clang-format off
constexpr Row rows[] = {
// width height interlaced family    file
    { 720,  486, true,  family422, "prores_422/loss_of_video_525i_422.mov"},
    { 720,  576, true,  family422, "prores_422/loss_of_video_625i_422.mov"},
    {1280,  720, false, family422, "prores_422/loss_of_video_720p_422.mov"},
    {1920, 1080, true,  family422, "prores_422/loss_of_video_1080i_422.mov"},
    {1920, 1080, false, family422, "prores_422/loss_of_video_1080p_422.mov"},
    {2048, 1080, true,  family422, "prores_422/loss_of_video_2ki_422.mov"},
    {2048, 1080, false, family422, "prores_422/loss_of_video_2kp_422.mov"},
    {3840, 2160, true,  family422, "prores_422/loss_of_video_qhdi_422.mov"},
    {3840, 2160, false, family422, "prores_422/loss_of_video_qhdp_422.mov"},
    {4096, 2160, true,  family422, "prores_422/loss_of_video_4ki_422.mov"},
    {4096, 2160, false, family422, "prores_422/loss_of_video_4kp_422.mov"},
    { 720,  486, true,  family444, "prores_444/loss_of_video_525i_444.mov"},
    { 720,  576, true,  family444, "prores_444/loss_of_video_625i_444.mov"},
    {1280,  720, false, family444, "prores_444/loss_of_video_720p_444.mov"},
    {1920, 1080, true,  family444, "prores_444/loss_of_video_1080i_444.mov"},
    {1920, 1080, false, family444, "prores_444/loss_of_video_1080p_444.mov"},
    {2048, 1080, true,  family444, "prores_444/loss_of_video_2ki_444.mov"},
    {2048, 1080, false, family444, "prores_444/loss_of_video_2kp_444.mov"},
    {3840, 2160, true,  family444, "prores_444/loss_of_video_qhdi_444.mov"},
    {3840, 2160, false, family444, "prores_444/loss_of_video_qhdp_444.mov"},
    {4096, 2160, true,  family444, "prores_444/loss_of_video_4ki_444.mov"},
    {4096, 2160, false, family444, "prores_444/loss_of_video_4kp_444.mov"},
};
// clang-format on
static_assert(std::size(rows) == 22);

constexpr bool keysAreDistinct()
{
    for (size_t i = 0; i < std::size(rows); ++i)
        for (size_t j = i + 1; j < std::size(rows); ++j)
            if (rows[i].hasKeyOf(rows[j]))
                return false;
    return true;
}
static_assert(keysAreDistinct());

/// The 4:2:2 types share their clips; a type of neither family is left as it is and matches no row.
OrbIdValue familyOf(OrbIdValue dataType)
{
    return dataType >= OrbIdImageProRes422 && dataType <= OrbIdImageProRes422Proxy ? family422
                                                                                   : dataType;
}

} // namespace

QString findLossOfVideoFile(const OrbImageDesc &desc)
{
    const Row wanted = {desc.width(), desc.height(), desc.isInterlaced(),
                        familyOf(desc.dataType().value()), nullptr};
    const auto row = std::ranges::find_if(rows, [&](const Row &r) { return r.hasKeyOf(wanted); });
    return row == std::end(rows) ? QString() : QString::fromLatin1(row->file);
}
