#include "liborb/drivers/software/soundfifo.h"

#include <algorithm>
#include <cstring>

namespace ferin {

namespace {

constexpr int mostSamples = 8192; // a little over two frames of the slowest rate

} // namespace

QByteArray mapChannels(const QByteArray &sound, int channels, int wantedChannels)
{
    if (channels == wantedChannels)
        return sound;
    if (channels <= 0 || wantedChannels <= 0)
        return QByteArray();

    const qsizetype samples = sound.size() / (sampleBytes * channels);
    const auto kept = static_cast<std::size_t>(std::min(channels, wantedChannels) * sampleBytes);
    QByteArray mapped(samples * wantedChannels * sampleBytes, '\0');
    const char *from = sound.constData();
    char *to = mapped.data();
    for (qsizetype i = 0; i < samples; ++i) {
        std::memcpy(to, from, kept);
        from += channels * sampleBytes;
        to += wantedChannels * sampleBytes;
    }
    return mapped;
}

void SoundFifo::put(const QByteArray &sound, int channels)
{
    if (_channels <= 0 || channels <= 0)
        return;
    _waiting += mapChannels(sound, channels, _channels);
    const qsizetype most = qsizetype {mostSamples} * _channels * sampleBytes;
    if (_waiting.size() > most)
        _waiting.remove(0, _waiting.size() - most);
}

QByteArray SoundFifo::take(int samples)
{
    const qsizetype bytes = qsizetype {samples} * _channels * sampleBytes;
    if (bytes <= 0)
        return QByteArray();
    QByteArray block = _waiting.left(bytes);
    _waiting.remove(0, block.size());
    if (block.size() < bytes)
        block.append(bytes - block.size(), '\0');
    return block;
}

} // namespace ferin
