#include "liborb/drivers/software/timecodegenerator.h"

#include <QTest>

using ferin::TimecodeGenerator;

namespace {

OrbTimecode at(int hour, int min, int sec, int frame, int fps = 25, int flags = 0)
{
    return OrbTimecode(hour, min, sec, frame, fps, flags);
}

const OrbTimecode none;

} // namespace

class tst_device_timecode : public QObject
{
    Q_OBJECT
private slots:
    void thePresetLabelIsHeldOutsideRecord();
    void labelsCountWhileRecording();
    void aPresetGoesToTheOldestFrameNotRead();
    void consecutiveClipsHaveConsecutiveLabels();
    void aPresetRepeatedBeforeAnyFrameIsReadChangesNothing();
    void theFrameThatTheCameraTriggeredWithCountsAsRecorded();
    void aTriggerThatStartsTheSecondClipCarriesOn();
    void aLostFrameCostsItsLabel();
    void timeOfDayAlwaysCounts();
    void inputLabelsAreTakenAsTheyCome();
    void dropFrameLabelsAreLeftOut();
    void midnightWraps();
    void anInvalidPresetIsIgnored();
};

void tst_device_timecode::thePresetLabelIsHeldOutsideRecord()
{
    TimecodeGenerator tcg;
    tcg.preset(at(1, 0, 0, 0), 5);
    QCOMPARE(tcg.read(5, none, false), at(1, 0, 0, 0));
    QCOMPARE(tcg.read(6, none, false), at(1, 0, 0, 0));
    QCOMPARE(tcg.label(7, none), at(1, 0, 0, 0));
}

void tst_device_timecode::labelsCountWhileRecording()
{
    TimecodeGenerator tcg;
    tcg.preset(at(1, 0, 0, 0), 0);
    tcg.read(10, none, false);
    tcg.setRecording(true, 11);
    QCOMPARE(tcg.read(11, none, false), at(1, 0, 0, 0));
    QCOMPARE(tcg.read(12, none, false), at(1, 0, 0, 1));
    QCOMPARE(tcg.label(36, none), at(1, 0, 1, 0));
    tcg.setRecording(false, 13);
    QCOMPARE(tcg.label(20, none), at(1, 0, 0, 2));
}

void tst_device_timecode::aPresetGoesToTheOldestFrameNotRead()
{
    TimecodeGenerator tcg;
    tcg.setRecording(true, 100); // frames 100 to 104 wait
    tcg.preset(at(10, 0, 0, 0), 100);
    QCOMPARE(tcg.read(100, none, false), at(10, 0, 0, 0));
    tcg.preset(at(20, 0, 0, 0), 101);
    QCOMPARE(tcg.read(101, none, false), at(20, 0, 0, 0));
    QCOMPARE(tcg.read(102, none, false), at(20, 0, 0, 1));
}

void tst_device_timecode::consecutiveClipsHaveConsecutiveLabels()
{
    TimecodeGenerator tcg;
    tcg.preset(at(1, 0, 0, 0), 0);
    tcg.setRecording(true, 0);
    tcg.preset(at(1, 0, 0, 0), 0);
    OrbTimecode last;
    for (int n = 0; n < 10; ++n)
        last = tcg.read(n, none, false);
    QCOMPARE(last, at(1, 0, 0, 9));

    tcg.setRecording(false, 10);
    tcg.preset(last, 10); // what recording has left is handed back
    QCOMPARE(tcg.read(10, none, false), at(1, 0, 0, 10));
    tcg.setRecording(true, 11);
    tcg.preset(last, 11);
    QCOMPARE(tcg.read(11, none, false), at(1, 0, 0, 10));
    QCOMPARE(tcg.read(12, none, false), at(1, 0, 0, 11));
}

void tst_device_timecode::aPresetRepeatedBeforeAnyFrameIsReadChangesNothing()
{
    TimecodeGenerator tcg;
    tcg.setRecording(true, 0);
    tcg.preset(at(1, 0, 0, 0), 0);
    const OrbTimecode last = tcg.read(0, none, false);
    tcg.preset(last, 1);
    tcg.preset(last, 1);
    tcg.preset(last, 3); // two frames were thrown away by a setup
    QCOMPARE(tcg.read(3, none, false), at(1, 0, 0, 1));
}

void tst_device_timecode::theFrameThatTheCameraTriggeredWithCountsAsRecorded()
{
    TimecodeGenerator tcg;
    tcg.preset(at(1, 0, 0, 0), 0);
    tcg.read(0, none, false);
    QCOMPARE(tcg.read(1, none, true), at(1, 0, 0, 0)); // the engine records this one
    tcg.setRecording(true, 2);
    tcg.preset(at(1, 0, 0, 0), 2);
    QCOMPARE(tcg.read(2, none, true), at(1, 0, 0, 1));
    QCOMPARE(tcg.read(3, none, true), at(1, 0, 0, 2));
}

void tst_device_timecode::aTriggerThatStartsTheSecondClipCarriesOn()
{
    TimecodeGenerator tcg;
    tcg.preset(at(1, 0, 0, 0), 0);
    tcg.setRecording(true, 0);
    const OrbTimecode last = tcg.read(0, none, true);
    tcg.setRecording(false, 1);
    tcg.preset(last, 1);
    tcg.read(1, none, false);
    QCOMPARE(tcg.read(2, none, true), at(1, 0, 0, 1));
    tcg.setRecording(true, 3);
    tcg.preset(last, 3);
    QCOMPARE(tcg.read(3, none, true), at(1, 0, 0, 2));
}

void tst_device_timecode::aLostFrameCostsItsLabel()
{
    TimecodeGenerator tcg;
    tcg.setRecording(true, 0);
    tcg.preset(at(1, 0, 0, 0), 0);
    QCOMPARE(tcg.read(0, none, false), at(1, 0, 0, 0));
    QCOMPARE(tcg.read(3, none, false), at(1, 0, 0, 3));
}

void tst_device_timecode::timeOfDayAlwaysCounts()
{
    TimecodeGenerator tcg;
    tcg.setSource(OrbIdTimecodeTimeOfDay);
    tcg.preset(at(12, 0, 0, 0), 50);
    QCOMPARE(tcg.read(50, none, false), at(12, 0, 0, 0));
    QCOMPARE(tcg.read(75, none, false), at(12, 0, 1, 0));
    tcg.setRecording(true, 76);
    QCOMPARE(tcg.read(76, none, false), at(12, 0, 1, 1));
    tcg.preset(at(12, 0, 1, 1), 77); // the time itself is taken as it is
    QCOMPARE(tcg.read(77, none, false), at(12, 0, 1, 1));
}

void tst_device_timecode::inputLabelsAreTakenAsTheyCome()
{
    TimecodeGenerator tcg;
    tcg.setSource(OrbIdTimecodeLtc);
    tcg.preset(at(12, 0, 0, 0), 0);
    QCOMPARE(tcg.read(0, at(3, 4, 5, 6), false), at(3, 4, 5, 6));
    QVERIFY(!tcg.read(1, none, false).isValid());
    tcg.setSource(OrbIdTimecodeVitc);
    QCOMPARE(tcg.label(2, at(7, 0, 0, 0)), at(7, 0, 0, 0));
}

void tst_device_timecode::dropFrameLabelsAreLeftOut()
{
    TimecodeGenerator tcg;
    tcg.setRate(30);
    tcg.setRecording(true, 0);
    tcg.preset(at(0, 0, 59, 29, 30, OrbTimecode::DropFrame), 0);
    tcg.read(0, none, false);
    QCOMPARE(tcg.read(1, none, false).toString(), QStringLiteral("00:01:00;02"));
}

void tst_device_timecode::midnightWraps()
{
    TimecodeGenerator tcg;
    tcg.setRecording(true, 0);
    tcg.preset(at(23, 59, 59, 24), 0);
    tcg.read(0, none, false);
    QCOMPARE(tcg.read(1, none, false), at(0, 0, 0, 0));
}

void tst_device_timecode::anInvalidPresetIsIgnored()
{
    TimecodeGenerator tcg;
    tcg.preset(at(1, 2, 3, 4), 0);
    tcg.preset(OrbTimecode(), 0);
    QCOMPARE(tcg.label(0, none), at(1, 2, 3, 4));
}

QTEST_APPLESS_MAIN(tst_device_timecode)
#include "tst_device_timecode.moc"
