#include "enginerig.h"

#include "liborb/orb.h"

#include <QRandomGenerator>

#include <algorithm>

#include <functional>
#include <vector>

/// Seeded random commands and faults against the shipped engine, and what must hold all the same.
class TestEngineRandom : public QObject
{
    Q_OBJECT

private slots:
    void anyOrderOfCommandsAndFaultsIsSurvived_data();
    void anyOrderOfCommandsAndFaultsIsSurvived();
    void theSameSeedTellsTheSameStory();

private:
    static QStringList story(quint32 seed, int commands);
};

namespace {

/// Commands, settings and faults, one drawn after the other from one seed.
class Operator
{
public:
    Operator(EngineRig &rig, quint32 seed) : _rig(rig), _random(seed) {}

    void act()
    {
        static const std::vector<void (Operator::*)()> acts = {
            &Operator::command, &Operator::command, &Operator::command, &Operator::setting,
            &Operator::input,   &Operator::fault,   &Operator::reopen,  &Operator::camera};
        (this->*acts[pick(int(acts.size()))])();
        _rig.run(pick(4) == 0 ? pick(900) : pick(60));
    }

private:
    int pick(int count) { return int(_random.bounded(count)); }

    void command()
    {
        VtrObject &v = *_rig.vtr;
        static constexpr double speeds[] = {0.0, 0.5, 1.0, 2.0, -0.5, -1.0, -8.0};
        switch (pick(10)) {
        case 0: v.play(); break;
        case 1: v.play(speeds[pick(7)]); break;
        case 2: v.record(); break;
        case 3: v.standbyOff(); break;
        case 4: v.still(); break;
        case 5: v.cue(pick(140) - 20); break;
        case 6: v.step(pick(21) - 10); break;
        case 7: v.rewind(); break;
        case 8: v.fastfwd(); break;
        default: v.record(); break;
        }
    }

    void setting()
    {
        VtrObject &v = *_rig.vtr;
        switch (pick(7)) {
        case 0: v.setSuperOut(OrbId(1300 + pick(3))); break;
        case 1: v.setEncodeFormat(OrbId(202 + pick(5))); break;
        case 2: v.setLooping(pick(2) == 0); break;
        case 3: v.setIntervalRecordEnable(pick(2) == 0); break;
        case 4: v.setStopOnLossOfVideo(pick(2) == 0); break;
        case 5: v.setStopOnFrameDrop(pick(2) == 0); break;
        default: v.setTCGSource(OrbId(1500 + pick(2))); break;
        }
    }

    void input()
    {
        if (pick(2) == 0)
            _rig.changeInput(pick(3) != 0);
        else
            _rig.video.changeInput(0, EngineRig::inputState(EngineRig::imageDesc(
                                          1920, 1080, pick(2) == 0 ? 25 : 50, 1)));
    }

    void fault()
    {
        switch (pick(9)) {
        case 0: _rig.video.setups.push_back({.error = OrbError(5)}); break;
        case 1: _rig.video.setups.push_back({.refused = OrbError(22)}); break;
        case 2: _rig.video.setups.push_back({.afterMs = pick(700)}); break;
        case 3: _rig.video.flushes.push_back({.afterMs = pick(300)}); break;
        case 4: _rig.media.opens.push_back({.error = OrbError(28)}); break;
        case 5: _rig.media.opens.push_back({.isRefused = true}); break;
        case 6: _rig.media.opens.push_back({.afterMs = pick(500)}); break;
        case 7: _rig.media.closes.push_back({.afterMs = pick(500)}); break;
        default: _rig.video.dropFrame(); break;
        }
    }

    void reopen()
    {
        _rig.playbackDesc = QString::fromLatin1(pick(2) == 0 ? EngineRig::clipPath
                                                             : EngineRig::otherClipPath);
        _rig.startFrame = pick(3) == 0 ? pick(40) : 0;
        _rig.recordDesc = QString("/media/rec%1.mov").arg(++_recordings);
        if (pick(2) == 0)
            _rig.vtr->reopenPlaybackStream();
        else
            _rig.vtr->reopenRecordStream();
    }

    void camera()
    {
        _rig.vtr->setCameraInput(pick(2) == 0 ? OrbId(1000) : OrbId());
        _rig.video.cameraFlag = pick(2) == 0;
    }

    EngineRig &_rig;
    QRandomGenerator _random;
    int _recordings = 0;
};

/// Asks until it is so, as the controller does.
bool settlesIn(EngineRig &rig, const std::function<void()> &ask, const std::function<bool()> &is)
{
    for (int i = 0; i < 40 && !is(); ++i) {
        ask();
        rig.run(500);
    }
    return is();
}

} // namespace

void TestEngineRandom::anyOrderOfCommandsAndFaultsIsSurvived_data()
{
    QTest::addColumn<quint32>("seed");
    for (quint32 seed = 1; seed <= 40; ++seed)
        QTest::addRow("seed %u", seed) << seed;
}

void TestEngineRandom::anyOrderOfCommandsAndFaultsIsSurvived()
{
    QFETCH(quint32, seed);
    EngineRig rig;
    int inUse = 0;
    bool isPaired = true;
    QObject::connect(rig.vtr.get(), &VtrObject::storageInUse, rig.vtr.get(), [&](bool on) {
        inUse += on ? 1 : -1;
        isPaired = isPaired && (inUse == 0 || inUse == 1);
    });
    VtrState published;
    bool isChained = true;
    QObject::connect(rig.vtr.get(), &VtrObject::stateChanged, rig.vtr.get(),
                     [&](const VtrState &oldState, const VtrState &newState) {
                         isChained = isChained && oldState == published && newState != oldState;
                         published = newState;
                     });
    rig.startUp();
    Operator hand(rig, seed);
    for (int i = 0; i < 250; ++i) {
        hand.act();
        rig.transcript.clear();
        QVERIFY2(isPaired, qPrintable(QString("storage in use after act %1").arg(i)));
        QVERIFY2(isChained, qPrintable(QString("published states after act %1").arg(i)));
    }
    rig.video.cameraFlag.reset();
    rig.video.setups.clear();
    rig.media.opens.clear();
    VtrObject &v = *rig.vtr;
    QVERIFY(settlesIn(rig, [&] { v.standbyOff(); },
                      [&] { return published.isInModeStandbyOff() && v.canProcess(); }));
    QCOMPARE(inUse, 0);
    rig.changeInput(true);
    rig.run(1500);
    for (const QString &path : rig.media.recordings().keys()) {
        QList<int> numbers = rig.media.recordedNumbers(path);
        QVERIFY(std::ranges::is_sorted(numbers));
        QVERIFY(std::ranges::adjacent_find(numbers) == numbers.end());
    }
    rig.startFrame = 0;
    v.play();
    QVERIFY(settlesIn(rig, [] {}, [&] { return published.isInModePlay() && v.canProcess(); }));
    QVERIFY(settlesIn(rig, [&] { v.shutdown(); }, [&] { return v.isShutdownComplete(); }));
    QCOMPARE(inUse, 0);
}

QStringList TestEngineRandom::story(quint32 seed, int commands)
{
    EngineRig rig;
    rig.startUp();
    Operator hand(rig, seed);
    for (int i = 0; i < commands; ++i)
        hand.act();
    return rig.transcript.take();
}

void TestEngineRandom::theSameSeedTellsTheSameStory()
{
    const QStringList once = story(7, 200);
    QVERIFY(once.size() > 200);
    QCOMPARE(story(7, 200), once);
    QVERIFY(story(8, 200) != once);
}

SIM_TEST_MAIN(TestEngineRandom)
#include "tst_engine_random.moc"
