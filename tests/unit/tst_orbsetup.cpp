#include "liborb/orbvideodevicesetup.h"

#include <QTest>

#include <functional>

using Change = std::function<void(OrbVideoDeviceSetup &)>;
Q_DECLARE_METATYPE(Change)

class TestOrbSetup : public QObject
{
    Q_OBJECT

private slots:
    void theDefaultSetup();
    void everyFieldIsCarriedAndCompared_data();
    void everyFieldIsCarriedAndCompared();
    void onlyModeTwoIsCapture();
};

void TestOrbSetup::theDefaultSetup()
{
    const OrbVideoDeviceSetup setup;
    QVERIFY(!setup.imageDesc().isValid());
    QCOMPARE(setup.audioDesc(), OrbAudioDesc());
    QVERIFY(!setup.inputLut().isValid() && !setup.outputLut().isValid());
    const QList<OrbId> selectors = {
        setup.inputRefSource(),     setup.videoOutputType(),    setup.videoInputSource(),
        setup.audioInputSource(),   setup.audioInputLevel(),    setup.videoSignalGenMode(),
        setup.videoSignalGenColorSpace(), setup.audioSignalGenMode(), setup.cameraInput(),
        setup.videoInConvert(),     setup.videoOutConvert(),    setup.superOut(),
        setup.videoOutRoute(),      setup.timecodeInputSource()};
    QCOMPARE(selectors.size(), 14);
    for (const OrbId &id : selectors)
        QVERIFY(!id.isValid());
    QVERIFY(!setup.forcePSFOutput() && !setup.forcePSFEncode() && !setup.forceVFRRecord());
    QCOMPARE(setup.mode(), OrbVideoDeviceSetup::None);
    QCOMPARE(setup.imageCount(), 0);
    QCOMPARE(setup.maxBuffers(), 40);
    QVERIFY(!setup.blackingEnabled());
    QCOMPARE(setup, OrbVideoDeviceSetup());
}

void TestOrbSetup::everyFieldIsCarriedAndCompared_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<Change>("check");
    OrbImageDesc image;
    image.setSize(1280, 720);
    OrbAudioDesc audio;
    audio.setChans(8);
    const OrbImageLut lut(OrbIdLutRgb16, 2);
    const OrbId id(777);
    using Setup = OrbVideoDeviceSetup;
#define FIELD(getter, setter, value)                                                               \
    QTest::newRow(#getter) << Change([=](Setup &s) { s.setter(value); })                           \
                           << Change([=](Setup &s) { QVERIFY(s.getter() == value); })
    FIELD(imageDesc, setImageDesc, image);
    FIELD(audioDesc, setAudioDesc, audio);
    FIELD(inputLut, setInputLut, lut);
    FIELD(outputLut, setOutputLut, lut);
    FIELD(inputRefSource, setInputRefSource, id);
    FIELD(videoOutputType, setVideoOutputType, id);
    FIELD(videoInputSource, setVideoInputSource, id);
    FIELD(audioInputSource, setAudioInputSource, id);
    FIELD(audioInputLevel, setAudioInputLevel, id);
    FIELD(videoSignalGenMode, setVideoSignalGenMode, id);
    FIELD(videoSignalGenColorSpace, setVideoSignalGenColorSpace, id);
    FIELD(audioSignalGenMode, setAudioSignalGenMode, id);
    FIELD(cameraInput, setCameraInput, id);
    FIELD(videoInConvert, setVideoInConvert, id);
    FIELD(videoOutConvert, setVideoOutConvert, id);
    FIELD(superOut, setSuperOut, id);
    FIELD(videoOutRoute, setVideoOutRoute, id);
    FIELD(timecodeInputSource, setTimecodeInputSource, id);
    FIELD(forcePSFOutput, setForcePSFOutput, true);
    FIELD(forcePSFEncode, setForcePSFEncode, true);
    FIELD(forceVFRRecord, setForceVFRRecord, true);
    FIELD(mode, setMode, Setup::Playback);
    FIELD(imageCount, setImageCount, 1);
    FIELD(maxBuffers, setMaxBuffers, 12);
    FIELD(blackingEnabled, setBlackingEnabled, true);
#undef FIELD
}

void TestOrbSetup::everyFieldIsCarriedAndCompared()
{
    QFETCH(Change, change);
    QFETCH(Change, check);
    OrbVideoDeviceSetup original;
    const OrbVideoDeviceSetup copy = original;
    change(original);
    check(original);
    QVERIFY2(copy == OrbVideoDeviceSetup(), "a copy never sees a change");
    QVERIFY2(original != copy, "the field takes part in the comparison");
    OrbVideoDeviceSetup again;
    change(again);
    QVERIFY(again == original);
}

void TestOrbSetup::onlyModeTwoIsCapture()
{
    OrbVideoDeviceSetup setup;
    QVERIFY(!setup.isInCapture());
    setup.setMode(1);
    QVERIFY(!setup.isInCapture());
    setup.setMode(2);
    QVERIFY(setup.isInCapture());
}

QTEST_APPLESS_MAIN(TestOrbSetup)
#include "tst_orbsetup.moc"
