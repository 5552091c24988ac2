#include "liborb/drivers/scripted/scriptedmedia.h"

#include "liborb/orbdrivers.h"
#include "liborb/orbplaylist.h"
#include "liborb/orbtimecode.h"

#include <QStringList>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <utility>

/// What a stream holds: does one open's work as the script says.
class ScriptedMediaDriver : public OrbMediaDriver
{
public:
    ScriptedMediaDriver(ScriptedMedia *script, OrbMediaDriverHost *host,
                        const ScriptedMedia::Outcome &outcome)
        : _script(script), _host(host), _open(outcome)
    {
        _script->_drivers << this;
    }

    ~ScriptedMediaDriver() override { _script->_drivers.removeOne(this); }

    void open(const QVariant &desc, OrbAccess access, const OrbStreamInfo &info) override
    {
        _access = access;
        _path = ScriptedMedia::pathOf(desc);
        _script->noteOpen(_path, access);
        if (access == OrbAccess::Write)
            _script->noteInfo(info);
        _isOpening = true;
        if (_open.afterMs >= 0)
            later(_open.afterMs, [this] { finishOpen(_open.error); });
    }

    void read(int frame, void *context) override
    {
        _script->noteRead(frame);
        later(_script->readMs, [=, this] { finishRead(frame, context); });
    }

    void write(const OrbFrame &frame) override
    {
        _script->noteWritten(_path, frame);
        ++_unwritten;
        if (_script->writeMs >= 0)
            later(_script->writeMs, [this] { finishWrite(); });
    }

    void flush() override { _script->noteFlush(); }

    void close() override
    {
        _script->noteClose(_path);
        _isCloseAsked = true;
        if (!_isOpening)
            beginClose();
    }

    void finishOpen(const OrbError &error)
    {
        if (!_isOpening)
            return;
        _isOpening = false;
        const OrbError result = error.isError() || exists() ? error : OrbError(ENOENT);
        if (!result.isError() && _access == OrbAccess::Read)
            _clip = _script->clips.value(_path);
        _host->driverOpened(result, info());
        if (_isCloseAsked)
            beginClose();
    }

    void finishClose()
    {
        if (!_isClosing)
            return;
        _isClosing = false;
        _host->driverClosed();
    }

    void finishWrites()
    {
        while (_unwritten > 0)
            finishWrite();
    }

    /// Answers that nobody asked for.
    void answerStray(int kind)
    {
        switch (kind) {
        case 0: _host->driverFrameRead(0, OrbFrame(), OrbError(EIO), nullptr); break;
        case 1: _host->driverFrameRead(3, _script->frameOf(_clip, 3), OrbError(), this); break;
        case 2:
            if (!_isClosing)
                _host->driverClosed();
            break;
        default:
            if (!_isOpening)
                _host->driverOpened(OrbError(EIO), info());
            break;
        }
    }

    QVariant askForSpare(const OrbError &error) { return _host->driverSpareDesc(_path, error); }
    void goOver(const QVariant &desc, const OrbError &error)
    {
        const QString from = std::exchange(_path, ScriptedMedia::pathOf(desc));
        _host->driverWentOver(from, desc, error);
    }
    void loseFrames(int count, const OrbError &error) { _host->driverMediumFailed(_path, error, count); }
    void setMediumSlow(bool isSlow) { _host->driverMediumSlow(isSlow); }

    bool isOpening() const { return _isOpening; }
    bool isClosing() const { return _isClosing; }

private:
    template<typename Work>
    void later(int ms, Work work)
    {
        QTimer::singleShot(ms, Qt::PreciseTimer, &_context, work);
    }

    bool exists() const
    {
        return _access == OrbAccess::Write
            || _script->clips.contains(_path);
    }

    OrbStreamInfo info() const
    {
        OrbStreamInfo info;
        info.setLength(_clip.length);
        info.setFrameRate(_clip.image.frameRate());
        info.vids().append(_clip.image);
        if (_clip.audio.chans() > 0)
            info.auds().append(_clip.audio);
        return info;
    }

    void finishRead(int frame, void *context)
    {
        const bool isThere = frame >= 0 && frame < _clip.length;
        const bool isGood = isThere && !_script->badFrames.contains(frame);
        _host->driverFrameRead(frame, isGood ? _script->frameOf(_clip, frame) : OrbFrame(),
                               isGood ? OrbError() : OrbError(isThere ? EIO : EINVAL), context);
    }

    void finishWrite()
    {
        if (_unwritten == 0)
            return;
        --_unwritten;
        _host->driverFrameWritten(_written++, _script->writeError);
        if (_isCloseAsked && !_isOpening)
            beginClose();
    }

    /// The close comes after the frames written before it.
    void beginClose()
    {
        if (_unwritten > 0 || _isClosing)
            return;
        _isClosing = true;
        _isCloseAsked = false;
        const ScriptedMedia::Outcome outcome = _script->nextClose();
        if (outcome.afterMs >= 0)
            later(outcome.afterMs, [this] { finishClose(); });
    }

    ScriptedMedia *_script;
    OrbMediaDriverHost *_host;
    ScriptedMedia::Outcome _open;
    QObject _context; ///< what is to come goes with the driver
    QString _path;
    OrbAccess _access = OrbAccess::None;
    ScriptedClip _clip;
    bool _isOpening = false;
    bool _isCloseAsked = false;
    bool _isClosing = false;
    int _unwritten = 0;
    int _written = 0;
};

ScriptedMedia::ScriptedMedia(Transcript *transcript, QObject *parent)
    : QObject(parent), _transcript(transcript)
{
}

ScriptedMedia::~ScriptedMedia() = default;

void ScriptedMedia::install()
{
    using Driver = std::unique_ptr<OrbMediaDriver>;
    OrbDrivers::setMediaFactory([this](const QVariant &desc, OrbAccess, const OrbId &,
                                       OrbMediaDriverHost *host) -> Driver {
        const Outcome outcome = isQuiet(pathOf(desc)) ? Outcome() : nextOpen();
        if (outcome.isRefused) {
            ++_refusals;
            return nullptr;
        }
        return std::make_unique<ScriptedMediaDriver>(this, host, outcome);
    });
}

void ScriptedMedia::uninstall()
{
    OrbDrivers::setMediaFactory({});
}

QString ScriptedMedia::pathOf(const QVariant &desc)
{
    if (desc.metaType() != QMetaType::fromType<OrbPlayList>())
        return desc.toString();
    QStringList names;
    const auto list = desc.value<OrbPlayList>();
    for (const OrbPlayListEntry &entry : list)
        names << entry.desc().toString();
    return names.join(QLatin1Char('+'));
}

bool ScriptedMedia::isQuiet(const QString &path) const
{
    return !quietPrefix.isEmpty() && path.startsWith(quietPrefix);
}

void ScriptedMedia::noteOpen(const QString &path, OrbAccess access)
{
    if (isQuiet(path))
        return;
    ++_calls;
    const bool writes = access == OrbAccess::Write;
    if (_transcript)
        _transcript->note(QStringLiteral("media: open %1 %2")
                              .arg(writes ? QStringLiteral("write") : QStringLiteral("read"), path));
    if (onOpen)
        onOpen(path, writes);
}

void ScriptedMedia::noteClose(const QString &path)
{
    if (isQuiet(path))
        return;
    ++_calls;
    if (_transcript)
        _transcript->note(QStringLiteral("media: close %1").arg(path));
}

ScriptedMedia::Outcome ScriptedMedia::nextOpen()
{
    if (opens.empty())
        return {};
    const Outcome next = opens.front();
    opens.pop_front();
    return next;
}

ScriptedMedia::Outcome ScriptedMedia::nextClose()
{
    if (closes.empty())
        return {};
    const Outcome next = closes.front();
    closes.pop_front();
    return next;
}

void ScriptedMedia::finishOpen(const OrbError &error)
{
    const auto drivers = _drivers;
    for (ScriptedMediaDriver *driver : drivers)
        if (_drivers.contains(driver) && driver->isOpening())
            driver->finishOpen(error);
}

void ScriptedMedia::finishClose()
{
    const auto drivers = _drivers;
    for (ScriptedMediaDriver *driver : drivers)
        if (_drivers.contains(driver) && driver->isClosing())
            driver->finishClose();
}

void ScriptedMedia::finishWrites()
{
    const auto drivers = _drivers;
    for (ScriptedMediaDriver *driver : drivers)
        if (_drivers.contains(driver))
            driver->finishWrites();
}

void ScriptedMedia::answerStray(int kind)
{
    if (!_drivers.isEmpty())
        _drivers.last()->answerStray(kind);
}

QVariant ScriptedMedia::failMedium(const OrbError &error)
{
    return _drivers.isEmpty() ? QVariant() : _drivers.last()->askForSpare(error);
}

void ScriptedMedia::goOver(const QVariant &desc, const OrbError &error)
{
    if (!_drivers.isEmpty())
        _drivers.last()->goOver(desc, error);
}

void ScriptedMedia::loseFrames(int count, const OrbError &error)
{
    if (!_drivers.isEmpty())
        _drivers.last()->loseFrames(count, error);
}

void ScriptedMedia::setMediumSlow(bool isSlow)
{
    if (!_drivers.isEmpty())
        _drivers.last()->setMediumSlow(isSlow);
}

void ScriptedMedia::noteWritten(const QString &path, const OrbFrame &frame)
{
    if (onWritten)
        onWritten(frame);
    else
        _recordings[path] << frame;
}

QList<int> ScriptedMedia::recordedNumbers(const QString &path) const
{
    QList<int> numbers;
    const QList<OrbFrame> frames = _recordings.value(path);
    for (const OrbFrame &frame : frames)
        numbers << frame.meta().valueFor(OrbId(OrbIdFrameNumber)).toInt();
    return numbers;
}

OrbFrame ScriptedMedia::frameOf(const ScriptedClip &clip, int number) const
{
    constexpr int secondsInHour = 3600;
    OrbFrame frame;
    frame.vids().append(OrbImage(clip.image, OrbBuffer(64, 8)));
    if (clip.audio.chans() > 0)
        frame.auds().append(OrbAudio(clip.audio, OrbBuffer(64, 8)));
    frame.meta().insert(OrbId(OrbIdFrameNumber), number);
    if (clip.hasTimecode) {
        const int fps = clip.image.frameRate().timecodeRate();
        const OrbTimecode label(qint64(number) + qint64(secondsInHour) * fps, fps, false);
        frame.meta().insert(OrbId(OrbIdTimecode), QVariant::fromValue(label));
    }
    for (const OrbMetadata &item : extraMetadata)
        frame.meta().insert(item);
    return frame;
}
