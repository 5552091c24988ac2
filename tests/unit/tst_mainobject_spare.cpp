#include "controllerrig.h"

#include <QFileInfo>

#include <cerrno>

/// What the controller does when the medium of a recording fails.
class TestMainObjectSpare : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup() { _rig.reset(); }
    void theClipGoesOnUnderTheNextNameOnTheRolloverMedium();
    void theRolloverPathOfTheMomentCounts();
    void withoutAnotherMediumThereIsNone_data();
    void withoutAnotherMediumThereIsNone();
    void theBooksAreAsAfterARollover();
    void framesLostRaiseTheAlarmAndEndTheRecording();
    void theNextRecordingClearsTheAlarm();
    void aSlowMediumIsAWarning();
    void inARolloverOnlyTheNameIsKept();
    void aRolloverFollowsAFailure();
    void afterTheRecordingOnlyTheAlarmIsRaised();
    void theMediaServiceIsToldOfAMediumThatFailed();

private:
    void record();
    QStringList alarms() const;

    std::optional<ControllerRig> _rig;
    std::optional<QSignalSpy> _alarms;
};

namespace
{

const QString other = QStringLiteral("/media/other");
const QString third = QStringLiteral("/media/third");

} // namespace

void TestMainObjectSpare::init()
{
    ControllerRig::Start start;
    start.prepare = [](ControllerRig &rig) {
        rig.disks.mount(other, 500);
        rig.disks.mount(third, 500);
    };
    _rig.emplace(start);
    _rig->settle();
    _rig->connectInput();
    _rig->change(eParamRolloverPath, other);
    _alarms.emplace(_rig->main.get(), SIGNAL(alarmTriggered(OrbAlarm)));
    record();
}

void TestMainObjectSpare::record()
{
    _rig->command(3);
    _rig->settle();
    QCOMPARE(_rig->vtr->state().mode(), VtrState::Record);
    _rig->clear();
    _alarms->clear();
}

/// The alarms of media since the recording began, as "number level text".
QStringList TestMainObjectSpare::alarms() const
{
    QStringList list;
    for (const QVariantList &call : *_alarms) {
        const auto alarm = call.at(0).value<OrbAlarm>();
        if (alarm.id() == OrbId(1901) || alarm.id() == OrbId(1906))
            list << QStringLiteral("%1 %2 %3").arg(alarm.id().value()).arg(alarm.level()).arg(alarm.text());
    }
    return list;
}

void TestMainObjectSpare::theClipGoesOnUnderTheNextNameOnTheRolloverMedium()
{
    const QString name = _rig->currentClip();
    const QString next = QFileInfo(name).completeBaseName() + QStringLiteral("_2.mov");
    const QVariant desc = _rig->media->failMedium(OrbError(EIO));
    QCOMPARE(desc, QVariant(other + QLatin1Char('/') + next));
    // Until the stream has gone over nothing has happened.
    QCOMPARE(_rig->currentClip(), name);
    QCOMPARE(_rig->manager->activePath(), _rig->path());
    QVERIFY(alarms().isEmpty());
    _rig->media->goOver(desc, OrbError(EIO));
    QCOMPARE(_rig->currentClip(), next);
    QCOMPARE(alarms(), QStringList{QStringLiteral("1901 2 Medium %1 failed, recording continued on %2")
                                       .arg(_rig->path(), other)});
    _rig->settle();
    QCOMPARE(_rig->vtr->state().mode(), VtrState::Record);
    QVERIFY(_rig->written(eParamRecordClipName).isEmpty());
}

void TestMainObjectSpare::theRolloverPathOfTheMomentCounts()
{
    _rig->change(eParamRolloverPath, third);
    QVERIFY(_rig->media->failMedium(OrbError(EIO)).toString().startsWith(third));
}

void TestMainObjectSpare::withoutAnotherMediumThereIsNone_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("free");
    QTest::addColumn<bool>("isThere");
    QTest::newRow("no path") << QString() << 500 << false;
    QTest::newRow("no medium in the slot") << QStringLiteral("/media/empty") << 0 << false;
    QTest::newRow("at the level at which recordings stop") << third << 80 << false;
    QTest::newRow("with room for a while") << third << 90 << true;
}

void TestMainObjectSpare::withoutAnotherMediumThereIsNone()
{
    QFETCH(QString, path);
    QFETCH(int, free);
    QFETCH(bool, isThere);
    if (path == third)
        _rig->disks.mount(third, free);
    _rig->change(eParamRolloverPath, path);
    QCOMPARE(_rig->media->failMedium(OrbError(EIO)).isValid(), isThere);
}

void TestMainObjectSpare::theBooksAreAsAfterARollover()
{
    const QVariant desc = _rig->media->failMedium(OrbError(ENODEV));
    QSignalSpy completed(_rig->manager, &MediaManager::rolloverCompleted);
    _rig->media->goOver(desc, OrbError(ENODEV));
    QCOMPARE(completed.size(), 1);
    QCOMPARE(completed[0], (QVariantList{true, _rig->path(), other}));
    QCOMPARE(_rig->manager->activePath(), other);
    QVERIFY(_rig->manager->rolloverPath().isEmpty());
    QVERIFY(!_rig->manager->isRolloverInProgress());
    QCOMPARE(_rig->written(eParamStorageInUse), QList<quint32>{3});
}

void TestMainObjectSpare::framesLostRaiseTheAlarmAndEndTheRecording()
{
    _rig->media->loseFrames(37, OrbError(EIO));
    QCOMPARE(alarms(), QStringList{QStringLiteral("1901 2 Medium %1 failed, 37 frames lost").arg(_rig->path())});
    _rig->settle();
    QCOMPARE(_rig->vtr->state().mode(), VtrState::StandbyOff);
    // A recording that is over already is not stopped again.
    _rig->clear();
    _rig->media->loseFrames(1, OrbError(EIO));
    _rig->settle();
    QVERIFY(!_rig->logged(3, QStringLiteral("Stopping record.")));
}

void TestMainObjectSpare::theNextRecordingClearsTheAlarm()
{
    _rig->media->loseFrames(37, OrbError(EIO));
    _rig->settle();
    _alarms->clear();
    _rig->command(3);
    _rig->settle();
    QCOMPARE(alarms(), QStringList{QStringLiteral("1901 0 ")});
    _rig->command(4);
    _rig->settle();
    _alarms->clear();
    _rig->command(3);
    _rig->settle();
    QVERIFY(alarms().isEmpty());
}

void TestMainObjectSpare::aSlowMediumIsAWarning()
{
    _rig->media->setMediumSlow(true);
    QCOMPARE(alarms(), QStringList{QStringLiteral("1906 1 Medium %1 is slow").arg(_rig->path())});
    _alarms->clear();
    _rig->media->setMediumSlow(false);
    QCOMPARE(alarms(), QStringList{QStringLiteral("1906 0 ")});
    _rig->settle();
    QCOMPARE(_rig->vtr->state().mode(), VtrState::Record);
}

void TestMainObjectSpare::inARolloverOnlyTheNameIsKept()
{
    _rig->media->closes.push_back({false, {}, ScriptedMedia::held});
    _rig->change(eParamRolloverEnable, 1);
    const QString stem = QFileInfo(_rig->currentClip()).completeBaseName();
    _rig->main->startRollover();
    QVERIFY(_rig->manager->isRolloverInProgress());
    _rig->settle(100);
    // The last frames of the first clip do not get to its medium.
    const QVariant desc = _rig->media->failMedium(OrbError(EIO));
    QCOMPARE(desc, QVariant(other + QLatin1Char('/') + stem + QStringLiteral("_2.mov")));
    _rig->media->goOver(desc, OrbError(EIO));
    QVERIFY(_rig->manager->isRolloverInProgress());
    QCOMPARE(_rig->currentClip(), stem + QStringLiteral("_2.mov"));
    _rig->media->finishClose();
    _rig->settle();
    QVERIFY(!_rig->manager->isRolloverInProgress());
    QCOMPARE(_rig->manager->activePath(), other);
    QCOMPARE(_rig->currentClip(), stem + QStringLiteral("_3.mov"));
    QCOMPARE(_rig->vtr->state().mode(), VtrState::Record);
}

void TestMainObjectSpare::aRolloverFollowsAFailure()
{
    _rig->change(eParamRolloverEnable, 1);
    const QString stem = QFileInfo(_rig->currentClip()).completeBaseName();
    _rig->media->goOver(_rig->media->failMedium(OrbError(EIO)), OrbError(EIO));
    _rig->change(eParamRolloverPath, third);
    _rig->main->startRollover();
    _rig->settle();
    QCOMPARE(_rig->manager->activePath(), third);
    QCOMPARE(_rig->currentClip(), stem + QStringLiteral("_3.mov"));
    QCOMPARE(_rig->vtr->state().mode(), VtrState::Record);
}

void TestMainObjectSpare::afterTheRecordingOnlyTheAlarmIsRaised()
{
    _rig->media->closes.push_back({false, {}, ScriptedMedia::held});
    const QString name = _rig->currentClip();
    _rig->command(4);
    _rig->settle(100);
    _rig->media->goOver(_rig->media->failMedium(OrbError(EIO)), OrbError(EIO));
    QCOMPARE(alarms().size(), 1);
    QCOMPARE(_rig->currentClip(), name);
    QCOMPARE(_rig->manager->activePath(), _rig->path());
    QCOMPARE(_rig->manager->rolloverPath(), other);
    _rig->media->finishClose();
    _rig->settle();
    QCOMPARE(_rig->vtr->state().mode(), VtrState::StandbyOff);
    QVERIFY(!_rig->written(eParamStorageInUse).contains(3));
}

/// Before it hears of the rollover, so that the medium left is not the next one.
void TestMainObjectSpare::theMediaServiceIsToldOfAMediumThatFailed()
{
    const std::string request = "rvd suspect " + _rig->path().toStdString();
    _rig->media->goOver(_rig->media->failMedium(OrbError(EIO)), OrbError(EIO));
    QList<quint32> order = _rig->writtenIds();
    QCOMPARE(_rig->store.text(eParamMediaRequest), request);
    QVERIFY(order.contains(eParamStorageInUse));
    QVERIFY(order.indexOf(eParamMediaRequest) < order.indexOf(eParamStorageInUse));
    _rig->store.put(eParamMediaRequest, std::string("another"));
    _rig->media->loseFrames(1, OrbError(EIO));
    QVERIFY(_rig->store.text(eParamMediaRequest).starts_with("rvd suspect "));
}

QTEST_APPLESS_MAIN(TestMainObjectSpare)
#include "tst_mainobject_spare.moc"
