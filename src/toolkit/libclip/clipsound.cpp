#include "libclip/clipsound.h"

#include "libclip/pcm.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace clip {

namespace {

constexpr int clipRate = 48'000;
constexpr std::size_t bytesOfSample = 3;

/// \a value units of \a scale in samples of sound.
std::int64_t inSamples(std::uint64_t value, std::uint32_t scale)
{
    constexpr std::uint64_t most = std::uint64_t(1) << 40;
    if (scale == 0 || value > most) {
        return 0;
    }
    return std::int64_t(value * clipRate / scale);
}

float fromLittle24(std::span<const std::byte> bytes)
{
    const std::uint32_t low = std::to_integer<std::uint32_t>(bytes[0])
        | std::to_integer<std::uint32_t>(bytes[1]) << 8 | std::to_integer<std::uint32_t>(bytes[2]) << 16;
    return float(std::int32_t(low << 8) >> 8);
}

void toLittle24(double value, std::span<std::byte> bytes)
{
    constexpr double least = -8'388'608.0;
    constexpr double most = 8'388'607.0;
    const auto whole = std::uint32_t(std::int32_t(std::lround(std::clamp(value, least, most))));
    for (std::size_t i = 0; i < bytesOfSample; ++i) {
        bytes[i] = std::byte(whole >> (8 * i) & 0xff);
    }
}

} // namespace

SoundSource::SoundSource(const MovTrack &track, std::uint32_t movieScale)
    : _track(&track),
      _shift(inSamples(std::uint64_t(track.start), track.timeScale) - inSamples(track.delay, movieScale))
{
    if (track.sampleRate != clipRate) {
        _turning.emplace(track.sampleRate);
    }
}

std::int64_t SoundSource::end() const
{
    constexpr std::int64_t most = std::int64_t(1) << 40;
    const auto samples = std::int64_t(_track->soundSamples());
    return (_turning ? _turning->turned(std::min(samples, most)) : samples) - _shift;
}

Error SoundSource::read(const RawFile &file, std::int64_t from, std::int64_t samples, int firstChannel,
                        int allChannels, std::span<std::byte> out) const
{
    const bool isAsKept = _track->pcm.bytes == 3 && !_track->pcm.isBigEndian;
    if (isAsKept && !_turning && channels() == allChannels) {
        return readRaw(file, from + _shift, out.first(std::size_t(samples) * _track->soundBlock()));
    }
    const std::size_t block = std::size_t(channels()) * bytesOfSample;
    const std::size_t outBlock = std::size_t(allChannels) * bytesOfSample;
    std::vector<std::byte> sound(std::size_t(samples) * block);
    if (_turning) {
        if (const Error error = readTurned(file, from + _shift, samples, sound)) {
            return error;
        }
    } else {
        std::vector<std::byte> raw(std::size_t(samples) * _track->soundBlock());
        if (const Error error = readRaw(file, from + _shift, raw)) {
            return error;
        }
        toLittle24(_track->pcm, raw, sound);
    }
    for (std::size_t i = 0; i < std::size_t(samples); ++i) {
        std::memcpy(&out[i * outBlock + std::size_t(firstChannel) * bytesOfSample], &sound[i * block], block);
    }
    return { };
}

/// The track's own bytes from sample \a first on; zeros before its start and behind its end.
Error SoundSource::readRaw(const RawFile &file, std::int64_t first, std::span<std::byte> raw) const
{
    const auto &runs = _track->runs;
    const auto block = std::int64_t(_track->soundBlock());
    std::int64_t at = std::max<std::int64_t>(first, 0);
    const std::int64_t stop = std::min(first + std::int64_t(raw.size()) / block,
                                       std::int64_t(_track->soundSamples()));
    auto run = std::ranges::upper_bound(runs, std::uint64_t(at), { }, &SoundRun::firstSample);
    for (; at < stop && run != runs.begin(); ++run) {
        const SoundRun &here = *(run - 1);
        const std::int64_t into = at - std::int64_t(here.firstSample);
        const std::int64_t count = std::min(std::int64_t(here.samples) - into, stop - at);
        const auto bytes = raw.subspan(std::size_t((at - first) * block), std::size_t(count * block));
        if (const Error error = file.readAt(here.offset + std::uint64_t(into * block), bytes)) {
            return error;
        }
        at += count;
        if (run == runs.end()) {
            break;
        }
    }
    return { };
}

Error SoundSource::readTurned(const RawFile &file, std::int64_t from, std::int64_t samples,
                              std::span<std::byte> sound) const
{
    const std::int64_t first = _turning->firstFor(from);
    const auto held = std::size_t(_turning->endFor(from + samples - 1) - first);
    std::vector<std::byte> raw(held * _track->soundBlock());
    if (const Error error = readRaw(file, first, raw)) {
        return error;
    }
    const auto all = std::size_t(channels());
    std::vector<std::byte> whole(held * all * bytesOfSample);
    toLittle24(_track->pcm, raw, whole);
    std::vector<float> one(held);
    for (std::size_t channel = 0; channel < all; ++channel) {
        for (std::size_t i = 0; i < held; ++i) {
            one[i] = fromLittle24(std::span(whole).subspan((i * all + channel) * bytesOfSample, bytesOfSample));
        }
        for (std::int64_t i = 0; i < samples; ++i) {
            const auto behind = std::size_t(_turning->firstFor(from + i) - first);
            const double value = _turning->at(from + i, std::span(one).subspan(behind));
            toLittle24(value, sound.subspan((std::size_t(i) * all + channel) * bytesOfSample, bytesOfSample));
        }
    }
    return { };
}

} // namespace clip
