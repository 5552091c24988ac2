#pragma once

#include "liborb/drivers/software/capturequeue.h"
#include "liborb/drivers/software/colouring.h"
#include "liborb/drivers/software/decoder.h"
#include "liborb/drivers/software/deviceconfig.h"
#include "liborb/drivers/software/encoder.h"
#include "liborb/drivers/software/frameclock.h"
#include "liborb/drivers/software/inputport.h"
#include "liborb/drivers/software/mailbox.h"
#include "liborb/drivers/software/playbackqueue.h"
#include "liborb/drivers/software/programoutput.h"
#include "liborb/drivers/software/signalgenerator.h"
#include "liborb/drivers/software/soundfifo.h"
#include "liborb/drivers/software/timecodegenerator.h"
#include "liborb/ifaces/videodriver.h"

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace ferin {

/// The running device behind the driver: a frame clock whose beats capture or play, the two queues,
/// the connector and the output. Public calls come from the event loop and never wait for more than
/// the short state lock; a setup is carried out by the clock's thread between two beats. Answers go
/// to the host through the mailbox, which must outlive the machine.
class Machine
{
public:
    Machine(const DeviceConfig &config, Mailbox &mail, OrbVideoDriverHost *host);

    OrbError setup(const OrbVideoDeviceSetup &setup);
    void flush();
    void setProperty(const OrbId &id, const QVariant &value);
    int framesReadable() const;
    int framesWritable() const;
    OrbError readFrame(OrbFrame &frame);
    OrbError writeFrame(const OrbFrame &frame);
    OrbMetadataHash currentFrameMetadata() const;
    QString stateAsString() const;
    OrbCaptureFigures captureFigures() const;

private:
    /// What the setup in force means; only the clock's thread has it.
    struct Run {
        OrbVideoDeviceSetup setup;
        OrbImageDesc image;
        int num = 0;
        int den = 1;
        int channels = 0;
    };
    /// One frame on its way from the input or generator into the capture queue and the output.
    struct Grab {
        bool hasSignal = false;
        bool isLost = false;             ///< no raw picture was left for it
        RawPictureRef picture;
        bool isShared = false;           ///< a still picture that takes no memory of its own
        const SignalGenerator *drawn = nullptr;
        bool isColoured = false;         ///< the picture has been through the input table
        OrbTimecode inputTimecode;
        bool hasRecordFlag = false;
        bool recordFlag = false;
    };
    /// The frame on output in playback.
    struct Shown {
        OrbMetadataHash meta;
        bool hasFrame = false;
    };

    // The clock's thread: setups (machine.cpp)
    void takeSetup(const OrbVideoDeviceSetup &setup);
    void applyWhenPlayedOut();
    void applySetup(const OrbVideoDeviceSetup &setup);
    void prepareSources(const Run &run);
    void enterMode(const Run &run);
    void beat(const Beat &beat);
    void inputStateChanged(const OrbVideoState &state); // any thread
    void postVbi(const OrbTimecode &label);
    void postDrops(int count, const char *why);

    // The event loop
    void tellDrop(const char *why);

    // The clock's thread: capture (machine_capture.cpp)
    void captureBeat(const Beat &beat);
    std::vector<Grab> grab(const Beat &beat);
    std::vector<Grab> grabInput(const Beat &beat);
    void makePool(const Run &run);
    Grab grabGenerator(SignalGenerator &generator, const Beat &beat);
    void colour(Grab &grab);
    void countSkipped(int frames, const char *why);
    void noteInput(const InputFrame &frame);
    void drainInput();
    QByteArray soundBlock();
    OrbTimecode capture(const Grab &grab, const QByteArray &sound);
    OrbFrame buildFrame(const Grab &grab, const QByteArray &sound, std::int64_t number, OrbBuffer &hooked);
    OutputFrame liveOutput(const std::vector<Grab> &grabs, const QByteArray &sound,
                           const OrbTimecode &label) const;

    // The clock's thread: playback (machine_playback.cpp)
    void playbackBeat(const Beat &beat);
    PlaybackQueue::Step pickFrame(PlaybackEntry &entry, quint64 &generation);
    bool isPrerolling(bool isNormal);
    bool isSameFrame(const OrbMetadataHash &one, const OrbMetadataHash &other) const;
    void showFrame(const PlaybackEntry &entry, quint64 generation, OutputFrame &out);
    QByteArray soundOf(const OrbFrame &frame) const;
    QString clipOf(const OrbMetadataHash &meta) const;
    QString modeText() const;

    const DeviceConfig _config;
    Mailbox &_mail;
    OrbVideoDriverHost *const _host;

    // Event loop only
    bool _inSetup = false;
    OrbVideoState _reportedInput;

    // Guarded
    mutable std::mutex _mutex;
    int _mode = OrbVideoDeviceSetup::None; ///< of the setup in force; None during one
    QSize _playRaster;
    CaptureQueue _capture {1};
    std::int64_t _captured = 0;            ///< the number of the next captured frame
    TimecodeGenerator _tcg;
    PlaybackQueue _play;
    quint64 _generation = 0;               ///< counts what makes a frame picked earlier void
    Shown _shown;
    OrbMetadataHash _firstQueued;          ///< of the first frame queued since the playback began
    bool _flowing = false;                 ///< a frame was shown since the last flush or setup
    int _prerolled = 0;                    ///< beats waited for the queue to fill
    quint64 _unfed = 0;                    ///< beats since the start whose frame did not come in time
    std::optional<int> _keyFrame;          ///< frame number shown last since the flush
    int _playMode = OrbIdPlayModeEE;
    QString _clipName;
    QString _reelName;
    QString _stateText;

    // The event loop only
    std::optional<std::chrono::steady_clock::time_point> _dropTold;

    // The clock's thread only
    EncoderPool _encoder;
    DecoderPool _decoder;
    std::optional<Run> _run;
    std::optional<OrbVideoDeviceSetup> _nextSetup; ///< waits for the frames queued to be shown
    int _setupBeats = 0;                           ///< that it has waited
    bool _started = false;
    std::unique_ptr<RawPicturePool> _pool;
    QSize _poolRaster;
    Allowance _raws {1};
    InputColouring _inputColour;
    std::unique_ptr<SignalGenerator> _generator;
    SoundGenerator _tone;
    SoundFifo _inputSound;
    bool _followsInput = false; ///< each of its frames is captured
    OrbTimecode _inputTimecode;
    bool _recordFlag = false;
    std::int64_t _soundFrame = 0;
    int _starved = 0;
    ProgramOutput _output;
    InputPort _port;
    FrameClock _clock; // last: it stops before anything else goes
};

} // namespace ferin
