#include "liborb/orbframe.h"

#include <QTest>

#include <limits>

class TestOrbFrame : public QObject
{
    Q_OBJECT

private slots:
    void theDefaultImageIsInvalid();
    void anImageNeedsADescriptionAndAFirstPlane();
    void aSizeMakesOnePlane();
    void aSizeNobodyHasIsAnInvalidPlane();
    void imagesAreNotEncrypted();
    void keysHoldAtMost32Bytes();
    void aNullPointerClearsAKey();
    void cryptoDescriptionsStartWithTwoEmptyKeysOf16();
    void soundNeedsAValidFirstBuffer();
    void metadataIsValidWithItsIdentifier();
    void theHashReplacesByIdentifier();
    void theDefaultFrameIsNull();
    void validVideoNeedsEveryImage();
    void theKeyFrameFlagIsMetadata25();
    void aCopyOfAFrameNeverSeesAChange();
    void buffersStaySharedWhenAFrameIsDetached();
    void subtitlesAreCarried();
};

static OrbImageDesc small()
{
    OrbImageDesc desc;
    desc.setSize(16, 16);
    return desc;
}

void TestOrbFrame::theDefaultImageIsInvalid()
{
    const OrbImage image;
    QVERIFY(!image.isValid());
    QVERIFY(!image.desc().isValid());
    QVERIFY(image.planes().isEmpty());
    QVERIFY(!image.buffer().isValid());
}

void TestOrbFrame::anImageNeedsADescriptionAndAFirstPlane()
{
    QVERIFY(OrbImage(small(), OrbBuffer(8, 0)).isValid());
    QVERIFY(!OrbImage(small(), OrbBuffer()).isValid());
    QVERIFY(!OrbImage(OrbImageDesc(), OrbBuffer(8, 0)).isValid());
    OrbImage image(small(), OrbBuffer(8, 0));
    image.planes().append(OrbBuffer());
    QVERIFY2(image.isValid(), "only the first plane counts");
    image.planes().prepend(OrbBuffer());
    QVERIFY(!image.isValid());
}

void TestOrbFrame::aSizeMakesOnePlane()
{
    OrbImage image(quint64(100));
    QCOMPARE(std::as_const(image).planes().size(), 1);
    QCOMPARE(image.buffer().size(), 100u);
    QVERIFY2(!image.isValid(), "it has no description yet");
    image.setDesc(small());
    QVERIFY(image.isValid());
}

void TestOrbFrame::aSizeNobodyHasIsAnInvalidPlane()
{
    OrbImage image(std::numeric_limits<quint64>::max());
    image.setDesc(small());
    QVERIFY(!image.isValid());
    QVERIFY(!OrbImage((quint64(1) << 32) + 1).buffer().isValid());
}

void TestOrbFrame::imagesAreNotEncrypted()
{
    QVERIFY(!OrbImage().crypto().isEncrypted());
    QCOMPARE(OrbImage().crypto(), OrbCryptoDesc());
}

void TestOrbFrame::keysHoldAtMost32Bytes()
{
    unsigned char bytes[40];
    for (int i = 0; i < 40; ++i)
        bytes[i] = static_cast<unsigned char>(i + 1);
    OrbCryptoKey key;
    QVERIFY(!key.isSet());
    QCOMPARE(key.length(), 0);
    key.set(bytes, 40);
    QVERIFY(key.isSet());
    QCOMPARE(key.length(), 32);
    QCOMPARE(key.bytes()[31], static_cast<unsigned char>(32));
    key.set(bytes, -1);
    QCOMPARE(key.length(), 0);
    QCOMPARE(OrbCryptoKey(100).length(), 32);
    QCOMPARE(OrbCryptoKey(-100).length(), 0);
}

void TestOrbFrame::aNullPointerClearsAKey()
{
    const unsigned char bytes[] = {1, 2, 3};
    OrbCryptoKey key;
    key.set(bytes, 3);
    const OrbCryptoKey copy = key;
    key.set(nullptr, 3);
    QVERIFY(!key.isSet());
    QCOMPARE(key.length(), 0);
    QCOMPARE(key, OrbCryptoKey());
    QVERIFY2(copy.isSet() && copy.bytes()[2] == 3, "a copy never sees a change");
}

void TestOrbFrame::cryptoDescriptionsStartWithTwoEmptyKeysOf16()
{
    const OrbCryptoDesc desc;
    for (const int index : {0, 1}) {
        QVERIFY(!desc.key(index).isSet());
        QCOMPARE(desc.key(index).length(), 16);
    }
    QCOMPARE(desc.key(7).length(), 16);
}

void TestOrbFrame::soundNeedsAValidFirstBuffer()
{
    QVERIFY(!OrbAudio().isValid());
    OrbAudioDesc desc;
    desc.setChans(2);
    OrbAudio sound(desc, OrbBuffer(12, 0));
    QVERIFY(sound.isValid());
    QCOMPARE(sound.desc().chans(), 2);
    const OrbAudio copy = sound;
    sound.buffers().clear();
    sound.setDesc(OrbAudioDesc());
    QVERIFY(!sound.isValid());
    QVERIFY2(copy.isValid() && copy.desc().chans() == 2, "a copy never sees a change");
}

void TestOrbFrame::metadataIsValidWithItsIdentifier()
{
    QVERIFY(!OrbMetadata().isValid());
    QVERIFY(!OrbMetadata(OrbId(), 5).isValid());
    const OrbMetadata item(OrbIdFrameNumber, 5);
    QVERIFY(item.isValid());
    QCOMPARE(item.id(), OrbId(OrbIdFrameNumber));
    QCOMPARE(item.value().toInt(), 5);
    QVERIFY(OrbMetadata(OrbIdFrameNumber, QVariant()).isValid());
    QCOMPARE(item, OrbMetadata(OrbIdFrameNumber, 5));
}

void TestOrbFrame::theHashReplacesByIdentifier()
{
    OrbMetadataHash hash;
    QVERIFY(!hash.valueFor(OrbIdFrameNumber).isValid());
    hash.insert(OrbMetadata(OrbIdFrameNumber, 5));
    hash.insert(OrbMetadata(OrbIdFrameNumber, 6));
    hash.insert(OrbIdTrickPlay, true);
    QCOMPARE(hash.size(), 2);
    QCOMPARE(hash.valueFor(OrbIdFrameNumber).toInt(), 6);
    QCOMPARE(hash.valueFor(OrbIdTrickPlay).toBool(), true);
}

void TestOrbFrame::theDefaultFrameIsNull()
{
    OrbFrame frame;
    QVERIFY(frame.isNull());
    QVERIFY(!frame.hasValidVideo());
    frame.meta().insert(OrbIdFrameNumber, 1);
    QVERIFY(!frame.isNull());
}

void TestOrbFrame::validVideoNeedsEveryImage()
{
    OrbFrame frame;
    frame.vids().append(OrbImage(small(), OrbBuffer(8, 0)));
    QVERIFY(frame.hasValidVideo());
    frame.vids().append(OrbImage(small(), OrbBuffer()));
    QVERIFY(!frame.hasValidVideo());
}

void TestOrbFrame::theKeyFrameFlagIsMetadata25()
{
    OrbFrame frame;
    frame.setKeyFrameFlag(true);
    QCOMPARE(std::as_const(frame).meta().valueFor(OrbId(25)), QVariant(true));
    frame.setKeyFrameFlag(false);
    QCOMPARE(std::as_const(frame).meta().valueFor(OrbId(25)), QVariant(false));
    QCOMPARE(std::as_const(frame).meta().size(), 1);
}

void TestOrbFrame::aCopyOfAFrameNeverSeesAChange()
{
    OrbFrame original;
    original.vids().append(OrbImage(small(), OrbBuffer(8, 0)));
    original.auds().append(OrbAudio());
    original.meta().insert(OrbIdFrameNumber, 1);
    const OrbFrame copy = original;
    original.vids().clear();
    original.auds().clear();
    original.meta().insert(OrbIdFrameNumber, 2);
    QVERIFY(copy.hasValidVideo());
    QCOMPARE(copy.auds().size(), 1);
    QCOMPARE(copy.meta().valueFor(OrbIdFrameNumber).toInt(), 1);
}

void TestOrbFrame::buffersStaySharedWhenAFrameIsDetached()
{
    OrbFrame original;
    original.vids().append(OrbImage(small(), OrbBuffer(8, 0)));
    OrbFrame copy = original;
    copy.setKeyFrameFlag(true);
    copy.vids().first().buffer().data()[0] = 77;
    QCOMPARE(std::as_const(original).vids().first().buffer().data()[0], uchar(77));
}

void TestOrbFrame::subtitlesAreCarried()
{
    OrbFrame frame;
    const OrbFrame copy = frame;
    frame.setSubtitle(OrbSubtitle{"hello"});
    QCOMPARE(frame.subtitle().data, QByteArray("hello"));
    QVERIFY(copy.subtitle().data.isEmpty());
}

QTEST_APPLESS_MAIN(TestOrbFrame)
#include "tst_orbframe.moc"
