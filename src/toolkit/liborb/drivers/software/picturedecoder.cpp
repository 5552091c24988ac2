#include "liborb/drivers/software/picturedecoder.h"

#include "liborb/drivers/software/rawlayout.h"
#include "libprores/decoder.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>
#include <optional>

namespace ferin {

namespace {

constexpr std::int64_t maxPixels = 8192 * 4320; ///< a damaged header may ask for anything

struct DecoderRow {
    OrbIdValue dataType;
    AVCodecID codec;
    unsigned tag;
};

// ProRes 4444 carries the 4:2:2 tag: with its own the library would decode to 12 bits, which costs more and
// is then thrown away.
constexpr unsigned proResTag = MKTAG('a', 'p', 'c', 'n');
// clang-format off
constexpr DecoderRow decoders[] = {
    // data type               codec               tag
    { OrbIdImageProRes422,      AV_CODEC_ID_PRORES, proResTag },
    { OrbIdImageProRes422Hq,    AV_CODEC_ID_PRORES, proResTag },
    { OrbIdImageProRes422Lt,    AV_CODEC_ID_PRORES, proResTag },
    { OrbIdImageProRes422Proxy, AV_CODEC_ID_PRORES, proResTag },
    { OrbIdImageProRes4444,     AV_CODEC_ID_PRORES, proResTag },
    { OrbIdImageDnxHqx,         AV_CODEC_ID_DNXHD,  0 },
    { OrbIdImageV210,           AV_CODEC_ID_V210,   0 },
};
// clang-format on

void releaseRaw(void *opaque, std::uint8_t *)
{
    delete static_cast<RawPictureRef *>(opaque);
}

} // namespace

PictureDecoder::PictureDecoder() = default;

std::unique_ptr<PictureDecoder> PictureDecoder::create(const OrbImageDesc &desc, ProResBy proRes)
{
    const auto row = std::ranges::find(decoders, desc.dataType().value(), &DecoderRow::dataType);
    if (row == std::end(decoders) || RawLayout::of(desc.width(), desc.height()).bytes == 0)
        return nullptr;
    const AVCodec *codec = avcodec_find_decoder(row->codec);
    if (codec == nullptr)
        return nullptr;
    std::unique_ptr<PictureDecoder> decoder(new PictureDecoder);
    decoder->_desc = desc;
    decoder->_context.reset(avcodec_alloc_context3(codec));
    decoder->_packet.reset(av_packet_alloc());
    decoder->_frame.reset(av_frame_alloc());
    AVCodecContext *context = decoder->_context.get();
    if (context == nullptr || !decoder->_packet || !decoder->_frame)
        return nullptr;
    context->width = desc.width();
    context->height = desc.height();
    context->codec_tag = row->tag;
    context->thread_count = 1;
    context->max_pixels = maxPixels;
    context->opaque = decoder.get();
    context->get_buffer2 = provideBuffer;
    if (avcodec_open2(context, codec, nullptr) < 0)
        return nullptr;
    if (row->codec == AV_CODEC_ID_PRORES && proRes == ProResBy::Own)
        decoder->_proRes = std::make_unique<prores::Decoder>();
    return decoder;
}

PictureDecoder::~PictureDecoder() = default;

int PictureDecoder::provideBuffer(AVCodecContext *context, AVFrame *frame, int flags)
{
    const auto *decoder = static_cast<const PictureDecoder *>(context->opaque);
    if (decoder->lendPicture(context, frame))
        return 0;
    return avcodec_default_get_buffer2(context, frame, flags);
}

/// Lets the codec write into the raw picture, when it has the codec's shape and room for its margins.
bool PictureDecoder::lendPicture(AVCodecContext *context, AVFrame *frame) const
{
    if (!_into || frame->format != AV_PIX_FMT_YUV422P10)
        return false;
    const picture::View &view = _into->view;
    int width = frame->width;
    int height = frame->height;
    int strideAlign[AV_NUM_DATA_POINTERS] = {};
    avcodec_align_dimensions2(context, &width, &height, strideAlign);
    const RawLayout layout = RawLayout::of(view.width, view.height);
    if (context->width != view.width || context->height != view.height || width > layout.stride[0]
        || height > layout.lines)
        return false;
    auto *kept = new RawPictureRef(_into);
    frame->buf[0] = av_buffer_create(reinterpret_cast<std::uint8_t *>(view.plane[0]), layout.bytes,
                                     releaseRaw, kept, 0);
    if (frame->buf[0] == nullptr) {
        delete kept;
        return false;
    }
    for (int p = 0; p < 3; ++p) {
        frame->data[p] = reinterpret_cast<std::uint8_t *>(view.plane[p]);
        frame->linesize[p] = view.stride[p] * static_cast<int>(sizeof(std::uint16_t));
    }
    frame->extended_data = frame->data;
    return true;
}

/// Copies the bitstream behind which the codec may read zeros; the memory is used again.
bool PictureDecoder::load(const std::uint8_t *bytes, std::uint32_t size)
{
    if (bytes == nullptr || size == 0 || size > std::uint32_t {std::numeric_limits<int>::max() / 2})
        return false;
    const std::size_t wanted = std::size_t {size} + AV_INPUT_BUFFER_PADDING_SIZE;
    AVPacket *packet = _packet.get();
    const bool fits = packet->buf != nullptr && packet->buf->size >= wanted
                      && av_buffer_is_writable(packet->buf) != 0;
    if (!fits) {
        av_packet_unref(packet);
        packet->buf = av_buffer_alloc(wanted + wanted / 8);
        if (packet->buf == nullptr)
            return false;
    }
    packet->data = packet->buf->data;
    packet->size = static_cast<int>(size);
    packet->flags = AV_PKT_FLAG_KEY;
    std::memcpy(packet->data, bytes, size);
    std::memset(packet->data + size, 0, AV_INPUT_BUFFER_PADDING_SIZE);
    return true;
}

/// Pictures in 4:2:2 go where they belong, those in 4:4:4 by way of one of their own.
bool PictureDecoder::decodeProRes(const std::uint8_t *bytes, std::uint32_t size, const prores::FrameInfo &info,
                                  const picture::View &into)
{
    prores::DecodedPicture to;
    to.width = info.width;
    to.height = info.height;
    to.is444 = info.is444;
    if (info.is444 && !_full) {
        _full.reset(av_frame_alloc());
        if (!_full)
            return false;
        _full->format = AV_PIX_FMT_YUV444P10;
        _full->width = info.width;
        _full->height = info.height;
        if (av_frame_get_buffer(_full.get(), 0) < 0) {
            _full.reset();
            return false;
        }
    }
    for (int p = 0; p < 3; ++p) {
        to.plane[p] = info.is444 ? reinterpret_cast<std::uint16_t *>(_full->data[p]) : into.plane[p];
        to.stride[p] = info.is444 ? _full->linesize[p] / static_cast<int>(sizeof(std::uint16_t)) : into.stride[p];
    }
    if (!_proRes->decode(bytes, size, to).isSound())
        return false;
    return !info.is444 || _converter.convert(*_full, _desc.isInterlaced(), into);
}

bool PictureDecoder::decode(const std::uint8_t *bytes, std::uint32_t size, const RawPictureRef &into)
{
    if (!into)
        return false;
    if (_proRes) {
        const std::optional<prores::FrameInfo> info = prores::readFrameInfo(bytes, size);
        if (!info)
            return false;
        if (info->width == into->view.width && info->height == into->view.height)
            return decodeProRes(bytes, size, *info, into->view);
    }
    if (!load(bytes, size))
        return false;
    _into = into;
    bool isGood = avcodec_send_packet(_context.get(), _packet.get()) >= 0
                  && avcodec_receive_frame(_context.get(), _frame.get()) >= 0;
    _into.reset();
    const AVFrame &frame = *_frame;
    isGood = isGood && frame.decode_error_flags == 0 && (frame.flags & AV_FRAME_FLAG_CORRUPT) == 0;
    const bool isInPlace = isGood
                           && frame.data[0] == reinterpret_cast<std::uint8_t *>(into->view.plane[0]);
    if (isGood && !isInPlace)
        isGood = _converter.convert(frame, _desc.isInterlaced(), into->view);
    av_frame_unref(_frame.get());
    if (!isGood)
        avcodec_flush_buffers(_context.get());
    return isGood;
}

} // namespace ferin
