#include "tst_input_media.h"

#include <cstring>

namespace inputtest {

bool MediaMaker::open(const QString &url, const MediaSpec &spec)
{
    _spec = spec;
    const QByteArray name = url.toLocal8Bit();
    AVFormatContext *output = nullptr;
    if (avformat_alloc_output_context2(&output, nullptr, spec.container, name.constData()) < 0)
        return false;
    _output.reset(output);
    if (!addVideo() || (spec.channels > 0 && !addAudio()))
        return false;
    if (spec.timecode != nullptr)
        av_dict_set(&_videoStream->metadata, "timecode", spec.timecode, 0);
    if (avio_open(&output->pb, name.constData(), AVIO_FLAG_WRITE) < 0)
        return false;
    output->flags |= AVFMT_FLAG_FLUSH_PACKETS;
    _pattern = std::make_unique<picture::MovingPattern>(spec.width, spec.height);
    _raw.resize(picture::bytesFor(spec.width, spec.height) / 2);
    return avformat_write_header(output, nullptr) >= 0;
}

bool MediaMaker::addVideo()
{
    const AVCodec *codec = avcodec_find_encoder_by_name(_spec.videoCodec);
    if (codec == nullptr)
        return false;
    _video.reset(avcodec_alloc_context3(codec));
    _video->width = _spec.width;
    _video->height = _spec.height;
    _video->pix_fmt = _spec.pixels;
    _video->framerate = _spec.rate;
    _video->time_base = av_inv_q(_spec.rate);
    _video->bit_rate = 8'000'000;
    _video->gop_size = 6;
    _video->max_b_frames = 0;
    if (_spec.interlaced)
        _video->flags |= AV_CODEC_FLAG_INTERLACED_DCT | AV_CODEC_FLAG_INTERLACED_ME;
    if ((_output->oformat->flags & AVFMT_GLOBALHEADER) != 0)
        _video->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (avcodec_open2(_video.get(), codec, nullptr) < 0)
        return false;
    _videoStream = avformat_new_stream(_output.get(), nullptr);
    _videoStream->time_base = _video->time_base;
    _videoStream->avg_frame_rate = _spec.rate;
    _scaler.reset(sws_getContext(_spec.width, _spec.height, AV_PIX_FMT_YUV422P10, _spec.width,
                                 _spec.height, _spec.pixels, SWS_BILINEAR, nullptr, nullptr, nullptr));
    return avcodec_parameters_from_context(_videoStream->codecpar, _video.get()) >= 0;
}

bool MediaMaker::addAudio()
{
    const AVCodec *codec = avcodec_find_encoder_by_name(_spec.audioCodec);
    if (codec == nullptr)
        return false;
    _audio.reset(avcodec_alloc_context3(codec));
    _audio->sample_rate = 48'000;
    _audio->sample_fmt = AV_SAMPLE_FMT_S16;
    _audio->time_base = {1, 48'000};
    _audio->bit_rate = 384'000;
    av_channel_layout_default(&_audio->ch_layout, _spec.channels);
    if (avcodec_open2(_audio.get(), codec, nullptr) < 0)
        return false;
    _audioStream = avformat_new_stream(_output.get(), nullptr);
    _audioStream->time_base = _audio->time_base;
    return avcodec_parameters_from_context(_audioStream->codecpar, _audio.get()) >= 0;
}

bool MediaMaker::pass(AVCodecContext *encoder, AVStream *stream, const AVFrame *frame)
{
    if (avcodec_send_frame(encoder, frame) < 0)
        return false;
    const ferin::PacketPtr packet(av_packet_alloc());
    while (avcodec_receive_packet(encoder, packet.get()) >= 0) {
        packet->stream_index = stream->index;
        av_packet_rescale_ts(packet.get(), encoder->time_base, stream->time_base);
        if (av_interleaved_write_frame(_output.get(), packet.get()) < 0)
            return false;
    }
    return true;
}

bool MediaMaker::write(std::uint32_t number, std::int64_t frame)
{
    const picture::View view = picture::viewOf(_raw.data(), _spec.width, _spec.height);
    _pattern->draw(view, number);
    const ferin::FramePtr coded(av_frame_alloc());
    coded->width = _spec.width;
    coded->height = _spec.height;
    coded->format = _spec.pixels;
    if (av_frame_get_buffer(coded.get(), 0) < 0)
        return false;
    const std::uint8_t *from[4] = {};
    int stride[4] = {};
    for (int p = 0; p < 3; ++p) {
        from[p] = reinterpret_cast<const std::uint8_t *>(view.plane[p]);
        stride[p] = view.stride[p] * 2;
    }
    sws_scale(_scaler.get(), from, stride, 0, _spec.height, coded->data, coded->linesize);
    coded->pts = frame;
    coded->interlaced_frame = _spec.interlaced ? 1 : 0;
    coded->top_field_first = _spec.interlaced ? 1 : 0;
    return pass(_video.get(), _videoStream, coded.get()) && (!_audio || writeSound(frame));
}

bool MediaMaker::writeSound(std::int64_t frame)
{
    const std::int64_t start = picture::samplesBeforeFrame(frame, _spec.rate.num, _spec.rate.den);
    const int samples = picture::samplesOfFrame(frame, _spec.rate.num, _spec.rate.den);
    if (_waitingSound.empty())
        _soundStart = start;
    for (int i = 0; i < samples; ++i) {
        for (int c = 0; c < _spec.channels; ++c)
            _waitingSound.push_back(countingSample(start + i));
    }
    const auto channels = static_cast<std::size_t>(_spec.channels);
    const std::size_t block = _audio->frame_size > 0 ? static_cast<std::size_t>(_audio->frame_size)
                                                     : static_cast<std::size_t>(samples);
    while (_waitingSound.size() >= block * channels) {
        const ferin::FramePtr sound(av_frame_alloc());
        sound->nb_samples = static_cast<int>(block);
        sound->format = AV_SAMPLE_FMT_S16;
        sound->sample_rate = 48'000;
        av_channel_layout_copy(&sound->ch_layout, &_audio->ch_layout);
        if (av_frame_get_buffer(sound.get(), 0) < 0)
            return false;
        std::memcpy(sound->data[0], _waitingSound.data(), block * channels * 2);
        sound->pts = _soundStart;
        _soundStart += static_cast<std::int64_t>(block);
        _waitingSound.erase(_waitingSound.begin(),
                            _waitingSound.begin() + static_cast<std::ptrdiff_t>(block * channels));
        if (!pass(_audio.get(), _audioStream, sound.get()))
            return false;
    }
    return true;
}

bool MediaMaker::close()
{
    bool isGood = pass(_video.get(), _videoStream, nullptr);
    if (_audio)
        isGood = pass(_audio.get(), _audioStream, nullptr) && isGood;
    isGood = av_write_trailer(_output.get()) >= 0 && isGood;
    _output.reset();
    return isGood;
}

} // namespace inputtest
