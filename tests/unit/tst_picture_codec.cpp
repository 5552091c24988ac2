#include "libpicture/framebar.h"
#include "libpicture/patterns.h"

#include <QTest>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

using namespace picture;

namespace {

struct FreeContext {
    void operator()(AVCodecContext *c) const { avcodec_free_context(&c); }
};
struct FreeFrame {
    void operator()(AVFrame *f) const { av_frame_free(&f); }
};
struct FreePacket {
    void operator()(AVPacket *p) const { av_packet_free(&p); }
};
struct FreeScaler {
    void operator()(SwsContext *s) const { sws_freeContext(s); }
};
using Context = std::unique_ptr<AVCodecContext, FreeContext>;
using Frame = std::unique_ptr<AVFrame, FreeFrame>;
using Packet = std::unique_ptr<AVPacket, FreePacket>;

Frame newFrame(int width, int height, AVPixelFormat format)
{
    Frame frame(av_frame_alloc());
    frame->width = width;
    frame->height = height;
    frame->format = format;
    if (av_frame_get_buffer(frame.get(), 0) < 0)
        return nullptr;
    return frame;
}

View viewOfFrame(const AVFrame &frame)
{
    View view;
    view.width = frame.width;
    view.height = frame.height;
    for (int p = 0; p < 3; ++p) {
        view.plane[p] = reinterpret_cast<std::uint16_t *>(frame.data[p]);
        view.stride[p] = frame.linesize[p] / 2;
    }
    return view;
}

/// \a from in another size or sample format.
Frame converted(const AVFrame &from, int width, int height, AVPixelFormat format)
{
    const std::unique_ptr<SwsContext, FreeScaler> scaler(
        sws_getContext(from.width, from.height, static_cast<AVPixelFormat>(from.format), width,
                       height, format, SWS_BILINEAR, nullptr, nullptr, nullptr));
    Frame to = newFrame(width, height, format);
    if (!scaler || !to)
        return nullptr;
    sws_scale(scaler.get(), from.data, from.linesize, 0, from.height, to->data, to->linesize);
    return to;
}

/// Encodes and decodes; the numbers of the decoded frames, -1 where there is none, at \a shrink of
/// the size.
class RoundTrip
{
public:
    std::vector<std::int64_t> numbers;
    std::int64_t bytes = 0;

    bool run(const char *codecName, AVPixelFormat format, int width, int height, int kilobits,
             int shrink, int frames)
    {
        const AVCodec *codec = avcodec_find_encoder_by_name(codecName);
        if (codec == nullptr)
            return false;
        _shrink = shrink;
        Context encoder(avcodec_alloc_context3(codec));
        encoder->width = width;
        encoder->height = height;
        encoder->pix_fmt = format;
        encoder->time_base = {1, 25};
        encoder->framerate = {25, 1};
        encoder->gop_size = 12;
        encoder->bit_rate = kilobits * 1000LL;
        encoder->thread_count = 2;
        if (kilobits == 0)
            av_opt_set(encoder->priv_data, "profile", "proxy", 0);
        _decoder.reset(avcodec_alloc_context3(avcodec_find_decoder(codec->id)));
        if (avcodec_open2(encoder.get(), codec, nullptr) < 0
            || avcodec_open2(_decoder.get(), nullptr, nullptr) < 0)
            return false;

        const MovingPattern pattern(width, height);
        const Frame raw = newFrame(width, height, AV_PIX_FMT_YUV422P10);
        for (int i = 0; i < frames; ++i) {
            pattern.draw(viewOfFrame(*raw), numberOf(i));
            const Frame input = converted(*raw, width, height, format);
            input->pts = i;
            if (avcodec_send_frame(encoder.get(), input.get()) < 0 || !passOn(encoder.get()))
                return false;
        }
        avcodec_send_frame(encoder.get(), nullptr);
        if (!passOn(encoder.get()))
            return false;
        avcodec_send_packet(_decoder.get(), nullptr);
        collect();
        return true;
    }

    static std::uint32_t numberOf(int i)
    {
        return 0x01a5c3f0U + static_cast<std::uint32_t>(i) * 7919;
    }

private:
    bool passOn(AVCodecContext *encoder)
    {
        const Packet packet(av_packet_alloc());
        while (avcodec_receive_packet(encoder, packet.get()) >= 0) {
            bytes += packet->size;
            if (avcodec_send_packet(_decoder.get(), packet.get()) < 0)
                return false;
            collect();
            av_packet_unref(packet.get());
        }
        return true;
    }

    void collect()
    {
        const Frame frame(av_frame_alloc());
        while (avcodec_receive_frame(_decoder.get(), frame.get()) >= 0) {
            const Frame small = converted(*frame, frame->width / _shrink & ~1,
                                          frame->height / _shrink, AV_PIX_FMT_YUV422P10);
            const auto number = readFrameNumber(viewOfFrame(*small));
            numbers.push_back(number ? std::int64_t {*number} : -1);
            av_frame_unref(frame.get());
        }
    }

    Context _decoder;
    int _shrink = 1;
};

} // namespace

class TestPictureCodec : public QObject
{
    Q_OBJECT

private slots:
    void theNumberSurvives_data();
    void theNumberSurvives();
};

void TestPictureCodec::theNumberSurvives_data()
{
    QTest::addColumn<QString>("codec");
    QTest::addColumn<int>("format");
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<int>("kilobits");
    QTest::addColumn<int>("shrink");
    QTest::addColumn<int>("frames");

    struct Row {
        const char *name;
        const char *codec;
        AVPixelFormat format;
        int width, height, kilobits, shrink, frames;
    };
    // clang-format off
    static constexpr Row rows[] = {
        // name, codec, format, raster, kbit/s (0: ProRes Proxy), size divided by, frames
        {"mpeg2 525 1.5M",         "mpeg2video", AV_PIX_FMT_YUV420P,     720,  486, 1500, 1, 30},
        {"mpeg2 525 1.5M half",    "mpeg2video", AV_PIX_FMT_YUV420P,     720,  486, 1500, 2, 30},
        {"mpeg2 1080 6M",          "mpeg2video", AV_PIX_FMT_YUV420P,    1920, 1080, 6000, 1, 15},
        {"mpeg2 1080 6M half",     "mpeg2video", AV_PIX_FMT_YUV420P,    1920, 1080, 6000, 2, 15},
        {"h264 720p 1M",           "libx264",    AV_PIX_FMT_YUV420P,    1280,  720, 1000, 1, 15},
        {"h264 720p 1M half",      "libx264",    AV_PIX_FMT_YUV420P,    1280,  720, 1000, 2, 15},
        {"prores proxy 525",       "prores_ks",  AV_PIX_FMT_YUV422P10,   720,  486,    0, 1,  3},
        {"prores proxy 525 half",  "prores_ks",  AV_PIX_FMT_YUV422P10,   720,  486,    0, 2,  3},
        {"prores proxy 1080",      "prores_ks",  AV_PIX_FMT_YUV422P10,  1920, 1080,    0, 1,  3},
        {"prores proxy 4K",        "prores_ks",  AV_PIX_FMT_YUV422P10,  4096, 2160,    0, 1,  2},
        {"prores proxy 4K half",   "prores_ks",  AV_PIX_FMT_YUV422P10,  4096, 2160,    0, 2,  1},
    };
    // clang-format on
    for (const Row &row : rows) {
        QTest::newRow(row.name) << QString::fromLatin1(row.codec) << static_cast<int>(row.format)
                                << row.width << row.height << row.kilobits << row.shrink
                                << row.frames;
    }
}

void TestPictureCodec::theNumberSurvives()
{
    QFETCH(QString, codec);
    QFETCH(int, format);
    QFETCH(int, width);
    QFETCH(int, height);
    QFETCH(int, kilobits);
    QFETCH(int, shrink);
    QFETCH(int, frames);
    if (avcodec_find_encoder_by_name(qPrintable(codec)) == nullptr)
        QSKIP("this build of libavcodec has no such encoder");

    av_log_set_level(AV_LOG_ERROR);
    RoundTrip trip;
    QVERIFY(trip.run(qPrintable(codec), static_cast<AVPixelFormat>(format), width, height, kilobits,
                     shrink, frames));
    QCOMPARE(static_cast<int>(trip.numbers.size()), frames);
    for (int i = 0; i < frames; ++i)
        QCOMPARE(trip.numbers[static_cast<std::size_t>(i)], std::int64_t {RoundTrip::numberOf(i)});
    if (kilobits > 0) // the codec was held to the rate, give or take the first frame
        QVERIFY(trip.bytes * 8 / 1000 < kilobits * frames / 25 * 4 + kilobits);
}

QTEST_APPLESS_MAIN(TestPictureCodec)
#include "tst_picture_codec.moc"
