#include "enginerig.h"

#include "liborb/orb.h"
#include "transport/lossofvideo.h"

#include <QRegularExpression>

#include <functional>

/// The picture that stands in for a lost input: which, when it is loaded, and what a recording does
/// with it. And the check of the reference.
class TestEngineLossOfVideo : public QObject
{
    Q_OBJECT

private slots:
    void theClipOfAFormat_data();
    void theClipOfAFormat();
    void theEngineLoadsTheClipOfItsSetup_data();
    void theEngineLoadsTheClipOfItsSetup();
    void interlacedHdOfType204HasAClip();
    void progressiveHdOfType207HasNoneAndClearsTheLoader();
    void interlaced720HasNone();
    void theRatePlaysNoPart_data();
    void theRatePlaysNoPart();
    void itIsLoadedAfterEverySetupThatWasSent();
    void itIsNotLoadedWithoutASetupSent_data();
    void itIsNotLoadedWithoutASetupSent();
    void untilItIsLoadedThereIsNone();

    void lossDuringARecording_data();
    void lossDuringARecording();
    void theStoryOfARecordingThatStops();
    void theStoryOfARecordingThatIsCovered();
    void theStoryOfARecordingWithoutAPicture();
    void lossBeforeTheOpenWaitsForAPicture_data();
    void lossBeforeTheOpenWaitsForAPicture();
    void lossWhileOpeningIsJudgedWhenTheStreamIsOpen_data();
    void lossWhileOpeningIsJudgedWhenTheStreamIsOpen();
    void aPictureThatComesBackIsRecorded();
    void lossBetweenTwoStreamsOfARolloverIsSkipped();
    void framesThatAreNoPictures_data();
    void framesThatAreNoPictures();

    void theReference_data();
    void theReference();
    void aReferenceIsFollowedTickByTick();
    void theReferenceIsCheckedInEveryMode();

private:
    static constexpr char directory[] = "/usr/local/share/media/";
};

using Break = std::function<void(OrbFrame &)>;
Q_DECLARE_METATYPE(Break)

namespace {

constexpr char cover1080p[] = "/usr/local/share/media/prores_422/loss_of_video_1080p_422.mov";

struct Row {
    int width;
    int height;
    bool isInterlaced;
    int type;
    const char *file;
};

// clang-format off
constexpr Row rows[] = {
    // width height interlaced type  file
    { 720,   486,   true,      202,  "prores_422/loss_of_video_525i_422.mov"},
    { 720,   576,   true,      202,  "prores_422/loss_of_video_625i_422.mov"},
    {1280,   720,   false,     202,  "prores_422/loss_of_video_720p_422.mov"},
    {1920,  1080,   true,      202,  "prores_422/loss_of_video_1080i_422.mov"},
    {1920,  1080,   false,     202,  "prores_422/loss_of_video_1080p_422.mov"},
    {2048,  1080,   true,      202,  "prores_422/loss_of_video_2ki_422.mov"},
    {2048,  1080,   false,     202,  "prores_422/loss_of_video_2kp_422.mov"},
    {3840,  2160,   true,      202,  "prores_422/loss_of_video_qhdi_422.mov"},
    {3840,  2160,   false,     202,  "prores_422/loss_of_video_qhdp_422.mov"},
    {4096,  2160,   true,      202,  "prores_422/loss_of_video_4ki_422.mov"},
    {4096,  2160,   false,     202,  "prores_422/loss_of_video_4kp_422.mov"},
    { 720,   486,   true,      206,  "prores_444/loss_of_video_525i_444.mov"},
    { 720,   576,   true,      206,  "prores_444/loss_of_video_625i_444.mov"},
    {1280,   720,   false,     206,  "prores_444/loss_of_video_720p_444.mov"},
    {1920,  1080,   true,      206,  "prores_444/loss_of_video_1080i_444.mov"},
    {1920,  1080,   false,     206,  "prores_444/loss_of_video_1080p_444.mov"},
    {2048,  1080,   true,      206,  "prores_444/loss_of_video_2ki_444.mov"},
    {2048,  1080,   false,     206,  "prores_444/loss_of_video_2kp_444.mov"},
    {3840,  2160,   true,      206,  "prores_444/loss_of_video_qhdi_444.mov"},
    {3840,  2160,   false,     206,  "prores_444/loss_of_video_qhdp_444.mov"},
    {4096,  2160,   true,      206,  "prores_444/loss_of_video_4ki_444.mov"},
    {4096,  2160,   false,     206,  "prores_444/loss_of_video_4kp_444.mov"},
};
// clang-format on
static_assert(std::size(rows) == 22);

/// Every row with every data type of its neighbourhood: 202 to 205 are one family, 206 the other,
/// 207 and 201 none. And the rasters that have no row.
void addFormats()
{
    QTest::addColumn<OrbImageDesc>("desc");
    QTest::addColumn<QString>("file");
    const auto add = [](int width, int height, bool isInterlaced, int type, const QString &file) {
        QTest::addRow("%dx%d%c %d", width, height, isInterlaced ? 'i' : 'p', type)
            << EngineRig::imageDesc(width, height, 25, 1, isInterlaced, OrbIdValue(type)) << file;
    };
    for (const Row &row : rows) {
        if (row.type == 206) {
            add(row.width, row.height, row.isInterlaced, 206, row.file);
            continue;
        }
        for (const int type : {202, 203, 204, 205})
            add(row.width, row.height, row.isInterlaced, type, row.file);
        for (const int type : {201, 207})
            add(row.width, row.height, row.isInterlaced, type, {});
    }
    for (const int type : {202, 206}) {
        add(720, 486, false, type, {});
        add(720, 576, false, type, {});
        add(1280, 720, true, type, {});
        add(1920, 1079, false, type, {});
        add(1080, 1920, false, type, {});
    }
}

QString failedLine(const OrbImageDesc &desc)
{
    return "Failed to find loss of video file for " + desc.toString();
}

} // namespace

void TestEngineLossOfVideo::theClipOfAFormat_data()
{
    addFormats();
}

void TestEngineLossOfVideo::theClipOfAFormat()
{
    QFETCH(OrbImageDesc, desc);
    QFETCH(QString, file);
    QCOMPARE(findLossOfVideoFile(desc), file);
}

void TestEngineLossOfVideo::theEngineLoadsTheClipOfItsSetup_data()
{
    addFormats();
}

void TestEngineLossOfVideo::theEngineLoadsTheClipOfItsSetup()
{
    QFETCH(OrbImageDesc, desc);
    QFETCH(QString, file);
    desc.setFrameRate(50, 1); // not what the engine started with
    EngineRig rig;
    rig.startUp();
    rig.video.changeInput(0, EngineRig::inputState(desc));
    rig.vtr->setEncodeFormat(desc.dataType());
    rig.run(600);
    QCOMPARE(rig.video.appliedSetup().imageDesc(), desc);
    const QStringList found = rig.logs().filter("oss of video");
    QCOMPARE(found, QStringList{file.isEmpty() ? "1 " + failedLine(desc)
                                               : "3 Loss of video clip: " + (directory + file)});
}

void TestEngineLossOfVideo::interlacedHdOfType204HasAClip()
{
    QCOMPARE(findLossOfVideoFile(
                 EngineRig::imageDesc(1920, 1080, 25, 1, true, OrbIdImageProRes422Lt)),
             QString("prores_422/loss_of_video_1080i_422.mov"));
}

/// The picture of the format before would be a wrong one.
void TestEngineLossOfVideo::progressiveHdOfType207HasNoneAndClearsTheLoader()
{
    EngineRig rig;
    rig.media.clips.insert(cover1080p, EngineRig::clip(1, EngineRig::hd25()));
    rig.startUp();
    rig.vtr->setStopOnLossOfVideo(false);
    rig.vtr->setEncodeFormat(OrbId(207));
    rig.run(600);
    QVERIFY(rig.hasLog(1, failedLine(rig.video.appliedSetup().imageDesc())));
    rig.vtr->record();
    rig.run(200);
    rig.video.hasSignal = false;
    rig.run(100);
    QCOMPARE(rig.alarmTexts().last(), QString("1905 2 Invalid Loss Of Video image buffer"));
}

void TestEngineLossOfVideo::interlaced720HasNone()
{
    QCOMPARE(findLossOfVideoFile(EngineRig::imageDesc(1280, 720, 50, 1, true)), QString());
}

void TestEngineLossOfVideo::theRatePlaysNoPart_data()
{
    QTest::addColumn<int>("num");
    QTest::addColumn<int>("den");
    for (const auto &[num, den] : {std::pair{24000, 1001}, {24, 1}, {25, 1}, {30000, 1001},
                                   {30, 1}, {50, 1}, {60000, 1001}, {60, 1}, {12, 1}})
        QTest::addRow("%d/%d", num, den) << num << den;
}

void TestEngineLossOfVideo::theRatePlaysNoPart()
{
    QFETCH(int, num);
    QFETCH(int, den);
    QCOMPARE(findLossOfVideoFile(EngineRig::imageDesc(1920, 1080, num, den)),
             QString("prores_422/loss_of_video_1080p_422.mov"));
}

void TestEngineLossOfVideo::itIsLoadedAfterEverySetupThatWasSent()
{
    EngineRig rig;
    rig.startUp();
    const QString line = QString("log 3 Loss of video clip: ") + cover1080p;
    rig.vtr->setSuperOut(OrbId(1300));
    rig.run(600);
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 3 Set Super Out: " + OrbId(1300).name(),
        "signal stateChanged 0.000 Standby Off -> 0.000 Standby Off",
        "log 3 VIDEO DEVICE: Reset in mode Standby Off",
        "log 3 VIDEO DEVICE: Setup for record",
        "log 3 VIDEO DEVICE: Setup Started",
        "device: setup capture 1920x1080p 25/1 ImageProRes422",
        "signal videoDeviceSetupChanged",
        line,
        "log 3 VIDEO DEVICE: Setup is Done",
    }));
    for (int i = 0; i < 3; ++i) {
        rig.vtr->setSuperOut(OrbId(1301 + i % 2)); // the same format, and loaded again
        rig.run(600);
    }
    QCOMPARE(rig.transcript.lines().count(line), 4);
    QCOMPARE(rig.transcript.count("device: setup"), 4);
}

void TestEngineLossOfVideo::itIsNotLoadedWithoutASetupSent_data()
{
    QTest::addColumn<QString>("what");
    for (const char *const what : {"current", "refused", "in setup"})
        QTest::newRow(what) << QString(what);
}

void TestEngineLossOfVideo::itIsNotLoadedWithoutASetupSent()
{
    QFETCH(QString, what);
    EngineRig rig;
    rig.startUp();
    OrbVideoDeviceSetup setup = rig.video.appliedSetup();
    if (what == "in setup") {
        setup.setSuperOut(OrbId(1301));
        rig.video.setups.push_back({.afterMs = ScriptedVideo::held});
        QVERIFY(rig.vtr->setupVideoDevice(setup));
    }
    if (what != "current")
        setup.setSuperOut(OrbId(1300));
    if (what == "refused")
        rig.video.setups.push_back({.refused = OrbError(22)});
    rig.transcript.clear();
    QCOMPARE(rig.vtr->setupVideoDevice(setup), what == "current");
    rig.run(20);
    QCOMPARE(rig.logs().filter("oss of video"), QStringList{});
}

void TestEngineLossOfVideo::untilItIsLoadedThereIsNone()
{
    EngineRig rig;
    rig.media.clips.insert(cover1080p, EngineRig::clip(1, EngineRig::hd25()));
    rig.startUp();
    rig.vtr->setStopOnLossOfVideo(false);
    rig.vtr->record();
    rig.run(200);
    rig.vtr->updateLossOfVideoFrame(); // a load begins: the picture loaded before is gone
    rig.video.hasSignal = false;
    rig.media.readMs = 500;
    rig.run(45);
    QCOMPARE(rig.alarmTexts().last(), QString("1905 2 Invalid Loss Of Video image buffer"));
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
}

// A recording that loses its input ----------------------------------------------------------------

void TestEngineLossOfVideo::lossDuringARecording_data()
{
    QTest::addColumn<bool>("stops");
    QTest::addColumn<bool>("hasPicture");
    QTest::addColumn<QStringList>("alarms");
    QTest::addColumn<QString>("line");
    QTest::addColumn<bool>("goesOn");
    const QString stopped = "1907 2 Recording stopped due to loss of video";
    const QString continued = "1907 1 Loss of video during record, recording continued";
    const QString noPicture = "1905 2 Invalid Loss Of Video image buffer";
    const QString stopLine = "2 Empty frame, stop on LoV is set.  Stopping record";
    const QString pictureLine = "2 Loss of Video image buffer is not valid.";
    // clang-format off
    //                                 stops    picture  alarms of the first frame               line             goes on
    QTest::newRow("stop, picture")  << true  << true  << QStringList{stopped}                 << stopLine    << false;
    QTest::newRow("stop, none")     << true  << false << QStringList{stopped}                 << stopLine    << false;
    QTest::newRow("cover, picture") << false << true  << QStringList{continued}               << QString()   << true;
    QTest::newRow("cover, none")    << false << false << QStringList{continued, noPicture}    << pictureLine << false;
    // clang-format on
}

void TestEngineLossOfVideo::lossDuringARecording()
{
    QFETCH(bool, stops);
    QFETCH(bool, hasPicture);
    QFETCH(QStringList, alarms);
    QFETCH(QString, line);
    QFETCH(bool, goesOn);
    EngineRig rig;
    if (hasPicture)
        rig.media.clips.insert(cover1080p, EngineRig::clip(1, EngineRig::imageDesc(1920, 1080, 30, 1)));
    rig.startUp();
    rig.vtr->setStopOnLossOfVideo(stops);
    rig.vtr->record();
    rig.run(500);
    rig.video.ticksByItself = false;
    rig.run(100);
    rig.transcript.clear();
    const qsizetype before = rig.media.recordings().value(EngineRig::recordPath).size();
    rig.video.hasSignal = false;
    rig.video.tick();
    QCOMPARE(rig.alarmTexts(), alarms);
    QStringList lines = {"2 Image 0 is invalid"};
    if (!line.isEmpty())
        lines << line;
    QCOMPARE(rig.logs().mid(0, lines.size()), lines);
    QCOMPARE(rig.mode(), goesOn ? VtrState::Record : VtrState::StandbyOff);
    rig.run(50);
    const QList<OrbFrame> written = rig.media.recordings().value(EngineRig::recordPath);
    QCOMPARE(written.size(), before + (goesOn ? 1 : 0));
    if (goesOn) { // the clip's images, everything else the frame's own
        QCOMPARE(written.last().vids().first().desc().frameRate(), OrbVideoRate(30, 1));
        QCOMPARE(written.last().meta().valueFor(OrbId(1)).toInt(), rig.video.framesCaptured() - 1);
        QVERIFY(written.last().meta().valueFor(OrbId(12)).value<OrbTimecode>().isValid());
        QCOMPARE(written.last().auds().size(), 1);
    }
    for (const OrbAlarm &alarm : rig.alarms) {
        QCOMPARE(alarm.file(), QString("vtrobject.cpp"));
        QVERIFY(alarm.line() > 0);
    }
}

void TestEngineLossOfVideo::theStoryOfARecordingThatStops()
{
    EngineRig rig;
    rig.startRecord();
    rig.video.hasSignal = false;
    rig.run(300);
    const QStringList story = {
        "log 2 Image 0 is invalid",
        "log 2 Empty frame, stop on LoV is set.  Stopping record",
        "signal alarmTriggered 1907 2 Recording stopped due to loss of video",
        "log 3 ** STANDBY OFF",
        "signal modeChanged Record -> Standby Off",
    };
    QCOMPARE(rig.transcript.lines().mid(0, story.size()), story);
    QCOMPARE(rig.alarms.size(), 1);
}

void TestEngineLossOfVideo::theStoryOfARecordingThatIsCovered()
{
    EngineRig rig;
    rig.media.clips.insert(cover1080p, EngineRig::clip(1, EngineRig::hd25()));
    rig.startUp();
    rig.vtr->setStopOnLossOfVideo(false);
    rig.vtr->record();
    rig.run(200);
    rig.video.ticksByItself = false;
    rig.run(100);
    rig.transcript.clear();
    rig.video.hasSignal = false;
    rig.video.tick();
    rig.video.tick(); // every frame of a loss is reported anew, deliberately
    const QStringList one = {
        "log 2 Image 0 is invalid",
        "signal alarmTriggered 1907 1 Loss of video during record, recording continued",
    };
    QCOMPARE(rig.transcript.lines(), one + one);
}

void TestEngineLossOfVideo::theStoryOfARecordingWithoutAPicture()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setStopOnLossOfVideo(false);
    rig.vtr->record();
    rig.run(200);
    rig.transcript.clear();
    rig.video.hasSignal = false;
    rig.run(300);
    const QStringList story = {
        "log 2 Image 0 is invalid",
        "signal alarmTriggered 1907 1 Loss of video during record, recording continued",
        "log 2 Loss of Video image buffer is not valid.",
        "signal alarmTriggered 1905 2 Invalid Loss Of Video image buffer",
        "log 3 ** STANDBY OFF",
        "signal modeChanged Record -> Standby Off",
    };
    QCOMPARE(rig.transcript.lines().mid(0, story.size()), story);
}

void TestEngineLossOfVideo::lossBeforeTheOpenWaitsForAPicture_data()
{
    QTest::addColumn<bool>("stops");
    QTest::newRow("stop") << true;
    QTest::newRow("cover") << false;
}

void TestEngineLossOfVideo::lossBeforeTheOpenWaitsForAPicture()
{
    QFETCH(bool, stops);
    EngineRig rig;
    rig.media.clips.insert(cover1080p, EngineRig::clip(1, EngineRig::hd25()));
    rig.startUp();
    rig.vtr->setStopOnLossOfVideo(stops);
    rig.video.hasSignal = false;
    rig.run(100);
    rig.vtr->record();
    rig.run(2000);
    QCOMPARE(rig.mode(), VtrState::Record);
    QCOMPARE(rig.transcript.count("media: open write"), 0);
    QCOMPARE(rig.alarmTexts(), QStringList{});
    const int first = rig.video.framesCaptured();
    rig.video.hasSignal = true;
    rig.run(500);
    QCOMPARE(rig.media.recordedNumbers(EngineRig::recordPath).first(), first);
}

void TestEngineLossOfVideo::lossWhileOpeningIsJudgedWhenTheStreamIsOpen_data()
{
    lossBeforeTheOpenWaitsForAPicture_data();
}

void TestEngineLossOfVideo::lossWhileOpeningIsJudgedWhenTheStreamIsOpen()
{
    QFETCH(bool, stops);
    EngineRig rig;
    rig.media.clips.insert(cover1080p, EngineRig::clip(1, EngineRig::hd25()));
    rig.startUp();
    rig.vtr->setStopOnLossOfVideo(stops);
    rig.media.opens.push_back({.afterMs = ScriptedMedia::held});
    const int first = rig.video.framesCaptured();
    rig.vtr->record();
    rig.run(100); // two frames with a picture
    rig.video.hasSignal = false;
    rig.run(400);
    QCOMPARE(rig.alarmTexts(), QStringList{}); // frames wait with the device
    rig.media.finishOpen();
    rig.run(200);
    const QList<int> numbers = rig.media.recordedNumbers(EngineRig::recordPath);
    QCOMPARE(numbers.first(), first);
    QCOMPARE(rig.mode(), stops ? VtrState::StandbyOff : VtrState::Record);
    QCOMPARE(rig.alarmTexts().count("1907 2 Recording stopped due to loss of video"), stops ? 1 : 0);
    if (stops)
        QVERIFY(numbers.size() >= 1 && numbers.size() <= 3);
    else
        QVERIFY(numbers.size() >= 12);
    for (int i = 1; i < numbers.size(); ++i)
        QCOMPARE(numbers.at(i), numbers.at(i - 1) + 1);
}

void TestEngineLossOfVideo::aPictureThatComesBackIsRecorded()
{
    EngineRig rig;
    rig.media.clips.insert(cover1080p, EngineRig::clip(1, EngineRig::imageDesc(1920, 1080, 30, 1)));
    rig.startUp();
    rig.vtr->setStopOnLossOfVideo(false);
    rig.vtr->record();
    rig.run(500);
    rig.video.hasSignal = false;
    rig.run(400);
    rig.video.hasSignal = true;
    const qsizetype alarms = rig.alarms.size();
    rig.run(400);
    QCOMPARE(rig.alarms.size(), alarms);
    QCOMPARE(rig.mode(), VtrState::Record);
    QString picture; // of each frame: its own, or the clip's
    const QList<OrbFrame> written = rig.media.recordings().value(EngineRig::recordPath);
    for (const OrbFrame &frame : written) {
        const bool isOwn = frame.vids().first().desc().frameRate() == OrbVideoRate(25, 1);
        picture += isOwn ? QLatin1Char('o') : QLatin1Char('c');
    }
    QVERIFY2(QRegularExpression("^o{8,}c{10}o{9,}$").match(picture).hasMatch(), qPrintable(picture));
}

void TestEngineLossOfVideo::lossBetweenTwoStreamsOfARolloverIsSkipped()
{
    EngineRig rig;
    rig.startRecord();
    rig.recordDesc = QString("/media/next.mov");
    rig.media.closes.push_back({.afterMs = 300});
    QVERIFY(rig.vtr->reopenRecordStream());
    rig.video.hasSignal = false;
    rig.run(1000);
    QCOMPARE(rig.mode(), VtrState::Record); // neither open nor opening: not a loss yet
    QCOMPARE(rig.alarmTexts(), QStringList{});
    const int first = rig.video.framesCaptured();
    rig.video.hasSignal = true;
    rig.run(200);
    QCOMPARE(rig.media.recordedNumbers("/media/next.mov").first(), first);
}

void TestEngineLossOfVideo::framesThatAreNoPictures_data()
{
    QTest::addColumn<Break>("breakIt");
    QTest::addColumn<int>("setupCount");
    QTest::addColumn<QString>("line");
    const OrbImage good(EngineRig::hd25(), OrbBuffer(8, 8));
    const OrbImage empty(EngineRig::hd25(), OrbBuffer());
    const auto row = [](const char *name, int setupCount, const QString &line, const Break &breakIt) {
        QTest::newRow(name) << breakIt << setupCount << line;
    };
    const QString mismatch = "2 Image count (%1) doesn't match the setup (%2)";
    // clang-format off
    row("one good image", 1, {}, [](OrbFrame &) {});
    row("two good images", 2, {}, [=](OrbFrame &f) { f.vids() << good; });
    row("none, none wanted", 0, {}, [](OrbFrame &f) { f.vids().clear(); });
    row("none", 1, mismatch.arg(0).arg(1), [](OrbFrame &f) { f.vids().clear(); });
    row("two for one", 1, mismatch.arg(2).arg(1), [=](OrbFrame &f) { f.vids() << good; });
    row("one for two", 2, mismatch.arg(1).arg(2), [](OrbFrame &) {});
    row("the count goes first", 1, mismatch.arg(2).arg(1), [=](OrbFrame &f) { f.vids() = {empty, empty}; });
    row("no description", 1, "2 Image 0 is invalid", [](OrbFrame &f) { f.vids()[0].setDesc(OrbImageDesc()); });
    row("no plane", 1, "2 Image 0 is invalid", [](OrbFrame &f) { f.vids()[0].planes().clear(); });
    row("no first plane", 1, "2 Image 0 is invalid", [=](OrbFrame &f) { f.vids()[0] = empty; });
    row("no second plane", 1, "2 Image 0 buffer is invalid", [](OrbFrame &f) { f.vids()[0].planes() << OrbBuffer(); });
    row("the second image", 2, "2 Image 1 is invalid", [=](OrbFrame &f) { f.vids() << empty; });
    row("the second's buffer", 2, "2 Image 1 buffer is invalid", [=](OrbFrame &f) { f.vids() << good; f.vids()[1].planes() << OrbBuffer(); });
    row("stops at the first", 3, "2 Image 1 is invalid", [=](OrbFrame &f) { f.vids() << empty << empty; });
    row("no sound", 1, {}, [](OrbFrame &f) { f.auds().clear(); });
    // clang-format on
}

void TestEngineLossOfVideo::framesThatAreNoPictures()
{
    QFETCH(Break, breakIt);
    QFETCH(int, setupCount);
    QFETCH(QString, line);
    EngineRig rig;
    rig.startUp();
    OrbVideoDeviceSetup setup = rig.video.appliedSetup();
    setup.setImageCount(setupCount);
    QVERIFY(rig.vtr->setupVideoDevice(setup));
    rig.transcript.clear();
    OrbFrame frame = rig.media.frameOf(rig.media.clips.value(EngineRig::clipPath), 0);
    breakIt(frame);
    QCOMPARE(rig.vtr->validateFrameForRecord(frame), line.isEmpty());
    QCOMPARE(rig.logs(), line.isEmpty() ? QStringList{} : QStringList{line});
}

// The reference -----------------------------------------------------------------------------------

void TestEngineLossOfVideo::theReference_data()
{
    QTest::addColumn<bool>("present");
    QTest::addColumn<bool>("locked");
    QTest::addColumn<QStringList>("alarms");
    // clang-format off
    //                                       present  locked   set on every tick, in this order
    QTest::newRow("locked")               << true  << true  << QStringList{"1913 0", "1910 0"};
    QTest::newRow("locked, not present")  << false << true  << QStringList{"1913 0", "1910 0"};
    QTest::newRow("present, not locked")  << true  << false << QStringList{"1910 0", "1913 2"};
    QTest::newRow("neither")              << false << false << QStringList{"1913 0", "1910 2"};
    // clang-format on
}

void TestEngineLossOfVideo::theReference()
{
    QFETCH(bool, present);
    QFETCH(bool, locked);
    QFETCH(QStringList, alarms);
    EngineRig rig;
    rig.video.reference = OrbVideoRefState(present, locked);
    for (int tick = 1; tick <= 5; ++tick) { // nothing is remembered from the tick before
        rig.referenceAlarms.clear();
        rig.run(999);
        QCOMPARE(rig.referenceAlarms.size(), 0);
        rig.run(1);
        QCOMPARE(EngineRig::textsOf(rig.referenceAlarms), alarms);
        for (const OrbAlarm &alarm : rig.referenceAlarms) {
            QCOMPARE(alarm.text(), QString());
            QCOMPARE(alarm.file(), QString("vtrobject.cpp"));
            QVERIFY(alarm.line() > 0);
        }
    }
}

void TestEngineLossOfVideo::aReferenceIsFollowedTickByTick()
{
    EngineRig rig;
    const std::pair<OrbVideoRefState, QStringList> ticks[] = {
        {OrbVideoRefState(false, false), {"1913 0", "1910 2"}},
        {OrbVideoRefState(true, false), {"1910 0", "1913 2"}},
        {OrbVideoRefState(true, true), {"1913 0", "1910 0"}},
        {OrbVideoRefState(true, false), {"1910 0", "1913 2"}},
        {OrbVideoRefState(false, false), {"1913 0", "1910 2"}},
    };
    for (const auto &[reference, alarms] : ticks) {
        rig.video.reference = reference;
        rig.referenceAlarms.clear();
        rig.run(1000);
        QCOMPARE(EngineRig::textsOf(rig.referenceAlarms), alarms);
    }
}

void TestEngineLossOfVideo::theReferenceIsCheckedInEveryMode()
{
    EngineRig rig;
    const auto alarmsInASecond = [&] {
        rig.referenceAlarms.clear();
        rig.run(1000);
        return int(rig.referenceAlarms.size());
    };
    QCOMPARE(alarmsInASecond(), 2); // before the start
    rig.startUp();
    QCOMPARE(alarmsInASecond(), 2);
    rig.vtr->play();
    QCOMPARE(alarmsInASecond(), 2);
    rig.vtr->record();
    QCOMPARE(alarmsInASecond(), 2);
    rig.vtr->shutdown();
    QCOMPARE(alarmsInASecond(), 2);
    EngineRig without(false); // a device that could not be opened has no reference
    without.run(1000);
    QCOMPARE(EngineRig::textsOf(without.referenceAlarms), (QStringList{"1913 0", "1910 2"}));
}

SIM_TEST_MAIN(TestEngineLossOfVideo)
#include "tst_engine_lossofvideo.moc"
