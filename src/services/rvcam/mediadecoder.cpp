#include "services/rvcam/mediadecoder.h"

#include "libpicture/picture.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/time.h>
}

namespace cam {

namespace {

constexpr std::size_t mostPackets = 2000; ///< read ahead of one stream while the other has none
constexpr int soundRate = 48000;

// A medium that says nothing for so long is taken for dead and opened again.
constexpr std::int64_t patienceUs = 10'000'000;

} // namespace

MediaDecoder::MediaDecoder(const std::atomic<bool> &stop)
    : _stop(stop)
    , _frame(av_frame_alloc())
{
}

MediaDecoder::~MediaDecoder() = default;

bool MediaDecoder::open(const std::string &url, const Target &target)
{
    _target = target;
    AVFormatContext *format = avformat_alloc_context();
    if (format == nullptr || !_frame)
        return false;
    format->interrupt_callback.opaque = this;
    format->interrupt_callback.callback = [](void *opaque) {
        const auto *self = static_cast<const MediaDecoder *>(opaque);
        const bool tooLong = av_gettime_relative() - self->_ioStartedUs > patienceUs;
        return self->_stop || tooLong ? 1 : 0;
    };
    _ioStartedUs = av_gettime_relative();
    if (avformat_open_input(&format, url.c_str(), nullptr, nullptr) < 0)
        return false; // frees the context as well
    _format.reset(format);
    if (avformat_find_stream_info(format, nullptr) < 0)
        return false;

    _video = openStream(AVMEDIA_TYPE_VIDEO, _videoIndex);
    if (target.channels > 0)
        _audio = openStream(AVMEDIA_TYPE_AUDIO, _audioIndex);
    return _video != nullptr || _audio != nullptr;
}

MediaDecoder::Context MediaDecoder::openStream(AVMediaType type, int &index) const
{
    const AVCodec *codec = nullptr;
    index = av_find_best_stream(_format.get(), type, -1, -1, &codec, 0);
    if (index < 0 || codec == nullptr)
        return nullptr;
    Context context(avcodec_alloc_context3(codec));
    const AVStream *stream = _format->streams[index];
    if (!context || avcodec_parameters_to_context(context.get(), stream->codecpar) < 0)
        return nullptr;
    context->pkt_timebase = stream->time_base;
    context->thread_count = 2;
    if (avcodec_open2(context.get(), codec, nullptr) < 0)
        return nullptr;
    return context;
}

void MediaDecoder::describe(int &width, int &height, int &rateNum, int &rateDen) const
{
    width = height = rateNum = rateDen = 0;
    if (!_video)
        return;
    width = _video->width;
    height = _video->height;
    AVStream *stream = _format->streams[_videoIndex];
    const AVRational rate = av_guess_frame_rate(_format.get(), stream, nullptr);
    rateNum = rate.num;
    rateDen = rate.den;
}

bool MediaDecoder::readPacket()
{
    if (_atEnd || _videoPackets.size() >= mostPackets || _audioPackets.size() >= mostPackets)
        return false;
    std::unique_ptr<AVPacket, FreePacket> packet(av_packet_alloc());
    _ioStartedUs = av_gettime_relative();
    if (!packet || av_read_frame(_format.get(), packet.get()) < 0) {
        _atEnd = true;
        return false;
    }
    if (packet->stream_index == _videoIndex && _video)
        _videoPackets.push_back(std::move(packet));
    else if (packet->stream_index == _audioIndex && _audio)
        _audioPackets.push_back(std::move(packet));
    return true;
}

/// Decodes the next frame of a stream into _frame; broken packets are passed over.
bool MediaDecoder::nextFrame(AVCodecContext *context, Packets &packets, bool &drained)
{
    while (!_stop) {
        const int result = avcodec_receive_frame(context, _frame.get());
        if (result >= 0)
            return true;
        if (result == AVERROR_EOF || drained)
            return false;
        if (!packets.empty()) {
            avcodec_send_packet(context, packets.front().get());
            packets.pop_front();
            continue;
        }
        if (readPacket())
            continue;
        if (!_atEnd)
            return false; // the other stream's queue is full: this one has nothing for a long time
        avcodec_send_packet(context, nullptr);
        drained = true;
    }
    return false;
}

std::int64_t MediaDecoder::timeOf(int stream, std::int64_t fallback) const
{
    const std::int64_t time = _frame->best_effort_timestamp;
    if (time == AV_NOPTS_VALUE)
        return fallback;
    const std::int64_t start = _format->start_time == AV_NOPTS_VALUE ? 0 : _format->start_time;
    return av_rescale_q(time, _format->streams[stream]->time_base, AV_TIME_BASE_Q) - start;
}

bool MediaDecoder::nextPicture(Picture &picture)
{
    if (!_video || !nextFrame(_video.get(), _videoPackets, _videoDrained))
        return false;
    picture.timeUs = timeOf(_videoIndex, _lastPictureUs + 40'000);
    _lastPictureUs = picture.timeUs;
    const bool converted = convertPicture(picture);
    av_frame_unref(_frame.get());
    return converted;
}

bool MediaDecoder::convertPicture(Picture &picture)
{
    const auto format = static_cast<AVPixelFormat>(_frame->format);
    _scaler.reset(sws_getCachedContext(_scaler.release(), _frame->width, _frame->height, format,
                                       _target.width, _target.height, AV_PIX_FMT_YUV422P10,
                                       SWS_BICUBIC, nullptr, nullptr, nullptr));
    if (!_scaler)
        return false;
    // The bus carries video range; the matrix goes with the number of lines where the medium is
    // silent.
    const int fromSpace = _frame->colorspace != AVCOL_SPC_UNSPECIFIED ? _frame->colorspace
                          : _frame->height > 576                      ? SWS_CS_ITU709
                                                                      : SWS_CS_ITU601;
    const int toSpace = _target.height > 576 ? SWS_CS_ITU709 : SWS_CS_ITU601;
    const int fullRange = _frame->color_range == AVCOL_RANGE_JPEG ? 1 : 0;
    sws_setColorspaceDetails(_scaler.get(), sws_getCoefficients(fromSpace), fullRange,
                             sws_getCoefficients(toSpace), 0, 0, 1 << 16, 1 << 16);

    picture.samples.resize(picture::bytesFor(_target.width, _target.height) / 2);
    const picture::View view =
        picture::viewOf(picture.samples.data(), _target.width, _target.height);
    std::uint8_t *planes[4] = {};
    int strides[4] = {};
    for (int p = 0; p < 3; ++p) {
        planes[p] = reinterpret_cast<std::uint8_t *>(view.plane[p]);
        strides[p] = view.stride[p] * 2;
    }
    return sws_scale(_scaler.get(), _frame->data, _frame->linesize, 0, _frame->height, planes,
                     strides) > 0;
}

bool MediaDecoder::nextSound(Sound &sound)
{
    if (!_audio || !nextFrame(_audio.get(), _audioPackets, _audioDrained))
        return false;
    sound.timeUs = timeOf(_audioIndex, _lastSoundUs);
    const bool converted = convertSound(sound);
    const std::int64_t lengthUs =
        _frame->sample_rate > 0 ? _frame->nb_samples * 1'000'000LL / _frame->sample_rate : 0;
    _lastSoundUs = sound.timeUs + lengthUs;
    av_frame_unref(_frame.get());
    return converted;
}

bool MediaDecoder::convertSound(Sound &sound)
{
    if (!_resampler) {
        AVChannelLayout from {};
        AVChannelLayout to {};
        const int channels = _frame->ch_layout.nb_channels;
        if (_frame->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
            av_channel_layout_default(&from, channels);
        else
            av_channel_layout_copy(&from, &_frame->ch_layout);
        av_channel_layout_default(&to, _target.channels);
        SwrContext *made = nullptr;
        swr_alloc_set_opts2(&made, &to, AV_SAMPLE_FMT_S32, soundRate, &from,
                            static_cast<AVSampleFormat>(_frame->format), _frame->sample_rate, 0,
                            nullptr);
        av_channel_layout_uninit(&from);
        av_channel_layout_uninit(&to);
        _resampler.reset(made);
        if (!_resampler || swr_init(_resampler.get()) < 0) {
            _resampler.reset();
            return false;
        }
    }
    const int room = swr_get_out_samples(_resampler.get(), _frame->nb_samples);
    if (room < 0)
        return false;
    const auto channels = static_cast<std::size_t>(_target.channels);
    _words.resize(static_cast<std::size_t>(room) * channels);
    auto *out = reinterpret_cast<std::uint8_t *>(_words.data());
    const int got = swr_convert(_resampler.get(), &out, room,
                                const_cast<const std::uint8_t **>(_frame->extended_data),
                                _frame->nb_samples);
    if (got < 0)
        return false;
    const std::size_t count = static_cast<std::size_t>(got) * channels;
    sound.pcm.resize(count * 3);
    for (std::size_t i = 0; i < count; ++i) {
        const auto bits = static_cast<std::uint32_t>(_words[i]);
        sound.pcm[i * 3] = static_cast<std::uint8_t>((bits >> 8) & 0xffU);
        sound.pcm[i * 3 + 1] = static_cast<std::uint8_t>((bits >> 16) & 0xffU);
        sound.pcm[i * 3 + 2] = static_cast<std::uint8_t>((bits >> 24) & 0xffU);
    }
    return true;
}

bool MediaDecoder::rewind()
{
    const std::int64_t start = _format->start_time == AV_NOPTS_VALUE ? 0 : _format->start_time;
    _ioStartedUs = av_gettime_relative();
    if (av_seek_frame(_format.get(), -1, start, AVSEEK_FLAG_BACKWARD) < 0)
        return false;
    for (const Context *context : {&_video, &_audio}) {
        if (*context)
            avcodec_flush_buffers(context->get());
    }
    _resampler.reset();
    _videoPackets.clear();
    _audioPackets.clear();
    _atEnd = _videoDrained = _audioDrained = false;
    _lastPictureUs = _lastSoundUs = 0;
    return true;
}

} // namespace cam
