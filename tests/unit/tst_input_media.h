#pragma once

#include "liborb/drivers/software/ffmpeghandles.h"
#include "libpicture/framebar.h"
#include "libpicture/patterns.h"
#include "libpicture/tone.h"

#include <QString>

#include <cstdint>
#include <string>
#include <vector>

namespace inputtest {

/// What a test's media file or stream is made of.
struct MediaSpec {
    const char *videoCodec = "mpeg2video";
    AVPixelFormat pixels = AV_PIX_FMT_YUV420P;
    int width = 720;
    int height = 576;
    AVRational rate = {25, 1};
    bool interlaced = false;
    int channels = 2;            ///< 0: no sound
    const char *audioCodec = "pcm_s16le";
    const char *timecode = nullptr;
    const char *container = nullptr; ///< null: by the name
};

/// Writes pictures with the frame bar and sound whose samples count, by libav, to a file or a URL.
class MediaMaker
{
public:
    bool open(const QString &url, const MediaSpec &spec);
    /// The frame bar says \a number; the sound of \a frame goes with it. Time stamps follow from \a frame.
    bool write(std::uint32_t number, std::int64_t frame);
    bool close();

private:
    bool addVideo();
    bool addAudio();
    bool pass(AVCodecContext *encoder, AVStream *stream, const AVFrame *frame);
    bool writeSound(std::int64_t frame);

    struct FreeOutput {
        void operator()(AVFormatContext *context) const
        {
            if (context->pb != nullptr)
                avio_closep(&context->pb);
            avformat_free_context(context);
        }
    };
    MediaSpec _spec;
    std::unique_ptr<AVFormatContext, FreeOutput> _output;
    ferin::CodecContextPtr _video, _audio;
    AVStream *_videoStream = nullptr;
    AVStream *_audioStream = nullptr;
    ferin::ScalerPtr _scaler;
    std::unique_ptr<picture::MovingPattern> _pattern;
    std::vector<std::uint16_t> _raw;
    std::vector<std::int16_t> _waitingSound;
    std::int64_t _soundStart = 0;
};

/// The 16-bit value that sample \a position carries: counts up, so that a test sees which sample it has.
constexpr std::int16_t countingSample(std::int64_t position)
{
    return static_cast<std::int16_t>(position % 30011 + 100);
}

} // namespace inputtest
