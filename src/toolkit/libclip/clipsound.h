#pragma once

#include "libclip/movtrack.h"
#include "libclip/rawfile.h"
#include "libclip/soundrate.h"

#include <optional>

namespace clip {

/// One track that gives channels of a clip's sound: at 48 kHz in 24 bits, whatever the track holds.
class SoundSource
{
public:
    /// \a track stays where it is; \a movieScale are the units of its delay.
    SoundSource(const MovTrack &track, std::uint32_t movieScale);

    int channels() const { return _track->channels; }
    /// One behind its last sample, counted in the clip's.
    std::int64_t end() const;
    /// Fills its channels, from \a firstChannel of \a allChannels on, of the clip's samples from \a from on. Where it
    /// has no sound, \a out keeps its silence.
    Error read(const RawFile &file, std::int64_t from, std::int64_t samples, int firstChannel, int allChannels,
               std::span<std::byte> out) const;

private:
    Error readRaw(const RawFile &file, std::int64_t first, std::span<std::byte> raw) const;
    Error readTurned(const RawFile &file, std::int64_t from, std::int64_t samples, std::span<std::byte> sound) const;

    const MovTrack *_track;
    std::int64_t _shift;                ///< from a sample of the clip to one of the track at 48 kHz
    std::optional<SoundRate> _turning;  ///< of a track with another rate
};

} // namespace clip
