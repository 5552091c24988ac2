#include "controllerrig.h"

#include <QFile>

#include <utility>

/// What the engine is told to play and to record, why it may not record, and the way of a rollover.
class TestMainObjectStreams : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup() { _rig.reset(); }
    void oneClipIsAPathFromItsStart();
    void listsBeginAtThePendingFrameOnce_data();
    void listsBeginAtThePendingFrameOnce();
    void nothingToPlayIsLogged_data();
    void nothingToPlayIsLogged();
    void aRecordingIsNamedAndCounted();
    void aNameThatIsTakenRaisesTheAlarmAndTheNextOneClearsIt();
    void noStorageNoRecording();
    void withoutAClipFinderThereIsNoRecording();
    void aRolloverContinuesTheClipOnTheOtherMedium();
    void aRolloverWithoutAPathIsLogged();
    void aRolloverWithoutANameRaisesTheAlarm();
    void recordIsInhibited_data();
    void recordIsInhibited();
    void inARolloverTheOtherMediumIsAsked();
    void setupsArePublished_data();
    void setupsArePublished();
    void outsideRecordNothingRollsOver();
    void aRolloverThatIsInhibitedEndsTheRecording();
    void aReopenThatFailsEndsTheRecording();
    void closedThenOpenCompletesTheRollover();
    void openThenClosedCompletesTheRollover();
    void lateEventsAreOnlyLogged();
    void aFailedOpenCountsAsOpenDeliberately();
    void eventsOutsideARolloverAreIgnored();
    void aRolloverEndsWithTheRecordingReleasesTheStorage();
    void aFailedRolloverPublishesNothing();
    void aWholeRollover();
    void aWholeRolloverWhoseOpenFails();
    void afterARolloverToNowhereTheMediaOfTheStoreCount_data();
    void afterARolloverToNowhereTheMediaOfTheStoreCount();
    void aRolloverThatTheRecordingLeavesIsFinishedByTheNext();
    void theOpenOfARolloverThatStopsMeanwhileCompletesIt();
    void aRolloverRecordingIsNeverNamedAnew();
    void theDescriptorsOfARolloverKeepTheRecordClipNameDeliberately();
    void signalsBeforeAndAfterARolloverChangeNothing();
    void anotherClipMayBeRecordedAfterANameWithoutAnEnding();
    void aRecordingThatIsInhibitedIsNoBusinessOfTheController();
    void whatADescriptorTakesIsAskedForEveryTime();

private:
    QVariant playbackDesc(int &frame) const;
    QVariant recordDesc() const;
    void record();
    void prepareRollover();
    QList<OrbAlarm> alarms(int id) const;

    std::optional<ControllerRig> _rig;
    std::optional<QSignalSpy> _alarms;
};

namespace
{

const QString other = QStringLiteral("/media/other");
const QString untouched = QStringLiteral("untouched");

/// The controller's clip finder, which none of its operations takes away.
ClipFinder *&clipFinderOf(MainObject &main);
template <auto Member> struct Reach {
    friend ClipFinder *&clipFinderOf(MainObject &main) { return main.*Member; }
};
template struct Reach<&MainObject::_clipFinder>;

} // namespace

void TestMainObjectStreams::init()
{
    ControllerRig::Start start;
    start.prepare = [](ControllerRig &rig) {
        rig.setClips({{QStringLiteral("A.mov"), 1000}, {QStringLiteral("B.mov"), 500}},
                     {{QStringLiteral("B.mov"), 500}});
        rig.disks.mount(other, 500);
    };
    _rig.emplace(start);
    _rig->settle();
    _rig->connectInput();
    _alarms.emplace(_rig->main.get(), SIGNAL(alarmTriggered(OrbAlarm)));
    _rig->clear();
}

QVariant TestMainObjectStreams::playbackDesc(int &frame) const
{
    QVariant desc = untouched;
    frame = -7;
    _rig->main->generatePlaybackStreamDesc(desc, frame);
    return desc;
}

QVariant TestMainObjectStreams::recordDesc() const
{
    QVariant desc = untouched;
    _rig->main->generateRecordStreamDesc(desc);
    return desc;
}

QList<OrbAlarm> TestMainObjectStreams::alarms(int id) const
{
    QList<OrbAlarm> list;
    for (const QVariantList &call : *_alarms) {
        if (call.at(0).value<OrbAlarm>().id() == OrbId(id))
            list << call.at(0).value<OrbAlarm>();
    }
    return list;
}

void TestMainObjectStreams::record()
{
    _rig->command(3);
    _rig->settle();
    QCOMPARE(_rig->vtr->state().mode(), VtrState::Record);
    _rig->clear();
    _alarms->clear();
}

void TestMainObjectStreams::prepareRollover()
{
    _rig->change(eParamRolloverPath, other);
    _rig->change(eParamRolloverEnable, 1);
    _rig->clear();
}

void TestMainObjectStreams::oneClipIsAPathFromItsStart()
{
    int frame = 0;
    QCOMPARE(playbackDesc(frame), QVariant(_rig->pathOf(QStringLiteral("B.mov"))));
    QCOMPARE(frame, 0);
    QCOMPARE(_rig->controllerLines(),
             QStringList{QStringLiteral("3 Playback Stream Desc: %1 at frame 0")
                             .arg(_rig->pathOf(QStringLiteral("B.mov")))});
}

void TestMainObjectStreams::listsBeginAtThePendingFrameOnce_data()
{
    QTest::addColumn<int>("playMedia");
    QTest::addColumn<int>("entries");
    QTest::addColumn<QString>("name");
    QTest::newRow("all clips") << 1 << 3 << QStringLiteral("All Clips");
    QTest::newRow("play list") << 2 << 1 << QStringLiteral("Play List");
}

void TestMainObjectStreams::listsBeginAtThePendingFrameOnce()
{
    QFETCH(int, playMedia);
    QFETCH(QString, name);
    record();
    QVERIFY(_rig->writeClip(_rig->currentClip(), 10));
    _rig->command(4);
    _rig->settle();
    _rig->change(eParamPlayMedia, playMedia);
    for (const int expected : {1500, 0}) {
        _rig->clear();
        int frame = 0;
        const auto list = playbackDesc(frame).value<OrbPlayList>();
        QTEST(int(list.size()), "entries");
        QCOMPARE(frame, expected);
        QCOMPARE(_rig->controllerLines(),
                 QStringList{QStringLiteral("3 Playback Stream Desc: %1 at frame %2")
                                 .arg(name, QString::number(expected))});
    }
}

void TestMainObjectStreams::nothingToPlayIsLogged_data()
{
    QTest::addColumn<int>("playMedia");
    QTest::addColumn<bool>("hasPath");
    QTest::addColumn<int>("frame");
    QTest::addColumn<QString>("text");
    // clang-format off
    QTest::newRow("no path")    << 1 << false << -7 << QStringLiteral("1 Generate playback stream desc failed: Storage path is empty");
    QTest::newRow("no clip")    << 0 << true  << -7 << QStringLiteral("1 Generate playback stream desc failed: Current clip is empty");
    QTest::newRow("no clips")   << 1 << true  << -7 << QStringLiteral("1 Generate playback stream desc failed: All clips is empty");
    QTest::newRow("no list, spelled so deliberately") << 2 << true << -7 << QStringLiteral("1 Generage playback stream desc failed: Play List is empty");
    QTest::newRow("no such medium")   << 3  << true << 0 << QStringLiteral("1 Generate playback stream desc failed: Unhandled value 3");
    QTest::newRow("negative medium")  << -1 << true << 0 << QStringLiteral("1 Generate playback stream desc failed: Unhandled value -1");
    // clang-format on
}

void TestMainObjectStreams::nothingToPlayIsLogged()
{
    QFETCH(int, playMedia);
    QFETCH(bool, hasPath);
    QFETCH(QString, text);
    _rig->setClips({});
    _rig->change(eParamMediaUpdated, 1);
    _rig->store.put(eParamCurrentClip, std::string("N/A"));
    _rig->change(eParamPlayMedia, playMedia);
    if (!hasPath)
        _rig->manager->setActivePath(QString());
    _rig->clear();
    int frame = 0;
    QCOMPARE(playbackDesc(frame), QVariant(untouched));
    QTEST(frame, "frame");
    QCOMPARE(_rig->controllerLines(), QStringList{text});
}

void TestMainObjectStreams::aRecordingIsNamedAndCounted()
{
    QCOMPARE(recordDesc(), QVariant(_rig->pathOf(QStringLiteral("R001C0001.mov"))));
    QCOMPARE(_rig->currentClip(), QStringLiteral("R001C0001.mov"));
    QCOMPARE(_rig->store.text(eParamRecordClipName), std::string("R001C0001"));
    QCOMPARE(_rig->store.number(eParamClipCounter), 2u);
    QCOMPARE(_rig->writtenIds(), QList<quint32>({eParamAlarm1902, eParamClipCounter,
                                                 eParamCurrentClip, eParamRecordClipName}));
    QCOMPARE(alarms(1902).size(), 1);
    QCOMPARE(int(alarms(1902).at(0).level()), 0);
    QCOMPARE(alarms(1902).at(0).text(), QString());
    QCOMPARE(recordDesc(), QVariant(_rig->pathOf(QStringLiteral("R001C0002.mov"))));
}

void TestMainObjectStreams::aNameThatIsTakenRaisesTheAlarmAndTheNextOneClearsIt()
{
    _rig->store.put(eParamClipCounter, ParamValue(std::uint32_t(9999)));
    const QString name = QStringLiteral("R001C9999.mov");
    QFile file(_rig->pathOf(name));
    QVERIFY(file.open(QIODevice::WriteOnly));
    _rig->clear();
    QCOMPARE(recordDesc(), QVariant(untouched));
    QCOMPARE(_rig->controllerLines(),
             QStringList{
                 QStringLiteral("1 Generate record stream desc failed: '%1' is in use").arg(name)});
    QCOMPARE(alarms(1902).size(), 1);
    QCOMPARE(int(alarms(1902).at(0).level()), 2);
    QCOMPARE(alarms(1902).at(0).text(), QStringLiteral("Clip %1 already exists").arg(name));
    QCOMPARE(_rig->currentClip(), QStringLiteral("B.mov"));
    QVERIFY(file.remove());
    QCOMPARE(recordDesc(), QVariant(_rig->pathOf(name)));
    QCOMPARE(int(alarms(1902).last().level()), 0);
}

void TestMainObjectStreams::noStorageNoRecording()
{
    _rig->manager->setActivePath(QString());
    _rig->clear();
    QCOMPARE(recordDesc(), QVariant(untouched));
    QCOMPARE(
        _rig->controllerLines(),
        QStringList{QStringLiteral("1 Generate record stream desc failed: Storage path is empty")});
    QCOMPARE(alarms(1902).size(), 0);
}

void TestMainObjectStreams::withoutAClipFinderThereIsNoRecording()
{
    ClipFinder *const finder = std::exchange(clipFinderOf(*_rig->main), nullptr);
    for (const QString &path : {_rig->path(), QString()}) {
        _rig->manager->setActivePath(path);
        _rig->clear();
        QCOMPARE(recordDesc(), QVariant(untouched));
        QCOMPARE(_rig->controllerLines(),
                 QStringList{"1 Generate record stream desc failed: _clipFinder is NULL"});
    }
    QCOMPARE(alarms(1902).size(), 0);
    clipFinderOf(*_rig->main) = finder;
}

/// Neither counted on nor published as a record clip name, deliberately.
void TestMainObjectStreams::aRolloverContinuesTheClipOnTheOtherMedium()
{
    record();
    prepareRollover();
    QVERIFY(_rig->manager->markRolloverInProgress());
    const quint32 counter = _rig->store.number(eParamClipCounter);
    QCOMPARE(recordDesc(), QVariant(other + QStringLiteral("/R001C0001_2.mov")));
    QCOMPARE(_rig->currentClip(), QStringLiteral("R001C0001_2.mov"));
    QCOMPARE(_rig->store.text(eParamRecordClipName), std::string("R001C0001"));
    QCOMPARE(_rig->store.number(eParamClipCounter), counter);
    QCOMPARE(alarms(1902).size(), 1);
    QCOMPARE(int(alarms(1902).at(0).level()), 0);
    QCOMPARE(recordDesc(), QVariant(other + QStringLiteral("/R001C0001_3.mov")));
}

void TestMainObjectStreams::aRolloverWithoutAPathIsLogged()
{
    prepareRollover();
    QVERIFY(_rig->manager->markRolloverInProgress());
    _rig->manager->setRolloverPath(QString());
    _rig->clear();
    QCOMPARE(recordDesc(), QVariant(untouched));
    QCOMPARE(_rig->controllerLines(), QStringList{QStringLiteral("1 Rollover path is empty!")});
}

void TestMainObjectStreams::aRolloverWithoutANameRaisesTheAlarm()
{
    prepareRollover();
    _rig->store.put(eParamCurrentClip, std::string("A_9999.mov"));
    QVERIFY(_rig->manager->markRolloverInProgress());
    _rig->clear();
    QCOMPARE(recordDesc(), QVariant(untouched));
    QCOMPARE(_rig->controllerLines(),
             QStringList{QStringLiteral("1 Failed to build rollover clip name for 'A_9999.mov'")});
    QCOMPARE(alarms(1902).size(), 1);
    QCOMPARE(int(alarms(1902).at(0).level()), 2);
    QVERIFY(alarms(1902).at(0).text().startsWith(QStringLiteral("Clip ")));
    QVERIFY(alarms(1902).at(0).text().endsWith(QStringLiteral(" already exists")));
}

void TestMainObjectStreams::recordIsInhibited_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("permille");
    QTest::addColumn<int>("reason");
    const QString medium = QStringLiteral("/media/here");
    // clang-format off
    QTest::newRow("half full")         << medium << 500 << 0;
    QTest::newRow("11 % free")         << medium << 110 << 0;
    QTest::newRow("10 % free")         << medium << 100 << 2003;
    QTest::newRow("full")              << medium << 0   << 2003;
    QTest::newRow("query fails")       << medium << -1  << 2004;
    QTest::newRow("no path")           << QString() << 500 << 2004;
    QTest::newRow("not mounted")       << QStringLiteral("/tmp") << 500 << 2004;
    // clang-format on
}

void TestMainObjectStreams::recordIsInhibited()
{
    QFETCH(QString, path);
    QFETCH(int, permille);
    const QString medium = QStringLiteral("/media/here");
    _rig->disks.mount(medium, quint64(std::max(permille, 0)));
    if (permille < 0)
        _rig->disks.fail(medium);
    _rig->manager->setActivePath(path);
    OrbId reason;
    _rig->main->shouldInhibitRecord(reason);
    QTEST(int(reason.value()), "reason");
    // What the engine passed in stays when record may go on.
    OrbId before(2001);
    _rig->main->shouldInhibitRecord(before);
    QCOMPARE(before, reason.isValid() ? reason : OrbId(2001));
}

void TestMainObjectStreams::inARolloverTheOtherMediumIsAsked()
{
    prepareRollover();
    QVERIFY(_rig->manager->markRolloverInProgress());
    _rig->disks.mount(_rig->path(), 50);
    OrbId reason;
    _rig->main->shouldInhibitRecord(reason);
    QCOMPARE(reason, OrbId());
    _rig->disks.mount(other, 50);
    _rig->main->shouldInhibitRecord(reason);
    QCOMPARE(int(reason.value()), 2003);
}

void TestMainObjectStreams::setupsArePublished_data()
{
    QTest::addColumn<int>("dataType");
    QTest::addColumn<quint32>("decode");
    QTest::newRow("202") << 202 << 0u;
    QTest::newRow("203") << 203 << 1u;
    QTest::newRow("204") << 204 << 4u;
    QTest::newRow("205") << 205 << 5u;
    QTest::newRow("206") << 206 << 6u;
    QTest::newRow("231") << 231 << 0u;
}

void TestMainObjectStreams::setupsArePublished()
{
    QFETCH(int, dataType);
    QFETCH(quint32, decode);
    OrbVideoDeviceSetup setup;
    OrbImageDesc desc = ControllerRig::imageDesc(1280, 720, 50);
    desc.setDataType(OrbId(dataType));
    setup.setImageDesc(desc);
    _rig->main->vtrVideoDeviceSetupChanged(setup);
    QCOMPARE(_rig->written(eParamMediaFormat), QList<quint32>{18});
    QCOMPARE(_rig->written(eParamDecodeType), QList<quint32>{decode});
    QCOMPARE(_rig->writtenIds(), QList<quint32>({eParamMediaFormat, eParamDecodeType}));
    QCOMPARE(_rig->controllerLines(),
             QStringList{
                 QStringLiteral("3 Media changed: %1 -- 18/%2").arg(desc.toString()).arg(decode)});
}

void TestMainObjectStreams::outsideRecordNothingRollsOver()
{
    prepareRollover();
    _rig->main->startRollover();
    QVERIFY(!_rig->manager->isRolloverInProgress());
    QVERIFY(_rig->log->records().isEmpty());
}

void TestMainObjectStreams::aRolloverThatIsInhibitedEndsTheRecording()
{
    record();
    _rig->main->startRollover();
    QCOMPARE(_rig->controllerLines().at(0),
             QStringLiteral("1 Failed to mark rollover in progress.  Aborting rollover"));
    _rig->settle();
    QCOMPARE(_rig->vtr->state().mode(), VtrState::StandbyOff);
}

void TestMainObjectStreams::aReopenThatFailsEndsTheRecording()
{
    // The recording has been asked for and its stream is not open yet.
    _rig->media->opens = {{false, OrbError(), ScriptedMedia::held}};
    prepareRollover();
    _rig->command(3);
    QCOMPARE(_rig->vtr->state().mode(), VtrState::Record);
    QSignalSpy completed(_rig->manager, &MediaManager::rolloverCompleted);
    _rig->main->startRollover();
    QVERIFY(_rig->logged(1, QStringLiteral("Aborting rollover, reopen record stream failed")));
    QVERIFY(!_rig->manager->isRolloverInProgress());
    QCOMPARE(completed, QList<QVariantList>({{false, _rig->path(), other}}));
    QVERIFY(_rig->written(eParamStorageInUse).isEmpty());
    _rig->settle();
    _rig->media->finishOpen();
    _rig->settle();
    QCOMPARE(_rig->vtr->state().mode(), VtrState::StandbyOff);
}

void TestMainObjectStreams::closedThenOpenCompletesTheRollover()
{
    record();
    prepareRollover();
    _rig->media->closes = {{false, OrbError(), ScriptedMedia::held}};
    _rig->main->startRollover();
    QVERIFY(_rig->manager->isRolloverInProgress());
    _rig->log->clear();
    _rig->main->vtrStreamIsClosed();
    QCOMPARE(_rig->controllerLines(), QStringList{QStringLiteral("3 Rollover clip 1 is closed")});
    QVERIFY(_rig->manager->isRolloverInProgress());
    _rig->main->vtrStreamIsOpen(OrbError(), OrbStreamInfo());
    QVERIFY(_rig->logged(3, QStringLiteral("Rollover clip 2 opened")));
    QVERIFY(!_rig->manager->isRolloverInProgress());
    QCOMPARE(_rig->manager->activePath(), other);
    QCOMPARE(_rig->written(eParamStorageInUse), QList<quint32>{3});
    _rig->media->finishClose();
}

void TestMainObjectStreams::openThenClosedCompletesTheRollover()
{
    record();
    prepareRollover();
    _rig->media->closes = {{false, OrbError(), ScriptedMedia::held}};
    _rig->main->startRollover();
    _rig->main->vtrStreamIsOpen(OrbError(), OrbStreamInfo());
    QVERIFY(_rig->manager->isRolloverInProgress());
    QVERIFY(_rig->written(eParamStorageInUse).isEmpty());
    _rig->main->vtrStreamIsClosed();
    QVERIFY(!_rig->manager->isRolloverInProgress());
    QCOMPARE(_rig->written(eParamStorageInUse), QList<quint32>{3});
    _rig->media->finishClose();
}

void TestMainObjectStreams::lateEventsAreOnlyLogged()
{
    record();
    prepareRollover();
    _rig->media->closes = {{false, OrbError(), ScriptedMedia::held}};
    _rig->main->startRollover();
    _rig->main->vtrStreamIsClosed();
    _rig->log->clear();
    _rig->main->vtrStreamIsClosed();
    QCOMPARE(
        _rig->controllerLines(),
        QStringList{QStringLiteral("1 In rollover, got close after clip 1 is already closed!")});
    QVERIFY(_rig->manager->isRolloverInProgress());
    _rig->main->vtrStreamIsOpen(OrbError(), OrbStreamInfo());
    _rig->media->finishClose();
    _rig->settle();

    // The same with the open doubled; the flags of the rollover before are gone.
    _rig->change(eParamRolloverPath, _rig->path());
    _rig->media->closes = {{false, OrbError(), ScriptedMedia::held}};
    _rig->main->startRollover();
    QVERIFY(_rig->manager->isRolloverInProgress());
    _rig->main->vtrStreamIsOpen(OrbError(), OrbStreamInfo());
    _rig->log->clear();
    _rig->main->vtrStreamIsOpen(OrbError(), OrbStreamInfo());
    QCOMPARE(
        _rig->controllerLines(),
        QStringList{QStringLiteral("1 In rollover, got open after clip 2 is already opened!")});
    QVERIFY(_rig->manager->isRolloverInProgress());
    _rig->main->vtrStreamIsClosed();
    QVERIFY(!_rig->manager->isRolloverInProgress());
    _rig->media->finishClose();
}

void TestMainObjectStreams::aFailedOpenCountsAsOpenDeliberately()
{
    record();
    prepareRollover();
    _rig->media->closes = {{false, OrbError(), ScriptedMedia::held}};
    _rig->main->startRollover();
    _rig->main->vtrStreamIsClosed();
    _rig->log->clear();
    _rig->main->vtrStreamIsOpen(OrbError(ENOSPC), OrbStreamInfo());
    QCOMPARE(_rig->controllerLines(), QStringList{QStringLiteral("2 Rollover clip 2 open failed")});
    QVERIFY(!_rig->manager->isRolloverInProgress());
    QCOMPARE(_rig->written(eParamStorageInUse), QList<quint32>{3});
    _rig->media->finishClose();
}

void TestMainObjectStreams::eventsOutsideARolloverAreIgnored()
{
    _rig->main->vtrStreamIsClosed();
    _rig->main->vtrStreamIsOpen(OrbError(EIO), OrbStreamInfo());
    _rig->main->checkForRolloverComplete();
    QVERIFY(_rig->log->records().isEmpty());
}

void TestMainObjectStreams::aRolloverEndsWithTheRecordingReleasesTheStorage()
{
    _rig->manager->setStorageInUse(true);
    QCOMPARE(_rig->written(eParamStorageInUse), QList<quint32>{1});
    _rig->main->finishRollover(true, QStringLiteral("/a"), QStringLiteral("/b"));
    QCOMPARE(_rig->written(eParamStorageInUse), QList<quint32>({1, 3, 2}));
}

void TestMainObjectStreams::aFailedRolloverPublishesNothing()
{
    _rig->manager->setStorageInUse(true);
    _rig->clear();
    _rig->main->finishRollover(false, QStringLiteral("/a"), QStringLiteral("/b"));
    QVERIFY(_rig->store.sets().empty());
}

/// From the medium that fills up to the recording that goes on, with every frame in one of the two
/// clips.
void TestMainObjectStreams::aWholeRollover()
{
    record();
    prepareRollover();
    _rig->disks.mount(_rig->path(), 90);
    _rig->settle(5000);
    QCOMPARE(_rig->vtr->state().mode(), VtrState::Record);
    QCOMPARE(_rig->manager->activePath(), other);
    QCOMPARE(_rig->manager->rolloverPath(), QString());
    const QString first = _rig->pathOf(QStringLiteral("R001C0001.mov"));
    const QString second = other + QStringLiteral("/R001C0001_2.mov");
    QVERIFY(_rig->transcript.contains(QStringLiteral("media: close ") + first));
    QVERIFY(_rig->transcript.contains(QStringLiteral("media: open write ") + second));
    QCOMPARE(_rig->written(eParamStorageInUse), QList<quint32>{3});
    QVERIFY(_rig->logged(3, QStringLiteral("Rollover in progress, ignoring setStorageInUse(false)"),
                         "mediamanager.cpp"));
    _rig->command(4);
    _rig->settle();
    QCOMPARE(_rig->vtr->state().mode(), VtrState::StandbyOff);
    QCOMPARE(_rig->written(eParamStorageInUse).last(), 2u);
    const QList<int> numbers =
        _rig->media->recordedNumbers(first) + _rig->media->recordedNumbers(second);
    QVERIFY(_rig->media->recordedNumbers(first).size() > 10);
    QVERIFY(_rig->media->recordedNumbers(second).size() > 10);
    for (qsizetype i = 1; i < numbers.size(); ++i)
        QCOMPARE(numbers.at(i), numbers.at(i - 1) + 1);
}

void TestMainObjectStreams::aWholeRolloverWhoseOpenFails()
{
    record();
    prepareRollover();
    _rig->media->opens = {{false, OrbError(ENOSPC), 5}};
    _rig->disks.mount(_rig->path(), 90);
    _rig->settle(5000);
    QVERIFY(_rig->logged(2, QStringLiteral("Rollover clip 2 open failed")));
    QCOMPARE(_rig->vtr->state().mode(), VtrState::StandbyOff);
    QVERIFY(!_rig->manager->isRolloverInProgress());
    QCOMPARE(_rig->written(eParamStorageInUse), QList<quint32>({3, 2}));
}

void TestMainObjectStreams::afterARolloverToNowhereTheMediaOfTheStoreCount_data()
{
    QTest::addColumn<bool>("isPulled");
    QTest::newRow("the open fails") << false;
    QTest::newRow("the medium is pulled while the old clip closes") << true;
}

void TestMainObjectStreams::afterARolloverToNowhereTheMediaOfTheStoreCount()
{
    QFETCH(bool, isPulled);
    record();
    _rig->store.put(eParamRolloverPath, std::string("/media/third"));
    _rig->settle(10);
    prepareRollover();
    if (isPulled)
        _rig->media->closes = {{false, OrbError(), ScriptedMedia::held}};
    else
        _rig->media->opens = {{false, OrbError(ENOSPC), 5}};
    _rig->main->startRollover();
    if (isPulled) {
        _rig->change(eParamRolloverPath, QString());
        _rig->media->finishClose();
    }
    for (int ms = 0; ms < 1000 && !_rig->logged(2, QStringLiteral("Rollover clip 2 open failed")); ++ms)
        _rig->settle(1);
    _rig->settle(1);
    QCOMPARE(_rig->vtr->state().mode(), VtrState::StandbyOff);
    QVERIFY(!_rig->manager->isRolloverInProgress());
    QCOMPARE(_rig->manager->activePath(), _rig->path());
    QCOMPARE(_rig->manager->rolloverPath(), QStringLiteral("/media/third"));
    QCOMPARE(_rig->written(eParamStorageInUse), QList<quint32>({3, 2}));
    // The next recording has a medium again.
    record();
    QCOMPARE(_rig->written(eParamStorageInUse), QList<quint32>());
}

/// The transport leaves Record between the two events: the flags stay, the rollover stays open, and
/// the next recording continues the clip on the other medium and completes it.
void TestMainObjectStreams::aRolloverThatTheRecordingLeavesIsFinishedByTheNext()
{
    record();
    prepareRollover();
    _rig->media->closes = {{false, OrbError(), ScriptedMedia::held}};
    _rig->main->startRollover();
    QVERIFY(_rig->manager->isRolloverInProgress());
    _rig->vtr->standbyOff();
    _rig->media->finishClose();
    _rig->settle();
    QCOMPARE(_rig->vtr->state().mode(), VtrState::StandbyOff);
    QVERIFY(_rig->logged(3, QStringLiteral("Rollover clip 1 is closed")));
    QVERIFY(!_rig->logged(3, QStringLiteral("Rollover clip 2 opened")));
    QVERIFY(_rig->manager->isRolloverInProgress());
    QVERIFY(!_rig->written(eParamStorageInUse).contains(3u));
    _rig->clear();
    _rig->command(3);
    _rig->settle();
    QCOMPARE(_rig->vtr->state().mode(), VtrState::Record);
    QCOMPARE(_rig->currentClip(), QStringLiteral("R001C0001_2.mov"));
    QVERIFY(_rig->logged(3, QStringLiteral("Rollover clip 2 opened")));
    QVERIFY(!_rig->manager->isRolloverInProgress());
    QCOMPARE(_rig->manager->activePath(), other);
    QVERIFY(_rig->written(eParamStorageInUse).contains(3u));
}

/// The last event finds the engine out of Record: the storage is released behind the 3.
void TestMainObjectStreams::theOpenOfARolloverThatStopsMeanwhileCompletesIt()
{
    _rig->manager->setStorageInUse(true);
    prepareRollover();
    QVERIFY(_rig->manager->markRolloverInProgress());
    _rig->clear();
    _rig->main->vtrStreamIsOpen(OrbError(), OrbStreamInfo());
    QVERIFY(_rig->manager->isRolloverInProgress());
    _rig->main->vtrStreamIsClosed();
    QVERIFY(!_rig->manager->isRolloverInProgress());
    QCOMPARE(_rig->written(eParamStorageInUse), QList<quint32>({3, 2}));
    QCOMPARE(_rig->controllerLines(), QStringList({QStringLiteral("3 Rollover clip 2 opened"),
                                                   QStringLiteral("3 Rollover clip 1 is closed")}));
}

void TestMainObjectStreams::aRolloverRecordingIsNeverNamedAnew()
{
    record();
    prepareRollover();
    QVERIFY(_rig->manager->markRolloverInProgress());
    // A counter that would lead to a taken name is not even looked at.
    _rig->store.put(eParamClipCounter, ParamValue(std::uint32_t(9999)));
    QFile file(_rig->pathOf(QStringLiteral("R001C9999.mov")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(recordDesc(), QVariant(other + QStringLiteral("/R001C0001_2.mov")));
    QCOMPARE(_rig->store.number(eParamClipCounter), 9999u);
    QVERIFY(_rig->controllerLines().isEmpty());
}

void TestMainObjectStreams::theDescriptorsOfARolloverKeepTheRecordClipNameDeliberately()
{
    record();
    QCOMPARE(_rig->store.text(eParamRecordClipName), std::string("R001C0001"));
    prepareRollover();
    QVERIFY(_rig->manager->markRolloverInProgress());
    _rig->store.clearSets();
    recordDesc();
    QList<quint32> ids;
    for (const MemoryStore::Set &set : _rig->store.sets())
        ids << quint32(set.id);
    QVERIFY(!ids.contains(quint32(eParamRecordClipName)));
    QVERIFY(!ids.contains(quint32(eParamClipCounter)));
    QVERIFY(ids.contains(quint32(eParamCurrentClip)));
}

void TestMainObjectStreams::signalsBeforeAndAfterARolloverChangeNothing()
{
    record();
    prepareRollover();
    // Before: the opens and closes of everyday are none of the rollover's.
    _rig->main->vtrStreamIsOpen(OrbError(), OrbStreamInfo());
    _rig->main->vtrStreamIsClosed();
    QVERIFY(_rig->controllerLines().isEmpty());
    _rig->media->closes = {{false, OrbError(), ScriptedMedia::held}};
    _rig->main->startRollover();
    QVERIFY(_rig->manager->isRolloverInProgress());
    _rig->main->checkForRolloverComplete();
    QVERIFY(_rig->manager->isRolloverInProgress());
    _rig->main->vtrStreamIsClosed();
    _rig->main->vtrStreamIsOpen(OrbError(), OrbStreamInfo());
    QVERIFY(!_rig->manager->isRolloverInProgress());
    // After: the flags are still up, and nobody asks for them.
    _rig->clear();
    _rig->main->vtrStreamIsClosed();
    _rig->main->vtrStreamIsOpen(OrbError(EIO), OrbStreamInfo());
    _rig->main->checkForRolloverComplete();
    QVERIFY(_rig->controllerLines().isEmpty());
    QVERIFY(_rig->written(eParamStorageInUse).isEmpty());
    _rig->media->finishClose();
}

void TestMainObjectStreams::anotherClipMayBeRecordedAfterANameWithoutAnEnding()
{
    record();
    prepareRollover();
    _rig->store.put(eParamCurrentClip, std::string("plain"));
    QVERIFY(_rig->manager->markRolloverInProgress());
    const QVariant desc = recordDesc();
    QVERIFY2(desc.toString().startsWith(other + QStringLiteral("/plain_2")),
             qPrintable(desc.toString()));
}

/// The engine says why; the controller hears it and does nothing.
void TestMainObjectStreams::aRecordingThatIsInhibitedIsNoBusinessOfTheController()
{
    _rig->disks.mount(_rig->path(), 50); // full
    QSignalSpy failed(_rig->vtr, SIGNAL(recordFailedToStart(OrbId &)));
    _rig->clear();
    _alarms->clear();
    _rig->command(3);
    _rig->settle();
    QCOMPARE(failed.count(), 1);
    QCOMPARE(_rig->vtr->state().mode(), VtrState::StandbyOff);
    QVERIFY(_rig->controllerLines().isEmpty());
    QCOMPARE(_alarms->count(), 0);
    QVERIFY(_rig->written(eParamTransportState).isEmpty());
}

/// Nothing of an answer is kept: medium, clip and list are those of the moment.
void TestMainObjectStreams::whatADescriptorTakesIsAskedForEveryTime()
{
    int frame = 0;
    QCOMPARE(playbackDesc(frame), QVariant(_rig->pathOf(QStringLiteral("B.mov"))));
    _rig->store.put(eParamCurrentClip, std::string("A.mov"));
    QCOMPARE(playbackDesc(frame), QVariant(_rig->pathOf(QStringLiteral("A.mov"))));
    _rig->manager->setActivePath(other);
    QCOMPARE(playbackDesc(frame), QVariant(other + QStringLiteral("/A.mov")));
    _rig->store.put(eParamCurrentClip, std::string("%2 of %1.mov")); // a name is never a pattern
    QCOMPARE(playbackDesc(frame), QVariant(other + QStringLiteral("/%2 of %1.mov")));
    QCOMPARE(_rig->controllerLines().last(),
             QStringLiteral("3 Playback Stream Desc: /media/other/%2 of %1.mov at frame 0"));
}

QTEST_APPLESS_MAIN(TestMainObjectStreams)
#include "tst_mainobject_streams.moc"
