#pragma once

#include "liborb/drivers/clip/clipleg.h"
#include "liborb/ifaces/mediadriver.h"

#include <QTimer>

#include <chrono>
#include <deque>
#include <memory>
#include <set>
#include <vector>

/// Writes a clip file on an I/O thread of its own, and keeps every frame until it is committed. When
/// the medium fails or does not answer for long, the host may name a clip on another medium: the
/// frames that are not committed become its head, and the stream goes on there. Nothing is asked of
/// a file again whose medium has failed once.
///
/// close() is answered when all is written; on a medium that has not moved for a long time what is
/// left is given up with ETIMEDOUT. When frames are lost that were answered as written, the log has
/// their number, and before the close is answered the first of them is answered again, with the
/// error.
class WriteDriver : private ClipLegHost
{
public:
    /// How long a medium may take.
    struct Patience
    {
        std::chrono::milliseconds tick{50};         ///< between two looks
        std::chrono::milliseconds slowAfter{300};   ///< so that an operator knows within half a second
        std::chrono::milliseconds quickAfter{1000}; ///< of answers in time
        std::chrono::milliseconds mayHangAfter{1000};
        std::chrono::milliseconds hangsAfter{3400};
        std::chrono::milliseconds toCatchUp{3000};  ///< at the start, and between two questions for a spare
    };

    explicit WriteDriver(OrbMediaDriverHost *host) : WriteDriver(host, Patience()) {}
    WriteDriver(OrbMediaDriverHost *host, const Patience &patience);
    /// Waits briefly for what is still to be written, then leaves it to the thread.
    ~WriteDriver() override;

    void open(const QString &path, const OrbStreamInfo &info);
    void write(const OrbFrame &frame);
    void flush();
    void close();

private:
    void legOpened(const OrbError &error) override;
    void legTook(qint64 number, const OrbError &error) override;
    void legFlushed() override;
    void legCommitted() override;
    void legFailed(const OrbError &error) override;
    void legClosed(const OrbError &error) override;

    void begin(const QString &path);
    bool goOver(const OrbError &error);
    QString findSpare(const OrbError &error);
    void retire();
    void giveUp(const OrbError &error);
    void closeLeg();
    void tellFailed(const OrbError &error);
    int framesLost() const;
    void releaseCommitted();
    void watch();
    void watchMedium();
    void watchSpeed(std::chrono::milliseconds waiting);
    void watchClose();
    bool isTooSlow() const;
    void tellSlow(bool isSlow);
    void answerClose(const OrbError &error);

    OrbMediaDriverHost *_host;
    const Patience _patience;
    OrbStreamInfo _info;
    std::unique_ptr<ClipLeg> _leg;
    std::vector<std::unique_ptr<ClipLeg>> _retired; ///< being closed
    std::set<QString> _failedFolders;
    OrbError _failure;          ///< that the leg came from
    QString _failedPath;        ///< where it came from; empty for the first one, and once it is told

    // Frames by their number in the stream: committed <= _firstHeld <= _accepted, answered <= accepted
    std::deque<OrbFrame> _held; ///< not committed
    int _firstHeld = 0;
    int _accepted = 0;
    int _answered = 0;
    int _taken = 0;             ///< answered without an error; the first ones

    bool _isOver = false;       ///< an error was answered: the stream takes no more
    bool _isFrameAtFault = false; ///< it was a frame that no medium takes
    bool _isGivingUp = false;   ///< the medium failed and there is no other
    bool _isFlushing = false;
    bool _isClosing = false;
    bool _isClosed = false;
    int _closesAsked = 0;       ///< of the leg
    int _namesTried = 0;
    bool _isLossTold = false;
    bool _isSlow = false;
    QTimer _watchTimer;
    int _ticksOfLeg = 0;
    int _ticksQuick = 0;        ///< since it was slow
    int _tickOfNextAsking = 0;
    int _ticksStill = 0;        ///< of a close
    quint64 _jobsDone = 0;
};
