#pragma once

#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

namespace ferin {

/// Owning pointers to what libav hands out.
struct FreeFfmpeg {
    void operator()(AVCodecContext *context) const { avcodec_free_context(&context); }
    void operator()(AVFormatContext *context) const { avformat_close_input(&context); }
    void operator()(AVFrame *frame) const { av_frame_free(&frame); }
    void operator()(AVPacket *packet) const { av_packet_free(&packet); }
    void operator()(AVBufferRef *buffer) const { av_buffer_unref(&buffer); }
    void operator()(SwsContext *scaler) const { sws_freeContext(scaler); }
    void operator()(SwrContext *resampler) const { swr_free(&resampler); }
};
using CodecContextPtr = std::unique_ptr<AVCodecContext, FreeFfmpeg>;
using FormatContextPtr = std::unique_ptr<AVFormatContext, FreeFfmpeg>;
using FramePtr = std::unique_ptr<AVFrame, FreeFfmpeg>;
using PacketPtr = std::unique_ptr<AVPacket, FreeFfmpeg>;
using BufferPtr = std::unique_ptr<AVBufferRef, FreeFfmpeg>;
using ScalerPtr = std::unique_ptr<SwsContext, FreeFfmpeg>;
using ResamplerPtr = std::unique_ptr<SwrContext, FreeFfmpeg>;

} // namespace ferin
