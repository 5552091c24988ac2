#include "services/rvmonitor/still.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libswscale/swscale.h>
}

#include <unistd.h>

namespace monitor {

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
using PacketPointer = std::unique_ptr<AVPacket, FreePacket>;

std::unique_ptr<AVFrame, FreeFrame> rgbOf(const picture::View &view)
{
    std::unique_ptr<AVFrame, FreeFrame> rgb(av_frame_alloc());
    const std::unique_ptr<SwsContext, FreeScaler> scaler(
        sws_getContext(view.width, view.height, AV_PIX_FMT_YUV422P10, view.width, view.height,
                       AV_PIX_FMT_RGB24, SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT,
                       nullptr, nullptr, nullptr));
    if (!rgb || !scaler)
        return nullptr;
    rgb->width = view.width;
    rgb->height = view.height;
    rgb->format = AV_PIX_FMT_RGB24;
    if (av_frame_get_buffer(rgb.get(), 0) < 0)
        return nullptr;
    const int *matrix = sws_getCoefficients(view.height > 576 ? SWS_CS_ITU709 : SWS_CS_ITU601);
    sws_setColorspaceDetails(scaler.get(), matrix, 0, matrix, 1, 0, 1 << 16, 1 << 16);
    const std::uint8_t *planes[3] = {};
    int strides[3] = {};
    for (int p = 0; p < 3; ++p) {
        planes[p] = reinterpret_cast<const std::uint8_t *>(view.plane[p]);
        strides[p] = view.stride[p] * 2;
    }
    if (sws_scale(scaler.get(), planes, strides, 0, view.height, rgb->data, rgb->linesize) <= 0)
        return nullptr;
    return rgb;
}

PacketPointer encode(const AVFrame &rgb, AVCodecID id)
{
    const AVCodec *codec = avcodec_find_encoder(id);
    const std::unique_ptr<AVCodecContext, FreeContext> context(
        codec == nullptr ? nullptr : avcodec_alloc_context3(codec));
    PacketPointer packet(av_packet_alloc());
    if (!context || !packet)
        return nullptr;
    context->width = rgb.width;
    context->height = rgb.height;
    context->pix_fmt = AV_PIX_FMT_RGB24;
    context->time_base = {1, 25};
    if (avcodec_open2(context.get(), codec, nullptr) < 0
        || avcodec_send_frame(context.get(), &rgb) < 0
        || avcodec_send_frame(context.get(), nullptr) < 0
        || avcodec_receive_packet(context.get(), packet.get()) < 0)
        return nullptr;
    return packet;
}

bool writeWhole(const std::string &path, const AVPacket &packet)
{
    const std::string partial = path + "." + std::to_string(getpid()) + ".part";
    std::FILE *file = std::fopen(partial.c_str(), "wb");
    if (file == nullptr)
        return false;
    const auto bytes = static_cast<std::size_t>(packet.size);
    const bool written = std::fwrite(packet.data, 1, bytes, file) == bytes;
    const bool closed = std::fclose(file) == 0;
    if (written && closed && std::rename(partial.c_str(), path.c_str()) == 0)
        return true;
    const int reason = errno;
    std::remove(partial.c_str());
    errno = reason;
    return false;
}

} // namespace

bool writeStill(bus::Frame &frame, const std::string &path, std::string &error)
{
    const picture::View view = frame.view();
    if (!view.isValid()) {
        error = "the frame has no picture";
        return false;
    }
    const bool ppm = path.size() > 4 && (path.ends_with(".ppm") || path.ends_with(".PPM"));
    const auto rgb = rgbOf(view);
    const AVCodecID codec = ppm ? AV_CODEC_ID_PPM : AV_CODEC_ID_PNG;
    const PacketPointer packet = rgb ? encode(*rgb, codec) : nullptr;
    if (!packet) {
        error = "the picture cannot be converted";
        return false;
    }
    if (!writeWhole(path, *packet)) {
        error = path + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

} // namespace monitor
