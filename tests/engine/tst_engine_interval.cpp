#include "enginerig.h"

#include "liborb/orb.h"

/// Interval recording: the step by period, rate and count, and the frames it keeps.
class TestEngineInterval : public QObject
{
    Q_OBJECT

private slots:
    void theStep_data();
    void theStep();
    void theFramesKept_data();
    void theFramesKept();
    void anUnknownPeriodOfANewEngineDeliberatelyEndsAtOne_data();
    void anUnknownPeriodOfANewEngineDeliberatelyEndsAtOne();
    void anUnknownPeriodDeliberatelyCarriesTheStepOver();
    void aRecordingWithoutIntervalResetsTheStepCarriedOver();
    void twoAMinuteAtThirtyKeepsOneFrameInNineHundred();
    void noneAPeriodIsLoggedAndKeepsOneAPeriod();
    void theCounterStartsAnewWithEveryRecording();
    void theRateIsThatOfTheSetupBeforeTheRecordings();
    void theStepIsThatOfTheStart();
    void intervalOffKeepsEveryFrame();
    void droppedFramesLeaveTheTimecodeAlone();

private:
    /// In Standby Off with an input of that rate and these settings; interval recording is on.
    static void prepare(EngineRig &rig, int frames, int period, const OrbVideoRate &rate);
    static QStringList intervalLogs(const EngineRig &rig);
};

void TestEngineInterval::prepare(EngineRig &rig, int frames, int period, const OrbVideoRate &rate)
{
    rig.startUp();
    rig.video.changeInput(
        0, EngineRig::inputState(EngineRig::imageDesc(1920, 1080, rate.num(), rate.den())));
    rig.run(1000);
    rig.vtr->setRecordInterval(frames);
    rig.vtr->setRecordIntervalTime(period);
    rig.vtr->setIntervalRecordEnable(true);
    rig.transcript.clear();
}

QStringList TestEngineInterval::intervalLogs(const EngineRig &rig)
{
    QStringList found;
    const QStringList logs = rig.logs();
    for (const QString &line : logs)
        if (line.contains("nterval"))
            found << line;
    return found;
}

void TestEngineInterval::theStep_data()
{
    QTest::addColumn<int>("num");
    QTest::addColumn<int>("den");
    QTest::addColumn<int>("period");
    QTest::addColumn<int>("frames");
    QTest::addColumn<QString>("every");
    struct Row {
        const char *rate;
        int num, den, frames;
        const char *perSecond, *perMinute, *perHour;
    };
    // clang-format off
    const Row rows[] = {
        // rate     num    den   frames  a second   a minute     an hour
        {"23.976",  24000, 1001, 1,      "24.000",  "1440.000",  "86400.000"},
        {"24",      24,    1,    1,      "24.000",  "1440.000",  "86400.000"},
        {"25",      25,    1,    1,      "25.000",  "1500.000",  "90000.000"},
        {"29.97",   30000, 1001, 1,      "30.000",  "1800.000",  "108000.000"},
        {"30",      30,    1,    1,      "30.000",  "1800.000",  "108000.000"},
        {"50",      50,    1,    1,      "50.000",  "3000.000",  "180000.000"},
        {"59.94",   60000, 1001, 1,      "60.000",  "3600.000",  "216000.000"},
        {"60",      60,    1,    1,      "60.000",  "3600.000",  "216000.000"},
        {"25",      25,    1,    0,      "0 25.000", "0 1500.000", "0 90000.000"},
        {"60",      60,    1,    0,      "0 60.000", "0 3600.000", "0 216000.000"},
        {"25",      25,    1,    2,      "12.500",  "750.000",   "45000.000"},
        {"30",      30,    1,    2,      "15.000",  "900.000",   "54000.000"},
        {"24",      24,    1,    7,      "3.429",   "205.714",   "12342.857"},
        {"25",      25,    1,    25,     "1.000",   "60.000",    "3600.000"},
        {"25",      25,    1,    26,     "< 1.000", "57.692",    "3461.539"},
        {"25",      25,    1,    100,    "< 1.000", "15.000",    "900.000"},
        {"25",      25,    1,    1500,   "< 1.000", "1.000",     "60.000"},
        {"25",      25,    1,    90001,  "< 1.000", "< 1.000",   "< 1.000"},
        {"25",      25,    1,    -1,     "< 1.000", "< 1.000",   "< 1.000"},
    };
    // clang-format on
    for (const Row &row : rows) {
        const char *const cells[] = {row.perSecond, row.perMinute, row.perHour};
        const char *const periods[] = {"second", "minute", "hour"};
        for (int period = 0; period < 3; ++period)
            QTest::addRow("%d a %s at %s", row.frames, periods[period], row.rate)
                << row.num << row.den << period << row.frames << QString(cells[period]);
    }
}

/// "0" before a step: the count is reported; "<": that the step was below one.
void TestEngineInterval::theStep()
{
    QFETCH(int, num);
    QFETCH(int, den);
    QFETCH(int, period);
    QFETCH(int, frames);
    QFETCH(QString, every);
    EngineRig rig;
    prepare(rig, frames, period, OrbVideoRate(num, den));
    rig.vtr->record();
    QStringList lines;
    if (every.startsWith("0 "))
        lines << "2 Record interval total is zero!";
    if (every.startsWith("< "))
        lines << "2 Interval total is less than 1";
    lines << QString("3 Interval Record.  Interval %1, Time %2, Every %3")
                 .arg(QString::number(frames), QString::number(period), every.section(' ', -1));
    QCOMPARE(intervalLogs(rig), lines);
    QCOMPARE(rig.logs().first(), QString("3 Begin Mode Record"));
}

void TestEngineInterval::theFramesKept_data()
{
    QTest::addColumn<int>("rate");
    QTest::addColumn<int>("frames");
    QTest::addColumn<int>("period");
    QTest::addColumn<int>("seconds");
    QTest::addColumn<QList<int>>("kept"); ///< first of them, counted from 1
    // clang-format off
    //                                      rate   frames period seconds  kept
    QTest::newRow("1 a second at 25")    << 25  << 1   << 0   << 5     << QList<int>{25, 50, 75, 100, 125};
    QTest::newRow("2 a second at 25")    << 25  << 2   << 0   << 3     << QList<int>{13, 25, 38, 50, 63, 75};
    QTest::newRow("10 a second at 25")   << 25  << 10  << 0   << 1     << QList<int>{3, 5, 8, 10, 13, 15, 18, 20, 23, 25};
    QTest::newRow("all at 25")           << 25  << 25  << 0   << 1     << QList<int>{1, 2, 3, 4, 5, 6, 7};
    QTest::newRow("more than all at 25") << 25  << 99  << 0   << 1     << QList<int>{1, 2, 3, 4, 5, 6, 7};
    QTest::newRow("0 a second at 50")    << 50  << 0   << 0   << 4     << QList<int>{50, 100, 150, 200};
    QTest::newRow("1 a minute at 25")    << 25  << 1   << 1   << 185   << QList<int>{1500, 3000, 4500};
    QTest::newRow("2 a minute at 60")    << 60  << 2   << 1   << 95    << QList<int>{1800, 3600, 5400};
    QTest::newRow("30 an hour at 30")    << 30  << 30  << 2   << 245   << QList<int>{3600, 7200};
    // clang-format on
}

void TestEngineInterval::theFramesKept()
{
    QFETCH(int, rate);
    QFETCH(int, frames);
    QFETCH(int, period);
    QFETCH(int, seconds);
    QFETCH(QList<int>, kept);
    EngineRig rig;
    prepare(rig, frames, period, OrbVideoRate(rate, 1));
    const int first = rig.video.framesCaptured();
    rig.vtr->record();
    rig.run(seconds * 1000 + 200);
    QList<int> numbers = rig.media.recordedNumbers(EngineRig::recordPath);
    for (int &number : numbers)
        number += 1 - first;
    QVERIFY(numbers.size() >= kept.size());
    QCOMPARE(numbers.mid(0, kept.size()), kept);
}

void TestEngineInterval::anUnknownPeriodOfANewEngineDeliberatelyEndsAtOne_data()
{
    QTest::addColumn<int>("period");
    QTest::addColumn<int>("frames");
    for (const int period : {3, 99, -1})
        for (const int frames : {0, 1, 2})
            QTest::addRow("period %d, %d frames", period, frames) << period << frames;
}

void TestEngineInterval::anUnknownPeriodOfANewEngineDeliberatelyEndsAtOne()
{
    QFETCH(int, period);
    QFETCH(int, frames);
    EngineRig rig;
    prepare(rig, frames, period, OrbVideoRate(25, 1));
    rig.vtr->record();
    QStringList lines;
    if (frames == 0)
        lines << "2 Record interval total is zero!";
    lines << "2 Interval total is less than 1"
          << QString("3 Interval Record.  Interval %1, Time %2, Every 1.000").arg(frames).arg(period);
    QCOMPARE(intervalLogs(rig), lines);
}

void TestEngineInterval::anUnknownPeriodDeliberatelyCarriesTheStepOver()
{
    EngineRig rig;
    prepare(rig, 1, 1, OrbVideoRate(25, 1));
    const auto recordWith = [&](int frames, int period) {
        rig.vtr->standbyOff();
        rig.run(300);
        rig.vtr->setRecordInterval(frames);
        rig.vtr->setRecordIntervalTime(period);
        rig.transcript.clear();
        rig.vtr->record();
        const QStringList lines = intervalLogs(rig);
        rig.run(300);
        return lines.join(" | ");
    };
    QCOMPARE(recordWith(1, 1), QString("3 Interval Record.  Interval 1, Time 1, Every 1500.000"));
    QCOMPARE(recordWith(3, 7), QString("3 Interval Record.  Interval 3, Time 7, Every 500.000"));
    QCOMPARE(recordWith(5, 7), QString("3 Interval Record.  Interval 5, Time 7, Every 100.000"));
    QCOMPARE(recordWith(0, 7), QString("2 Record interval total is zero! | "
                                       "3 Interval Record.  Interval 0, Time 7, Every 100.000"));
    QCOMPARE(recordWith(1000, 7), QString("2 Interval total is less than 1 | "
                                          "3 Interval Record.  Interval 1000, Time 7, Every 1.000"));
    QCOMPARE(recordWith(1, 2), QString("3 Interval Record.  Interval 1, Time 2, Every 90000.000"));
}

void TestEngineInterval::aRecordingWithoutIntervalResetsTheStepCarriedOver()
{
    EngineRig rig;
    prepare(rig, 1, 1, OrbVideoRate(25, 1));
    rig.vtr->record();
    rig.run(300);
    rig.vtr->standbyOff();
    rig.run(300);
    rig.vtr->setIntervalRecordEnable(false);
    rig.vtr->record();
    rig.run(300);
    rig.vtr->standbyOff();
    rig.run(300);
    rig.vtr->setIntervalRecordEnable(true);
    rig.vtr->setRecordIntervalTime(9);
    rig.transcript.clear();
    rig.vtr->record();
    QCOMPARE(intervalLogs(rig), QStringList{"3 Interval Record.  Interval 1, Time 9, Every 1.000"});
}

void TestEngineInterval::twoAMinuteAtThirtyKeepsOneFrameInNineHundred()
{
    EngineRig rig;
    prepare(rig, 2, 1, OrbVideoRate(30, 1));
    rig.vtr->record();
    QVERIFY(rig.hasLog(3, "Interval Record.  Interval 2, Time 1, Every 900.000"));
    rig.run(10 * 60 * 1000 + 500);
    const QList<int> numbers = rig.media.recordedNumbers(EngineRig::recordPath);
    QCOMPARE(numbers.size(), 20);
    for (int i = 1; i < numbers.size(); ++i)
        QCOMPARE(numbers.at(i) - numbers.at(i - 1), 900);
}

void TestEngineInterval::noneAPeriodIsLoggedAndKeepsOneAPeriod()
{
    EngineRig rig;
    prepare(rig, 0, 1, OrbVideoRate(25, 1));
    rig.vtr->record();
    QCOMPARE(rig.countLog(2, "Record interval total is zero!"), 1);
    rig.run(5 * 60 * 1000 + 500);
    QCOMPARE(rig.media.recordedNumbers(EngineRig::recordPath).size(), 5);
}

void TestEngineInterval::theCounterStartsAnewWithEveryRecording()
{
    EngineRig rig;
    prepare(rig, 1, 0, OrbVideoRate(25, 1));
    for (int i = 0; i < 3; ++i) {
        rig.recordDesc = QString("/media/part%1.mov").arg(i);
        const int first = rig.video.framesCaptured();
        rig.vtr->record();
        rig.run(1500); // one frame and half of the way to the next
        rig.vtr->standbyOff();
        rig.run(300);
        QCOMPARE(rig.media.recordedNumbers(rig.recordDesc.toString()), QList<int>{first + 24});
    }
}

/// Deliberately: the setup of the recording is sent after the step is worked out.
void TestEngineInterval::theRateIsThatOfTheSetupBeforeTheRecordings()
{
    EngineRig rig;
    prepare(rig, 1, 0, OrbVideoRate(25, 1));
    rig.video.changeInput(0, EngineRig::inputState(EngineRig::imageDesc(1280, 720, 50, 1)));
    rig.vtr->record(); // before the reset of 500 ms
    QCOMPARE(intervalLogs(rig), QStringList{"3 Interval Record.  Interval 1, Time 0, Every 25.000"});
    rig.run(100);
    QCOMPARE(rig.video.appliedSetup().imageDesc().frameRate(), OrbVideoRate(50, 1));
}

void TestEngineInterval::theStepIsThatOfTheStart()
{
    EngineRig rig;
    prepare(rig, 1, 0, OrbVideoRate(25, 1));
    const int first = rig.video.framesCaptured();
    rig.vtr->record();
    rig.vtr->setRecordInterval(25); // for the next recording
    rig.run(3200);
    QCOMPARE(rig.media.recordedNumbers(EngineRig::recordPath),
             (QList<int>{first + 24, first + 49, first + 74}));
}

void TestEngineInterval::intervalOffKeepsEveryFrame()
{
    EngineRig rig;
    prepare(rig, 1, 0, OrbVideoRate(25, 1));
    rig.vtr->setIntervalRecordEnable(false);
    rig.transcript.clear();
    const int first = rig.video.framesCaptured();
    rig.vtr->record();
    QCOMPARE(intervalLogs(rig), QStringList{});
    rig.run(1000);
    const QList<int> numbers = rig.media.recordedNumbers(EngineRig::recordPath);
    QVERIFY(numbers.size() >= 24);
    for (int i = 0; i < numbers.size(); ++i)
        QCOMPARE(numbers.at(i), first + i);
}

void TestEngineInterval::droppedFramesLeaveTheTimecodeAlone()
{
    EngineRig rig;
    prepare(rig, 1, 0, OrbVideoRate(25, 1));
    rig.video.hasTimecode = false;
    rig.vtr->record();
    rig.run(3200); // a frame that is not kept is not judged
    QCOMPARE(rig.countLog(1, "Frame has invalid timecode"), 3);
}

SIM_TEST_MAIN(TestEngineInterval)
#include "tst_engine_interval.moc"
