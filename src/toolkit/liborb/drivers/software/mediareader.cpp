#include "liborb/drivers/software/mediareader.h"

#include "liborb/drivers/software/soundfifo.h"
#include "liborb/drivers/software/streamrate.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

extern "C" {
#include <libavutil/opt.h>
#include <libavutil/timecode.h>
}

namespace ferin {

namespace {

constexpr int soundRate = 48'000;
constexpr int mostChannels = 8;
constexpr AVRational soundTick = {1, soundRate};
constexpr std::int64_t largestStep = 1'000'000;  ///< microseconds between packets; beyond it time has jumped
constexpr std::int64_t maxPixels = 8192 * 4320;

/// What every source is opened with, and what those need that lose what nobody reads in time.
struct Option {
    const char *name;
    const char *value;
};
constexpr Option liveOptions[] = {
    { "probesize",        "5000000" },
    { "analyzeduration",  "2000000" },  // microseconds
    { "fifo_size",        "100000" },   // packets of 188 bytes: seconds of 20 Mbit/s
    { "buffer_size",      "4194304" },
    { "overrun_nonfatal", "1" },
};
constexpr Option connectionOptions[] = {
    { "rw_timeout", "10000000" },       // microseconds; a peer that says nothing is tried anew
};

QString errorText(int error)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    return QString::fromLocal8Bit(text);
}

std::int64_t nowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

SampleTime sampleTime(std::int64_t stamp, AVRational timeBase)
{
    if (stamp == AV_NOPTS_VALUE)
        return std::nullopt;
    return av_rescale_q(stamp, timeBase, soundTick);
}

} // namespace

MediaReader::MediaReader(const Handlers &handlers)
    : _handlers(handlers), _packet(av_packet_alloc()), _frame(av_frame_alloc())
{
}

MediaReader::~MediaReader() = default;

int MediaReader::onInterrupt(void *opaque)
{
    return static_cast<MediaReader *>(opaque)->_handlers.interrupted() ? 1 : 0;
}

void MediaReader::close()
{
    _video = Stream();
    _audio = Stream();
    _resampler.reset();
    _inFormat = -1;
    _channels = 0;
    _format.reset();
}

bool MediaReader::open(const QString &url, bool isFile, QString &problem)
{
    close();
    AVFormatContext *format = avformat_alloc_context();
    if (format == nullptr || !_packet || !_frame) {
        avformat_free_context(format);
        problem = QStringLiteral("no memory");
        return false;
    }
    format->interrupt_callback = {onInterrupt, this};
    AVDictionary *options = nullptr;
    if (!isFile) {
        for (const Option &option : liveOptions)
            av_dict_set(&options, option.name, option.value, 0);
        if (url.startsWith(QLatin1String("tcp:")) || url.startsWith(QLatin1String("http")))
            for (const Option &option : connectionOptions)
                av_dict_set(&options, option.name, option.value, 0);
    }
    const QByteArray name = isFile ? "file:" + url.toLocal8Bit() : url.toUtf8();
    int error = avformat_open_input(&format, name.constData(), nullptr, &options); // frees it on failure
    av_dict_free(&options);
    if (error >= 0) {
        _format.reset(format);
        error = avformat_find_stream_info(format, nullptr);
    }
    if (error < 0) {
        problem = errorText(error);
        close();
        return false;
    }
    _video = openStream(AVMEDIA_TYPE_VIDEO, -1);
    _audio = openStream(AVMEDIA_TYPE_AUDIO, _video.index);
    _channels = _audio.context ? std::min(_audio.context->ch_layout.nb_channels, mostChannels) : 0;
    if (_channels == 0)
        _audio = Stream();
    for (unsigned i = 0; i < format->nb_streams; ++i) {
        const int index = static_cast<int>(i);
        if (index != _video.index && index != _audio.index)
            format->streams[i]->discard = AVDISCARD_ALL;
    }
    const bool canSeek = format->pb != nullptr && (format->pb->seekable & AVIO_SEEKABLE_NORMAL) != 0;
    _onDemand = isFile || (canSeek && format->duration > 0);
    findRate();
    return true;
}

MediaReader::Stream MediaReader::openStream(AVMediaType type, int related)
{
    Stream stream;
    const AVCodec *codec = nullptr;
    const int index = av_find_best_stream(_format.get(), type, -1, related, &codec, 0);
    if (index < 0 || codec == nullptr)
        return stream;
    const AVStream &source = *_format->streams[index];
    if ((source.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0)
        return stream;
    CodecContextPtr context(avcodec_alloc_context3(codec));
    if (!context || avcodec_parameters_to_context(context.get(), source.codecpar) < 0)
        return stream;
    context->pkt_timebase = source.time_base;
    context->max_pixels = maxPixels;
    if (type == AVMEDIA_TYPE_VIDEO) {
        context->thread_count = 2;
        context->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
    }
    if (avcodec_open2(context.get(), codec, nullptr) < 0)
        return stream;
    stream.index = index;
    stream.timeBase = source.time_base;
    stream.context = std::move(context);
    return stream;
}

void MediaReader::findRate()
{
    _rate = OrbVideoRate();
    if (_video.index < 0)
        return;
    AVStream *stream = _format->streams[_video.index];
    const AVRational guessed = av_guess_frame_rate(_format.get(), stream, nullptr);
    for (const AVRational rate : {stream->avg_frame_rate, guessed, stream->r_frame_rate}) {
        if (!_rate.isValid())
            _rate = snapRate(rate.num, rate.den);
    }
}

QString MediaReader::codecName() const
{
    return hasPicture() ? QString::fromLatin1(_video.context->codec->name) : QString();
}

std::int64_t MediaReader::tickNs() const
{
    return av_rescale_q(1, _video.timeBase, {1, 1'000'000'000}) + 1;
}

bool MediaReader::isInterlacedByHeader() const
{
    const AVFieldOrder order = _video.index < 0 ? AV_FIELD_UNKNOWN
                                                : _format->streams[_video.index]->codecpar->field_order;
    return order == AV_FIELD_TT || order == AV_FIELD_BB || order == AV_FIELD_TB || order == AV_FIELD_BT;
}

OrbTimecode MediaReader::startTimecode() const
{
    const AVDictionaryEntry *entry = av_dict_get(_format->metadata, "timecode", nullptr, 0);
    for (unsigned i = 0; entry == nullptr && i < _format->nb_streams; ++i)
        entry = av_dict_get(_format->streams[i]->metadata, "timecode", nullptr, 0);
    const int fps = _rate.timecodeRate();
    int hour = 0, minute = 0, second = 0, frame = 0;
    char mark = ':';
    if (entry == nullptr || fps == 0
        || std::sscanf(entry->value, "%2d:%2d:%2d%c%2d", &hour, &minute, &second, &mark, &frame) != 5)
        return OrbTimecode();
    if (hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59 || frame < 0
        || frame >= fps)
        return OrbTimecode();
    return OrbTimecode(hour, minute, second, frame, fps, mark == ':' ? 0 : OrbTimecode::DropFrame);
}

MediaReader::Step MediaReader::step()
{
    const std::int64_t begun = nowNs();
    const int error = av_read_frame(_format.get(), _packet.get());
    _waitedNs = nowNs() - begun;
    if (error == AVERROR(EAGAIN))
        return Step::Read;
    if (error == AVERROR_EOF)
        return Step::End;
    if (error < 0)
        return Step::Failed;
    if (_packet->stream_index == _video.index)
        decode(_video, _packet.get());
    else if (_packet->stream_index == _audio.index)
        decode(_audio, _packet.get());
    av_packet_unref(_packet.get());
    return Step::Read;
}

/// A sender that began anew: nothing that the decoder remembers belongs to what comes now.
void MediaReader::noteJump(Stream &stream, const AVPacket &packet)
{
    if (packet.dts == AV_NOPTS_VALUE)
        return;
    if (stream.lastDts != AV_NOPTS_VALUE) {
        const std::int64_t step =
            av_rescale_q(packet.dts - stream.lastDts, stream.timeBase, {1, 1'000'000});
        if (step < -largestStep || step > largestStep)
            avcodec_flush_buffers(stream.context.get());
    }
    stream.lastDts = packet.dts;
}

void MediaReader::decode(Stream &stream, const AVPacket *packet)
{
    if (packet != nullptr && !_onDemand)
        noteJump(stream, *packet);
    if (avcodec_send_packet(stream.context.get(), packet) == AVERROR(EAGAIN)) {
        receive(stream);
        avcodec_send_packet(stream.context.get(), packet);
    }
    receive(stream); // a packet that is damaged costs its own pictures and nothing more
}

void MediaReader::receive(Stream &stream)
{
    while (avcodec_receive_frame(stream.context.get(), _frame.get()) >= 0) {
        if (&stream == &_audio)
            deliverSound(*_frame);
        else
            _handlers.picture(*_frame, sampleTime(_frame->best_effort_timestamp, stream.timeBase));
        av_frame_unref(_frame.get());
    }
}

bool MediaReader::prepareResampler(const AVFrame &frame)
{
    const int inChannels = frame.ch_layout.nb_channels;
    if (_resampler && _inRate == frame.sample_rate && _inFormat == frame.format
        && _inChannels == inChannels)
        return true;
    AVChannelLayout in = {};
    AVChannelLayout out = {};
    if (av_channel_layout_check(&frame.ch_layout) != 0 && frame.ch_layout.order != AV_CHANNEL_ORDER_UNSPEC)
        av_channel_layout_copy(&in, &frame.ch_layout);
    else
        av_channel_layout_default(&in, inChannels);
    // As many channels as at first; beyond eight they all come through here and the last ones are left out.
    if (inChannels == _channels || inChannels > mostChannels)
        av_channel_layout_copy(&out, &in);
    else
        av_channel_layout_default(&out, _channels);
    SwrContext *resampler = nullptr;
    const int error = swr_alloc_set_opts2(&resampler, &out, AV_SAMPLE_FMT_S32, soundRate, &in,
                                          static_cast<AVSampleFormat>(frame.format), frame.sample_rate,
                                          0, nullptr);
    _outChannels = out.nb_channels;
    av_channel_layout_uninit(&in);
    av_channel_layout_uninit(&out);
    _resampler.reset(resampler);
    if (error < 0 || swr_init(resampler) < 0) {
        _resampler.reset();
        return false;
    }
    _inRate = frame.sample_rate;
    _inFormat = frame.format;
    _inChannels = inChannels;
    return _outChannels >= _channels;
}

void MediaReader::deliverSound(const AVFrame &frame)
{
    if (frame.nb_samples <= 0 || frame.sample_rate <= 0 || !prepareResampler(frame))
        return;
    SampleTime at = sampleTime(frame.best_effort_timestamp, _audio.timeBase);
    if (at)
        *at -= swr_get_delay(_resampler.get(), soundRate);
    const int room = swr_get_out_samples(_resampler.get(), frame.nb_samples);
    if (room <= 0)
        return;
    _samples.resize(static_cast<std::size_t>(room) * static_cast<std::size_t>(_outChannels));
    auto *out = reinterpret_cast<std::uint8_t *>(_samples.data());
    const int count = swr_convert(_resampler.get(), &out, room,
                                  const_cast<const std::uint8_t **>(frame.extended_data),
                                  frame.nb_samples);
    if (count <= 0)
        return;
    const auto channels = static_cast<std::size_t>(_channels);
    _pcm.resize(static_cast<std::size_t>(count) * channels * sampleBytes);
    std::uint8_t *pcm = _pcm.data();
    for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
        const std::int32_t *frameOfSamples = _samples.data() + i * static_cast<std::size_t>(_outChannels);
        for (std::size_t c = 0; c < channels; ++c) {
            const auto sample = static_cast<std::uint32_t>(frameOfSamples[c]);
            *pcm++ = static_cast<std::uint8_t>(sample >> 8);
            *pcm++ = static_cast<std::uint8_t>(sample >> 16);
            *pcm++ = static_cast<std::uint8_t>(sample >> 24);
        }
    }
    _handlers.sound(_pcm.data(), count, at);
}

void MediaReader::drain()
{
    for (Stream *stream : {&_audio, &_video}) {
        if (stream->context)
            decode(*stream, nullptr);
    }
}

bool MediaReader::rewind()
{
    for (Stream *stream : {&_audio, &_video}) {
        if (stream->context)
            avcodec_flush_buffers(stream->context.get());
    }
    _resampler.reset();
    // A transport stream is sought by guessing, which may miss the first pictures; its first byte does not.
    const int flags = _format->iformat->flags;
    if ((flags & AVFMT_TS_DISCONT) != 0 && (flags & AVFMT_NO_BYTE_SEEK) == 0)
        return avformat_seek_file(_format.get(), -1, 0, 0, 0, AVSEEK_FLAG_BYTE) >= 0;
    const std::int64_t start = _format->start_time == AV_NOPTS_VALUE ? 0 : _format->start_time;
    return avformat_seek_file(_format.get(), -1, INT64_MIN, start, start, 0) >= 0;
}

OrbTimecode timecodeOf(const AVFrame &frame, const OrbVideoRate &rate)
{
    const AVFrameSideData *data = av_frame_get_side_data(&frame, AV_FRAME_DATA_S12M_TIMECODE);
    const int fps = rate.timecodeRate();
    if (data == nullptr || data->size < 2 * sizeof(std::uint32_t) || fps == 0)
        return OrbTimecode();
    const auto *words = reinterpret_cast<const std::uint32_t *>(data->data);
    if (words[0] < 1)
        return OrbTimecode();
    char text[AV_TIMECODE_STR_SIZE] = {};
    av_timecode_make_smpte_tc_string2(text, {rate.num(), rate.den()}, words[1], 0, 0);
    int hour = 0, minute = 0, second = 0, label = 0;
    char mark = ':';
    if (std::sscanf(text, "%d:%d:%d%c%d", &hour, &minute, &second, &mark, &label) != 5 || hour > 23
        || minute > 59 || second > 59 || label >= fps)
        return OrbTimecode();
    return OrbTimecode(hour, minute, second, label, fps, mark == ':' ? 0 : OrbTimecode::DropFrame);
}

} // namespace ferin
