#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

namespace cam {

/// One opened file or URL: demultiplexed a little ahead, decoded on demand, converted to the bus's
/// own picture and sound. Not thread-safe; every call may take as long as the medium takes.
class MediaDecoder
{
public:
    struct Target {
        int width = 0;
        int height = 0;
        int channels = 0; ///< 0 leaves the sound alone
    };
    struct Picture {
        std::int64_t timeUs = 0;
        std::vector<std::uint16_t> samples; ///< tightly packed planes
    };
    struct Sound {
        std::int64_t timeUs = 0;
        std::vector<std::uint8_t> pcm; ///< interleaved 24-bit little-endian, 48 kHz
    };

    /// Blocking reads and opens end soon after \a stop has become true.
    explicit MediaDecoder(const std::atomic<bool> &stop);
    ~MediaDecoder();
    MediaDecoder(const MediaDecoder &) = delete;
    MediaDecoder &operator=(const MediaDecoder &) = delete;

    bool open(const std::string &url, const Target &target);
    bool hasSound() const { return _audio != nullptr; }
    /// Size and rate of the video stream, each 0 when unknown.
    void describe(int &width, int &height, int &rateNum, int &rateDen) const;

    /// The next picture or block of sound. False at the end of the stream, or when the medium
    /// fails; times count from the beginning of the medium.
    bool nextPicture(Picture &picture);
    bool nextSound(Sound &sound);
    /// Back to the beginning; false when the medium cannot.
    bool rewind();

private:
    struct FreeFormat {
        void operator()(AVFormatContext *f) const { avformat_close_input(&f); }
    };
    struct FreeContext {
        void operator()(AVCodecContext *c) const { avcodec_free_context(&c); }
    };
    struct FreePacket {
        void operator()(AVPacket *p) const { av_packet_free(&p); }
    };
    struct FreeFrame {
        void operator()(AVFrame *f) const { av_frame_free(&f); }
    };
    struct FreeScaler {
        void operator()(SwsContext *s) const { sws_freeContext(s); }
    };
    struct FreeResampler {
        void operator()(SwrContext *s) const { swr_free(&s); }
    };
    using Context = std::unique_ptr<AVCodecContext, FreeContext>;
    using Packets = std::deque<std::unique_ptr<AVPacket, FreePacket>>;

    Context openStream(AVMediaType type, int &index) const;
    bool readPacket();
    bool nextFrame(AVCodecContext *context, Packets &packets, bool &drained);
    std::int64_t timeOf(int stream, std::int64_t fallback) const;
    bool convertPicture(Picture &picture);
    bool convertSound(Sound &sound);

    const std::atomic<bool> &_stop;
    Target _target;
    std::unique_ptr<AVFormatContext, FreeFormat> _format;
    Context _video;
    Context _audio;
    int _videoIndex = -1;
    int _audioIndex = -1;
    Packets _videoPackets;
    Packets _audioPackets;
    bool _atEnd = false;
    bool _videoDrained = false;
    bool _audioDrained = false;
    std::unique_ptr<AVFrame, FreeFrame> _frame;
    std::unique_ptr<SwsContext, FreeScaler> _scaler;
    std::unique_ptr<SwrContext, FreeResampler> _resampler;
    std::int64_t _ioStartedUs = 0;
    std::int64_t _lastPictureUs = 0;
    std::int64_t _lastSoundUs = 0;
    std::vector<std::int32_t> _words;
};

} // namespace cam
