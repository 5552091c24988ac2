#include "transport/lossofvideo.h"

#include "libvanta/lossofvideoclips.h"

#include <algorithm>
#include <iterator>

namespace {

/// The 4:2:2 types share their clips; a type of neither family is left as it is and matches no row.
OrbIdValue familyOf(OrbIdValue dataType)
{
    return dataType >= OrbIdImageProRes422 && dataType <= OrbIdImageProRes422Proxy ? lossOfVideoFamily422
                                                                                   : dataType;
}

} // namespace

QString findLossOfVideoFile(const OrbImageDesc &desc)
{
    const LossOfVideoClip wanted = {desc.width(), desc.height(), desc.isInterlaced(),
                                    familyOf(desc.dataType().value()), nullptr};
    const auto row = std::ranges::find_if(lossOfVideoClips,
                                          [&](const LossOfVideoClip &clip) { return clip.hasKeyOf(wanted); });
    return row == std::end(lossOfVideoClips) ? QString() : QString::fromLatin1(row->file);
}
