#include "enginemodes.h"

#include "liborb/orb.h"

#include <QTimer>

#include <functional>

/// The thirty settings: validation, log, stored value, device effect, in every mode.
class TestEngineSetters : public QObject
{
    Q_OBJECT

private slots:
    void thereAreThirty();
    void eachTellsItsStoryOnce_data() { addRows(); }
    void eachTellsItsStoryOnce();
    void eachResetsOnlyInStandbyOff_data();
    void eachResetsOnlyInStandbyOff();
    void eachIsSeenByTheDeviceAtTheNextSetup_data();
    void eachIsSeenByTheDeviceAtTheNextSetup();
    void theSameValueAgainDoesNothingButForThree_data() { addRows(); }
    void theSameValueAgainDoesNothingButForThree();
    void theFiveThatValidate_data();
    void theFiveThatValidate();
    void allOthersTakeAnInvalidIdentifier_data();
    void allOthersTakeAnInvalidIdentifier();
    void flagsSayDisabled_data();
    void flagsSayDisabled();
    void channelCounts_data();
    void channelCounts();
    void anInvalidEncodeFormatIsLoggedEveryTime();
    void fourChannelsAreDeliberatelyLoggedAsSetAndReset();
    void aGeneratorThatIsTurnedOffGivesTheInputBack();
    void aGeneratorFormatIsNewsOnlyWhileTheGeneratorIsOn();
    void theGeneratorsEffectComesAfterTheValueAndTheReset();
    void eitherLutStoresBoth();
    void theTimecodeValueKeepsRateAndDropFrameOfThePreset();
    void theSameTimecodeDeliberatelyLoadsTheGeneratorTwice();
    void theReelNameIsKeptForTheNextRecordings();
    void theClipNameIsNotStored();
    void valuesMadeBeforeTheStartAreInTheFirstSetup();

private:
    static void addRows();
};

namespace {

struct Setting {
    const char *name;
    void (*set)(VtrObject &); ///< another value than a new engine has
    const char *log;          ///< of that; null when it logs nothing
    enum Effect { None, Reset, Jam, Property } effect;
    bool (*isStored)(const VtrState &);                  ///< null: an engine member
    bool (*isInSetup)(const OrbVideoDeviceSetup &); ///< null: the device is not told
};

OrbImageDesc vsgFormat()
{
    return EngineRig::imageDesc(1280, 720, 50, 1);
}

OrbImageLut lut(int entries)
{
    return OrbImageLut(OrbId(1100), entries);
}

using V = VtrObject;
using S = VtrState;
using D = OrbVideoDeviceSetup;

// clang-format off
constexpr Setting settings[] = {
    {"setEncodeFormat",            [](V &v) { v.setEncodeFormat(OrbId(203)); },            "Set Encode Format: ImageProRes422Hq", Setting::Reset, [](const S &s) { return s.encodeFormat() == OrbId(203); },        [](const D &d) { return d.imageDesc().dataType() == OrbId(203); }},
    {"setVideoInputSource",        [](V &v) { v.setVideoInputSource(OrbId(602)); },        "Set Video Input Source: %602",        Setting::Reset, [](const S &s) { return s.videoInputSource() == OrbId(602); },    [](const D &d) { return d.videoInputSource() == OrbId(602); }},
    {"setAudioInputSource",        [](V &v) { v.setAudioInputSource(OrbId(690)); },        "Set Audio Input Source: %690",        Setting::Reset, [](const S &s) { return s.audioInputSource() == OrbId(690); },    [](const D &d) { return d.audioInputSource() == OrbId(690); }},
    {"setAudioInputLevel",         [](V &v) { v.setAudioInputLevel(OrbId(1401)); },        "Set Audio Input Level: %1401",        Setting::Reset, [](const S &s) { return s.audioInputLevel() == OrbId(1401); },    [](const D &d) { return d.audioInputLevel() == OrbId(1401); }},
    {"setSyncSource",              [](V &v) { v.setSyncSource(OrbId(502)); },              "Set Sync Source: %502",               Setting::Reset, [](const S &s) { return s.syncSource() == OrbId(502); },          [](const D &d) { return d.inputRefSource() == OrbId(502); }},
    {"setAudioChans",              [](V &v) { v.setAudioChans(8); },                       "Set Audio Channels: 8",               Setting::Reset, [](const S &s) { return s.audioChans() == 8; },                   [](const D &d) { return d.audioDesc().chans() == 8; }},
    {"setVideoSignalGenFormat",    [](V &v) { v.setVideoSignalGenFormat(vsgFormat()); },   "Set VSG Format: 1280x720p 50/1 ImageProRes422", Setting::Reset, [](const S &s) { return s.videoSignalGenFormat() == vsgFormat(); }, [](const D &d) { return d.videoSignalGenColorSpace() == OrbId(202); }},
    {"setVideoSignalGenMode",      [](V &v) { v.setVideoSignalGenMode(OrbId(801)); },      "Set VSG Mode: %801",                  Setting::Reset, [](const S &s) { return s.videoSignalGenMode() == OrbId(801); },  [](const D &d) { return d.videoSignalGenMode() == OrbId(801); }},
    {"setAudioSignalGenMode",      [](V &v) { v.setAudioSignalGenMode(OrbId(901)); },      "Set ASG Mode: %901",                  Setting::Reset, [](const S &s) { return s.audioSignalGenMode() == OrbId(901); },  [](const D &d) { return d.audioSignalGenMode() == OrbId(901); }},
    {"setCameraInput",             [](V &v) { v.setCameraInput(OrbId(1001)); },            "Set Camera Input: %1001",             Setting::Reset, [](const S &s) { return s.cameraInput() == OrbId(1001); },        [](const D &d) { return d.cameraInput() == OrbId(1001); }},
    {"setLuts",                    [](V &v) { v.setLuts(lut(16), lut(32)); },              nullptr,                               Setting::Reset, [](const S &s) { return s.inputLut() == lut(16) && s.outputLut() == lut(32); }, [](const D &d) { return d.inputLut() == lut(16) && d.outputLut() == lut(32); }},
    {"setVideoInConvert",          [](V &v) { v.setVideoInConvert(OrbId(1201)); },         "Set Video In Convert: %1201",         Setting::Reset, [](const S &s) { return s.videoInConvert() == OrbId(1201); },     [](const D &d) { return d.videoInConvert() == OrbId(1201); }},
    {"setVideoOutConvert",         [](V &v) { v.setVideoOutConvert(OrbId(1202)); },        "Set Video Out Convert: %1202",        Setting::Reset, [](const S &s) { return s.videoOutConvert() == OrbId(1202); },    [](const D &d) { return d.videoOutConvert() == OrbId(1202); }},
    {"setForcePSFOutput",          [](V &v) { v.setForcePSFOutput(true); },                "Set Force PSF Output: Enabled",       Setting::Reset, [](const S &s) { return s.forcePSFOutput(); },                    [](const D &d) { return d.forcePSFOutput(); }},
    {"setForcePSFEncode",          [](V &v) { v.setForcePSFEncode(true); },                "Set Force PSF Encode: Enabled",       Setting::Reset, [](const S &s) { return s.forcePSFEncode(); },                    [](const D &d) { return d.forcePSFEncode(); }},
    {"setVideoOutputType",         [](V &v) { v.setVideoOutputType(OrbId(7)); },           "Set Video Output Type: %7",           Setting::Reset, [](const S &s) { return s.videoOutputType() == OrbId(7); },       [](const D &d) { return d.videoOutputType() == OrbId(7); }},
    {"setVideoOutputRoute",        [](V &v) { v.setVideoOutputRoute(OrbId(53)); },         "Set Video Output Route: %53",         Setting::Reset, [](const S &s) { return s.videoOutputRoute() == OrbId(53); },     [](const D &d) { return d.videoOutRoute() == OrbId(53); }},
    {"setSuperOut",                [](V &v) { v.setSuperOut(OrbId(1302)); },               "Set Super Out: %1302",                Setting::Reset, [](const S &s) { return s.superOut() == OrbId(1302); },           [](const D &d) { return d.superOut() == OrbId(1302); }},
    {"setRecordInterval",          [](V &v) { v.setRecordInterval(5); },                   "Set Record Interval: 5",              Setting::None,  [](const S &s) { return s.recordInterval() == 5; },               nullptr},
    {"setRecordIntervalTime",      [](V &v) { v.setRecordIntervalTime(2); },               "Set Record Interval Time: 2",         Setting::None,  [](const S &s) { return s.recordIntervalTime() == 2; },           nullptr},
    {"setIntervalRecordEnable",    [](V &v) { v.setIntervalRecordEnable(true); },          "Set Interval Record: Enabled",        Setting::None,  [](const S &s) { return s.intervalRecordEnable(); },              nullptr},
    {"setVFREnable",               [](V &v) { v.setVFREnable(true); },                     "Set VFR: Enabled",                    Setting::Reset, [](const S &s) { return s.vfrEnable(); },                         [](const D &d) { return d.forceVFRRecord(); }},
    {"setTimecodeValue",           [](V &v) { v.setTimecodeValue({1, 2, 3, 4, 60, 2}); },  "Set TC value: 01:02:03:04",           Setting::Jam,   nullptr, nullptr},
    {"setTimecodeDropFrame",       [](V &v) { v.setTimecodeDropFrame(true); },             "Set TC Drop Frame: Enabled",          Setting::Jam,   nullptr, nullptr},
    {"setTCGSource",               [](V &v) { v.setTCGSource(OrbId(1510)); },              "Set TCG Source: %1510",               Setting::Reset, nullptr, [](const D &d) { return d.timecodeInputSource() == OrbId(1510); }},
    {"setStopOnFrameDrop",         [](V &v) { v.setStopOnFrameDrop(true); },               "Set Stop On Frame Drop: Enabled",     Setting::None,  [](const S &s) { return s.stopOnFrameDrop(); },                   nullptr},
    {"setStopOnLossOfVideo",       [](V &v) { v.setStopOnLossOfVideo(false); },            "Set Stop On Loss Of Video: Disabled", Setting::None,  [](const S &s) { return !s.stopOnLossOfVideo(); },                nullptr},
    {"setReelName",                [](V &v) { v.setReelName("A12"); },                     "Reel Name: A12",                      Setting::Property, nullptr, nullptr},
    {"setCurrentClipName",         [](V &v) { v.setCurrentClipName("clip"); },             nullptr,                               Setting::Property, nullptr, nullptr},
    {"setRecordOnRunningTimecode", [](V &v) { v.setRecordOnRunningTimecode(true); },       "Record on Running Timecode: Enabled", Setting::None,  nullptr, nullptr},
};
// clang-format on

const Setting &current()
{
    QFETCH(int, index);
    return settings[index];
}

/// A number behind "%" stands for the name of that identifier.
QString logOf(const Setting &setting)
{
    const QString text = QString::fromLatin1(setting.log);
    const qsizetype at = text.indexOf('%');
    return at < 0 ? text : text.left(at) + OrbId(text.mid(at + 1).toInt()).name();
}

bool isResetScheduled(const EngineRig &rig)
{
    const auto timers = rig.vtr->findChildren<QTimer *>();
    return std::ranges::any_of(
        timers, [](const QTimer *timer) { return timer->isSingleShot() && timer->isActive(); });
}

} // namespace

void TestEngineSetters::thereAreThirty()
{
    QCOMPARE(int(std::size(settings)), 30);
    for (const Setting &setting : settings) {
        int found = 0;
        const QMetaObject &meta = VtrObject::staticMetaObject;
        for (int i = 0; i < meta.methodCount(); ++i)
            found += meta.method(i).name() == setting.name ? 1 : 0;
        QVERIFY2(found == 1 || QByteArray(setting.name) == "setLuts", setting.name);
    }
}

void TestEngineSetters::addRows()
{
    QTest::addColumn<int>("index");
    for (int i = 0; i < int(std::size(settings)); ++i)
        QTest::newRow(settings[i].name) << i;
}

/// What the transcript has at once: the log line, and the device's news behind it. (The drop-frame
/// flag of a preset that was never made loads nothing.)
void TestEngineSetters::eachTellsItsStoryOnce()
{
    const Setting &setting = current();
    EngineRig rig;
    rig.startUp();
    rig.vtr->setTCGSource(OrbId(1500));
    rig.run(1000);
    rig.transcript.clear();
    setting.set(*rig.vtr);
    QStringList story;
    if (setting.log)
        story << "log 3 " + logOf(setting);
    const QByteArray name = setting.name;
    if (name == "setTimecodeValue")
        story << "device: property 24 = 01:02:03:04";
    else if (name == "setVideoSignalGenMode")
        story << "signal inputFormatChanged 0 "
                + EngineRig::inputState(OrbImageDesc()).toString();
    else if (name == "setReelName")
        story << "device: property 23 = A12";
    else if (name == "setCurrentClipName")
        story << "device: property 19 = clip";
    QCOMPARE(rig.transcript.lines(), story);
    QCOMPARE(isResetScheduled(rig), setting.effect == Setting::Reset);
    if (setting.isStored)
        QVERIFY(setting.isStored(rig.vtr->state()));
}

void TestEngineSetters::eachResetsOnlyInStandbyOff_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<VtrState::Mode>("mode");
    for (int i = 0; i < int(std::size(settings)); ++i)
        for (const VtrState::Mode mode : EngineModes::all)
            QTest::addRow("%s in %s", settings[i].name, EngineModes::name(mode).constData())
                << i << mode;
}

void TestEngineSetters::eachResetsOnlyInStandbyOff()
{
    const Setting &setting = current();
    QFETCH(VtrState::Mode, mode);
    EngineRig rig;
    EngineModes::enter(rig, mode);
    setting.set(*rig.vtr);
    const bool resets = setting.effect == Setting::Reset && mode == VtrState::StandbyOff;
    QCOMPARE(isResetScheduled(rig), resets);
    if (setting.isStored)
        QVERIFY(setting.isStored(rig.vtr->state())); // at once, whatever the mode
    if (setting.log)
        QCOMPARE(rig.logs().first(), "3 " + logOf(setting));
    rig.run(499);
    QCOMPARE(rig.transcript.count("log 3 VIDEO DEVICE: Reset"), 0);
    rig.run(2);
    QCOMPARE(rig.transcript.count("log 3 VIDEO DEVICE: Reset"), resets ? 1 : 0);
    QCOMPARE(rig.mode(), mode);
}

void TestEngineSetters::eachIsSeenByTheDeviceAtTheNextSetup_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<VtrState::Mode>("mode");
    for (int i = 0; i < int(std::size(settings)); ++i)
        if (settings[i].isInSetup)
            for (const VtrState::Mode mode :
                 {VtrState::StandbyOff, VtrState::Standby, VtrState::Play, VtrState::Record})
                QTest::addRow("%s in %s", settings[i].name, EngineModes::name(mode).constData())
                    << i << mode;
}

void TestEngineSetters::eachIsSeenByTheDeviceAtTheNextSetup()
{
    const Setting &setting = current();
    QFETCH(VtrState::Mode, mode);
    EngineRig rig;
    EngineModes::enter(rig, mode);
    QVERIFY(!setting.isInSetup(rig.video.appliedSetup()));
    setting.set(*rig.vtr);
    rig.run(1);
    QVERIFY(!setting.isInSetup(rig.video.appliedSetup()));
    if (mode == VtrState::StandbyOff) {
        rig.run(600);
    } else {
        rig.vtr->standbyOff();
        rig.run(100); // the setup that is part of the change: no reset is waited for
    }
    QVERIFY(setting.isInSetup(rig.video.appliedSetup()));
}

void TestEngineSetters::theSameValueAgainDoesNothingButForThree()
{
    const Setting &setting = current();
    const QByteArray name = setting.name;
    const bool repeats = name == "setTimecodeValue" || name == "setTimecodeDropFrame"
        || name == "setCurrentClipName";
    EngineRig rig;
    rig.startUp();
    rig.vtr->setTCGSource(OrbId(1500));
    rig.vtr->setTimecodeValue({9, 0, 0, 0, 0, 0});
    setting.set(*rig.vtr);
    rig.run(1000);
    rig.transcript.clear();
    const auto propertySets = [&] {
        return rig.video.propertyCount(19) + rig.video.propertyCount(23)
            + rig.video.propertyCount(24);
    };
    const int before = propertySets();
    setting.set(*rig.vtr);
    QCOMPARE(propertySets(), before + (repeats ? 1 : 0));
    QCOMPARE(rig.logs(),
             repeats && setting.log ? QStringList{"3 " + logOf(setting)} : QStringList{});
    QVERIFY(!isResetScheduled(rig));
}

void TestEngineSetters::theFiveThatValidate_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("line");
    // clang-format off
    QTest::newRow("encode format")      << 0 << "1 Encode format is invalid";
    QTest::newRow("video input source") << 1 << "1 Video input source is invalid";
    QTest::newRow("audio input source") << 2 << "1 Audio input source is invalid";
    QTest::newRow("audio input level")  << 3 << "1 Audio input level is invalid";
    QTest::newRow("sync source")        << 4 << "1 Sync source is invalid";
    // clang-format on
}

void TestEngineSetters::theFiveThatValidate()
{
    using Setter = std::function<void(VtrObject &, const OrbId &)>;
    const QHash<int, Setter> setters = {
        {0, &V::setEncodeFormat},    {1, &V::setVideoInputSource}, {2, &V::setAudioInputSource},
        {3, &V::setAudioInputLevel}, {4, &V::setSyncSource},
    };
    QFETCH(int, index);
    QFETCH(QString, line);
    EngineRig rig;
    rig.startUp();
    settings[index].set(*rig.vtr);
    rig.run(1000);
    rig.transcript.clear();
    for (int i = 0; i < 3; ++i)
        setters.value(index)(*rig.vtr, OrbId());
    QCOMPARE(rig.transcript.lines(), (QStringList{"log " + line, "log " + line, "log " + line}));
    QVERIFY(settings[index].isStored(rig.vtr->state()));
    QVERIFY(!isResetScheduled(rig));
}

void TestEngineSetters::allOthersTakeAnInvalidIdentifier_data()
{
    QTest::addColumn<QString>("line");
    for (const char *const line :
         {"Set VSG Mode: ", "Set ASG Mode: ", "Set Camera Input: ", "Set Video In Convert: ",
          "Set Video Out Convert: ", "Set Video Output Type: ", "Set Video Output Route: ",
          "Set Super Out: ", "Set TCG Source: "})
        QTest::newRow(line) << QString(line);
}

void TestEngineSetters::allOthersTakeAnInvalidIdentifier()
{
    using Setter = void (VtrObject::*)(const OrbId &);
    const QHash<QString, Setter> setters = {
        {"Set VSG Mode: ", &V::setVideoSignalGenMode},
        {"Set ASG Mode: ", &V::setAudioSignalGenMode},
        {"Set Camera Input: ", &V::setCameraInput},
        {"Set Video In Convert: ", &V::setVideoInConvert},
        {"Set Video Out Convert: ", &V::setVideoOutConvert},
        {"Set Video Output Type: ", &V::setVideoOutputType},
        {"Set Video Output Route: ", &V::setVideoOutputRoute},
        {"Set Super Out: ", &V::setSuperOut},
        {"Set TCG Source: ", &V::setTCGSource},
    };
    QFETCH(QString, line);
    EngineRig rig;
    rig.startUp();
    const OrbVideoDeviceSetup before = rig.vtr->createVideoDeviceRecordSetupObject();
    const Setter set = setters.value(line);
    (rig.vtr.get()->*set)(OrbId(802));
    QVERIFY(rig.vtr->createVideoDeviceRecordSetupObject() != before);
    rig.run(1000);
    rig.transcript.clear();
    (rig.vtr.get()->*set)(OrbId());
    QCOMPARE(rig.logs(), QStringList{"3 " + line + OrbId().name()});
    QCOMPARE(rig.vtr->createVideoDeviceRecordSetupObject(), before);
    QVERIFY(isResetScheduled(rig));
}

void TestEngineSetters::flagsSayDisabled_data()
{
    QTest::addColumn<QString>("line");
    for (const char *const line :
         {"Set Force PSF Output", "Set Force PSF Encode", "Set Interval Record", "Set VFR",
          "Set Stop On Frame Drop", "Set Stop On Loss Of Video", "Record on Running Timecode"})
        QTest::newRow(line) << QString(line);
}

void TestEngineSetters::flagsSayDisabled()
{
    using Setter = void (VtrObject::*)(bool);
    const QHash<QString, Setter> setters = {
        {"Set Force PSF Output", &V::setForcePSFOutput},
        {"Set Force PSF Encode", &V::setForcePSFEncode},
        {"Set Interval Record", &V::setIntervalRecordEnable},
        {"Set VFR", &V::setVFREnable},
        {"Set Stop On Frame Drop", &V::setStopOnFrameDrop},
        {"Set Stop On Loss Of Video", &V::setStopOnLossOfVideo},
        {"Record on Running Timecode", &V::setRecordOnRunningTimecode},
    };
    QFETCH(QString, line);
    EngineRig rig;
    rig.startUp();
    const Setter set = setters.value(line);
    (rig.vtr.get()->*set)(true);
    (rig.vtr.get()->*set)(false);
    (rig.vtr.get()->*set)(false);
    (rig.vtr.get()->*set)(true);
    QStringList expected = {"3 " + line + ": Enabled", "3 " + line + ": Disabled",
                            "3 " + line + ": Enabled"};
    if (line == "Set Stop On Loss Of Video")
        expected.removeFirst(); // the one that starts on
    QCOMPARE(rig.logs(), expected);
}

void TestEngineSetters::channelCounts_data()
{
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("stored");
    QTest::addColumn<bool>("isRefused");
    // clang-format off
    //                       from  count      stored  refused
    QTest::newRow("2 to 8")   << 2 << 8       << 8 << false;
    QTest::newRow("8 to 2")   << 8 << 2       << 2 << false;
    QTest::newRow("2 to 2")   << 2 << 2       << 2 << false;
    QTest::newRow("8 to 8")   << 8 << 8       << 8 << false;
    QTest::newRow("2 to 4")   << 2 << 4       << 2 << true;
    QTest::newRow("8 to 4")   << 8 << 4       << 8 << true;
    QTest::newRow("2 to 0")   << 2 << 0       << 2 << true;
    QTest::newRow("2 to -8")  << 2 << -8      << 2 << true;
    QTest::newRow("2 to 16")  << 2 << 16      << 2 << true;
    QTest::newRow("8 to max") << 8 << INT_MAX << 8 << true;
    // clang-format on
}

void TestEngineSetters::channelCounts()
{
    QFETCH(int, from);
    QFETCH(int, count);
    QFETCH(int, stored);
    QFETCH(bool, isRefused);
    EngineRig rig;
    rig.startUp();
    rig.vtr->setAudioChans(from);
    rig.run(1000);
    rig.transcript.clear();
    rig.vtr->setAudioChans(count);
    QStringList lines;
    if (isRefused)
        lines << QString("2 Failed to set audio channels to %1.  Unsupported number of channels")
                     .arg(count);
    if (from != count)
        lines << QString("3 Set Audio Channels: %1").arg(count);
    QCOMPARE(rig.logs(), lines);
    QCOMPARE(rig.vtr->state().audioChans(), stored);
    QCOMPARE(isResetScheduled(rig), from != count);
}

void TestEngineSetters::anInvalidEncodeFormatIsLoggedEveryTime()
{
    EngineRig rig;
    rig.startUp();
    for (int i = 0; i < 5; ++i)
        rig.vtr->setEncodeFormat(OrbId());
    QCOMPARE(rig.countLog(1, "Encode format is invalid"), 5);
    QCOMPARE(rig.vtr->state().encodeFormat(), OrbId(202));
}

void TestEngineSetters::fourChannelsAreDeliberatelyLoggedAsSetAndReset()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setAudioChans(4);
    QVERIFY(rig.hasLog(2, "Failed to set audio channels to 4.  Unsupported number of channels"));
    QVERIFY(rig.hasLog(3, "Set Audio Channels: 4"));
    rig.vtr->setAudioChans(4); // still not the stored count
    QCOMPARE(rig.countLog(3, "Set Audio Channels: 4"), 2);
    rig.run(600);
    QCOMPARE(rig.countLog(3, "VIDEO DEVICE: Setup is current, no need to change it"), 1);
    QCOMPARE(rig.video.appliedSetup().audioDesc().chans(), 2);
}

void TestEngineSetters::aGeneratorThatIsTurnedOffGivesTheInputBack()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setVideoSignalGenFormat(vsgFormat());
    rig.vtr->setVideoSignalGenMode(OrbId(801));
    rig.changeInput(false); // not told of while the generator is on
    const OrbVideoState pal = EngineRig::inputState(EngineRig::imageDesc(720, 576, 25, 1, true));
    rig.video.changeInput(0, pal);
    QCOMPARE(rig.signalsSeen().size(), 1);
    rig.vtr->setVideoSignalGenMode(OrbId());
    QCOMPARE(rig.signalsSeen(),
             (QStringList{
                 "inputFormatChanged 0 " + EngineRig::inputState(vsgFormat()).toString(),
                 "inputFormatChanged 0 " + pal.toString()}));
}

void TestEngineSetters::aGeneratorFormatIsNewsOnlyWhileTheGeneratorIsOn()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setVideoSignalGenFormat(vsgFormat());
    QCOMPARE(rig.signalsSeen(), QStringList{});
    rig.vtr->setVideoSignalGenMode(OrbId(801));
    rig.transcript.clear();
    rig.vtr->setVideoSignalGenMode(OrbId(802)); // another pattern, the same format
    QCOMPARE(rig.transcript.lines(), QStringList{"log 3 Set VSG Mode: " + OrbId(802).name()});
    rig.transcript.clear();
    rig.vtr->setVideoSignalGenFormat(EngineRig::imageDesc(720, 576, 25, 1, true));
    QCOMPARE(rig.transcript.lines(),
             (QStringList{"log 3 Set VSG Format: 720x576i 25/1 ImageProRes422",
                          "signal inputFormatChanged 0 valid 720x576i 25/1 ImageProRes422"}));
}

void TestEngineSetters::theGeneratorsEffectComesAfterTheValueAndTheReset()
{
    EngineRig rig;
    rig.startUp();
    int heard = 0;
    QObject::connect(rig.vtr.get(), &VtrObject::inputFormatChanged, rig.vtr.get(), [&] {
        ++heard;
        QVERIFY(isResetScheduled(rig));
        QCOMPARE(rig.vtr->state().videoSignalGenMode(), OrbId(801));
        QVERIFY(rig.vtr->state().videoSignalGenFormat() == vsgFormat() || heard == 1);
    });
    rig.vtr->setVideoSignalGenMode(OrbId(801));
    QCOMPARE(heard, 1);
    rig.run(1000);
    rig.vtr->setVideoSignalGenFormat(vsgFormat());
    QCOMPARE(heard, 2);
}

void TestEngineSetters::eitherLutStoresBoth()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setLuts(lut(16), lut(32));
    rig.run(1000);
    rig.transcript.clear();
    rig.vtr->setLuts(lut(16), lut(32));
    QVERIFY(!isResetScheduled(rig));
    rig.vtr->setLuts(lut(16), lut(8)); // only the output
    QVERIFY(isResetScheduled(rig));
    rig.run(1000);
    QCOMPARE(rig.video.appliedSetup().outputLut(), lut(8));
    rig.vtr->setLuts(lut(4), lut(8)); // only the input
    QVERIFY(isResetScheduled(rig));
    rig.run(1000);
    QCOMPARE(rig.video.appliedSetup().inputLut(), lut(4));
    QCOMPARE(rig.video.appliedSetup().outputLut(), lut(8));
    QVERIFY(rig.logs().filter("Set ").isEmpty());
}

void TestEngineSetters::theTimecodeValueKeepsRateAndDropFrameOfThePreset()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setTCGSource(OrbId(1500));
    for (const bool dropFrame : {false, true}) {
        rig.vtr->setTimecodeDropFrame(dropFrame);
        rig.vtr->setTimecodeValue({10, 11, 12, 13, 60, dropFrame ? 0 : OrbTimecode::DropFrame});
        const auto sent = rig.video.property(24).value<OrbTimecode>();
        QCOMPARE(sent, OrbTimecode(10, 11, 12, 13, 25, dropFrame ? OrbTimecode::DropFrame : 0));
        QVERIFY(rig.hasLog(3, dropFrame ? "Set TC value: 10:11:12;13" : "Set TC value: 10:11:12:13"));
    }
    rig.vtr->setTimecodeValue(OrbTimecode()); // not valid itself; the preset is
    QVERIFY(rig.hasLog(3, "Set TC value: 00:00:00;00"));
    QVERIFY(rig.video.property(24).value<OrbTimecode>().isValid());
}

void TestEngineSetters::theSameTimecodeDeliberatelyLoadsTheGeneratorTwice()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setTCGSource(OrbId(1500));
    const int before = rig.video.propertyCount(24);
    rig.vtr->setTimecodeValue({1, 2, 3, 4, 0, 0});
    rig.vtr->setTimecodeValue({1, 2, 3, 4, 0, 0});
    QCOMPARE(rig.video.propertyCount(24), before + 2);
    QCOMPARE(rig.countLog(3, "Set TC value: 01:02:03:04"), 2);
}

void TestEngineSetters::theReelNameIsKeptForTheNextRecordings()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setReelName("A12");
    rig.vtr->record();
    rig.run(200);
    rig.vtr->setReelName("B7"); // of the next one
    rig.vtr->standbyOff();
    rig.run(200);
    rig.vtr->record();
    rig.run(200);
    QCOMPARE(rig.media.infos().size(), 2);
    QCOMPARE(rig.media.infos().at(0).reelName(), QString("A12"));
    QCOMPARE(rig.media.infos().at(1).reelName(), QString("B7"));
}

void TestEngineSetters::theClipNameIsNotStored()
{
    EngineRig rig;
    rig.startUp();
    const VtrState before = rig.vtr->state();
    rig.vtr->setCurrentClipName("clip");
    rig.vtr->setCurrentClipName("clip");
    QVERIFY(rig.vtr->state() == before);
    QCOMPARE(rig.video.propertyCount(19), 2);
    QCOMPARE(rig.logs(), QStringList{});
    QVERIFY(!isResetScheduled(rig));
}

void TestEngineSetters::valuesMadeBeforeTheStartAreInTheFirstSetup()
{
    EngineRig rig;
    for (const Setting &setting : settings)
        setting.set(*rig.vtr);
    QVERIFY(!isResetScheduled(rig));
    rig.vtr->start();
    rig.run(100);
    QCOMPARE(rig.transcript.count("device: setup"), 1);
    for (const Setting &setting : settings)
        if (setting.isInSetup && !QByteArray(setting.name).endsWith("InputSource"))
            QVERIFY2(setting.isInSetup(rig.video.appliedSetup()), setting.name);
    QCOMPARE(rig.video.appliedSetup().videoInputSource(), OrbId(695)); // the generators'
    QCOMPARE(rig.video.appliedSetup().audioInputSource(), OrbId(695));
}

SIM_TEST_MAIN(TestEngineSetters)
#include "tst_engine_setters.moc"
