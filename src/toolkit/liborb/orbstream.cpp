// The states of a stream, and what may be asked in each.
//
//   Closed   open() -> Opening                     everything else does nothing
//   Opening  done -> Open, failed -> Closed        close() -> Closing, the open is not reported
//   Open     reads, writes, flushes                close() -> Closing, after aboutToClose()
//   Closing  done -> Closed, or Opening when an    open() waits for the close, close() takes that
//            open() waits                          open() back

#include "liborb/orbstream.h"

#include "liborb/orbdrivers.h"
#include "liborb/orbplaylist.h"

#include <QDir>
#include <QPointer>

#include <cerrno>
#include <utility>

namespace {

bool isPlayList(const QVariant &desc)
{
    return desc.metaType() == QMetaType::fromType<OrbPlayList>();
}

OrbAccess accessOf(int number)
{
    switch (number) {
    case int(OrbAccess::Read): return OrbAccess::Read;
    case int(OrbAccess::Write): return OrbAccess::Write;
    default: return OrbAccess::None;
    }
}

} // namespace

OrbStream::OrbStream(QObject *parent) : QObject(parent)
{
}

OrbStream::~OrbStream() = default;

void OrbStream::setDesc(const QVariant &desc)
{
    _desc = desc;
}

QVariant OrbStream::desc() const
{
    return _desc;
}

bool OrbStream::hasDesc(const QVariant &desc) const
{
    if (isPlayList(_desc) || isPlayList(desc)) {
        using Entries = QList<OrbPlayListEntry>;
        return isPlayList(_desc) && isPlayList(desc)
            && static_cast<const Entries &>(_desc.value<OrbPlayList>())
            == static_cast<const Entries &>(desc.value<OrbPlayList>());
    }
    const QString own = _desc.toString();
    return !own.isEmpty() && QDir::cleanPath(own) == QDir::cleanPath(desc.toString());
}

void OrbStream::setAutoType()
{
    _type = OrbId();
}

void OrbStream::setType(const OrbId &type)
{
    _type = type;
}

void OrbStream::setInfo(const OrbStreamInfo &info)
{
    _info = info;
}

OrbStreamInfo OrbStream::info() const
{
    return _info;
}

int OrbStream::pending() const
{
    return _pending;
}

void OrbStream::setBenchmarkEnable(bool on)
{
    _benchmark = on;
}

/// Of the open that waits when there is one: it is what the stream is about to be.
OrbAccess OrbStream::currentAccess() const
{
    return _nextDriver ? _nextAccess : _access;
}

bool OrbStream::isReadable() const
{
    return currentAccess() == OrbAccess::Read;
}

bool OrbStream::isWritable() const
{
    return currentAccess() == OrbAccess::Write;
}

void OrbStream::flush()
{
    if (_state == Open && _access == OrbAccess::Write)
        _driver->flush();
}

void OrbStream::write(const OrbFrame &frame)
{
    if (_state != Open || _access != OrbAccess::Write)
        return;
    ++_pending;
    _driver->write(frame);
}

void OrbStream::read(int frameNumber, void *context)
{
    if (_state == Open && _access == OrbAccess::Read) {
        ++_pending;
        _driver->read(frameNumber, context);
        return;
    }
    QMetaObject::invokeMethod(
        this, [=, this] { emit readIsDone(frameNumber, OrbFrame(), OrbError(EBADF), context); },
        Qt::QueuedConnection);
}

bool OrbStream::open(int access)
{
    const OrbAccess wanted = accessOf(access);
    if (wanted == OrbAccess::None || _state == Open || _state == Opening || _nextDriver)
        return false;
    auto driver = OrbDrivers::createMedia(_desc, wanted, _type, this);
    if (!driver)
        return false;
    if (wanted == OrbAccess::Read)
        _info = OrbStreamInfo();
    if (_state == Closing) {
        _nextDriver = std::move(driver);
        _nextAccess = wanted;
        _nextDesc = _desc;
        return true;
    }
    _driver = std::move(driver);
    _access = wanted;
    beginOpen(_desc);
    return true;
}

void OrbStream::beginOpen(const QVariant &desc)
{
    _state = Opening;
    _driver->open(desc, _access, _info);
}

void OrbStream::close()
{
    if (_state == Closed || _isAnnouncingClose)
        return;
    if (_state == Closing) {
        _nextDriver.reset();
        return;
    }
    if (_state == Open) {
        const QPointer<OrbStream> self(this);
        _isAnnouncingClose = true;
        emit aboutToClose();
        if (!self)
            return;
        _isAnnouncingClose = false;
    }
    _state = Closing;
    if (!_isStartDue)
        _driver->close();
}

/// The driver goes when the call it is in has returned.
void OrbStream::retireDriver()
{
    const std::shared_ptr<OrbMediaDriver> old = std::move(_driver);
    QMetaObject::invokeMethod(this, [old] { }, Qt::QueuedConnection);
}

void OrbStream::driverOpened(const OrbError &error, const OrbStreamInfo &info)
{
    if (_state != Opening)
        return;
    const auto access = int(_access);
    if (error.isError()) {
        _state = Closed;
        _access = OrbAccess::None;
        retireDriver();
    } else {
        _state = Open;
        ++_openSerial;
        if (_access == OrbAccess::Read)
            _info = info;
    }
    emit openIsDone(access, error);
}

void OrbStream::driverGrew(const OrbStreamInfo &info)
{
    if (_state != Open || _access != OrbAccess::Read)
        return;
    const int before = _info.length();
    _info = info;
    if (info.length() > before)
        emit lengthChanged(info.length());
}

void OrbStream::driverClosed()
{
    if (_state == Closing)
        finishClose();
}

/// The open that waits begins in a turn of its own, after everyone has heard of the close.
void OrbStream::finishClose()
{
    retireDriver();
    _pending = 0;
    _isStartDue = _nextDriver != nullptr;
    _driver = std::move(_nextDriver);
    _access = _isStartDue ? _nextAccess : OrbAccess::None;
    _state = _isStartDue ? Opening : Closed;
    if (_isStartDue)
        QMetaObject::invokeMethod(this, [this] { beginWaitingOpen(); }, Qt::QueuedConnection);
    emit closeIsDone();
}

void OrbStream::beginWaitingOpen()
{
    _isStartDue = false;
    if (_state == Opening)
        beginOpen(_nextDesc);
    else
        finishClose();
}

void OrbStream::reportBenchmark(int frame)
{
    if (_benchmark)
        emit benchmark(frame, OrbTimeStamp::getCurrent());
}

void OrbStream::driverFrameRead(int frame, const OrbFrame &data, const OrbError &error,
                                void *context)
{
    if (_pending > 0)
        --_pending;
    const QPointer<OrbStream> self(this);
    if (!error.isError())
        reportBenchmark(frame);
    if (self)
        emit readIsDone(frame, data, error, context);
}

void OrbStream::driverFrameWritten(int frame, const OrbError &error)
{
    if (_pending > 0)
        --_pending;
    const QPointer<OrbStream> self(this);
    if (!error.isError())
        reportBenchmark(frame);
    if (self)
        emit frameWritten(frame, error);
}

// A medium that fails while it is written to ----------------------------------------------------

void OrbStream::setSpareQuestion(SpareQuestion question)
{
    _spareQuestion = std::move(question);
}

QVariant OrbStream::driverSpareDesc(const QVariant &failed, const OrbError &error)
{
    return _spareQuestion ? _spareQuestion(failed, error) : QVariant();
}

/// While the stream waits to be opened anew its descriptor is already that of the next open.
void OrbStream::driverWentOver(const QVariant &failed, const QVariant &desc, const OrbError &error)
{
    if (hasDesc(failed))
        _desc = desc;
    emit wentOver(failed, desc, error);
}

void OrbStream::driverMediumFailed(const QVariant &failed, const OrbError &error, int framesLost)
{
    emit mediumFailed(failed, error, framesLost);
}

void OrbStream::driverMediumSlow(bool isSlow)
{
    emit mediumIsSlow(isSlow);
}
