#pragma once

#include "liborb/drivers/software/rawpicture.h"
#include "liborb/orbimagedesc.h"
#include "liborb/orbtimecode.h"

#include <QByteArray>
#include <QString>

#include <functional>
#include <memory>

namespace ferin {

/// One frame from a live input.
struct InputFrame {
    RawPictureRef picture;   ///< null: no picture in this frame
    QByteArray sound;        ///< interleaved 24-bit little-endian PCM at 48 kHz, in the input's own channels
    int channels = 0;        ///< channels of sound
    OrbTimecode timecode;    ///< that came with the frame; not valid when none did
    bool hasRecordFlag = false; ///< the source carries a camera record flag
    bool recordFlag = false;
    quint64 number = 0;      ///< counts the frames of this input since its signal came, without gaps
};

/// What an input sees. Progressive, interlaced or segmented as the source says; data type unset.
struct InputStatus {
    bool present = false;    ///< something arrives
    bool valid = false;      ///< its format is known and can be captured
    OrbImageDesc format;
    QString problem;         ///< why it is present but not valid, for the log
};

/// A live source behind a connector. It runs on a thread of its own, recovers by itself when the source goes
/// away and comes back, and keeps a short queue (when it is full the oldest goes and is counted).
class Input
{
public:
    using StatusHandler = std::function<void(const InputStatus &)>;

    virtual ~Input() = default; ///< stops the thread, waits at most for what cannot be interrupted
    /// Starts; \a handler is called on the input's thread at each change of status.
    virtual void start(const StatusHandler &handler) = 0;
    /// Takes the next frame in order; false when none waits. Called by the frame clock's thread.
    virtual bool take(InputFrame &frame) = 0;
    /// Frames waiting.
    virtual int waiting() const = 0;
    /// Frames lost because nobody took them.
    virtual quint64 overruns() const = 0;
    /// The source runs on a clock of its own, so that the frame clock must follow it.
    virtual bool isPaced() const = 0;
    /// Frames of a paced source that wait before the first is taken, and about as many from then on: they cover what
    /// comes late. At least 2.
    virtual int heldFrames() const { return 2; }
};

/// Makes the input that \a source names:
///   "file:PATH" or a plain path   a media file, looped, played at its own rate
///   any URL that FFmpeg opens     "udp://…", "rtp://…", "tcp://…", "http://…": live
///   "bus:/NAME"                   an input bus in shared memory
///   "none" or empty               nothing: no signal, ever
/// A source that cannot be opened is not an error: its status stays "not present" and it is tried again.
std::unique_ptr<Input> createInput(const QString &source);

} // namespace ferin
