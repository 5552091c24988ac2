#include "tst_clip_tools.h"
#include "tst_streamfiles.h"

#include "libclip/cliprecovery.h"
#include "liborb/orb.h"
#include "liborb/orbstreamcache.h"

#include <numeric>

using cliptest::fragmentFrames;
using cliptest::sampleInfo;
using cliptest::writeFrames;
using clip::ClipInfo;
using clip::ClipReader;
using clip::ClipWriter;

namespace {


} // namespace

/// Reading a clip while it is being recorded: what was opened follows what is committed.
class TestClipFollowing : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void aReaderFindsWhatWasCommittedSince();
    void aReaderOfAClipThatIsClosedHasAllOfIt();
    void aReaderOfAClipThatIsRecoveredHasAllOfIt();
    void aClipThatShrinksKeepsItsReaderAlive();
    void anIndexCutAnywhereChangesNothing();
    void aStreamGrowsWithItsClip();
    void theCacheReadsOnWhereTheClipEnded();
    void theFrameThatWasTheLastIsOneLikeTheOthers();
    void aCompleteClipIsLeftAlone();

private:
    QString path(const QString &name) const { return _dir.filePath(name); }
    std::string stdPath(const QString &name) const { return path(name).toStdString(); }

    QTemporaryDir _dir { cliptest::scratchTemplate() };
};

void TestClipFollowing::initTestCase()
{
    Orb::init(0);
}

void TestClipFollowing::aReaderFindsWhatWasCommittedSince()
{
    const ClipInfo info = sampleInfo();
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("follow.mov"), info).code, 0);
    QCOMPARE(writeFrames(writer, info, fragmentFrames).code, 0);
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("follow.mov")).code, 0);
    for (int frames = fragmentFrames; frames < 200; ++frames) {
        const auto before = reader.info().frames;
        const bool isNews = reader.lookAgain();
        QCOMPARE(reader.info().frames, std::int64_t(cliptest::framesInFragments(frames)));
        QCOMPARE(isNews, reader.info().frames != before);
        QVERIFY(!reader.info().isComplete);
        QVERIFY(!reader.lookAgain());
        QCOMPARE(writeFrames(writer, info, 1, frames).code, 0);
    }
    QCOMPARE(cliptest::firstWrongFrame(reader), -1);
    QCOMPARE(reader.info().timecode->frameCount, 90'000u);
}

void TestClipFollowing::aReaderOfAClipThatIsClosedHasAllOfIt()
{
    const ClipInfo info = sampleInfo();
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("closed.mov"), info).code, 0);
    QCOMPARE(writeFrames(writer, info, 30).code, 0);
    ClipReader early;
    QCOMPARE(early.open(stdPath("closed.mov")).code, 0);
    QCOMPARE(early.info().frames, std::int64_t(24));
    QCOMPARE(writeFrames(writer, info, 71, 30).code, 0);
    QCOMPARE(writer.close().code, 0);
    QVERIFY(early.lookAgain());
    QCOMPARE(early.info().frames, std::int64_t(101));
    QVERIFY(early.info().isComplete);
    QCOMPARE(cliptest::firstWrongFrame(early), -1);
    QVERIFY(!early.lookAgain());
}

void TestClipFollowing::aReaderOfAClipThatIsRecoveredHasAllOfIt()
{
    const ClipInfo info = sampleInfo();
    {
        ClipWriter writer;
        QCOMPARE(writer.open(stdPath("living.mov"), info).code, 0);
        QCOMPARE(writeFrames(writer, info, 40).code, 0);
        QVERIFY(QFile::copy(path("living.mov"), path("dead.mov")));
    }
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("dead.mov")).code, 0);
    QCOMPARE(reader.info().frames, std::int64_t(36));
    QVERIFY(!reader.lookAgain());
    QCOMPARE(int(clip::recover(stdPath("dead.mov")).outcome), int(clip::Recovery::Outcome::Recovered));
    QVERIFY(reader.lookAgain());
    QVERIFY(reader.info().isComplete);
    QCOMPARE(reader.info().frames, std::int64_t(36));
    QCOMPARE(cliptest::firstWrongFrame(reader), -1);
}

void TestClipFollowing::aClipThatShrinksKeepsItsReaderAlive()
{
    const ClipInfo info = sampleInfo();
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("shrinks.mov"), info).code, 0);
    QCOMPARE(writeFrames(writer, info, 40).code, 0);
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("shrinks.mov")).code, 0);
    for (const int size : { 200'000, 1000, 40, 7, 0 }) {
        QVERIFY(QFile::resize(path("shrinks.mov"), size));
        (void)reader.lookAgain();
        QCOMPARE(reader.info().frames, std::int64_t(36));
        QCOMPARE(cliptest::readPicture(reader, 35), QByteArray("failed"));
    }
}

/// The index of a closed clip is written behind the fragments before it counts.
void TestClipFollowing::anIndexCutAnywhereChangesNothing()
{
    const ClipInfo info = sampleInfo();
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("whole.mov"), info).code, 0);
    QCOMPARE(writeFrames(writer, info, 31).code, 0);
    QCOMPARE(writer.flush().code, 0);
    const QByteArray growing = cliptest::contentOf(path("whole.mov"));
    QCOMPARE(writer.close().code, 0);
    const QByteArray closed = cliptest::contentOf(path("whole.mov"));
    QVERIFY(cliptest::setContent(path("cut.mov"), growing));
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("cut.mov")).code, 0);
    const QByteArray index = closed.mid(growing.size());
    for (qsizetype cut = 0; cut < index.size(); cut += 7) {
        QVERIFY(cliptest::setContent(path("cut.mov"), growing + index.left(cut)));
        QVERIFY(!reader.lookAgain());
        QCOMPARE(reader.info().frames, std::int64_t(31));
    }
    // The head covers an index that is not all there: as bad a file as there is, and yet it plays on.
    QVERIFY(cliptest::setContent(path("cut.mov"), closed.left(closed.size() - 9)));
    QVERIFY(!reader.lookAgain());
    QCOMPARE(cliptest::firstWrongFrame(reader), -1);
    QVERIFY(cliptest::setContent(path("cut.mov"), closed));
    QVERIFY(reader.lookAgain());
    QVERIFY(reader.info().isComplete);
    QCOMPARE(cliptest::firstWrongFrame(reader), -1);
}

void TestClipFollowing::aStreamGrowsWithItsClip()
{
    const ClipInfo info = sampleInfo();
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("stream.mov"), info).code, 0);
    QCOMPARE(writeFrames(writer, info, 25).code, 0);
    OrbStream stream;
    QCOMPARE(files::open(stream, path("stream.mov"), 1), 0);
    QCOMPARE(stream.info().length(), 24);
    QVERIFY(stream.info().isGrowing());
    QSignalSpy grown(&stream, &OrbStream::lengthChanged);
    QCOMPARE(writeFrames(writer, info, 24, 25).code, 0);
    QVERIFY(grown.wait(files::patienceMs));
    QCOMPARE(stream.info().length(), 48);
    QVERIFY(stream.info().isGrowing());
    const auto answers = files::readFrames(stream, { 47, 23, 48 });
    QCOMPARE(files::bytesOf(answers[0].frame.vids().first().buffer()), cliptest::picture(47));
    QCOMPARE(files::bytesOf(answers[1].frame.vids().first().buffer()), cliptest::picture(23));
    QCOMPARE(answers[2].error, EINVAL);
    QCOMPARE(writer.close().code, 0);
    QTRY_VERIFY_WITH_TIMEOUT(!stream.info().isGrowing(), files::patienceMs);
    QCOMPARE(stream.info().length(), 49);
    QVERIFY(files::close(stream));
}

void TestClipFollowing::theCacheReadsOnWhereTheClipEnded()
{
    const ClipInfo info = sampleInfo();
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("cache.mov"), info).code, 0);
    QCOMPARE(writeFrames(writer, info, 24).code, 0);
    OrbStream stream;
    OrbStreamCache cache;
    cache.setStream(&stream);
    QCOMPARE(files::open(stream, path("cache.mov"), 1), 0);
    QList<int> seen;
    int wrong = 0;
    const auto takeAll = [&] {
        while (cache.framesInCache() > 0) {
            const OrbFrame frame = cache.read();
            seen.append(frame.meta().valueFor(OrbId(OrbIdFrameNumber)).toInt());
            wrong += files::bytesOf(frame.vids().first().buffer()) != cliptest::picture(seen.last());
        }
    };
    connect(&cache, &OrbStreamCache::ready, &cache, takeAll);
    QTRY_VERIFY_WITH_TIMEOUT(cache.atEndOfStream(), files::patienceMs);
    QCOMPARE(seen.size(), 24);
    QCOMPARE(writeFrames(writer, info, 100, 24).code, 0);
    QTRY_COMPARE_WITH_TIMEOUT(seen.size(), 120, files::patienceMs);
    QVERIFY(cache.atEndOfStream());
    QCOMPARE(writer.close().code, 0);
    QTRY_COMPARE_WITH_TIMEOUT(seen.size(), 124, files::patienceMs);
    QList<int> all(124);
    std::iota(all.begin(), all.end(), 0);
    QCOMPARE(seen, all);
    QCOMPARE(wrong, 0);
}

void TestClipFollowing::theFrameThatWasTheLastIsOneLikeTheOthers()
{
    const ClipInfo info = sampleInfo();
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("last.mov"), info).code, 0);
    QCOMPARE(writeFrames(writer, info, 12).code, 0);
    OrbStream stream;
    OrbStreamCache cache;
    cache.setStream(&stream);
    QCOMPARE(files::open(stream, path("last.mov"), 1), 0);
    cache.seekToLastFrame();
    QTRY_VERIFY_WITH_TIMEOUT(cache.framesInCache() == 1, files::patienceMs);
    QVERIFY(cache.peek().meta().valueFor(OrbId(OrbIdEndOfStream)).toBool());
    QCOMPARE(writeFrames(writer, info, 12, 12).code, 0);
    QTRY_COMPARE_WITH_TIMEOUT(cache.framesInCache(), 13, files::patienceMs);
    QVERIFY(!cache.peek().meta().valueFor(OrbId(OrbIdEndOfStream)).toBool());
    QCOMPARE(cache.peek().meta().valueFor(OrbId(OrbIdFrameNumber)).toInt(), 11);
    cache.seekToLastFrame();
    QTRY_COMPARE_WITH_TIMEOUT(cache.framesInCache(), 1, files::patienceMs);
    QVERIFY(cache.peek().meta().valueFor(OrbId(OrbIdEndOfStream)).toBool());
}

void TestClipFollowing::aCompleteClipIsLeftAlone()
{
    const ClipInfo info = sampleInfo();
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("complete.mov"), info).code, 0);
    QCOMPARE(writeFrames(writer, info, 12).code, 0);
    QCOMPARE(writer.close().code, 0);
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("complete.mov")).code, 0);
    QVERIFY(QFile::resize(path("complete.mov"), 100));
    QVERIFY(!reader.lookAgain());
    QCOMPARE(reader.info().frames, std::int64_t(12));
    reader.close();
    QVERIFY(!reader.lookAgain());
}

QTEST_GUILESS_MAIN(TestClipFollowing)
#include "tst_clip_following.moc"
