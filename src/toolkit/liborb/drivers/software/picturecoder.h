#pragma once

#include "liborb/drivers/software/rawpicture.h"
#include "liborb/orbimagedesc.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <memory>

namespace prores {
class Workers;
}

namespace ferin {

/// The bitstream of one picture. Its memory is the coder's until release() is called, exactly once.
struct CodedPicture {
    std::uint8_t *bytes = nullptr;
    std::uint32_t size = 0;
    std::function<void()> release;
};

/// The number of a picture that belongs to no stream.
constexpr std::int64_t standalone = -1;

/// Codes pictures of one format, one at a time. The same pictures give the same bytes: each alone, or those of a
/// stream, which are numbered on, in their order. One thread uses a coder.
class PictureCoder
{
public:
    virtual ~PictureCoder() = default;
    /// The number of the next picture. Where it is not the one after the last, another stream begins; a coder
    /// that remembers the pictures before then forgets them.
    virtual void expect(std::int64_t number) { static_cast<void>(number); }
    /// False when the picture cannot be coded; \a problem then says why.
    virtual bool code(const RawPictureRef &raw, CodedPicture &coded, QString &problem) = 0;
};

/// True when the codec library's coders take \a desc.
bool ffmpegCanCode(const OrbImageDesc &desc);
/// A coder of the codec library; null with \a problem filled in when there is none for \a desc.
std::unique_ptr<PictureCoder> createFfmpegCoder(const OrbImageDesc &desc, QString &problem);

/// True for the data types that the project's own ProRes encoder codes.
bool isProRes(const OrbId &dataType);
/// A coder by that encoder, the slices of each picture shared by \a workers (null: none), which outlive it; null
/// with \a problem filled in when there is none for \a desc.
std::unique_ptr<PictureCoder> createProResCoder(const OrbImageDesc &desc, prores::Workers *workers, QString &problem);

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

/// What pictures of that height say about their colour, as ITU-T H.273 numbers it. The curve is the same for all.
struct Colour {
    std::uint8_t primaries;
    std::uint8_t transfer;
    std::uint8_t matrix;
};
constexpr Colour colourOf(int height)
{
    constexpr Colour high = {1, 1, 1};
    constexpr Colour lines525 = {6, 1, 6};
    constexpr Colour lines625 = {5, 1, 6};
    return !isStandardDefinition(height) ? high : isBottomFieldFirst(height) ? lines525 : lines625;
}

} // namespace ferin
