#pragma once

#include "liborb/ifaces/mediadriver.h"
#include "liborb/orbtimestamp.h"

#include <QObject>
#include <QVariant>

#include <functional>
#include <memory>

/// One stream of frames that is read from media or written to a clip file. The descriptor is a path
/// (QString) or an OrbPlayList. All calls and signals on the event-loop thread.
class OrbStream : public QObject, private OrbMediaDriverHost
{
    Q_OBJECT
public:
    enum OpenState { Closed = 0, Open = 1, Opening = 2, Closing = 3 };

    explicit OrbStream(QObject *parent = nullptr);
    ~OrbStream() override;

    // Answers at once
    void setDesc(const QVariant &desc);
    QVariant desc() const;
    /// True when \a desc names the same media: the same path, or a play list of the same clips.
    bool hasDesc(const QVariant &desc) const;
    void setAutoType();
    void setType(const OrbId &type);
    void setInfo(const OrbStreamInfo &info);
    OrbStreamInfo info() const;
    void flush(); ///< pushes written frames towards storage; nothing unless writable
    int pending() const; ///< requests not yet completed
    void setBenchmarkEnable(bool on);
    /// Who knows where a clip that is written may go on when its medium fails: is given the descriptor of the
    /// clip that failed and answers one on another medium, or an invalid one. Asked at the moment of need, also
    /// while the stream is closing; once more, with the clip it has named, when that name is taken.
    using SpareQuestion = std::function<QVariant(const QVariant &failed, const OrbError &error)>;
    void setSpareQuestion(SpareQuestion question);
    bool isReadable() const; ///< access is 1, whether open yet or not; never on a closed stream
    bool isWritable() const; ///< access is 2, likewise
    bool isClosed() const { return _state == Closed; }
    bool isOpen() const { return _state == Open; }
    bool isOpening() const { return _state == Opening; }
    bool isClosing() const { return _state == Closing; }
    /// Counts the opens that succeeded: tells a stream opened anew from the one before.
    quint64 openSerial() const { return _openSerial; }
    /// Completes by frameWritten(); dropped unless the stream is open for writing.
    void write(const OrbFrame &frame);

    // Starts and completes by a signal
    /// 1 reads, 2 writes; completes by openIsDone(access, error). False when there is no driver for
    /// the descriptor or the stream is already open or opening; a stream that is closing opens when
    /// the close is done (false when it already waits to do so). Every open() that answered true is
    /// answered by exactly one openIsDone() or, when it was closed meanwhile, by closeIsDone()
    /// alone. After an error the stream is closed, already when the signal comes.
    bool open(int access);
    /// Completes by closeIsDone(), after every frame written before. Nothing on a closed stream. A
    /// stream still opening is closed when the open is done, which is then not reported. On a
    /// stream that is closing it takes back the open() that waits for the close.
    void close();
    /// Completes by readIsDone(); an error when the stream is not open for reading.
    void read(int frameNumber, void *context);

signals:
    void openIsDone(int access, const OrbError &error);
    void closeIsDone();
    /// The media that is read is still being recorded and has more frames now; info() has it.
    void lengthChanged(int frames);
    void readIsDone(int frameNumber, const OrbFrame &frame, const OrbError &error, void *context);
    void frameWritten(int frameNumber, const OrbError &error);
    void benchmark(int frameNumber, const OrbTimeStamp &time);
    /// The medium of \a failed failed with \a error; the stream goes on in \a desc, which begins with the first
    /// frame that is not safe in \a failed. No frame is lost.
    void wentOver(const QVariant &failed, const QVariant &desc, const OrbError &error);
    /// The medium of \a failed failed and there is no other: the last \a framesLost frames are lost, and every
    /// further one is answered with an error.
    void mediumFailed(const QVariant &failed, const OrbError &error, int framesLost);
    /// The medium has not answered for 300 ms, or has done so in time for a second again.
    void mediumIsSlow(bool isSlow);
    /// close() was called on an open stream: the last moment to write.
    void aboutToClose();

private:
    void driverOpened(const OrbError &error, const OrbStreamInfo &info) override;
    void driverGrew(const OrbStreamInfo &info) override;
    void driverClosed() override;
    void driverFrameRead(int frame, const OrbFrame &data, const OrbError &error,
                         void *context) override;
    void driverFrameWritten(int frame, const OrbError &error) override;

    QVariant driverSpareDesc(const QVariant &failed, const OrbError &error) override;
    void driverWentOver(const QVariant &failed, const QVariant &desc, const OrbError &error) override;
    void driverMediumFailed(const QVariant &failed, const OrbError &error, int framesLost) override;
    void driverMediumSlow(bool isSlow) override;

    void beginOpen(const QVariant &desc);
    void beginWaitingOpen();
    void finishClose();
    void retireDriver();
    void reportBenchmark(int frame);
    OrbAccess currentAccess() const;

    std::unique_ptr<OrbMediaDriver> _driver;
    QVariant _desc;
    SpareQuestion _spareQuestion;
    OrbId _type;
    OrbStreamInfo _info;
    OpenState _state = Closed;
    OrbAccess _access = OrbAccess::None;
    int _pending = 0;
    bool _benchmark = false;
    bool _isAnnouncingClose = false;
    quint64 _openSerial = 0;

    // An open() called while the stream was closing
    std::unique_ptr<OrbMediaDriver> _nextDriver;
    OrbAccess _nextAccess = OrbAccess::None;
    QVariant _nextDesc;
    bool _isStartDue = false; ///< the driver is in place, its open() not yet called
};
