#include "liborb/drivers/software/picturecoder.h"

#include "liborb/drivers/software/ffmpeghandles.h"

#include <algorithm>
#include <iterator>
#include <utility>

extern "C" {
#include <libavutil/opt.h>
}

// The codec library's encoders, one context a worker and format. All the formats are all-intra, so that
// workers share nothing and each codes whole pictures. The raw picture is coded where it lies; the packet is
// handed on as the library made it.

namespace ferin {

namespace {

/// How a data type is coded.
struct CodecRow {
    OrbIdValue dataType;
    const char *encoder;
    int profile;
    AVPixelFormat format;
    int minWidth, minHeight;
};

// ProRes 4444 too is coded by the fast encoder: the other one takes four times as long.
// clang-format off
constexpr CodecRow codecs[] = {
    // data type               encoder      profile                     samples                smallest raster
    { OrbIdImageProRes422,      "prores_aw", FF_PROFILE_PRORES_STANDARD,AV_PIX_FMT_YUV422P10,  64,  32 },
    { OrbIdImageProRes422Hq,    "prores_aw", FF_PROFILE_PRORES_HQ,      AV_PIX_FMT_YUV422P10,  64,  32 },
    { OrbIdImageProRes422Lt,    "prores_aw", FF_PROFILE_PRORES_LT,      AV_PIX_FMT_YUV422P10,  64,  32 },
    { OrbIdImageProRes422Proxy, "prores_aw", FF_PROFILE_PRORES_PROXY,   AV_PIX_FMT_YUV422P10,  64,  32 },
    { OrbIdImageProRes4444,     "prores_aw", FF_PROFILE_PRORES_4444,    AV_PIX_FMT_YUV444P10,  64,  32 },
    { OrbIdImageDnxHqx,         "dnxhd",     FF_PROFILE_DNXHR_HQX,      AV_PIX_FMT_YUV422P10, 256, 120 },
    { OrbIdImageV210,           "v210",      FF_PROFILE_UNKNOWN,        AV_PIX_FMT_YUV422P10,   6,   1 },
};
// clang-format on

constexpr int maxWidth = 8192;
constexpr int maxHeight = 4320;

const CodecRow *rowOf(const OrbId &dataType)
{
    const auto row = std::ranges::find(codecs, dataType.value(), &CodecRow::dataType);
    return row == std::end(codecs) ? nullptr : row;
}

/// DNxHR knows no fields. The one interlaced raster that the family has, 1080 lines, is coded as DNxHD; all
/// other interlaced pictures are coded as frames, which keeps every sample where it is.
bool isDnxHdInterlaced(const OrbImageDesc &desc)
{
    return desc.dataType() == OrbIdImageDnxHqx && desc.isInterlaced() && desc.width() == 1920
           && desc.height() == 1080;
}

constexpr std::int64_t dnxHdInterlacedBitRate = 185'000'000;

/// The encoder itself codes field by field.
bool codesFields(const OrbImageDesc &desc)
{
    if (!desc.isInterlaced() || desc.dataType() == OrbIdImageV210)
        return false;
    return desc.dataType() != OrbIdImageDnxHqx || isDnxHdInterlaced(desc);
}

QString errorText(int error)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    return QString::fromLatin1(text);
}

void releaseRaw(void *opaque, std::uint8_t *)
{
    delete static_cast<RawPictureRef *>(opaque);
}

/// A reference that keeps the raw picture for as long as the library wants it.
AVBufferRef *wrap(const RawPictureRef &raw)
{
    const picture::View &view = raw->view;
    auto *kept = new RawPictureRef(raw);
    AVBufferRef *buffer = av_buffer_create(
        reinterpret_cast<std::uint8_t *>(view.plane[0]),
        sizeof(std::uint16_t) * static_cast<std::size_t>(view.stride[0])
            * static_cast<std::size_t>(view.height),
        releaseRaw, kept, AV_BUFFER_FLAG_READONLY);
    if (buffer == nullptr)
        delete kept;
    return buffer;
}

/// Twice as many samples: those between two are their mean.
void doubleChroma(const std::uint16_t *from, std::uint16_t *to, int samples)
{
    for (int x = 0; x + 1 < samples; ++x) {
        to[2 * x] = from[x];
        to[2 * x + 1] = static_cast<std::uint16_t>((from[x] + from[x + 1] + 1) / 2);
    }
    to[2 * samples - 2] = to[2 * samples - 1] = from[samples - 1];
}

class FfmpegCoder : public PictureCoder
{
public:
    explicit FfmpegCoder(const OrbImageDesc &desc) : _desc(desc) {}
    bool open(QString &problem);
    bool code(const RawPictureRef &raw, CodedPicture &coded, QString &problem) override;

private:
    void setColour();
    bool prepare(const RawPictureRef &raw);
    bool widenChroma(const picture::View &view);

    OrbImageDesc _desc;
    CodecContextPtr _context;
    FramePtr _frame;
    BufferPtr _chroma; // two planes of full width, for 4:4:4
    std::int64_t _count = 0;
};

bool FfmpegCoder::open(QString &problem)
{
    const CodecRow *row = rowOf(_desc.dataType());
    const AVCodec *codec = row != nullptr ? avcodec_find_encoder_by_name(row->encoder) : nullptr;
    if (codec == nullptr) {
        problem = QStringLiteral("the codec library has no such encoder");
        return false;
    }
    _context.reset(avcodec_alloc_context3(codec));
    _frame.reset(av_frame_alloc());
    if (!_context || !_frame) {
        problem = QStringLiteral("no memory");
        return false;
    }
    const OrbVideoRate rate = _desc.frameRate();
    const bool hasRate = rate.isValid() && rate.num() > 0 && rate.den() > 0;
    _context->width = _desc.width();
    _context->height = _desc.height();
    _context->pix_fmt = row->format;
    _context->framerate = hasRate ? AVRational {rate.num(), rate.den()} : AVRational {25, 1};
    _context->time_base = av_inv_q(_context->framerate);
    _context->bits_per_raw_sample = 10;
    _context->thread_count = 1;
    if (codesFields(_desc)) {
        _context->flags |= AV_CODEC_FLAG_INTERLACED_DCT;
        _context->field_order = isBottomFieldFirst(_desc.height()) ? AV_FIELD_BB : AV_FIELD_TT;
    }
    setColour();
    if (isDnxHdInterlaced(_desc)) {
        _context->bit_rate = dnxHdInterlacedBitRate;
    } else if (row->profile != FF_PROFILE_UNKNOWN) {
        _context->profile = row->profile;
        // Some encoders look at an option of their own instead.
        av_opt_set_int(_context->priv_data, "profile", row->profile, 0);
    }
    const int error = avcodec_open2(_context.get(), codec, nullptr);
    if (error < 0)
        problem = errorText(error);
    return error >= 0;
}

void FfmpegCoder::setColour()
{
    const Colour colour = colourOf(_desc.height()); // the library numbers it the same way
    _context->color_primaries = static_cast<AVColorPrimaries>(colour.primaries);
    _context->color_trc = static_cast<AVColorTransferCharacteristic>(colour.transfer);
    _context->colorspace = static_cast<AVColorSpace>(colour.matrix);
    _context->color_range = AVCOL_RANGE_MPEG;
    _context->chroma_sample_location = AVCHROMA_LOC_LEFT;
}

bool FfmpegCoder::widenChroma(const picture::View &view)
{
    const int stride = (view.width + 31) / 32 * 32; // samples; 64 bytes
    // The coder reads whole macroblocks of either field, also below the picture.
    const int lines = (view.height + 31) / 32 * 32;
    const std::size_t planeBytes = sizeof(std::uint16_t) * static_cast<std::size_t>(stride)
                                   * static_cast<std::size_t>(lines);
    if (!_chroma || !av_buffer_is_writable(_chroma.get()))
        _chroma.reset(av_buffer_alloc(2 * planeBytes + AV_INPUT_BUFFER_PADDING_SIZE));
    if (!_chroma)
        return false;
    for (int p = 1; p < 3; ++p) {
        _frame->data[p] = _chroma->data + static_cast<std::size_t>(p - 1) * planeBytes;
        _frame->linesize[p] = stride * static_cast<int>(sizeof(std::uint16_t));
        auto *plane = reinterpret_cast<std::uint16_t *>(_frame->data[p]);
        for (int y = 0; y < view.height; ++y)
            doubleChroma(view.line(p, y), plane + static_cast<std::ptrdiff_t>(stride) * y,
                         view.width / 2);
        for (int y = view.height; y < lines; ++y)
            std::copy_n(plane + static_cast<std::ptrdiff_t>(stride) * (y - 2), stride,
                        plane + static_cast<std::ptrdiff_t>(stride) * y);
    }
    _frame->buf[1] = av_buffer_ref(_chroma.get());
    return _frame->buf[1] != nullptr;
}

bool FfmpegCoder::prepare(const RawPictureRef &raw)
{
    const picture::View &view = raw->view;
    av_frame_unref(_frame.get());
    _frame->buf[0] = wrap(raw);
    if (_frame->buf[0] == nullptr)
        return false;
    _frame->format = _context->pix_fmt;
    _frame->width = view.width;
    _frame->height = view.height;
    _frame->pts = _count++;
    _frame->interlaced_frame = _desc.isInterlaced() ? 1 : 0;
    _frame->top_field_first = _desc.isInterlaced() && !isBottomFieldFirst(view.height) ? 1 : 0;
    _frame->color_primaries = _context->color_primaries;
    _frame->color_trc = _context->color_trc;
    _frame->colorspace = _context->colorspace;
    _frame->color_range = _context->color_range;
    const bool isWide = _context->pix_fmt == AV_PIX_FMT_YUV444P10;
    for (int p = 0; p < (isWide ? 1 : 3); ++p) {
        _frame->data[p] = reinterpret_cast<std::uint8_t *>(view.plane[p]);
        _frame->linesize[p] = view.stride[p] * static_cast<int>(sizeof(std::uint16_t));
    }
    return !isWide || widenChroma(view);
}

bool FfmpegCoder::code(const RawPictureRef &raw, CodedPicture &coded, QString &problem)
{
    const picture::View &view = raw->view;
    if (view.width != _desc.width() || view.height != _desc.height() || !view.isValid()) {
        problem = QStringLiteral("the picture has another raster");
        return false;
    }
    PacketPtr packet(av_packet_alloc());
    if (!packet || !prepare(raw)) {
        problem = QStringLiteral("no memory");
        av_frame_unref(_frame.get());
        return false;
    }
    int error = avcodec_send_frame(_context.get(), _frame.get());
    av_frame_unref(_frame.get());
    if (error >= 0)
        error = avcodec_receive_packet(_context.get(), packet.get());
    if (error < 0) {
        problem = errorText(error);
        return false;
    }
    coded.bytes = packet->data;
    coded.size = static_cast<std::uint32_t>(packet->size);
    coded.release = [kept = packet.release()] { FreeFfmpeg()(kept); };
    return true;
}

} // namespace

bool ffmpegCanCode(const OrbImageDesc &desc)
{
    const CodecRow *row = rowOf(desc.dataType());
    if (row == nullptr || desc.width() < row->minWidth || desc.height() < row->minHeight)
        return false;
    if (desc.width() > maxWidth || desc.height() > maxHeight || desc.width() % 2 != 0)
        return false;
    // Two fields of different heights are no format that anything plays.
    return !desc.isInterlaced() || desc.height() % 2 == 0;
}

std::unique_ptr<PictureCoder> createFfmpegCoder(const OrbImageDesc &desc, QString &problem)
{
    if (!ffmpegCanCode(desc)) {
        problem = QStringLiteral("no coder takes this format");
        return nullptr;
    }
    auto coder = std::make_unique<FfmpegCoder>(desc);
    if (!coder->open(problem))
        return nullptr;
    return coder;
}

} // namespace ferin
