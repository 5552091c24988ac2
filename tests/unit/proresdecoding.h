#pragma once

#include "libprores/decoder.h"

#include "prorestools.h"

extern "C" {
#include <libavutil/opt.h>
}

// Pictures decoded into, and frames of other encoders.

namespace prorestest {

constexpr std::uint16_t untouched = 0xaaaa;

/// A picture with a border that must stay as it is.
struct DecodedPlanes {
    static constexpr int border = 3;

    std::vector<std::uint16_t> samples[4];
    DecodedPicture picture;
    int width[4] = {};

    explicit DecodedPlanes(const FrameInfo &info, Reduction reduction = Reduction::None)
    {
        picture.width = info.planeWidth(0, reduction);
        picture.height = info.planeHeight(reduction);
        picture.is444 = info.is444;
        for (int p = 0; p < (info.alphaBits > 0 ? 4 : 3); ++p) {
            width[p] = info.planeWidth(p, reduction);
            picture.stride[p] = width[p] + 2 * border + p;
            samples[p].resize(static_cast<std::size_t>(picture.stride[p])
                              * static_cast<std::size_t>(picture.height + 2 * border), untouched);
            picture.plane[p] = samples[p].data() + border * picture.stride[p] + border;
        }
    }

    std::uint16_t at(int p, int x, int y) const { return picture.plane[p][y * picture.stride[p] + x]; }

    /// What lies around the picture was not written, and every sample in it is one of 10 bits.
    bool isWithin() const
    {
        for (int p = 0; p < 4; ++p) {
            for (std::size_t i = 0; i < samples[p].size(); ++i) {
                const int x = static_cast<int>(i % static_cast<std::size_t>(picture.stride[p])) - border;
                const int y = static_cast<int>(i / static_cast<std::size_t>(picture.stride[p])) - border;
                const bool isInside = x >= 0 && x < width[p] && y >= 0 && y < picture.height;
                if (isInside ? samples[p][i] > 1023 : samples[p][i] != untouched)
                    return false;
            }
        }
        return true;
    }
};

inline DecodeReport decode(Decoder &decoder, const QByteArray &frame, DecodedPlanes &to)
{
    return decoder.decode(reinterpret_cast<const std::uint8_t *>(frame.constData()),
                          static_cast<std::size_t>(frame.size()), to.picture);
}

inline FrameInfo infoOf(const QByteArray &frame)
{
    return readFrameInfo(reinterpret_cast<const std::uint8_t *>(frame.constData()),
                         static_cast<std::size_t>(frame.size())).value_or(FrameInfo());
}

/// The judge at 10 bit, whatever the frame holds.
inline Judge tenBitJudge(const FrameInfo &info)
{
    Format format;
    format.profile = Profile::Standard;
    format.width = info.width;
    format.height = info.height;
    return Judge(format);
}

/// The largest difference between a decoded picture and the judge's, all planes; 9999 when they do not compare.
inline int farthest(const DecodedPlanes &own, const AVFrame &frame, const FrameInfo &info)
{
    if (frame.width != info.width || frame.height != info.height)
        return 9999;
    int most = 0;
    for (int p = 0; p < 4 && !own.samples[p].empty(); ++p) {
        if (frame.data[p] == nullptr)
            return 9999;
        for (int y = 0; y < info.height; ++y) {
            for (int x = 0; x < own.width[p]; ++x)
                most = std::max(most, std::abs(own.at(p, x, y) - decodedAt(frame, p, x, y)));
        }
    }
    return most;
}

/// A frame by one of FFmpeg's encoders, with options of its own as "name=value:name=value"; nothing when it refuses.
inline QByteArray foreignFrame(const char *encoder, AVPixelFormat pixels, int width, int height, bool interlaced,
                               const char *options)
{
    av_log_set_level(AV_LOG_QUIET); // it wonders about small pictures
    const AVCodec *codec = avcodec_find_encoder_by_name(encoder);
    AVCodecContext *context = avcodec_alloc_context3(codec);
    context->width = width;
    context->height = height;
    context->pix_fmt = pixels;
    context->time_base = {1, 25};
    context->thread_count = 1;
    if (interlaced)
        context->flags |= AV_CODEC_FLAG_INTERLACED_DCT;
    av_set_options_string(context->priv_data, options, "=", ":");
    AVFrame *frame = av_frame_alloc();
    AVPacket *packet = av_packet_alloc();
    frame->format = pixels;
    frame->width = width;
    frame->height = height;
    frame->interlaced_frame = interlaced ? 1 : 0;
    frame->top_field_first = 1;
    QByteArray result;
    std::minstd_rand random(7);
    if (avcodec_open2(context, codec, nullptr) == 0 && av_frame_get_buffer(frame, 0) == 0) {
        for (int p = 0; p < 4 && frame->data[p] != nullptr; ++p) {
            for (int y = 0; y < height; ++y) {
                auto *line = reinterpret_cast<std::uint16_t *>(frame->data[p] + y * frame->linesize[p]);
                for (int x = 0; x < frame->linesize[p] / 2; ++x)
                    line[x] = static_cast<std::uint16_t>(
                        std::clamp(512 + static_cast<int>(300 * std::sin(x / 9.0 + p) * std::cos(y / 7.0))
                                       + static_cast<int>(random() % 64), 0, 1023));
            }
        }
        if (avcodec_send_frame(context, frame) == 0 && avcodec_receive_packet(context, packet) == 0)
            result = QByteArray(reinterpret_cast<const char *>(packet->data), packet->size);
    }
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&context);
    return result;
}

inline QByteArray encodedAt(const Format &format, int index, const OwnPicture &picture)
{
    Settings settings;
    settings.index = index;
    Encoder encoder(format, settings);
    return encode(encoder, picture);
}

} // namespace prorestest
