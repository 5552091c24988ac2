#include "liborb/orbaudiodesc.h"
#include "liborb/orbimagedesc.h"
#include "liborb/orbimagelut.h"
#include "liborb/orbstreaminfo.h"
#include "liborb/orbvideostate.h"

#include <QTest>

#include <limits>

class TestOrbDescs : public QObject
{
    Q_OBJECT

private slots:
    void theDefaultImageDescriptionIsInvalid();
    void aPictureOfNoSizeIsADescription();
    void onlyScanModeOneIsInterlaced();
    void everyImageFieldTakesPartInComparison_data();
    void everyImageFieldTakesPartInComparison();
    void equalRatesWrittenDifferentlyAreOneFormat();
    void imageDescriptionsPrintForLogs();
    void aCopyOfAnImageDescriptionNeverSeesAChange();
    void audioDescriptionsCompareAllFour();
    void aCopyOfAnAudioDescriptionNeverSeesAChange();
    void theDefaultLutIsEmpty();
    void aLutHoldsThreePlanes();
    void lutSizesAreBounded();
    void aCopyOfALutNeverSeesAWrite();
    void videoStateDefaultsToNothingSeen();
    void everyVideoStateFieldTakesPartInComparison();
    void videoStatesPrintForLogs();
    void referenceStateDefaultsToAbsentAndUnlocked();
    void streamInfoDefaultsAndSetters();
    void aCopyOfAStreamInfoNeverSeesAChange();
};

static OrbImageDesc hd()
{
    OrbImageDesc desc;
    desc.setSize(1920, 1080);
    desc.setAspectRatio(16, 9);
    desc.setFrameRate(25, 1);
    desc.setDataType(OrbIdImageProRes422);
    return desc;
}

void TestOrbDescs::theDefaultImageDescriptionIsInvalid()
{
    const OrbImageDesc desc;
    QVERIFY(!desc.isValid());
    QVERIFY(desc.width() < 0 && desc.height() < 0);
    QVERIFY(!desc.aspectRatio().isValid());
    QVERIFY(!desc.frameRate().isValid());
    QVERIFY(!desc.dataType().isValid());
    QCOMPARE(desc.scanMode(), OrbImageDesc::Progressive);
    QCOMPARE(desc, OrbImageDesc());
}

void TestOrbDescs::aPictureOfNoSizeIsADescription()
{
    OrbImageDesc desc;
    desc.setSize(0, 0);
    QVERIFY(desc.isValid());
    desc.setSize(10, -1);
    QVERIFY(!desc.isValid());
}

void TestOrbDescs::onlyScanModeOneIsInterlaced()
{
    OrbImageDesc desc = hd();
    QVERIFY(!desc.isInterlaced());
    desc.setScanMode(1);
    QVERIFY(desc.isInterlaced());
    desc.setScanMode(OrbImageDesc::SegmentedFrame);
    QVERIFY(!desc.isInterlaced());
}

void TestOrbDescs::everyImageFieldTakesPartInComparison_data()
{
    QTest::addColumn<OrbImageDesc>("other");
    OrbImageDesc desc = hd();
    desc.setSize(1280, 720);
    QTest::newRow("size") << desc;
    desc = hd();
    desc.setAspectRatio(4, 3);
    QTest::newRow("aspect ratio") << desc;
    desc = hd();
    desc.setFrameRate(24, 1);
    QTest::newRow("rate") << desc;
    desc = hd();
    desc.setDataType(OrbIdImageV210);
    QTest::newRow("data type") << desc;
    desc = hd();
    desc.setScanMode(1);
    QTest::newRow("scan mode") << desc;
}

void TestOrbDescs::everyImageFieldTakesPartInComparison()
{
    QFETCH(OrbImageDesc, other);
    QVERIFY(hd() == hd());
    QVERIFY(!(other == hd()));
    QVERIFY(other != hd());
}

void TestOrbDescs::equalRatesWrittenDifferentlyAreOneFormat()
{
    OrbImageDesc desc = hd();
    desc.setFrameRate(25000, 1000);
    desc.setAspectRatio(1920, 1080);
    QCOMPARE(desc, hd());
    desc.setFrameRate(OrbVideoRate(OrbVideoRate::Rate25));
    QCOMPARE(desc, hd());
}

void TestOrbDescs::imageDescriptionsPrintForLogs()
{
    OrbImageDesc desc = hd();
    QCOMPARE(desc.toString(), QStringLiteral("1920x1080p 25/1 ImageProRes422"));
    desc.setScanMode(1);
    desc.setDataType(OrbId());
    QCOMPARE(desc.toString(), QStringLiteral("1920x1080i 25/1"));
    desc.setScanMode(2);
    desc.setFrameRate(0, 0);
    QCOMPARE(desc.toString(), QStringLiteral("1920x1080psf"));
    QCOMPARE(OrbImageDesc().toString(), QStringLiteral("Invalid"));
}

void TestOrbDescs::aCopyOfAnImageDescriptionNeverSeesAChange()
{
    OrbImageDesc original = hd();
    const OrbImageDesc copy = original;
    original.setSize(720, 576);
    original.setFrameRate(50, 1);
    QCOMPARE(copy, hd());
    OrbImageDesc assigned;
    assigned = original;
    assigned.setDataType(OrbIdImageV210);
    QCOMPARE(original.dataType(), OrbId(OrbIdImageProRes422));
}

static OrbAudioDesc stereo()
{
    OrbAudioDesc desc;
    desc.setDataType(OrbIdAudioDataType);
    desc.setSampleRate(48000, 1);
    desc.setFrameRate(OrbVideoRate(25, 1));
    desc.setChans(2);
    return desc;
}

void TestOrbDescs::audioDescriptionsCompareAllFour()
{
    QCOMPARE(OrbAudioDesc().chans(), 0);
    QVERIFY(!OrbAudioDesc().dataType().isValid());
    QVERIFY(!OrbAudioDesc().sampleRate().isValid());
    QVERIFY(!OrbAudioDesc().frameRate().isValid());
    QCOMPARE(stereo(), stereo());
    OrbAudioDesc other = stereo();
    other.setDataType(OrbIdNone);
    QVERIFY(other != stereo());
    other = stereo();
    other.setSampleRate(OrbRational(44100, 1));
    QVERIFY(other != stereo());
    other = stereo();
    other.setFrameRate(30000, 1001);
    QVERIFY(other != stereo());
    other = stereo();
    other.setChans(8);
    QVERIFY(other != stereo());
}

void TestOrbDescs::aCopyOfAnAudioDescriptionNeverSeesAChange()
{
    OrbAudioDesc original = stereo();
    const OrbAudioDesc copy = original;
    original.setChans(8);
    QCOMPARE(copy.chans(), 2);
}

void TestOrbDescs::theDefaultLutIsEmpty()
{
    OrbImageLut lut;
    QVERIFY(!lut.isValid());
    QCOMPARE(lut.entries(), 0);
    QVERIFY(lut.lutData() == nullptr);
    QVERIFY(std::as_const(lut).lutData() == nullptr);
    QCOMPARE(lut, OrbImageLut());
}

void TestOrbDescs::aLutHoldsThreePlanes()
{
    OrbImageLut lut(OrbIdLutRgb16, 1024);
    QVERIFY(lut.isValid());
    QCOMPARE(lut.type(), OrbId(OrbIdLutRgb16));
    QCOMPARE(lut.entries(), 1024);
    for (int i = 0; i < 3 * 1024; ++i)
        QCOMPARE(std::as_const(lut).lutData()[i], short(0));
    lut.lutData()[3 * 1024 - 1] = -5;
    QCOMPARE(std::as_const(lut).lutData()[3 * 1024 - 1], short(-5));
    lut.setFilename(QStringLiteral("warm.lut"));
    QCOMPARE(lut.filename(), QStringLiteral("warm.lut"));
}

void TestOrbDescs::lutSizesAreBounded()
{
    QVERIFY(!OrbImageLut(OrbIdLutRgb16, 0).isValid());
    QVERIFY(!OrbImageLut(OrbIdLutRgb16, -7).isValid());
    QCOMPARE(OrbImageLut(OrbIdLutRgb16, std::numeric_limits<int>::max()).entries(), 65536);
}

void TestOrbDescs::aCopyOfALutNeverSeesAWrite()
{
    OrbImageLut original(OrbIdLutRgb16, 4);
    const OrbImageLut copy = original;
    QCOMPARE(copy, original);
    original.lutData()[0] = 9;
    QCOMPARE(copy.lutData()[0], short(0));
    QVERIFY(copy != original);
    OrbImageLut named = copy;
    named.setFilename(QStringLiteral("a"));
    QVERIFY(named != copy);
}

void TestOrbDescs::videoStateDefaultsToNothingSeen()
{
    const OrbVideoState state;
    QVERIFY(!state.isValid());
    QVERIFY(!state.isPresent());
    QVERIFY(!state.recInhibit().isValid());
    QVERIFY(!state.inputImageDesc().isValid());
    QVERIFY(!state.captureImageDesc().isValid());
    QCOMPARE(state, OrbVideoState());
}

void TestOrbDescs::everyVideoStateFieldTakesPartInComparison()
{
    const OrbVideoState plain;
    OrbVideoState state = plain;
    state.setValid(true);
    QVERIFY(state != plain);
    QVERIFY(!plain.isValid());
    state = plain;
    state.setPresent(true);
    QVERIFY(state != plain);
    state = plain;
    state.setRecInhibit(OrbIdInhibitNoInput);
    QVERIFY(state != plain);
    state = plain;
    state.setInputImageDesc(hd());
    QVERIFY(state != plain);
    state = plain;
    state.setCaptureImageDesc(hd());
    QVERIFY(state != plain);
    QCOMPARE(state.captureImageDesc(), hd());
}

void TestOrbDescs::videoStatesPrintForLogs()
{
    OrbVideoState state;
    QCOMPARE(state.toString(), QStringLiteral("invalid"));
    state.setValid(true);
    QCOMPARE(state.toString(), QStringLiteral("not present"));
    state.setPresent(true);
    OrbImageDesc wire = hd();
    wire.setDataType(OrbId());
    wire.setScanMode(1);
    state.setInputImageDesc(wire);
    QCOMPARE(state.toString(), QStringLiteral("valid 1920x1080i 25/1"));
    state.setRecInhibit(OrbIdInhibitNoInput);
    QCOMPARE(state.toString(),
             QStringLiteral("valid 1920x1080i 25/1 inhibited by InhibitNoInput"));
}

void TestOrbDescs::referenceStateDefaultsToAbsentAndUnlocked()
{
    OrbVideoRefState state;
    QVERIFY(!state.locked());
    QVERIFY(!state.present());
    QVERIFY(!state.imageDesc().isValid());
    QVERIFY(!state.source().isValid());
    QCOMPARE(OrbVideoRefState(true, false).present(), true);
    QCOMPARE(OrbVideoRefState(true, false).locked(), false);
    state.setImageDesc(hd());
    state.setSource(OrbIdSyncExternal);
    QVERIFY(!(state == OrbVideoRefState()));
}

void TestOrbDescs::streamInfoDefaultsAndSetters()
{
    OrbStreamInfo info;
    QVERIFY(info.name().isEmpty() && info.reelName().isEmpty());
    QVERIFY(std::as_const(info).vids().isEmpty() && std::as_const(info).auds().isEmpty());
    QVERIFY(!info.frameRate().isValid() && !info.effectiveFrameRate().isValid());
    QCOMPARE(info.offset(), 0);
    QCOMPARE(info.length(), 0);
    QVERIFY(!info.isGrowing());
    info.setName(QStringLiteral("A001"));
    info.setReelName(QStringLiteral("R7"));
    info.vids().append(hd());
    info.auds().append(stereo());
    info.setFrameRate(OrbVideoRate(25, 1));
    info.setEffectiveFrameRate(OrbVideoRate(50, 1));
    info.setOffset(90000);
    info.setLength(250);
    info.setGrowing(true);
    QCOMPARE(info.name(), QStringLiteral("A001"));
    QCOMPARE(info.reelName(), QStringLiteral("R7"));
    QCOMPARE(std::as_const(info).vids().first(), hd());
    QCOMPARE(std::as_const(info).auds().first(), stereo());
    QVERIFY(info.frameRate() == OrbVideoRate(25, 1));
    QVERIFY(info.effectiveFrameRate() == OrbVideoRate(50, 1));
    QCOMPARE(info.offset(), 90000);
    QCOMPARE(info.length(), 250);
    QVERIFY(info.isGrowing());
}

void TestOrbDescs::aCopyOfAStreamInfoNeverSeesAChange()
{
    OrbStreamInfo original;
    original.vids().append(hd());
    const OrbStreamInfo copy = original;
    QCOMPARE(copy, original);
    original.vids().clear();
    original.setReelName(QStringLiteral("other"));
    QCOMPARE(copy.vids().size(), 1);
    QVERIFY(copy.reelName().isEmpty());
    QVERIFY(copy != original);
}

QTEST_APPLESS_MAIN(TestOrbDescs)
#include "tst_orbdescs.moc"
