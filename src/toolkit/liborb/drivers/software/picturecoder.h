#pragma once

#include "liborb/drivers/software/rawpicture.h"
#include "liborb/orbimagedesc.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <memory>

namespace ferin {

/// The bitstream of one picture. Its memory is the coder's until release() is called, exactly once.
struct CodedPicture {
    std::uint8_t *bytes = nullptr;
    std::uint32_t size = 0;
    std::function<void()> release;
};

/// Codes pictures of one format, one at a time, each standing alone: the same picture gives the same bytes
/// whatever was coded before. One thread uses a coder.
class PictureCoder
{
public:
    virtual ~PictureCoder() = default;
    /// False when the picture cannot be coded; \a problem then says why.
    virtual bool code(const RawPictureRef &raw, CodedPicture &coded, QString &problem) = 0;
};

/// True when the codec library's coders take \a desc.
bool ffmpegCanCode(const OrbImageDesc &desc);
/// A coder of the codec library; null with \a problem filled in when there is none for \a desc.
std::unique_ptr<PictureCoder> createFfmpegCoder(const OrbImageDesc &desc, QString &problem);

/// Bottom lines come first in 525-line pictures and nowhere else.
constexpr bool isBottomFieldFirst(int height)
{
    return height == 480 || height == 486;
}

/// Pictures of up to 576 lines carry BT.601 colour, all others BT.709.
constexpr bool isStandardDefinition(int height)
{
    return height <= 576;
}

} // namespace ferin
