#include "liborb/drivers/software/frameassembler.h"

#include "liborb/drivers/software/soundfifo.h"
#include "libpicture/tone.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace ferin {

namespace {

constexpr std::int64_t samplesPerSecond = 48'000;
constexpr std::int64_t jitter = samplesPerSecond / 50;  ///< time stamps are not more exact than this
constexpr std::int64_t longestGap = samplesPerSecond;   ///< that is filled; beyond it the time line has jumped
constexpr std::int64_t mostHeld = 5 * samplesPerSecond; ///< sound that no picture asks for

} // namespace

void SoundTrack::reset(int channels)
{
    _channels = channels;
    _hasBegun = false;
    _pcm.clear();
}

bool SoundTrack::reaches(std::int64_t end) const
{
    const bool isAnotherTimeLine = _begin > end + longestGap;
    return _hasBegun && !isAnotherTimeLine && _begin + held() >= end;
}

std::int64_t SoundTrack::held() const
{
    return _channels > 0 ? _pcm.size() / (_channels * sampleBytes) : 0;
}

void SoundTrack::put(SampleTime at, const std::uint8_t *pcm, int samples)
{
    if (_channels == 0 || samples <= 0)
        return;
    const int frameBytes = _channels * sampleBytes;
    if (!_hasBegun) {
        _hasBegun = true;
        _begin = at.value_or(0);
        _pcm.clear();
    }
    const std::int64_t gap = at ? *at - (_begin + held()) : 0;
    if (gap > longestGap || gap < -jitter) {
        _begin = *at;
        _pcm.clear();
    } else if (gap > jitter) {
        _pcm.append(static_cast<qsizetype>(gap) * frameBytes, '\0');
    }
    _pcm.append(reinterpret_cast<const char *>(pcm), static_cast<qsizetype>(samples) * frameBytes);
    const std::int64_t tooMuch = held() - mostHeld;
    if (tooMuch > 0) {
        _pcm.remove(0, static_cast<qsizetype>(tooMuch) * frameBytes);
        _begin += tooMuch;
    }
}

QByteArray SoundTrack::take(std::int64_t start, int samples)
{
    const int frameBytes = _channels * sampleBytes;
    QByteArray block(static_cast<qsizetype>(samples) * frameBytes, '\0');
    const std::int64_t end = start + samples;
    const std::int64_t from = std::max(start, _begin);
    const std::int64_t to = std::min(end, _begin + held());
    if (!_hasBegun || from >= to)
        return block;
    std::memcpy(block.data() + static_cast<qsizetype>(from - start) * frameBytes,
                _pcm.constData() + static_cast<qsizetype>(from - _begin) * frameBytes,
                static_cast<std::size_t>(to - from) * static_cast<std::size_t>(frameBytes));
    _pcm.remove(0, static_cast<qsizetype>(to - _begin) * frameBytes);
    _begin = to;
    return block;
}

void FrameAssembler::setChannels(int channels)
{
    _waiting.clear();
    _next.reset();
    _sound.reset(channels);
}

void FrameAssembler::begin(int rateNum, int rateDen, int patience, bool isLive)
{
    _waiting.clear();
    _next.reset();
    _rateNum = rateNum;
    _rateDen = rateDen;
    _patience = static_cast<std::size_t>(std::max(patience, 0));
    _number = 0;
    _isLive = isLive;
    _hasDelivered = false;
    _allowance = 0;
}

void FrameAssembler::addPicture(const RawPictureRef &picture, const OrbTimecode &timecode, SampleTime at)
{
    Waiting waiting;
    waiting.samples = picture::samplesOfFrame(_number, _rateNum, _rateDen);
    // The running total is exact; a time stamp half a frame away from it means that frames are missing.
    const bool hasJumped = at && (!_next || std::llabs(*at - *_next) > waiting.samples / 2);
    waiting.start = hasJumped ? *at : _next.value_or(0);
    waiting.frame.picture = picture;
    waiting.frame.timecode = timecode;
    waiting.frame.channels = _sound.channels();
    waiting.frame.number = static_cast<quint64>(_number);
    _next = waiting.start + waiting.samples;
    ++_number;
    _waiting.push_back(std::move(waiting));
    _allowance = std::min(_allowance + 2, 4);
    deliverReady();
}

void FrameAssembler::addSound(SampleTime at, const std::uint8_t *pcm, int samples)
{
    _sound.put(at, pcm, samples);
    deliverReady();
}

/// The first sound has come: a live source begins with the newest of the pictures that waited for it.
void FrameAssembler::leaveOutOldest()
{
    constexpr std::size_t kept = 3;
    while (_waiting.size() > kept)
        _waiting.pop_front();
    _number = 0;
    _next = _waiting.front().start;
    for (Waiting &waiting : _waiting) {
        waiting.samples = picture::samplesOfFrame(_number, _rateNum, _rateDen);
        waiting.start = *_next;
        waiting.frame.number = static_cast<quint64>(_number++);
        *_next += waiting.samples;
    }
}

void FrameAssembler::deliverFirst()
{
    _hasDelivered = true;
    --_allowance;
    Waiting first = std::move(_waiting.front());
    _waiting.pop_front();
    if (_sound.channels() > 0)
        first.frame.sound = _sound.take(first.start, first.samples);
    _deliver(std::move(first.frame));
}

void FrameAssembler::deliverReady()
{
    while (!_waiting.empty()) {
        const Waiting &first = _waiting.front();
        const bool isReady = _sound.channels() == 0 || _sound.reaches(first.start + first.samples)
                             || _waiting.size() > _patience;
        if (!isReady || (_isLive && _allowance <= 0))
            return;
        if (_isLive && !_hasDelivered && _waiting.size() > 1) {
            leaveOutOldest();
            _hasDelivered = true;
            continue; // the new first one may still have to wait
        }
        deliverFirst();
    }
}

void FrameAssembler::finish()
{
    while (!_waiting.empty())
        deliverFirst();
    drop();
}

void FrameAssembler::drop()
{
    setChannels(_sound.channels());
}

} // namespace ferin
