#pragma once

#include "libpicture/picture.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
}

/// The bytes of a frame; their memory is the encoder's until it codes the next one.
struct CodedFrame {
    const std::uint8_t *bytes = nullptr;
    std::size_t size = 0;
};

/// One of FFmpeg's ProRes encoders on one thread.
class FfmpegEncoder
{
public:
    /// \a profile is 0 for Proxy to 3 for HQ.
    FfmpegEncoder(const char *name, int profile, int width, int height)
    {
        const AVCodec *codec = avcodec_find_encoder_by_name(name);
        _context = avcodec_alloc_context3(codec);
        if (codec == nullptr || _context == nullptr)
            return;
        _context->width = width;
        _context->height = height;
        _context->pix_fmt = AV_PIX_FMT_YUV422P10;
        _context->time_base = {1, 25};
        _context->thread_count = 1;
        _context->profile = profile;
        av_opt_set_int(_context->priv_data, "profile", profile, 0);
        _isOpen = avcodec_open2(_context, codec, nullptr) == 0;
        _frame = av_frame_alloc();
        _packet = av_packet_alloc();
    }
    ~FfmpegEncoder()
    {
        av_packet_free(&_packet);
        av_frame_free(&_frame);
        avcodec_free_context(&_context);
    }
    FfmpegEncoder(const FfmpegEncoder &) = delete;
    FfmpegEncoder &operator=(const FfmpegEncoder &) = delete;

    bool isOpen() const { return _isOpen; }

    /// The picture is read where it lies. No bytes when it cannot be coded.
    CodedFrame encode(const picture::View &view)
    {
        av_frame_unref(_frame);
        av_packet_unref(_packet);
        _frame->format = AV_PIX_FMT_YUV422P10;
        _frame->width = view.width;
        _frame->height = view.height;
        _frame->pts = _next++;
        for (int p = 0; p < 3; ++p) {
            _frame->data[p] = reinterpret_cast<std::uint8_t *>(view.plane[p]);
            _frame->linesize[p] = view.stride[p] * 2;
        }
        _frame->buf[0] = av_buffer_create(_frame->data[0], picture::bytesFor(view.width, view.height),
                                          [](void *, std::uint8_t *) {}, nullptr, AV_BUFFER_FLAG_READONLY);
        if (avcodec_send_frame(_context, _frame) != 0 || avcodec_receive_packet(_context, _packet) != 0)
            return {};
        return {_packet->data, static_cast<std::size_t>(_packet->size)};
    }

private:
    AVCodecContext *_context = nullptr;
    AVFrame *_frame = nullptr;
    AVPacket *_packet = nullptr;
    std::int64_t _next = 0;
    bool _isOpen = false;
};

/// Decodes and compares.
class Comparison
{
public:
    Comparison(int width, int height)
    {
        const AVCodec *codec = avcodec_find_decoder(AV_CODEC_ID_PRORES);
        _context = avcodec_alloc_context3(codec);
        _context->width = width;
        _context->height = height;
        _context->codec_tag = MKTAG('a', 'p', 'c', 'h'); // else it wonders
        avcodec_open2(_context, codec, nullptr);
        _frame = av_frame_alloc();
    }
    ~Comparison()
    {
        av_frame_free(&_frame);
        avcodec_free_context(&_context);
    }
    Comparison(const Comparison &) = delete;
    Comparison &operator=(const Comparison &) = delete;

    /// False when the frame does not decode; what follows is about the last one that did.
    bool decode(const CodedFrame &frame)
    {
        AVPacket *packet = av_packet_alloc();
        av_new_packet(packet, static_cast<int>(frame.size));
        std::copy_n(frame.bytes, frame.size, packet->data);
        const bool isTaken = avcodec_send_packet(_context, packet) == 0;
        av_packet_free(&packet);
        return isTaken && avcodec_receive_frame(_context, _frame) == 0;
    }

    /// Peak signal to noise over the three planes, in decibels.
    double psnr(const picture::View &view) const
    {
        double sum = 0;
        for (int p = 0; p < 3; ++p) {
            for (int y = 0; y < view.height; ++y) {
                const auto *line = reinterpret_cast<const std::uint16_t *>(_frame->data[p] + y * _frame->linesize[p]);
                for (int x = 0; x < (p == 0 ? view.width : view.width / 2); ++x) {
                    const double difference = line[x] - view.line(p, y)[x];
                    sum += difference * difference;
                }
            }
        }
        const double count = 2.0 * view.width * view.height;
        return 10 * std::log10(1023.0 * 1023.0 * count / std::max(sum, 1.0));
    }

    /// Structural similarity of luma, the mean over blocks of 8x8.
    double ssim(const picture::View &view) const
    {
        constexpr double small = 0.01 * 1023 * 0.01 * 1023;
        constexpr double large = 0.03 * 1023 * 0.03 * 1023;
        double sum = 0;
        int blocks = 0;
        for (int top = 0; top + 8 <= view.height; top += 8) {
            for (int left = 0; left + 8 <= view.width; left += 8, ++blocks) {
                double a = 0, b = 0, aa = 0, bb = 0, ab = 0;
                for (int y = top; y < top + 8; ++y) {
                    const auto *line = reinterpret_cast<const std::uint16_t *>(_frame->data[0] + y * _frame->linesize[0]);
                    for (int x = left; x < left + 8; ++x) {
                        const double one = line[x];
                        const double other = view.line(0, y)[x];
                        a += one;
                        b += other;
                        aa += one * one;
                        bb += other * other;
                        ab += one * other;
                    }
                }
                a /= 64;
                b /= 64;
                const double spread = aa / 64 - a * a + bb / 64 - b * b;
                sum += (2 * a * b + small) * (2 * (ab / 64 - a * b) + large) / ((a * a + b * b + small) * (spread + large));
            }
        }
        return blocks > 0 ? sum / blocks : 0;
    }

private:
    AVCodecContext *_context = nullptr;
    AVFrame *_frame = nullptr;
};
