#include "services/rvcam/mediasource.h"

#include "libpicture/tone.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <utility>

namespace cam {

namespace {

constexpr std::size_t mostPictures = 5;
constexpr std::int64_t soundRate = 48000;
constexpr std::int64_t soundAhead = soundRate;          ///< samples decoded ahead
constexpr std::int64_t longestGap = soundRate * 10;     ///< of sound that is filled with silence
constexpr std::int64_t jitter = soundRate / 20;         ///< a time stamp off by less is the next
constexpr std::int64_t soundTailUs = 500'000;           ///< of sound after the last picture
constexpr std::int64_t signalLostAfterSeconds = 2;

std::int64_t samplesIn(std::int64_t us)
{
    return us * 6 / 125; // 48000 a second
}

} // namespace

MediaSource::MediaSource(const Settings &settings)
    : _settings(settings)
    , _thread([this] { run(); })
{
}

MediaSource::~MediaSource()
{
    _stop = true;
    _room.notify_all();
    _thread.join();
}

void MediaSource::takeFormat(Settings &settings)
{
    const std::atomic<bool> never = false;
    MediaDecoder decoder(never);
    if (!decoder.open(settings.from, {settings.format.width, settings.format.height, 0}))
        return;
    int width = 0;
    int height = 0;
    int num = 0;
    int den = 0;
    decoder.describe(width, height, num, den);
    width &= ~1;
    if (!settings.sizeGiven && width > 0 && width <= bus::maxWidth && height > 0
        && height <= bus::maxHeight) {
        settings.format.width = width;
        settings.format.height = height;
    }
    const bool rateFits = num > 0 && den > 0 && den <= 1001 && num / den >= 1 && num / den <= 120;
    if (!settings.rateGiven && rateFits) {
        settings.format.rateNum = num;
        settings.format.rateDen = den;
        const int fps = (num + den - 1) / den;
        if (settings.timecode.fps != fps) {
            settings.timecode.fps = fps;
            settings.timecode.frame = std::min(settings.timecode.frame, fps - 1);
            settings.timecode.drop = false;
        }
    }
}

void MediaSource::run()
{
    bool complained = false;
    while (!_stop) {
        MediaDecoder decoder(_stop);
        const bus::Format &format = _settings.format;
        if (decoder.open(_settings.from, {format.width, format.height, format.audioChannels})) {
            complained = false;
            play(decoder);
        } else if (!complained) {
            std::fprintf(stderr, "rvcam: cannot open %s; trying again\n", _settings.from.c_str());
            complained = true;
        }
        std::unique_lock lock(_mutex);
        _room.wait_for(lock, std::chrono::seconds(1), [this] { return _stop.load(); });
        _loopStartUs = nextStart();
    }
}

/// Decodes ahead until the medium fails.
void MediaSource::play(MediaDecoder &decoder)
{
    bool picturesLeft = true;
    bool soundLeft = decoder.hasSound();
    bool gotAny = false;
    while (!_stop) {
        bool decodePicture = false;
        bool decodeSound = false;
        MediaDecoder::Picture picture;
        {
            std::unique_lock lock(_mutex);
            _room.wait(lock, [&] {
                return _stop || (picturesLeft && wantsPicture()) || (soundLeft && wantsSound())
                       || (!picturesLeft && !soundLeft);
            });
            decodePicture = picturesLeft && wantsPicture();
            decodeSound = soundLeft && wantsSound();
            if (decodePicture && !_spare.empty()) {
                picture.samples = std::move(_spare.back());
                _spare.pop_back();
            }
        }
        MediaDecoder::Sound sound;
        if (decodePicture) {
            picturesLeft = decoder.nextPicture(picture);
            if (picturesLeft)
                addPicture(std::move(picture));
        }
        if (decodeSound) {
            soundLeft = decoder.nextSound(sound);
            if (soundLeft)
                addSound(sound);
        }
        gotAny = gotAny || (decodePicture && picturesLeft) || (decodeSound && soundLeft);
        if (picturesLeft || soundLeft)
            continue;
        if (!gotAny || !decoder.rewind())
            return;
        picturesLeft = true;
        soundLeft = decoder.hasSound();
        gotAny = false;
        const std::lock_guard lock(_mutex);
        _loopStartUs = nextStart();
    }
}

/// Where the medium begins again: after its last picture, so that the loop shows each exactly once.
/// Sound that is a little longer is cut, sound that goes on without picture is heard.
std::int64_t MediaSource::nextStart() const
{
    const bool soundGoesOn = _soundEndUs > _pictureEndUs + soundTailUs;
    return std::max(soundGoesOn ? _soundEndUs : _pictureEndUs, _nowUs);
}

bool MediaSource::wantsPicture() const
{
    return _pictures.size() < mostPictures;
}

bool MediaSource::wantsSound() const
{
    const auto sampleBytes = static_cast<std::size_t>(_settings.format.audioChannels) * 3;
    return static_cast<std::int64_t>(_pcm.size() / sampleBytes) < soundAhead;
}

void MediaSource::addPicture(MediaDecoder::Picture &&picture)
{
    const std::lock_guard lock(_mutex);
    const bus::Format &format = _settings.format;
    picture.timeUs += _loopStartUs;
    const std::int64_t lengthUs = std::int64_t {1'000'000} * format.rateDen / format.rateNum;
    _pictureEndUs = std::max(_pictureEndUs, picture.timeUs + lengthUs);
    _pictures.push_back(std::move(picture));
}

void MediaSource::addSound(const MediaDecoder::Sound &sound)
{
    const std::lock_guard lock(_mutex);
    const auto sampleBytes = static_cast<std::int64_t>(_settings.format.audioChannels) * 3;
    const std::int64_t at = samplesIn(std::max<std::int64_t>(sound.timeUs + _loopStartUs, 0));
    const std::int64_t end = _pcmStart + static_cast<std::int64_t>(_pcm.size()) / sampleBytes;
    if (_pcm.empty() && at > end) {
        _pcmStart = at;
    } else if (at > end + jitter) {
        const std::int64_t gap = std::min(at - end, longestGap);
        _pcm.resize(_pcm.size() + static_cast<std::size_t>(gap * sampleBytes));
    } else if (at < end - jitter) {
        return; // this time has been filled
    }
    _pcm.insert(_pcm.end(), sound.pcm.begin(), sound.pcm.end());
    const std::int64_t samples = static_cast<std::int64_t>(sound.pcm.size()) / sampleBytes;
    _soundEndUs = std::max(_soundEndUs, (at + samples) * 125 / 6);
}

bool MediaSource::draw(const picture::View &view, std::int64_t frame)
{
    const bus::Format &format = _settings.format;
    const std::lock_guard lock(_mutex);
    if (_offsetFrames < 0 && !_pictures.empty()) {
        _offsetFrames = frame;
        _offsetSamples = picture::samplesBeforeFrame(frame, format.rateNum, format.rateDen);
    }
    // The picture whose time is nearest to the frame's from below; half a frame absorbs rounding.
    const std::int64_t n = frame - _offsetFrames;
    constexpr std::int64_t halfSecond = 500'000;
    const std::int64_t nowUs = (2 * n + 1) * halfSecond * format.rateDen / format.rateNum;
    if (_offsetFrames >= 0)
        _nowUs = nowUs;
    bool fresh = false;
    while (!_pictures.empty() && _pictures.front().timeUs <= nowUs) {
        if (!_shown.empty() && _spare.size() < mostPictures)
            _spare.push_back(std::move(_shown));
        _shown = std::move(_pictures.front().samples);
        _pictures.pop_front();
        fresh = true;
    }
    if (fresh) {
        _lastNewFrame = frame;
        _room.notify_all();
    }
    const std::int64_t patience = signalLostAfterSeconds * format.rateNum / format.rateDen;
    if (_shown.empty() || (_pictures.empty() && frame - _lastNewFrame > patience))
        return false;
    picture::copy(picture::viewOf(_shown.data(), format.width, format.height), view);
    return true;
}

void MediaSource::sound(std::uint8_t *out, std::int64_t firstSample, int samples)
{
    const auto sampleBytes = static_cast<std::int64_t>(_settings.format.audioChannels) * 3;
    std::fill_n(out, samples * sampleBytes, std::uint8_t {0});
    const std::lock_guard lock(_mutex);
    if (_offsetFrames < 0)
        return;

    std::int64_t at = firstSample - _offsetSamples;
    const auto drop = [&](std::int64_t count) {
        const auto has = static_cast<std::int64_t>(_pcm.size()) / sampleBytes;
        const std::int64_t dropped = std::clamp<std::int64_t>(count, 0, has);
        _pcm.erase(_pcm.begin(), _pcm.begin() + dropped * sampleBytes);
        _pcmStart += dropped;
    };
    drop(at - _pcmStart);
    const std::int64_t silent = std::clamp<std::int64_t>(_pcmStart - at, 0, samples);
    const std::int64_t has = static_cast<std::int64_t>(_pcm.size()) / sampleBytes;
    const std::int64_t taken = std::min(samples - silent, has);
    if (taken > 0 && _pcmStart >= at) {
        std::copy_n(_pcm.begin(), taken * sampleBytes, out + silent * sampleBytes);
        drop(taken);
    }
    _room.notify_all();
}

} // namespace cam
