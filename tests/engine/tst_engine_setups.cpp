#include "enginerig.h"

#include "liborb/orb.h"

#include <QHash>

/// The four setups, field by field.
class TestEngineSetups : public QObject
{
    Q_OBJECT

private slots:
    void ofANewEngine_data();
    void ofANewEngine();
    void ofAnEngineWithEverySettingMade_data();
    void ofAnEngineWithEverySettingMade();
    void ofARecordingByInputAndGenerators_data();
    void ofARecordingByInputAndGenerators();
    void ofFramesWithoutPictureOrSound_data();
    void ofFramesWithoutPictureOrSound();
    void buffersByRate_data();
    void buffersByRate();
    void whatIsSentIsWhatIsBuilt();
    void playbackDoesNotMindALostInput();
};

namespace {

using Fields = QHash<QString, QString>;

QString text(const OrbImageDesc &desc)
{
    if (!desc.isValid())
        return "none";
    return QString("%1x%2 %3:%4 %5/%6 scan %7 type %8")
        .arg(desc.width())
        .arg(desc.height())
        .arg(desc.aspectRatio().num())
        .arg(desc.aspectRatio().den())
        .arg(desc.frameRate().num())
        .arg(desc.frameRate().den())
        .arg(int(desc.scanMode()))
        .arg(int(desc.dataType().value()));
}

QString text(const OrbAudioDesc &desc)
{
    if (desc == OrbAudioDesc())
        return "none";
    return QString("type %1, %2 x %3/%4 at %5/%6")
        .arg(int(desc.dataType().value()))
        .arg(desc.chans())
        .arg(desc.sampleRate().num())
        .arg(desc.sampleRate().den())
        .arg(desc.frameRate().num())
        .arg(desc.frameRate().den());
}

QString text(const OrbImageLut &lut)
{
    return lut.isValid() ? QString("%1 entries").arg(lut.entries()) : QString("none");
}

QString text(const OrbId &id)
{
    return id.isValid() ? QString::number(int(id.value())) : QString("none");
}

QString text(bool on)
{
    return on ? "on" : "off";
}

Fields fieldsOf(const OrbVideoDeviceSetup &s)
{
    return {
        {"imageDesc", text(s.imageDesc())},
        {"audioDesc", text(s.audioDesc())},
        {"inputLut", text(s.inputLut())},
        {"outputLut", text(s.outputLut())},
        {"inputRefSource", text(s.inputRefSource())},
        {"videoOutputType", text(s.videoOutputType())},
        {"videoInputSource", text(s.videoInputSource())},
        {"audioInputSource", text(s.audioInputSource())},
        {"audioInputLevel", text(s.audioInputLevel())},
        {"videoSignalGenMode", text(s.videoSignalGenMode())},
        {"videoSignalGenColorSpace", text(s.videoSignalGenColorSpace())},
        {"audioSignalGenMode", text(s.audioSignalGenMode())},
        {"cameraInput", text(s.cameraInput())},
        {"videoInConvert", text(s.videoInConvert())},
        {"videoOutConvert", text(s.videoOutConvert())},
        {"superOut", text(s.superOut())},
        {"videoOutRoute", text(s.videoOutRoute())},
        {"timecodeInputSource", text(s.timecodeInputSource())},
        {"forcePSFOutput", text(s.forcePSFOutput())},
        {"forcePSFEncode", text(s.forcePSFEncode())},
        {"forceVFRRecord", text(s.forceVFRRecord())},
        {"mode", QString::number(s.mode())},
        {"imageCount", QString::number(s.imageCount())},
        {"maxBuffers", QString::number(s.maxBuffers())},
        {"blackingEnabled", text(s.blackingEnabled())},
    };
}

struct Row {
    const char *field;
    const char *inDefault;
    const char *inPlayback;
    const char *inRecord;
    const char *inShutdown;
};

void addRows(std::initializer_list<Row> rows)
{
    QTest::addColumn<QString>("inDefault");
    QTest::addColumn<QString>("inPlayback");
    QTest::addColumn<QString>("inRecord");
    QTest::addColumn<QString>("inShutdown");
    for (const Row &row : rows)
        QTest::newRow(row.field) << QString(row.inDefault) << QString(row.inPlayback)
                                 << QString(row.inRecord) << QString(row.inShutdown);
    QCOMPARE(int(rows.size()), int(fieldsOf(OrbVideoDeviceSetup()).size()));
}

constexpr char pal[] = "720x576 720:576 25/1 scan 1 type 204";

/// A frame of 576i with eight channels, nothing like the defaults.
OrbFrame palFrame()
{
    ScriptedMedia media(nullptr);
    ScriptedClip clip = EngineRig::clip(1, EngineRig::imageDesc(720, 576, 25, 1, true, OrbIdImageProRes422Lt));
    clip.audio.setChans(8);
    return media.frameOf(clip, 0);
}

void compareFields(EngineRig &rig)
{
    const QString field = QString::fromLatin1(QTest::currentDataTag());
    QFETCH(QString, inDefault);
    QFETCH(QString, inPlayback);
    QFETCH(QString, inRecord);
    QFETCH(QString, inShutdown);
    const VtrObject &vtr = *rig.vtr;
    QCOMPARE(fieldsOf(vtr.createVideoDeviceDefaultSetupObject()).value(field), inDefault);
    QCOMPARE(fieldsOf(vtr.createVideoDevicePlaybackSetupObject(palFrame())).value(field),
             inPlayback);
    QCOMPARE(fieldsOf(vtr.createVideoDeviceRecordSetupObject()).value(field), inRecord);
    rig.vtr->setupVideoDeviceForShutdown();
    QCOMPARE(fieldsOf(rig.video.setupsSent().last()).value(field), inShutdown);
}

constexpr char isSilent[] = "none";

} // namespace

void TestEngineSetups::ofANewEngine_data()
{
    constexpr char hd24[] = "1920x1080 1920:1080 24000/1000 scan 0 type 202";
    constexpr char hdOut[] = "1920x1080 1920:1080 24000/1000 scan 0 type 231";
    constexpr char two[] = "type 408, 2 x 48000/1 at 24000/1000";
    constexpr char eight[] = "type 408, 8 x 48000/1 at 25/1";
    // clang-format off
    addRows({
        // field                     default  playback  record  shutdown
        {"imageDesc",                hd24,    pal,      hd24,   hdOut},
        {"audioDesc",                two,     eight,    two,    isSilent},
        {"inputLut",                 "none",  "none",   "none", "none"},
        {"outputLut",                "none",  "none",   "none", "none"},
        {"inputRefSource",           "501",   "501",    "501",  "501"},
        {"videoOutputType",          "none",  "none",   "none", "none"},
        {"videoInputSource",         "601",   "601",    "601",  "695"},
        {"audioInputSource",         "52",    "52",     "52",   "52"},
        {"audioInputLevel",          "none",  "none",   "none", "none"},
        {"videoSignalGenMode",       "none",  "none",   "none", "800"},
        {"videoSignalGenColorSpace", "none",  "none",   "none", "none"},
        {"audioSignalGenMode",       "none",  "none",   "none", "none"},
        {"cameraInput",              "none",  "none",   "none", "none"},
        {"videoInConvert",           "none",  "none",   "none", "none"},
        {"videoOutConvert",          "none",  "none",   "none", "none"},
        {"superOut",                 "none",  "none",   "none", "none"},
        {"videoOutRoute",            "none",  "none",   "none", "none"},
        {"timecodeInputSource",      "none",  "none",   "none", "none"},
        {"forcePSFOutput",           "off",   "off",    "off",  "off"},
        {"forcePSFEncode",           "off",   "off",    "off",  "off"},
        {"forceVFRRecord",           "off",   "off",    "off",  "off"},
        {"mode",                     "1",     "1",      "2",    "2"},
        {"imageCount",               "1",     "1",      "1",    "1"},
        {"maxBuffers",               "40",    "40",     "144",  "40"},
        {"blackingEnabled",          "on",    "off",    "on",   "on"},
    });
    // clang-format on
}

void TestEngineSetups::ofANewEngine()
{
    EngineRig rig;
    compareFields(rig);
}

void TestEngineSetups::ofAnEngineWithEverySettingMade_data()
{
    constexpr char hd24[] = "1920x1080 1920:1080 24000/1000 scan 0 type 202";
    constexpr char hdOut[] = "1920x1080 1920:1080 24000/1000 scan 0 type 231";
    constexpr char hd60[] = "1280x720 1280:720 60000/1001 scan 0 type 206";
    constexpr char two[] = "type 408, 2 x 48000/1 at 24000/1000";
    constexpr char eight[] = "type 408, 8 x 48000/1 at 25/1";
    constexpr char eight60[] = "type 408, 8 x 48000/1 at 60000/1001";
    // clang-format off
    addRows({
        // field                     default       playback      record        shutdown
        {"imageDesc",                hd24,         pal,          hd60,         hdOut},
        {"audioDesc",                two,          eight,        eight60,      isSilent},
        {"inputLut",                 "16 entries", "16 entries", "16 entries", "16 entries"},
        {"outputLut",                "32 entries", "32 entries", "32 entries", "32 entries"},
        {"inputRefSource",           "502",        "502",        "502",        "502"},
        {"videoOutputType",          "7",          "7",          "7",          "7"},
        {"videoInputSource",         "602",        "602",        "695",        "695"},
        {"audioInputSource",         "690",        "690",        "695",        "690"},
        {"audioInputLevel",          "1401",       "1401",       "1401",       "1401"},
        {"videoSignalGenMode",       "801",        "801",        "801",        "800"},
        {"videoSignalGenColorSpace", "231",        "231",        "231",        "231"},
        {"audioSignalGenMode",       "none",       "none",       "901",        "none"},
        {"cameraInput",              "1001",       "1001",       "1001",       "1001"},
        {"videoInConvert",           "1201",       "1201",       "1201",       "1201"},
        {"videoOutConvert",          "1202",       "1202",       "1202",       "1202"},
        {"superOut",                 "1302",       "1302",       "1302",       "none"},
        {"videoOutRoute",            "53",         "53",         "53",         "53"},
        {"timecodeInputSource",      "1510",       "1510",       "1510",       "1510"},
        {"forcePSFOutput",           "on",         "on",         "on",         "on"},
        {"forcePSFEncode",           "on",         "on",         "on",         "on"},
        {"forceVFRRecord",           "on",         "on",         "on",         "on"},
        {"mode",                     "1",          "1",          "2",          "2"},
        {"imageCount",               "1",          "1",          "1",          "1"},
        {"maxBuffers",               "40",         "40",         "360",        "40"},
        {"blackingEnabled",          "off",        "off",        "off",        "off"},
    });
    // clang-format on
}

void TestEngineSetups::ofAnEngineWithEverySettingMade()
{
    EngineRig rig;
    VtrObject &v = *rig.vtr;
    v.setEncodeFormat(OrbId(206));
    v.setVideoInputSource(OrbId(602));
    v.setAudioInputSource(OrbId(690));
    v.setAudioInputLevel(OrbId(1401));
    v.setSyncSource(OrbId(502));
    v.setAudioChans(8);
    v.setVideoSignalGenFormat(
        EngineRig::imageDesc(1280, 720, 60000, 1001, false, OrbIdImageV210));
    v.setVideoSignalGenMode(OrbId(801));
    v.setAudioSignalGenMode(OrbId(901));
    v.setCameraInput(OrbId(1001));
    v.setLuts(OrbImageLut(OrbId(1100), 16), OrbImageLut(OrbId(1100), 32));
    v.setVideoInConvert(OrbId(1201));
    v.setVideoOutConvert(OrbId(1202));
    v.setForcePSFOutput(true);
    v.setForcePSFEncode(true);
    v.setVideoOutputType(OrbId(7));
    v.setVideoOutputRoute(OrbId(53));
    v.setSuperOut(OrbId(1302));
    v.setVFREnable(true);
    v.setTCGSource(OrbId(1510));
    compareFields(rig);
}

void TestEngineSetups::ofARecordingByInputAndGenerators_data()
{
    QTest::addColumn<bool>("isInputValid");
    QTest::addColumn<bool>("hasVideoGenerator");
    QTest::addColumn<bool>("hasAudioGenerator");
    QTest::addColumn<QString>("image");
    QTest::addColumn<QString>("video");
    QTest::addColumn<QString>("audio");
    QTest::addColumn<bool>("isBlacked");
    const QString fallback = "1920x1080 1920:1080 24000/1000 scan 0 type 203";
    const QString capture = "720x576 720:576 25/1 scan 1 type 203";
    const QString generator = "1280x720 1280:720 60/1 scan 0 type 203";
    // clang-format off
    //                                     input    video gen  audio gen  image        video   audio   black
    QTest::newRow("nothing")            << false << false   << false   << fallback  << "601" << "52"  << true;
    QTest::newRow("sound only")         << false << false   << true    << fallback  << "601" << "695" << true;
    QTest::newRow("generator only")     << false << true    << false   << generator << "695" << "52"  << false;
    QTest::newRow("both generators")    << false << true    << true    << generator << "695" << "695" << false;
    QTest::newRow("input")              << true  << false   << false   << capture   << "601" << "52"  << false;
    QTest::newRow("input, sound")       << true  << false   << true    << capture   << "601" << "695" << false;
    QTest::newRow("input, generator")   << true  << true    << false   << generator << "695" << "52"  << false;
    QTest::newRow("input, both")        << true  << true    << true    << generator << "695" << "695" << false;
    // clang-format on
}

void TestEngineSetups::ofARecordingByInputAndGenerators()
{
    QFETCH(bool, isInputValid);
    QFETCH(bool, hasVideoGenerator);
    QFETCH(bool, hasAudioGenerator);
    QFETCH(QString, image);
    QFETCH(QString, video);
    QFETCH(QString, audio);
    QFETCH(bool, isBlacked);
    EngineRig rig;
    OrbVideoState state;
    state.setValid(isInputValid);
    state.setPresent(true);
    state.setInputImageDesc(EngineRig::imageDesc(720, 486, 30, 1, true)); // not what capture makes
    state.setCaptureImageDesc(EngineRig::imageDesc(720, 576, 25, 1, true, OrbIdImageV210));
    rig.vtr->start();
    rig.run(100);
    rig.video.changeInput(0, state);
    rig.vtr->setEncodeFormat(OrbId(203));
    rig.vtr->setVideoSignalGenFormat(EngineRig::imageDesc(1280, 720, 60, 1, false, OrbIdImageV210));
    rig.vtr->setVideoSignalGenMode(hasVideoGenerator ? OrbId(801) : OrbId());
    rig.vtr->setAudioSignalGenMode(hasAudioGenerator ? OrbId(901) : OrbId());
    const Fields fields = fieldsOf(rig.vtr->createVideoDeviceRecordSetupObject());
    QCOMPARE(fields.value("imageDesc"), image);
    QCOMPARE(fields.value("videoInputSource"), video);
    QCOMPARE(fields.value("audioInputSource"), audio);
    QCOMPARE(fields.value("audioSignalGenMode"), hasAudioGenerator ? "901" : "none");
    QCOMPARE(fields.value("blackingEnabled"), text(isBlacked));
    QCOMPARE(rig.vtr->inputVideoIsValid(), !isBlacked);
    QCOMPARE(fields.value("audioDesc").section(" at ", 1), image.section(' ', 2, 2));
}

void TestEngineSetups::ofFramesWithoutPictureOrSound_data()
{
    QTest::addColumn<bool>("hasPicture");
    QTest::addColumn<bool>("hasSound");
    QTest::addColumn<QString>("image");
    QTest::addColumn<QString>("sound");
    const QString hd24 = "1920x1080 1920:1080 24000/1000 scan 0 type 202";
    const QString eight = "type 408, 8 x 48000/1 at 25/1";
    // clang-format off
    //                            picture  sound    image    sound
    QTest::newRow("both")      << true  << true  << pal   << eight;
    QTest::newRow("no sound")  << true  << false << pal   << "none";
    QTest::newRow("no image")  << false << true  << hd24  << eight;
    QTest::newRow("neither")   << false << false << hd24  << "none";
    // clang-format on
}

void TestEngineSetups::ofFramesWithoutPictureOrSound()
{
    QFETCH(bool, hasPicture);
    QFETCH(bool, hasSound);
    QFETCH(QString, image);
    QFETCH(QString, sound);
    EngineRig rig;
    OrbFrame frame = palFrame();
    if (hasPicture) // only the first image and the first sound count
        frame.vids().append(OrbImage(EngineRig::hd25(), OrbBuffer(8, 8)));
    else
        frame.vids().clear();
    if (!hasSound)
        frame.auds().clear();
    const Fields fields = fieldsOf(rig.vtr->createVideoDevicePlaybackSetupObject(frame));
    QCOMPARE(fields.value("imageDesc"), image);
    QCOMPARE(fields.value("audioDesc"), sound);
    QCOMPARE(fields.value("imageCount"), QString("1"));
    QCOMPARE(fields.value("blackingEnabled"), QString("off"));
}

void TestEngineSetups::buffersByRate_data()
{
    QTest::addColumn<int>("num");
    QTest::addColumn<int>("den");
    QTest::addColumn<int>("buffers");
    // clang-format off
    //                           num      den     six seconds
    QTest::newRow("23.976")  << 24000 << 1001 << 144;
    QTest::newRow("24")      << 24    << 1    << 144;
    QTest::newRow("25")      << 25    << 1    << 150;
    QTest::newRow("29.97")   << 30000 << 1001 << 180;
    QTest::newRow("30")      << 30    << 1    << 180;
    QTest::newRow("47.952")  << 48000 << 1001 << 288;
    QTest::newRow("48")      << 48    << 1    << 288;
    QTest::newRow("50")      << 50    << 1    << 300;
    QTest::newRow("59.94")   << 60000 << 1001 << 360;
    QTest::newRow("60")      << 60    << 1    << 360;
    QTest::newRow("12")      << 12    << 1    << 0;
    QTest::newRow("120")     << 120   << 1    << 0;
    // clang-format on
}

void TestEngineSetups::buffersByRate()
{
    QFETCH(int, num);
    QFETCH(int, den);
    QFETCH(int, buffers);
    EngineRig rig;
    rig.startUp();
    rig.video.changeInput(0, EngineRig::inputState(EngineRig::imageDesc(1920, 1080, num, den)));
    QCOMPARE(rig.vtr->createVideoDeviceRecordSetupObject().maxBuffers(), buffers);
    rig.run(600);
    QCOMPARE(rig.video.setupsSent().last().maxBuffers(), buffers);
    QCOMPARE(rig.vtr->createVideoDeviceDefaultSetupObject().maxBuffers(), 40);
}

void TestEngineSetups::whatIsSentIsWhatIsBuilt()
{
    EngineRig rig;
    rig.startUp();
    QCOMPARE(rig.video.setupsSent().last(), rig.vtr->createVideoDeviceRecordSetupObject());
    rig.vtr->setSuperOut(OrbId(1300));
    rig.vtr->record();
    rig.run(100);
    QCOMPARE(rig.video.setupsSent().last(), rig.vtr->createVideoDeviceRecordSetupObject());
    rig.vtr->play();
    rig.run(1000); // the reset scheduled in Standby Off comes first
    QCOMPARE(rig.video.setupsSent().last(),
             rig.vtr->createVideoDevicePlaybackSetupObject(
                 rig.media.frameOf(rig.media.clips.value(EngineRig::clipPath), 0)));
}

void TestEngineSetups::playbackDoesNotMindALostInput()
{
    EngineRig rig;
    rig.startPlay();
    rig.changeInput(false);
    rig.run(2000);
    QCOMPARE(rig.transcript.count("device: setup"), 0); // playback does not mind the input
    QVERIFY(!rig.video.appliedSetup().blackingEnabled());
    QVERIFY(rig.vtr->createVideoDeviceDefaultSetupObject().blackingEnabled());
}

SIM_TEST_MAIN(TestEngineSetups)
#include "tst_engine_setups.moc"
