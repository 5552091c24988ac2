// What random stories have found: each rule that the engine once broke, told in a few steps.

#include "enginerig.h"

#include "liborb/orb.h"
#include "liborb/orbstream.h"

class TestEngineFound : public QObject
{
    Q_OBJECT

private slots:
    void aCommandGivenWhileAnOpenBeginsIsCarriedOutBehindIt_data();
    void aCommandGivenWhileAnOpenBeginsIsCarriedOutBehindIt();
    void aFailedOpenIsToldBeforeTheNextOneStarts();
    void theStreamOfAModeLeftInItsFirstPassIsClosed();
    void aReceiverThatAnswersEveryNewsWithACommandDoesNotHoldUpTheLoop();
    void thePlaceIsKeptWhenPlayComesBackBeforeStandbyOffWasPublished();
};

void TestEngineFound::aCommandGivenWhileAnOpenBeginsIsCarriedOutBehindIt_data()
{
    QTest::addColumn<bool>("isRecord");
    QTest::addRow("Play") << false;
    QTest::addRow("Record") << true;
}

void TestEngineFound::aCommandGivenWhileAnOpenBeginsIsCarriedOutBehindIt()
{
    QFETCH(bool, isRecord);
    EngineRig rig;
    rig.startUp();
    VtrObject &v = *rig.vtr;
    QObject::connect(&v, &VtrObject::storageInUse, &v, [&](bool on) {
        if (on && !isRecord)
            v.record();
        else if (on)
            v.play();
    }, Qt::ConnectionType(Qt::DirectConnection | Qt::SingleShotConnection));
    isRecord ? v.record() : v.play();
    rig.run(1000);
    const auto *stream = v.findChild<OrbStream *>();
    QCOMPARE(rig.mode(), isRecord ? VtrState::Play : VtrState::Record);
    QVERIFY(stream->isOpen());
    QCOMPARE(stream->isWritable(), !isRecord);
    const QStringList inUse = rig.signalsSeen().filter(QStringLiteral("storageInUse"));
    QCOMPARE(inUse, QStringList({"storageInUse true", "storageInUse false", "storageInUse true"}));
}

void TestEngineFound::aFailedOpenIsToldBeforeTheNextOneStarts()
{
    EngineRig rig;
    rig.startUp();
    rig.media.opens.push_back({.error = OrbError(28), .afterMs = 200});
    rig.vtr->setCameraInput(OrbId(1000));
    rig.vtr->record();
    rig.run(100);
    rig.video.cameraFlag = true; // the frames that wait ask for the next recording at once
    rig.run(400);
    QCOMPARE(rig.signalsSeen().filter(QStringLiteral("streamIs")),
             QStringList({"streamIsOpen 28", "streamIsOpen 0"}));
    const QStringList &lines = rig.transcript.lines();
    const auto told = lines.indexOf(QStringLiteral("signal streamIsOpen 28"));
    QVERIFY(told >= 0);
    QVERIFY(lines.indexOf(QStringLiteral("signal storageInUse true"), told) > told);
    QCOMPARE(lines.mid(0, told).count(QStringLiteral("signal storageInUse true")), 1);
}

void TestEngineFound::theStreamOfAModeLeftInItsFirstPassIsClosed()
{
    EngineRig rig;
    rig.startUp();
    VtrObject &v = *rig.vtr;
    rig.vtr->setSuperOut(OrbId(OrbIdSuperAll)); // Record begins with a setup: its first pass comes later
    QObject::connect(&v, &VtrObject::storageInUse, &v, [&] { v.stop(); },
                     Qt::ConnectionType(Qt::DirectConnection | Qt::SingleShotConnection));
    v.record();
    rig.run(1000);
    QCOMPARE(rig.mode(), VtrState::Standby);
    QVERIFY(v.findChild<OrbStream *>()->isClosed());
    QCOMPARE(rig.signalsSeen().last(), QStringLiteral("stateChanged 0.000 Standby Off -> 1.000 Standby"));
    QCOMPARE(rig.signalsSeen().filter(QStringLiteral("storageInUse")),
             QStringList({"storageInUse true", "storageInUse false"}));
}

void TestEngineFound::aReceiverThatAnswersEveryNewsWithACommandDoesNotHoldUpTheLoop()
{
    EngineRig rig(false);
    VtrObject &v = *rig.vtr;
    v.start();
    rig.run(100);
    int answers = 0;
    QObject::connect(&v, &VtrObject::stateChanged, &v, [&] { v.stop(); v.standbyOff(); ++answers; });
    v.stop();
    rig.run(10);
    QVERIFY(answers > 0);
    QVERIFY(answers < 100);
}

/// Play is cleaned up twice then; the second time there is neither stream nor picture to go by.
void TestEngineFound::thePlaceIsKeptWhenPlayComesBackBeforeStandbyOffWasPublished()
{
    EngineRig rig;
    rig.startPlay();
    rig.run(1000);
    rig.video.ticksByItself = false;
    rig.run(100);
    const int place = rig.vtr->currentFrameNumber();
    QVERIFY(place > 10);
    rig.transcript.clear();
    rig.vtr->standbyOff();
    rig.run(10);
    QVERIFY(rig.invoke("process"));
    rig.run(10);
    QVERIFY(rig.signalsSeen().filter(QStringLiteral("stateChanged")).isEmpty());
    rig.vtr->play();
    rig.run(100);
    QVERIFY(rig.hasLog(3, QStringLiteral("Starting at prior playback position of %1").arg(place)));
}

SIM_TEST_MAIN(TestEngineFound)
#include "tst_engine_found.moc"
