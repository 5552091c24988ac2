#pragma once

#include "liborb/drivers/software/pictureconverter.h"
#include "liborb/drivers/software/proresby.h"
#include "liborb/drivers/software/rawpicture.h"
#include "liborb/orbimagedesc.h"

#include <cstdint>
#include <memory>

namespace prores {
class Decoder;
struct FrameInfo;
}

namespace ferin {

/// Decodes coded pictures of one data type and raster, one at a time, right into raw pictures where the codec
/// allows. ProRes of that raster is decoded by the project's own decoder, unless it is told otherwise; both give the
/// same samples. One thread uses a decoder.
class PictureDecoder
{
public:
    /// Null for data types that nothing here decodes.
    static std::unique_ptr<PictureDecoder> create(const OrbImageDesc &desc, ProResBy proRes = ProResBy::Own);
    ~PictureDecoder();

    /// Decodes \a size bytes at \a bytes into \a into, which comes from a RawPicturePool of the raster.
    /// False when the bitstream is damaged; the picture then holds nothing of use.
    bool decode(const std::uint8_t *bytes, std::uint32_t size, const RawPictureRef &into);

private:
    PictureDecoder();
    static int provideBuffer(AVCodecContext *context, AVFrame *frame, int flags);
    bool lendPicture(AVCodecContext *context, AVFrame *frame) const;
    bool decodeProRes(const std::uint8_t *bytes, std::uint32_t size, const prores::FrameInfo &info,
                      const picture::View &into);
    bool load(const std::uint8_t *bytes, std::uint32_t size);

    OrbImageDesc _desc;
    CodecContextPtr _context;
    PacketPtr _packet;
    FramePtr _frame;
    PictureConverter _converter;
    std::unique_ptr<prores::Decoder> _proRes; // null: by the library
    FramePtr _full;                           // where 4:4:4 goes first
    RawPictureRef _into; // of the decode() under way
};

} // namespace ferin
