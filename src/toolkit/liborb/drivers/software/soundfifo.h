#pragma once

#include <QByteArray>

namespace ferin {

/// Bytes of one sample on one channel: 24-bit PCM.
constexpr int sampleBytes = 3;

/// Interleaved sound on another number of channels: the first ones are kept, missing ones are
/// silent.
QByteArray mapChannels(const QByteArray &sound, int channels, int wantedChannels);

/// Cuts an input's sound into blocks of exactly the samples that each frame must have. Sound that
/// is missing is silence; sound that nobody takes is dropped, oldest first, beyond about two
/// frames.
class SoundFifo
{
public:
    explicit SoundFifo(int channels = 0) : _channels(channels) {}
    int channels() const { return _channels; }
    void put(const QByteArray &sound, int channels);
    QByteArray take(int samples);
    void clear() { _waiting.clear(); }

private:
    int _channels;
    QByteArray _waiting;
};

} // namespace ferin
