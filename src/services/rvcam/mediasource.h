#pragma once

#include "services/rvcam/mediadecoder.h"
#include "services/rvcam/settings.h"
#include "services/rvcam/source.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace cam {

/// A media file or URL as a live input: played at its own speed, from the beginning again when it
/// ends, opened again when it fails. A thread of its own decodes a little ahead; draw() and sound()
/// never wait.
class MediaSource : public Source
{
public:
    explicit MediaSource(const Settings &settings);
    ~MediaSource() override;

    /// Takes size and rate from the medium where the command line does not say them. A medium that
    /// cannot be opened now leaves the settings alone.
    static void takeFormat(Settings &settings);

    bool draw(const picture::View &view, std::int64_t frame) override;
    void sound(std::uint8_t *out, std::int64_t firstSample, int samples) override;

private:
    void run();
    void play(MediaDecoder &decoder);
    std::int64_t nextStart() const;
    bool wantsPicture() const;
    bool wantsSound() const;
    void addPicture(MediaDecoder::Picture &&picture);
    void addSound(const MediaDecoder::Sound &sound);

    const Settings _settings;
    std::atomic<bool> _stop = false;

    // The time line runs on through loops and reconnections; both ends of the queues are times on
    // it.
    std::mutex _mutex;
    std::condition_variable _room;
    std::deque<MediaDecoder::Picture> _pictures;
    std::deque<std::vector<std::uint16_t>> _spare; ///< picture memory for use again
    std::vector<std::uint16_t> _shown;
    std::deque<std::uint8_t> _pcm;
    std::int64_t _pcmStart = 0;       ///< sample position of the first byte in _pcm
    std::int64_t _pictureEndUs = 0;   ///< ends of what has been decoded
    std::int64_t _soundEndUs = 0;
    std::int64_t _nowUs = 0;          ///< what draw() has come to
    std::int64_t _loopStartUs = 0;    ///< where the medium's beginning lies on the time line
    std::int64_t _offsetFrames = -1;  ///< frame at which the time line began, -1 before
    std::int64_t _offsetSamples = 0;
    std::int64_t _lastNewFrame = 0;   ///< frame that showed something new
    std::thread _thread;
};

} // namespace cam
