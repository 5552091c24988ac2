#include "tst_clip_tools.h"

#include <QTest>

#include <cerrno>

using namespace cliptest;
using clip::ClipInfo;
using clip::ClipReader;
using clip::ClipWriter;
using clip::Codec;
using clip::Scan;

/// A clip that is written, closed, and read back: by the reader and by ffprobe.
class TestClipWrite : public QObject
{
    Q_OBJECT

private slots:
    void samplesBeforeFrameFollowTheExactRate();
    void aClosedClipIsWhatWasWritten_data();
    void aClosedClipIsWhatWasWritten();
    void ffprobeSeesTheFormat_data();
    void ffprobeSeesTheFormat();
    void fieldsAndSegmentsComeBack_data();
    void fieldsAndSegmentsComeBack();
    void standardDefinitionPixelsAreNotSquare_data();
    void standardDefinitionPixelsAreNotSquare();
    void theReelNameComesBackWithoutATimecode();
    void dnxHdPicturesAreCalledSoOnClose();
    void soundOfAnyLengthPerFrameStaysInOrder();
    void largePicturesEndAFragmentEarly();
    void anExistingFileIsNotTouched();
    void aLinkIsNotFollowed();
    void formatsNoClipCanHaveAreRefused();
    void framesNoClipCanHaveAreRefused();
    void aWriterServesOneClipAfterTheOther();
    void aClipWithoutFramesIsNoClip();

private:
    QString path(const QString &name) const { return _dir.filePath(name); }
    std::string stdPath(const QString &name) const { return path(name).toStdString(); }
    void write(const QString &name, const ClipInfo &info, int frames) const;

    QTemporaryDir _dir;
};

void TestClipWrite::write(const QString &name, const ClipInfo &info, int frames) const
{
    QFile::remove(path(name));
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath(name), info).code, 0);
    QCOMPARE(writeFrames(writer, info, frames).code, 0);
    QCOMPARE(writer.frames(), std::int64_t(frames));
    QCOMPARE(writer.close().code, 0);
    QCOMPARE(writer.committedFrames(), std::int64_t(frames));
    QVERIFY(!writer.isOpen());
}

void TestClipWrite::samplesBeforeFrameFollowTheExactRate()
{
    const auto ntsc = sampleInfo(30000, 1001).video;
    const std::int64_t expected[] = { 0, 1601, 3203, 4804, 6406, 8008, 9609 };
    for (int i = 0; i < 7; ++i) {
        QCOMPARE(clip::samplesBeforeFrame(i, ntsc, 48000), expected[i]);
    }
    // A hundred hours of film rate, to the sample.
    QCOMPARE(clip::samplesBeforeFrame(8'640'000, sampleInfo(24000, 1001).video, 48000),
             std::int64_t(17'297'280'000));
    QCOMPARE(clip::samplesBeforeFrame(-1, ntsc, 48000), std::int64_t(0));
    QCOMPARE(clip::samplesBeforeFrame(1, { }, 48000), std::int64_t(0));
}

void TestClipWrite::aClosedClipIsWhatWasWritten_data()
{
    QTest::addColumn<int>("rateNum");
    QTest::addColumn<int>("rateDen");
    QTest::addColumn<int>("channels");
    QTest::addColumn<int>("frames");

    QTest::newRow("25, stereo") << 25 << 1 << 2 << 61;
    QTest::newRow("25, one frame") << 25 << 1 << 2 << 1;
    QTest::newRow("29.97, 8 channels") << 30000 << 1001 << 8 << 75;
    QTest::newRow("50, stereo") << 50 << 1 << 2 << 100;
    QTest::newRow("23.976, silent") << 24000 << 1001 << 0 << 49;
    QTest::newRow("59.94, mono") << 60000 << 1001 << 1 << 90;
}

void TestClipWrite::aClosedClipIsWhatWasWritten()
{
    QFETCH(int, rateNum);
    QFETCH(int, rateDen);
    QFETCH(int, channels);
    QFETCH(int, frames);
    const ClipInfo info = sampleInfo(rateNum, rateDen, channels);
    write("same.mov", info, frames);

    ClipReader reader;
    QCOMPARE(reader.open(stdPath("same.mov")).code, 0);
    QCOMPARE(reader.info().frames, std::int64_t(frames));
    QVERIFY(reader.info().isComplete);
    QCOMPARE(reader.info().video.rateNum, rateNum);
    QCOMPARE(reader.info().video.rateDen, rateDen);
    QCOMPARE(reader.info().video.width, 1920);
    QCOMPARE(reader.info().video.height, 1080);
    QCOMPARE(reader.info().audio.has_value(), channels > 0);
    QCOMPARE(reader.info().audio.value_or(clip::AudioFormat { }).channels, channels);
    QCOMPARE(reader.info().timecode->frameCount, 90'000u);
    QCOMPARE(reader.info().reel, std::string("REEL7"));
    QCOMPARE(firstWrongFrame(reader), -1);
    QCOMPARE(reader.pictureSize(frames), std::size_t(0));
    QCOMPARE(reader.pictureSize(-1), std::size_t(0));
    std::vector<std::byte> none;
    QCOMPARE(reader.readPicture(frames, none).code, EINVAL);
    QCOMPARE(reader.readSound(frames, none).code, EINVAL);
}

void TestClipWrite::ffprobeSeesTheFormat_data()
{
    QTest::addColumn<int>("codec");
    QTest::addColumn<QString>("codecName");
    QTest::addColumn<QString>("codecTag");
    QTest::addColumn<int>("rateNum");
    QTest::addColumn<int>("rateDen");
    QTest::addColumn<int>("channels");
    QTest::addColumn<int>("start");
    QTest::addColumn<bool>("dropFrame");
    QTest::addColumn<QString>("timecode");

    // clang-format off
    QTest::newRow("25")     << int(Codec::ProRes422)      << "prores" << "apcn" << 25    << 1    << 2 << 90'000 << false << "01:00:00:00";
    QTest::newRow("29.97d") << int(Codec::ProRes422Hq)    << "prores" << "apch" << 30000 << 1001 << 8 << 17'982 << true  << "00:10:00;00";
    QTest::newRow("29.97n") << int(Codec::ProRes422Lt)    << "prores" << "apcs" << 30000 << 1001 << 8 << 18'000 << false << "00:10:00:00";
    QTest::newRow("50")     << int(Codec::ProRes422Proxy) << "prores" << "apco" << 50    << 1    << 2 << 50     << false << "00:00:01:00";
    QTest::newRow("59.94d") << int(Codec::ProRes4444)     << "prores" << "ap4h" << 60000 << 1001 << 2 << 35'964 << true  << "00:10:00;00";
    QTest::newRow("23.976") << int(Codec::V210)           << "v210"   << "v210" << 24000 << 1001 << 0 << 86'400 << false << "01:00:00:00";
    QTest::newRow("dnx")    << int(Codec::DnxHqx)         << "dnxhd"  << "AVdh" << 24    << 1    << 2 << 25     << false << "00:00:01:01";
    // clang-format on
}

void TestClipWrite::ffprobeSeesTheFormat()
{
    QFETCH(int, codec);
    QFETCH(int, rateNum);
    QFETCH(int, rateDen);
    QFETCH(int, channels);
    QFETCH(int, start);
    QFETCH(bool, dropFrame);
    ClipInfo info = sampleInfo(rateNum, rateDen, channels);
    info.video.codec = Codec(codec);
    info.timecode->frameCount = quint32(start);
    info.timecode->dropFrame = dropFrame;
    write("probed.mov", info, 40);

    const auto streams = probe(path("probed.mov"));
    const auto video = stream(streams, "video");
    QTEST(video["codec_name"].toString(), "codecName");
    QTEST(video["codec_tag_string"].toString(), "codecTag");
    QCOMPARE(number(video, "width"), 1920);
    QCOMPARE(number(video, "height"), 1080);
    const QString rate = QString("%1/%2").arg(rateNum).arg(rateDen);
    QCOMPARE(video["avg_frame_rate"].toString(), rate);
    QCOMPARE(video["r_frame_rate"].toString(), rate);
    QCOMPARE(number(video, "nb_frames"), 40);
    QCOMPARE(number(video, "nb_read_packets"), 40);
    QCOMPARE(video["color_primaries"].toString(), "bt709");
    QCOMPARE(video["sample_aspect_ratio"].toString(), "1:1");
    QTEST(tag(video, "timecode"), "timecode");
    QCOMPARE(tag(stream(streams, "data"), "reel_name"), "REEL7");
    QTEST(tag(stream(streams, "data"), "timecode"), "timecode");

    const auto sound = stream(streams, "audio");
    QCOMPARE(sound.isEmpty(), channels == 0);
    if (channels > 0) {
        QCOMPARE(sound["codec_name"].toString(), "pcm_s24le");
        QCOMPARE(number(sound, "channels"), channels);
        QCOMPARE(number(sound, "sample_rate"), 48000);
        QCOMPARE(number(sound, "bits_per_sample"), 24);
        QCOMPARE(number(sound, "duration_ts"),
                 int(clip::samplesBeforeFrame(40, info.video, 48000)));
    }
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("probed.mov")).code, 0);
    QCOMPARE(int(reader.info().video.codec), codec);
    QCOMPARE(reader.info().timecode->dropFrame, dropFrame);
    QCOMPARE(reader.info().timecode->fps, info.timecode->fps);
}

void TestClipWrite::fieldsAndSegmentsComeBack_data()
{
    QTest::addColumn<int>("scan");
    QTest::addColumn<bool>("top");
    QTest::addColumn<QString>("order");
    QTest::newRow("progressive") << int(Scan::Progressive) << true << "progressive";
    QTest::newRow("top first") << int(Scan::Interlaced) << true << "tb";
    QTest::newRow("bottom first") << int(Scan::Interlaced) << false << "bt";
    QTest::newRow("segmented") << int(Scan::Segmented) << true << "progressive";
}

void TestClipWrite::fieldsAndSegmentsComeBack()
{
    QFETCH(int, scan);
    QFETCH(bool, top);
    ClipInfo info = sampleInfo();
    info.video.scan = Scan(scan);
    info.video.topFieldFirst = top;
    write("fields.mov", info, 3);
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("fields.mov")).code, 0);
    QCOMPARE(int(reader.info().video.scan), scan);
    QCOMPARE(reader.info().video.topFieldFirst, top);
    QTEST(stream(probe(path("fields.mov")), "video")["field_order"].toString(), "order");
}

void TestClipWrite::standardDefinitionPixelsAreNotSquare_data()
{
    QTest::addColumn<int>("height");
    QTest::addColumn<QString>("aspect");
    QTest::addColumn<QString>("primaries");
    QTest::newRow("525 lines") << 486 << "10:11" << "smpte170m";
    QTest::newRow("625 lines") << 576 << "12:11" << "bt470bg";
}

void TestClipWrite::standardDefinitionPixelsAreNotSquare()
{
    QFETCH(int, height);
    ClipInfo info = sampleInfo();
    info.video.width = 720;
    info.video.height = height;
    write("small.mov", info, 2);
    const auto video = stream(probe(path("small.mov")), "video");
    QTEST(video["sample_aspect_ratio"].toString(), "aspect");
    QTEST(video["color_primaries"].toString(), "primaries");
    QCOMPARE(video["color_space"].toString(), "smpte170m");
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("small.mov")).code, 0);
    QCOMPARE(reader.info().video.width, 720);
    QCOMPARE(reader.info().video.height, height);
}

void TestClipWrite::theReelNameComesBackWithoutATimecode()
{
    ClipInfo info = sampleInfo();
    info.timecode.reset();
    info.reel = "a longer reel name, with ümlaut";
    write("reel.mov", info, 3);
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("reel.mov")).code, 0);
    QCOMPARE(reader.info().reel, info.reel);
    QVERIFY(!reader.info().timecode);
    QVERIFY(stream(probe(path("reel.mov")), "data").isEmpty());
}

void TestClipWrite::dnxHdPicturesAreCalledSoOnClose()
{
    ClipInfo info = sampleInfo(25, 1, 0);
    info.video.codec = Codec::DnxHqx;
    QByteArray dnx(2000, 0);
    dnx.replace(0, 4, QByteArray::fromHex("00000280"));
    dnx.replace(0x28, 4, QByteArray::fromHex("000004d3"));
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("dnxhd.mov"), info).code, 0);
    QCOMPARE(writer.write(bytesOf(dnx), { }).code, 0);
    QCOMPARE(writer.close().code, 0);
    QCOMPARE(stream(probe(path("dnxhd.mov")), "video")["codec_tag_string"].toString(), "AVdn");
}

void TestClipWrite::soundOfAnyLengthPerFrameStaysInOrder()
{
    const ClipInfo info = sampleInfo();
    QByteArray all;
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("uneven.mov"), info).code, 0);
    for (int i = 0; i < 50; ++i) {
        // Nothing, then twice as much, and once more than a frame's worth.
        const QByteArray samples =
            i % 2 == 0 ? QByteArray() : noise((2 * 1920 + i) * 6, quint32(i));
        all += samples;
        QCOMPARE(writer.write(bytesOf(picture(i)), bytesOf(samples)).code, 0);
    }
    QCOMPARE(writer.close().code, 0);
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("uneven.mov")).code, 0);
    for (int i = 0; i < 50; ++i) {
        QCOMPARE(readSound(reader, i), all.mid(i * 1920 * 6, 1920 * 6));
    }
}

void TestClipWrite::largePicturesEndAFragmentEarly()
{
    const ClipInfo info = sampleInfo(25, 1, 0);
    const QByteArray large(30 << 20, 'x');
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("large.mov"), info).code, 0);
    for (int i = 0; i < 4; ++i) {
        QCOMPARE(writer.write(bytesOf(large), { }).code, 0);
    }
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("large.mov")).code, 0);
    QCOMPARE(reader.info().frames, std::int64_t(4));
    QCOMPARE(writer.close().code, 0);
    QCOMPARE(reader.open(stdPath("large.mov")).code, 0);
    QCOMPARE(readPicture(reader, 3), large);
}

void TestClipWrite::anExistingFileIsNotTouched()
{
    QVERIFY(setContent(path("taken.mov"), "mine"));
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("taken.mov"), sampleInfo()).code, EEXIST);
    QVERIFY(!writer.isOpen());
    QCOMPARE(contentOf(path("taken.mov")), "mine");
    QCOMPARE(writer.open(stdPath("no/such/folder.mov"), sampleInfo()).code, ENOENT);
}

void TestClipWrite::aLinkIsNotFollowed()
{
    QVERIFY(QFile::link(path("target.mov"), path("link.mov")));
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("link.mov"), sampleInfo()).code, EEXIST);
    QVERIFY(!QFile::exists(path("target.mov")));
}

void TestClipWrite::formatsNoClipCanHaveAreRefused()
{
    const auto outcome = [&](auto change) {
        ClipInfo info = sampleInfo();
        change(info);
        ClipWriter writer;
        return writer.open(stdPath("refused.mov"), info).code;
    };
    QCOMPARE(outcome([](ClipInfo &info) { info.video.codec = Codec::Unknown; }), EINVAL);
    QCOMPARE(outcome([](ClipInfo &info) { info.video.width = 0; }), EINVAL);
    QCOMPARE(outcome([](ClipInfo &info) { info.video.height = 100'000; }), EINVAL);
    QCOMPARE(outcome([](ClipInfo &info) { info.video.rateNum = 0; }), EINVAL);
    QCOMPARE(outcome([](ClipInfo &info) { info.video.rateDen = 0; }), EINVAL);
    QCOMPARE(outcome([](ClipInfo &info) { info.audio->channels = 0; }), EINVAL);
    QCOMPARE(outcome([](ClipInfo &info) { info.audio->sampleRate = 44100; }), EINVAL);
    QCOMPARE(outcome([](ClipInfo &info) { info.timecode->fps = 0; }), EINVAL);
    QCOMPARE(outcome([](ClipInfo &info) { info.reel = std::string(256, 'r'); }), EINVAL);
    QVERIFY(!QFile::exists(path("refused.mov")));
}

void TestClipWrite::framesNoClipCanHaveAreRefused()
{
    ClipWriter writer;
    const QByteArray frame = picture(0);
    QCOMPARE(writer.write(bytesOf(frame), { }).code, EBADF);
    QCOMPARE(writer.flush().code, EBADF);
    QCOMPARE(writer.open(stdPath("frames.mov"), sampleInfo()).code, 0);
    QCOMPARE(writer.open(stdPath("frames2.mov"), sampleInfo()).code, EBUSY);
    QCOMPARE(writer.write({ }, { }).code, EINVAL);
    QCOMPARE(writer.write(bytesOf(frame), bytesOf("12345")).code, EINVAL);
    QCOMPARE(writer.frames(), std::int64_t(0));
    QCOMPARE(writer.write(bytesOf(frame), { }).code, 0);
    QCOMPARE(writer.close().code, 0);
    QCOMPARE(writer.close().code, 0);
}

void TestClipWrite::aWriterServesOneClipAfterTheOther()
{
    ClipWriter writer;
    for (const int frames : { 30, 5 }) {
        const QString name = QString("one%1.mov").arg(frames);
        QCOMPARE(writer.open(stdPath(name), sampleInfo()).code, 0);
        QCOMPARE(writeFrames(writer, sampleInfo(), frames).code, 0);
        QCOMPARE(writer.close().code, 0);
        ClipReader reader;
        QCOMPARE(reader.open(stdPath(name)).code, 0);
        QCOMPARE(reader.info().frames, std::int64_t(frames));
        QCOMPARE(firstWrongFrame(reader), -1);
    }
}

void TestClipWrite::aClipWithoutFramesIsNoClip()
{
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("empty.mov"), sampleInfo()).code, 0);
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("empty.mov")).code, EINVAL);
    QCOMPARE(writer.close().code, 0);
    QCOMPARE(reader.open(stdPath("empty.mov")).code, EINVAL);
    QVERIFY(!reader.isOpen());
    QCOMPARE(reader.open(stdPath("missing.mov")).code, ENOENT);
    QCOMPARE(reader.open(_dir.path().toStdString()).code, EINVAL);
}

QTEST_GUILESS_MAIN(TestClipWrite)
#include "tst_clip_write.moc"
