#include "liborb/orbstreamcache.h"
#include "smallmedium.h"
#include "tst_streamfiles.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cerrno>

#include <unistd.h>

class TestStreamClips : public QObject
{
    Q_OBJECT

private slots:
    void init();

    // Writing and reading back
    void framesPromisedOutOfOrderAreWrittenInOrder();
    void aClipTellsWhatItHolds();
    void framesCarryTheirTimecode();
    void aClipWithoutTimecodeHasNone();
    void aClipWithoutSoundHasNone();
    void everyFormatComesBack_data();
    void everyFormatComesBack();
    void framesAreReadInAnyOrder();
    void aFrameOutsideTheClipIsAnError();
    void theCachePlaysAClipBothWays();
    void picturesAreAlignedForDecoders();
    void aFrameWithoutItsSoundHasSilence();

    // A clip that grows
    void aGrowingClipReadsUpToItsLastFragment();
    void flushWritesTheFramesOfASlowRecording();

    // What cannot be opened
    void aMissingClipIsAnOpenError();
    void whatIsNoClipIsAnOpenError_data();
    void whatIsNoClipIsAnOpenError();
    void aClipTornAtAnyPlaceOpensOrFailsButNeverWorse();
    void anExistingClipIsNotOverwritten();
    void aClipInNoFolderIsAnOpenError();
    void aFormatThatNoClipHasIsAnOpenError_data();
    void aFormatThatNoClipHasIsAnOpenError();
    void aDescriptorThatIsNoPathHasNoDriver();

    // What goes wrong later
    void aClipWithoutFramesLeavesNoFile();
    void aBrokenPromiseEndsTheClipWithTheFramesBefore();
    void aFullMediumIsToldAndTheClipPlaysAsFarAsItWent();
    void aFullMediumShowsWhenTheClipIsOpened();
    void aStreamDestroyedWhileItWritesCompletesItsClip();

private:
    QString path(const char *name) const { return _folder->filePath(QLatin1String(name)); }

    std::unique_ptr<QTemporaryDir> _folder;
};

void TestStreamClips::init()
{
    _folder = std::make_unique<QTemporaryDir>();
    QVERIFY(_folder->isValid());
}

void TestStreamClips::framesPromisedOutOfOrderAreWrittenInOrder()
{
    files::Coder coder;
    const OrbStreamInfo info = files::streamInfo();
    constexpr int frames = 100;
    OrbStream stream;
    OrbStreamCache cache;
    cache.setStream(&stream);
    QSignalSpy failed(&cache, &OrbStreamCache::error);
    QList<int> written;
    connect(&stream, &OrbStream::frameWritten, this, [&](int number) { written << number; });
    stream.setInfo(info);
    stream.setType(OrbId(OrbIdStreamTypeRecord));
    QCOMPARE(files::open(stream, path("a.mov"), 2), 0);
    for (int number = 0; number < frames; ++number)
        cache.write(files::frame(info, number, coder.promise(files::pictureBytes(number))));
    QCOMPARE(cache.position(), frames);
    QVERIFY(files::close(stream));
    QCOMPARE(failed.size(), 0);
    QCOMPARE(written.size(), frames);
    for (int number = 0; number < frames; ++number)
        QCOMPARE(written[number], number);

    QCOMPARE(files::open(stream, path("a.mov"), 1), 0);
    QCOMPARE(stream.info().length(), frames);
    QList<int> numbers;
    for (int number = 0; number < frames; ++number)
        numbers << number;
    const auto answers = files::readFrames(stream, numbers);
    for (int number = 0; number < frames; ++number) {
        const auto &[frame, error] = answers[size_t(number)];
        QCOMPARE(error, 0);
        QCOMPARE(files::bytesOf(frame.vids().first().buffer()), files::pictureBytes(number));
        QCOMPARE(files::bytesOf(frame.auds().first().buffers().first()), files::soundBytes(number));
    }
}

void TestStreamClips::aClipTellsWhatItHolds()
{
    QVERIFY(files::writeClip(path("a.mov"), 10));
    OrbStream stream;
    QCOMPARE(files::open(stream, path("a.mov"), 1), 0);
    const OrbStreamInfo info = stream.info();
    QCOMPARE(info.name(), QStringLiteral("a.mov"));
    QCOMPARE(info.reelName(), QStringLiteral("A001"));
    QCOMPARE(info.length(), 10);
    QVERIFY(!info.isGrowing());
    QCOMPARE(info.frameRate(), OrbVideoRate(30000, 1001));
    QCOMPARE(info.vids(), files::streamInfo().vids());
    QCOMPARE(info.auds(), files::streamInfo().auds());
    const auto answers = files::readFrames(stream, {0});
    QCOMPARE(answers[0].frame.vids().first().desc(), info.vids().first());
    QCOMPARE(answers[0].frame.auds().first().desc(), info.auds().first());
}

void TestStreamClips::framesCarryTheirTimecode()
{
    QVERIFY(files::writeClip(path("a.mov"), 70));
    OrbStream stream;
    QCOMPARE(files::open(stream, path("a.mov"), 1), 0);
    const auto answers = files::readFrames(stream, {0, 31, 69});
    const QStringList expected = {"10:00:00;00", "10:00:01;01", "10:00:02;09"};
    for (int i = 0; i < 3; ++i) {
        const OrbMetadataHash meta = answers[size_t(i)].frame.meta();
        const auto timecode = meta.valueFor(OrbId(OrbIdTimecode)).value<OrbTimecode>();
        QCOMPARE(timecode.toString(), expected[i]);
        QCOMPARE(timecode.fps(), 30);
        QCOMPARE(meta.valueFor(OrbId(OrbIdStartOfStream)).toBool(), i == 0);
        QCOMPARE(meta.valueFor(OrbId(OrbIdEndOfStream)).toBool(), i == 2);
    }
    QCOMPARE(answers[1].frame.meta().valueFor(OrbId(OrbIdFrameNumber)).toInt(), 31);
}

void TestStreamClips::aClipWithoutTimecodeHasNone()
{
    OrbStream stream;
    const OrbStreamInfo info = files::streamInfo();
    stream.setInfo(info);
    QCOMPARE(files::open(stream, path("a.mov"), 2), 0);
    OrbFrame frame = files::frame(info, 0);
    frame.meta().remove(OrbId(OrbIdTimecode));
    stream.write(frame);
    QVERIFY(files::close(stream));
    QCOMPARE(files::open(stream, path("a.mov"), 1), 0);
    const auto answers = files::readFrames(stream, {0});
    QCOMPARE(answers[0].error, 0);
    QVERIFY(!answers[0].frame.meta().valueFor(OrbId(OrbIdTimecode)).isValid());
}

void TestStreamClips::aClipWithoutSoundHasNone()
{
    QVERIFY(files::writeClip(path("a.mov"), 5, 0, false));
    OrbStream stream;
    QCOMPARE(files::open(stream, path("a.mov"), 1), 0);
    QVERIFY(stream.info().auds().isEmpty());
    QVERIFY(files::readFrames(stream, {4})[0].frame.auds().isEmpty());
}

void TestStreamClips::everyFormatComesBack_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("scan");
    QTest::addColumn<int>("num");
    QTest::addColumn<int>("den");
    QTest::newRow("422") << 202 << 0 << 24000 << 1001;
    QTest::newRow("422 HQ") << 203 << 1 << 25 << 1;
    QTest::newRow("422 LT") << 204 << 2 << 24 << 1;
    QTest::newRow("422 Proxy") << 205 << 0 << 60000 << 1001;
    QTest::newRow("4444") << 206 << 0 << 50 << 1;
    QTest::newRow("DNxHR HQX") << 230 << 0 << 24 << 1;
    QTest::newRow("v210") << 231 << 0 << 60 << 1;
}

void TestStreamClips::everyFormatComesBack()
{
    QFETCH(int, type);
    QFETCH(int, scan);
    QFETCH(int, num);
    QFETCH(int, den);
    OrbStreamInfo info = files::streamInfo(false);
    info.vids().first().setDataType(OrbId(type));
    info.vids().first().setScanMode(scan);
    info.vids().first().setFrameRate(num, den);
    OrbStream stream;
    stream.setInfo(info);
    QCOMPARE(files::open(stream, path("a.mov"), 2), 0);
    stream.write(files::frame(info, 0));
    QVERIFY(files::close(stream));
    QCOMPARE(files::open(stream, path("a.mov"), 1), 0);
    const OrbImageDesc desc = stream.info().vids().first();
    QCOMPARE(desc.dataType(), OrbId(type));
    QCOMPARE(int(desc.scanMode()), scan);
    QCOMPARE(desc.frameRate(), OrbVideoRate(num, den));
    QCOMPARE(desc.size(), QSize(1920, 1080));
    QCOMPARE(desc.aspectRatio(), OrbRational(16, 9));
}

void TestStreamClips::framesAreReadInAnyOrder()
{
    QVERIFY(files::writeClip(path("a.mov"), 60));
    OrbStream stream;
    QCOMPARE(files::open(stream, path("a.mov"), 1), 0);
    QList<int> numbers;
    for (int i = 0; i < 120; ++i)
        numbers << i * 37 % 60;
    const auto answers = files::readFrames(stream, numbers);
    for (int i = 0; i < numbers.size(); ++i) {
        const OrbFrame &frame = answers[size_t(i)].frame;
        QCOMPARE(files::bytesOf(frame.vids().first().buffer()), files::pictureBytes(numbers[i]));
        QCOMPARE(files::bytesOf(frame.auds().first().buffers().first()),
                 files::soundBytes(numbers[i]));
    }
}

void TestStreamClips::aFrameOutsideTheClipIsAnError()
{
    QVERIFY(files::writeClip(path("a.mov"), 5));
    OrbStream stream;
    QCOMPARE(files::open(stream, path("a.mov"), 1), 0);
    for (const auto &answer : files::readFrames(stream, {-1, 5, INT_MAX, INT_MIN})) {
        QCOMPARE(answer.error, EINVAL);
        QVERIFY(answer.frame.isNull());
    }
    QCOMPARE(files::readFrames(stream, {4})[0].error, 0);
}

void TestStreamClips::theCachePlaysAClipBothWays()
{
    QVERIFY(files::writeClip(path("a.mov"), 90));
    OrbStream stream;
    OrbStreamCache cache;
    cache.setStream(&stream);
    QCOMPARE(files::open(stream, path("a.mov"), 1), 0);
    for (int number = 0; number < 90; ++number) {
        QTRY_VERIFY_WITH_TIMEOUT(cache.framesInCache() > 0, files::patienceMs);
        const OrbFrame frame = cache.read();
        QCOMPARE(files::bytesOf(frame.vids().first().buffer()), files::pictureBytes(number));
    }
    QVERIFY(cache.atEndOfStream());
    cache.setSpeed(-2.0);
    cache.seekToLastFrame();
    for (int number = 89; number > 0; number -= 2) {
        QTRY_VERIFY_WITH_TIMEOUT(cache.framesInCache() > 0, files::patienceMs);
        QCOMPARE(files::bytesOf(cache.read().vids().first().buffer()),
                 files::pictureBytes(number));
    }
    QVERIFY(cache.atStartOfStream());
}

void TestStreamClips::picturesAreAlignedForDecoders()
{
    QVERIFY(files::writeClip(path("a.mov"), 3));
    OrbStream stream;
    QCOMPARE(files::open(stream, path("a.mov"), 1), 0);
    for (const auto &answer : files::readFrames(stream, {0, 1, 2})) {
        const OrbBuffer picture = answer.frame.vids().first().buffer();
        QCOMPARE(reinterpret_cast<quintptr>(picture.data()) % 64, quintptr(0));
        // The bytes behind it belong to it and are zero.
        QCOMPARE(QByteArray(reinterpret_cast<const char *>(picture.data()) + picture.size(), 64),
                 QByteArray(64, '\0'));
    }
}

void TestStreamClips::aFrameWithoutItsSoundHasSilence()
{
    OrbStream stream;
    const OrbStreamInfo info = files::streamInfo();
    stream.setInfo(info);
    QCOMPARE(files::open(stream, path("a.mov"), 2), 0);
    for (int number = 0; number < 4; ++number) {
        OrbFrame frame = files::frame(info, number);
        if (number >= 2)
            frame.auds().clear();
        stream.write(frame);
    }
    QVERIFY(files::close(stream));
    QCOMPARE(files::open(stream, path("a.mov"), 1), 0);
    const auto answers = files::readFrames(stream, {1, 3});
    QCOMPARE(files::bytesOf(answers[0].frame.auds().first().buffers().first()),
             files::soundBytes(1));
    QCOMPARE(files::bytesOf(answers[1].frame.auds().first().buffers().first()),
             QByteArray(files::soundBytes(3).size(), '\0'));
}

void TestStreamClips::aGrowingClipReadsUpToItsLastFragment()
{
    const OrbStreamInfo info = files::streamInfo();
    OrbStream writer;
    writer.setInfo(info);
    QCOMPARE(files::open(writer, path("a.mov"), 2), 0);
    for (int number = 0; number < 100; ++number)
        writer.write(files::frame(info, number));
    // Readers see fragments as they become durable.
    int length = 0;
    QTRY_VERIFY_WITH_TIMEOUT(
        ([&] {
            writer.write(files::frame(info, 100));
            OrbStream reader;
            if (files::open(reader, path("a.mov"), 1) != 0 || !reader.info().isGrowing())
                return false;
            length = reader.info().length();
            const auto answers = files::readFrames(reader, {length - 1});
            return length >= 60
                && files::bytesOf(answers[0].frame.vids().first().buffer())
                == files::pictureBytes(std::min(length - 1, 100));
        }()),
        files::patienceMs);
    QVERIFY(files::close(writer));
    OrbStream reader;
    QCOMPARE(files::open(reader, path("a.mov"), 1), 0);
    QVERIFY(!reader.info().isGrowing());
    QVERIFY(reader.info().length() >= length);
}

void TestStreamClips::flushWritesTheFramesOfASlowRecording()
{
    const OrbStreamInfo info = files::streamInfo();
    OrbStream writer;
    writer.setInfo(info);
    QCOMPARE(files::open(writer, path("a.mov"), 2), 0);
    for (int number = 0; number < 3; ++number)
        writer.write(files::frame(info, number));
    writer.flush();
    QTRY_VERIFY_WITH_TIMEOUT(([&] {
                                 OrbStream reader;
                                 return files::open(reader, path("a.mov"), 1) == 0
                                     && reader.info().length() == 3;
                             }()),
                             files::patienceMs);
}

void TestStreamClips::aMissingClipIsAnOpenError()
{
    OrbStream stream;
    QCOMPARE(files::open(stream, path("none.mov"), 1), ENOENT);
    QVERIFY(stream.isClosed());
    QVERIFY(stream.info().vids().isEmpty());
    // And the stream is good for another.
    QVERIFY(files::writeClip(path("a.mov"), 1));
    QCOMPARE(files::open(stream, path("a.mov"), 1), 0);
}

void TestStreamClips::whatIsNoClipIsAnOpenError_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("text") << QByteArray("This is no clip.\n").repeated(100);
    QTest::newRow("zeros") << QByteArray(100'000, '\0');
    QTest::newRow("a lying size") << QByteArray::fromHex("7fffffff6d6f6f76") + QByteArray(64, 'x');
}

void TestStreamClips::whatIsNoClipIsAnOpenError()
{
    QFETCH(QByteArray, bytes);
    QFile file(path("bad.mov"));
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
    file.close();
    OrbStream stream;
    QCOMPARE(files::open(stream, path("bad.mov"), 1), EINVAL);
    QVERIFY(stream.isClosed());
    QCOMPARE(files::open(stream, _folder->path(), 1), EINVAL);
}

void TestStreamClips::aClipTornAtAnyPlaceOpensOrFailsButNeverWorse()
{
    QVERIFY(files::writeClip(path("a.mov"), 20));
    QFile file(path("a.mov"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray whole = file.readAll();
    int failed = 0;
    for (qsizetype size = 0; size < whole.size(); size += 997) {
        QFile torn(path("torn.mov"));
        QVERIFY(torn.open(QIODevice::WriteOnly));
        torn.write(whole.left(size));
        torn.close();
        OrbStream stream;
        if (files::open(stream, path("torn.mov"), 1) != 0) {
            ++failed;
            continue;
        }
        QVERIFY(stream.info().length() <= 20);
        const auto answers = files::readFrames(stream, {0, stream.info().length() - 1});
        for (const auto &answer : answers)
            QVERIFY(answer.error != 0 || !answer.frame.vids().isEmpty());
    }
    QVERIFY(failed > 0);
}

void TestStreamClips::anExistingClipIsNotOverwritten()
{
    QVERIFY(files::writeClip(path("a.mov"), 3));
    OrbStream stream;
    stream.setInfo(files::streamInfo());
    QCOMPARE(files::open(stream, path("a.mov"), 2), EEXIST);
    QVERIFY(stream.isClosed());
    QCOMPARE(files::open(stream, path("a.mov"), 1), 0);
    QCOMPARE(stream.info().length(), 3);
}

void TestStreamClips::aClipInNoFolderIsAnOpenError()
{
    OrbStream stream;
    stream.setInfo(files::streamInfo());
    QCOMPARE(files::open(stream, path("no/such/a.mov"), 2), ENOENT);
}

void TestStreamClips::aFormatThatNoClipHasIsAnOpenError_data()
{
    QTest::addColumn<OrbStreamInfo>("info");
    QTest::newRow("nothing") << OrbStreamInfo();
    OrbStreamInfo info = files::streamInfo();
    info.vids().first().setDataType(OrbId(OrbIdImageRgb444));
    QTest::newRow("data type") << info;
    info = files::streamInfo();
    info.vids().first().setSize(0, 0);
    QTest::newRow("raster") << info;
    info = files::streamInfo();
    info.vids().first().setFrameRate(0, 0);
    QTest::newRow("rate") << info;
    info = files::streamInfo();
    info.auds().first().setSampleRate(44100, 1);
    QTest::newRow("sample rate") << info;
    info = files::streamInfo();
    info.auds().first().setDataType(OrbId(409));
    QTest::newRow("sound type") << info;
}

void TestStreamClips::aFormatThatNoClipHasIsAnOpenError()
{
    QFETCH(OrbStreamInfo, info);
    OrbStream stream;
    stream.setInfo(info);
    QCOMPARE(files::open(stream, path("a.mov"), 2), EINVAL);
    QVERIFY(!QFile::exists(path("a.mov")));
}

void TestStreamClips::aDescriptorThatIsNoPathHasNoDriver()
{
    OrbStream stream;
    for (const QVariant &desc : {QVariant(), QVariant(7), QVariant(QString())}) {
        QCOMPARE(files::open(stream, desc, 1), -1);
        QCOMPARE(files::open(stream, desc, 2), -1);
    }
    stream.setType(OrbId(77));
    QCOMPARE(files::open(stream, path("a.mov"), 1), -1);
}

void TestStreamClips::aClipWithoutFramesLeavesNoFile()
{
    OrbStream stream;
    stream.setInfo(files::streamInfo());
    QCOMPARE(files::open(stream, path("a.mov"), 2), 0);
    QVERIFY(QFile::exists(path("a.mov")));
    QVERIFY(files::close(stream));
    QVERIFY(!QFile::exists(path("a.mov")));
}

void TestStreamClips::aBrokenPromiseEndsTheClipWithTheFramesBefore()
{
    files::Coder coder;
    const OrbStreamInfo info = files::streamInfo();
    OrbStream stream;
    stream.setInfo(info);
    QList<int> errors;
    connect(&stream, &OrbStream::frameWritten, this,
            [&](int, const OrbError &error) { errors << error.value(); });
    QCOMPARE(files::open(stream, path("a.mov"), 2), 0);
    for (int number = 0; number < 8; ++number) {
        stream.write(files::frame(
            info, number, coder.promise(files::pictureBytes(number), number != 5)));
    }
    QVERIFY(files::close(stream));
    QCOMPARE(errors, (QList<int>{0, 0, 0, 0, 0, EIO, EIO, EIO}));
    QCOMPARE(files::open(stream, path("a.mov"), 1), 0);
    QCOMPARE(stream.info().length(), 5);
    QVERIFY(!stream.info().isGrowing());
}

void TestStreamClips::aFullMediumIsToldAndTheClipPlaysAsFarAsItWent()
{
    const SmallMedium medium(path("small"), 1024);
    if (!medium.isMounted())
        QSKIP("mounting a small medium takes root");
    const OrbStreamInfo info = files::streamInfo();
    OrbStream stream;
    stream.setInfo(info);
    QList<int> errors;
    QList<int> again;
    connect(&stream, &OrbStream::frameWritten, this, [&](int number, const OrbError &error) {
        if (number < errors.size())
            again << number << error.value();
        else
            errors << error.value();
    });
    QCOMPARE(files::open(stream, path("small/a.mov"), 2), 0);
    for (int number = 0; number < 300; ++number)
        stream.write(files::frame(info, number));
    QVERIFY(files::close(stream));
    QCOMPARE(errors.size(), 300);
    QCOMPARE(errors.first(), 0);
    QCOMPARE(errors.last(), ENOSPC);
    const auto good = errors.count(0);
    QVERIFY(std::is_sorted(errors.begin(), errors.end()));

    QCOMPARE(files::open(stream, path("small/a.mov"), 1), 0);
    // A frame that was taken has the room that it needs.
    QVERIFY(good > 0);
    QCOMPARE(stream.info().length(), int(good));
    QVERIFY(again.isEmpty());
    const int last = stream.info().length() - 1;
    QCOMPARE(files::bytesOf(files::readFrames(stream, {last})[0].frame.vids().first().buffer()),
             files::pictureBytes(last));
}

void TestStreamClips::aFullMediumShowsWhenTheClipIsOpened()
{
    const SmallMedium medium(path("small"), 64);
    if (!medium.isMounted())
        QSKIP("mounting a small medium takes root");
    QFile filler(path("small/filler"));
    QVERIFY(filler.open(QIODevice::WriteOnly));
    filler.write(QByteArray(100'000, 'x'));
    filler.close();
    OrbStream stream;
    stream.setInfo(files::streamInfo());
    QCOMPARE(files::open(stream, path("small/a.mov"), 2), ENOSPC);
    QVERIFY(!QFile::exists(path("small/a.mov")));
}

void TestStreamClips::aStreamDestroyedWhileItWritesCompletesItsClip()
{
    {
        OrbStream stream;
        const OrbStreamInfo info = files::streamInfo();
        stream.setInfo(info);
        QCOMPARE(files::open(stream, path("a.mov"), 2), 0);
        for (int number = 0; number < 20; ++number)
            stream.write(files::frame(info, number));
    }
    OrbStream stream;
    QCOMPARE(files::open(stream, path("a.mov"), 1), 0);
    QCOMPARE(stream.info().length(), 20);
    QVERIFY(!stream.info().isGrowing());
}

QTEST_GUILESS_MAIN(TestStreamClips)
#include "tst_streamclips.moc"
