#include "enginerig.h"

#include "liborb/orblog.h"

#include <QMetaObject>

namespace {

QString modeNames(VtrState::Mode from, VtrState::Mode to)
{
    return QStringLiteral("%1 -> %2").arg(VtrState::modeName(from), VtrState::modeName(to));
}

QString yesNo(bool on)
{
    return on ? QStringLiteral("true") : QStringLiteral("false");
}

} // namespace

EngineRig::EngineRig(bool opens) : video(&transcript), media(&transcript)
{
    OrbLog::defaultLog()->setLevel(4);
    _sink = OrbLog::defaultLog()->addSink([this](int level, const QString &file, int,
                                                 const QString &text) {
        QString line = text;
        if (line.endsWith(QLatin1Char('\n')))
            line.chop(1);
        const QString from = file == QLatin1String("vtrobject.cpp") ? QString() : file + ": ";
        transcript.note(QStringLiteral("log %1 %2%3").arg(QString::number(level), from, line));
    });
    video.opens = opens;
    video.install();
    media.quietPrefix = QStringLiteral("/usr/local/share/media");
    media.clips.insert(clipPath, clip(100, hd25()));
    media.clips.insert(otherClipPath, clip(50, hd25()));
    media.install();
    playbackDesc = QString::fromLatin1(clipPath);
    recordDesc = QString::fromLatin1(recordPath);
    vtr = std::make_unique<VtrObject>();
    follow();
}

EngineRig::~EngineRig()
{
    vtr.reset();
    OrbLog::defaultLog()->removeSink(_sink);
    ScriptedVideo::uninstall();
    ScriptedMedia::uninstall();
}

void EngineRig::follow()
{
    VtrObject *v = vtr.get();
    const auto note = [this](const QString &line) {
        transcript.note(QStringLiteral("signal ") + line);
    };
    QObject::connect(v, &VtrObject::stateChanged, v, [note](const VtrState &o, const VtrState &n) {
        note(QStringLiteral("stateChanged %1-> %2").arg(o.toString(), n.toString()).trimmed());
    });
    QObject::connect(v, &VtrObject::modeChanged, v, [note](VtrState::Mode o, VtrState::Mode n) {
        note(QStringLiteral("modeChanged ") + modeNames(o, n));
    });
    QObject::connect(v, &VtrObject::inputFormatChanged, v,
                     [note](int input, const OrbVideoState &state) {
                         note(QStringLiteral("inputFormatChanged %1 %2").arg(input).arg(
                             state.toString()));
                     });
    QObject::connect(v, &VtrObject::streamIsOpen, v,
                     [note](const OrbError &error, const OrbStreamInfo &) {
                         note(QStringLiteral("streamIsOpen %1").arg(error.value()));
                     });
    QObject::connect(v, &VtrObject::streamIsClosed, v, [note] { note("streamIsClosed"); });
    QObject::connect(v, &VtrObject::storageInUse, v,
                     [note](bool on) { note(QStringLiteral("storageInUse ") + yesNo(on)); });
    QObject::connect(v, &VtrObject::shutdownIsComplete, v, [note] { note("shutdownIsComplete"); });
    QObject::connect(v, &VtrObject::timecodeInputValidChanged, v, [note](bool on) {
        note(QStringLiteral("timecodeInputValidChanged ") + yesNo(on));
    });
    QObject::connect(v, &VtrObject::frameDropped, v, [note] { note("frameDropped"); });
    QObject::connect(v, &VtrObject::recordFailedToStart, v, [note](const OrbId &reason) {
        note(QStringLiteral("recordFailedToStart %1").arg(int(reason.value())));
    });
    QObject::connect(v, &VtrObject::videoDeviceSetupChanged, v,
                     [note](const OrbVideoDeviceSetup &) { note("videoDeviceSetupChanged"); });
    QObject::connect(v, &VtrObject::alarmTriggered, v, [this, note](const OrbAlarm &alarm) {
        const OrbId id = alarm.id();
        if (id == OrbId(OrbIdAlarmRefMissing) || id == OrbId(OrbIdAlarmRefUnlocked)) {
            referenceAlarms << alarm;
            return;
        }
        alarms << alarm;
        note(QStringLiteral("alarmTriggered ") + alarmTexts().last());
    });
    QObject::connect(v, &VtrObject::requestPlaybackStreamDesc, v,
                     [this](QVariant &desc, int &fnum) {
                         desc = playbackDesc;
                         fnum = startFrame;
                     });
    QObject::connect(v, &VtrObject::requestRecordStreamDesc, v,
                     [this](QVariant &desc) { desc = recordDesc; });
    QObject::connect(v, &VtrObject::requestRecordInhibit, v,
                     [this](OrbId &reason) { reason = inhibitReason; });
}

void EngineRig::changeInput(bool isValid)
{
    video.hasSignal = isValid;
    video.changeInput(0, isValid ? inputState(hd25()) : OrbVideoState());
}

void EngineRig::startUp()
{
    vtr->start();
    run(50);
    changeInput(true);
    run(1000);
    transcript.clear();
    alarms.clear();
}

void EngineRig::startPlay(double speed)
{
    startUp();
    vtr->play(speed);
    run(100);
    transcript.clear();
}

void EngineRig::startRecord()
{
    startUp();
    vtr->record();
    run(200);
    transcript.clear();
}

QStringList EngineRig::logs() const
{
    QStringList list;
    for (const QString &line : transcript.lines())
        if (line.startsWith(QLatin1String("log ")))
            list << line.mid(4);
    return list;
}

QStringList EngineRig::signalsSeen() const
{
    QStringList list;
    for (const QString &line : transcript.lines())
        if (line.startsWith(QLatin1String("signal ")))
            list << line.mid(7);
    return list;
}

bool EngineRig::hasLog(int level, const QString &text) const
{
    return countLog(level, text) > 0;
}

int EngineRig::countLog(int level, const QString &text) const
{
    return int(logs().count(QStringLiteral("%1 %2").arg(QString::number(level), text)));
}

QStringList EngineRig::textsOf(const QList<OrbAlarm> &alarms)
{
    QStringList list;
    for (const OrbAlarm &alarm : alarms)
        list << QStringLiteral("%1 %2 %3")
                    .arg(int(alarm.id().value()))
                    .arg(int(alarm.level()))
                    .arg(alarm.text())
                    .trimmed();
    return list;
}

OrbImageDesc EngineRig::imageDesc(int width, int height, int num, int den, bool isInterlaced,
                                  OrbIdValue type)
{
    OrbImageDesc desc;
    desc.setSize(width, height);
    desc.setAspectRatio(width, height);
    desc.setFrameRate(num, den);
    desc.setScanMode(isInterlaced ? OrbImageDesc::Interlaced : OrbImageDesc::Progressive);
    desc.setDataType(OrbId(type));
    return desc;
}

OrbVideoState EngineRig::inputState(const OrbImageDesc &desc)
{
    OrbVideoState state;
    state.setValid(true);
    state.setPresent(true);
    state.setInputImageDesc(desc);
    state.setCaptureImageDesc(desc);
    return state;
}

ScriptedClip EngineRig::clip(int length, const OrbImageDesc &desc)
{
    ScriptedClip clip;
    clip.length = length;
    clip.image = desc;
    clip.audio.setDataType(OrbId(OrbIdAudioDataType));
    clip.audio.setChans(2);
    clip.audio.setSampleRate(48000, 1);
    clip.audio.setFrameRate(desc.frameRate());
    return clip;
}
