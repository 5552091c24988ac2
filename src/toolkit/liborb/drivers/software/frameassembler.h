#pragma once

#include "liborb/drivers/software/input.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>

namespace ferin {

/// A place on a source's own time line, in samples at 48 kHz; nothing when the source does not say.
using SampleTime = std::optional<std::int64_t>;

/// Sound on its way to its pictures, laid out by time: gaps are silent, a jump of the time line starts anew.
class SoundTrack
{
public:
    void reset(int channels);
    int channels() const { return _channels; }
    void put(SampleTime at, const std::uint8_t *pcm, int samples);
    /// Everything up to \a end has come, or will not come any more.
    bool reaches(std::int64_t end) const;
    /// Exactly \a samples from \a start on, silent where there are none; what lies before goes.
    QByteArray take(std::int64_t start, int samples);

private:
    std::int64_t held() const;

    int _channels = 0;
    bool _hasBegun = false;
    std::int64_t _begin = 0; // time of the first sample held
    QByteArray _pcm;
};

/// Joins pictures and the sound that belongs to them into frames, in order: each frame carries exactly the
/// samples that its number must have. A picture waits for its sound, but only for so long. One thread.
class FrameAssembler
{
public:
    using Deliver = std::function<void(InputFrame &&)>;
    explicit FrameAssembler(Deliver deliver) : _deliver(std::move(deliver)) {}

    /// The source has sound on so many channels, or none; all that came before is forgotten.
    void setChannels(int channels);
    /// Frames are numbered from 0 and come at this rate; \a patience is how many may wait for sound. Sound
    /// that came ahead of the first picture stays. Live frames leave evenly: those that waited for the first
    /// sound are left out but for the last few, and later on no more than two leave for each that comes.
    void begin(int rateNum, int rateDen, int patience, bool isLive);
    void addPicture(const RawPictureRef &picture, const OrbTimecode &timecode, SampleTime at);
    void addSound(SampleTime at, const std::uint8_t *pcm, int samples);
    /// Delivers all that wait, silent where sound is missing; the time line may begin anew.
    void finish();
    /// Forgets all that wait.
    void drop();

private:
    struct Waiting {
        InputFrame frame;
        std::int64_t start = 0;
        int samples = 0;
    };
    void leaveOutOldest();
    void deliverFirst();
    void deliverReady();

    Deliver _deliver;
    SoundTrack _sound;
    std::deque<Waiting> _waiting;
    int _rateNum = 25;
    int _rateDen = 1;
    std::size_t _patience = 0;
    bool _isLive = false;
    bool _hasDelivered = false;
    int _allowance = 0; // live frames that may leave now
    std::int64_t _number = 0;
    SampleTime _next; // where the next picture's sound begins
};

} // namespace ferin
