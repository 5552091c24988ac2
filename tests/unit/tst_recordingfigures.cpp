#include "app/recordingfigures.h"

#include "controllerrig.h"

/// How well a recording keeps up, as the store is told.
class TestRecordingFigures : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup() { _rig.reset(); }
    void withoutARecordingNothingIsPublished();
    void aRecordingIsToldOfAtItsStart();
    void onceASecondWhatHasChangedIsPublished();
    void theEndIsPublishedAndStays();
    void lateFramesAreThoseOfTheRecording();
    void timesAreRoundedUpAndKeptWithinBounds();
    void whatAnotherDaemonLeftIsPutRight();

private:
    void record();
    void standbyOff();
    /// What was published of each figure since the last clear(): queue, median, worst, late.
    QList<QList<quint32>> published() const;

    std::optional<ControllerRig> _rig;
};

void TestRecordingFigures::init()
{
    _rig.emplace();
    new RecordingFigures(_rig->main.get());
    _rig->settle();
    _rig->connectInput();
    _rig->clear();
    _rig->video->figures = {3, 4.2, 7.0, 10};
}

void TestRecordingFigures::record()
{
    _rig->command(3);
    for (int ms = 0; ms < 2000 && _rig->vtr->state().mode() != VtrState::Record; ++ms)
        _rig->settle(1);
    QCOMPARE(_rig->vtr->state().mode(), VtrState::Record);
}

void TestRecordingFigures::standbyOff()
{
    _rig->vtr->standbyOff();
    for (int ms = 0; ms < 2000 && _rig->vtr->state().mode() != VtrState::StandbyOff; ++ms)
        _rig->settle(1);
    QCOMPARE(_rig->vtr->state().mode(), VtrState::StandbyOff);
}

QList<QList<quint32>> TestRecordingFigures::published() const
{
    return {_rig->written(eParamCaptureQueue), _rig->written(eParamCodingTime), _rig->written(eParamWorstCodingTime),
            _rig->written(eParamLateFrames)};
}

void TestRecordingFigures::withoutARecordingNothingIsPublished()
{
    _rig->settle(5000);
    QCOMPARE(published(), QList<QList<quint32>>({{}, {}, {}, {}}));
}

void TestRecordingFigures::aRecordingIsToldOfAtItsStart()
{
    record();
    QCOMPARE(published(), QList<QList<quint32>>({{3}, {5}, {7}, {0}}));
}

void TestRecordingFigures::onceASecondWhatHasChangedIsPublished()
{
    record();
    _rig->settle(3000);
    QCOMPARE(published(), QList<QList<quint32>>({{3}, {5}, {7}, {0}}));
    for (int i = 1; i <= 20; ++i) {
        _rig->video->figures.waitingFrames = 10 * i;
        _rig->settle(100);
    }
    const QList<quint32> queue = _rig->written(eParamCaptureQueue);
    QCOMPARE(queue.size(), 3);
    QCOMPARE(queue[2] - queue[1], 100u);
    QCOMPARE(published().mid(1), QList<QList<quint32>>({{5}, {7}, {0}}));
}

void TestRecordingFigures::theEndIsPublishedAndStays()
{
    record();
    _rig->video->figures = {6, 9.0, 12.0, 11};
    standbyOff();
    QCOMPARE(published(), QList<QList<quint32>>({{3, 6}, {5, 9}, {7, 12}, {0, 1}}));
    _rig->video->figures = {};
    _rig->settle(5000);
    QCOMPARE(published(), QList<QList<quint32>>({{3, 6}, {5, 9}, {7, 12}, {0, 1}}));
}

void TestRecordingFigures::lateFramesAreThoseOfTheRecording()
{
    record();
    _rig->video->figures.lateFrames = 14;
    standbyOff();
    _rig->video->figures.lateFrames = 20;
    record();
    _rig->video->figures.lateFrames = 21;
    _rig->settle(1000);
    QCOMPARE(_rig->written(eParamLateFrames), QList<quint32>({0, 4, 0, 1}));
}

void TestRecordingFigures::timesAreRoundedUpAndKeptWithinBounds()
{
    _rig->video->figures = {-1, 0.01, 1e12, 10};
    record();
    QCOMPARE(published(), QList<QList<quint32>>({{0}, {1}, {1000000}, {0}}));
}

void TestRecordingFigures::whatAnotherDaemonLeftIsPutRight()
{
    _rig->store.put(eParamLateFrames, 9u);
    _rig->video->figures = {0, 0.0, 0.0, 0};
    record();
    QCOMPARE(_rig->store.number(eParamLateFrames), 0u);
}

QTEST_APPLESS_MAIN(TestRecordingFigures)

#include "tst_recordingfigures.moc"
