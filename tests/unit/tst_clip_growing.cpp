#include "smallmedium.h"
#include "tst_clip_tools.h"

#include <QDir>
#include <QRandomGenerator>
#include <QTest>

#include <algorithm>
#include <cerrno>
#include <csignal>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace cliptest;
using clip::ClipInfo;
using clip::ClipReader;
using clip::ClipWriter;

namespace {


/// The system's limit on the length of a file, while it lives.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        _oldHandler = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &_old);
        const rlimit limit { bytes, _old.rlim_max };
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &_old);
        std::signal(SIGXFSZ, _oldHandler);
    }

private:
    rlimit _old { };
    void (*_oldHandler)(int) = nullptr;
};

} // namespace

/// A clip that is still being written, or whose writer died.
class TestClipGrowing : public QObject
{
    Q_OBJECT

private slots:
    void aGrowingClipOpensUpToItsLastFragment();
    void flushCommitsTheFragmentBegun();
    void aFragmentIsHiddenUntilItIsDurable();
    void anUncommittedTailOfAnyLengthHidesNothing();
    void aClosingCutAnywhereHidesNothing();
    void aClipCutAnywhereKeepsWhatItHolds();
    void zerosBehindTheLastFragmentHideNothing();
    void aKilledWriterLosesAtMostOneFragment();
    void aFullMediumLeavesWhatWasWritten_data();
    void aFullMediumLeavesWhatWasWritten();
    void aFullFileSystemLeavesWhatWasWritten();
    void aMediumFilledToTheLastByteTakesTheIndex_data();
    void aMediumFilledToTheLastByteTakesTheIndex();
    void aMediumThatGetsFullTakesEveryFrameThatItTook();
    void nothingStaysReservedBehindAClosedClip();
    void afterAnErrorTheWriterRefusesFrames();

private:
    QString path(const QString &name) const { return _dir.filePath(name); }
    std::string stdPath(const QString &name) const { return path(name).toStdString(); }
    qint64 framesIn(const QString &name) const;
    int probedFrames(const QString &name) const;

    QTemporaryDir _dir { scratchTemplate() };
};

/// Frames that the reader finds and that are right; -1 when one is not.
qint64 TestClipGrowing::framesIn(const QString &name) const
{
    ClipReader reader;
    if (reader.open(stdPath(name))) {
        return 0;
    }
    return firstWrongFrame(reader) == -1 ? reader.info().frames : -1;
}

int TestClipGrowing::probedFrames(const QString &name) const
{
    return number(stream(probe(path(name)), "video"), "nb_read_packets");
}

void TestClipGrowing::aGrowingClipOpensUpToItsLastFragment()
{
    const ClipInfo info = sampleInfo();
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("growing.mov"), info).code, 0);
    for (int frames = 0; frames < 100; ++frames) {
        QCOMPARE(framesIn("growing.mov"), framesInFragments(frames));
        QCOMPARE(writeFrames(writer, info, 1, frames).code, 0);
    }
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("growing.mov")).code, 0);
    QVERIFY(!reader.info().isComplete);
    QCOMPARE(reader.info().video.rateNum, 25);
    QCOMPARE(reader.info().timecode->frameCount, 90'000u);
    QCOMPARE(reader.info().reel, std::string("REEL7"));

    const auto streams = probe(path("growing.mov"));
    QCOMPARE(number(stream(streams, "video"), "nb_read_packets"), 96);
    QCOMPARE(tag(stream(streams, "video"), "timecode"), "01:00:00:00");
    QCOMPARE(tag(stream(streams, "data"), "reel_name"), "REEL7");
    QCOMPARE(number(stream(streams, "audio"), "nb_read_packets"), 96 * 1920);
    QCOMPARE(writer.close().code, 0);
    QCOMPARE(framesIn("growing.mov"), 100);
    // The reader keeps the clip as it was when it was opened.
    QCOMPARE(firstWrongFrame(reader), -1);
}

void TestClipGrowing::flushCommitsTheFragmentBegun()
{
    const ClipInfo info = sampleInfo();
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("flushed.mov"), info).code, 0);
    int frames = 0;
    for (const int more : { 1, 5, 0, 13, 24 }) {
        QCOMPARE(writeFrames(writer, info, more, frames).code, 0);
        frames += more;
        QCOMPARE(writer.flush().code, 0);
        QCOMPARE(framesIn("flushed.mov"), frames);
        QCOMPARE(writer.committedFrames(), std::int64_t(frames));
    }
    QCOMPARE(probedFrames("flushed.mov"), frames);
    QCOMPARE(writer.close().code, 0);
    QCOMPARE(framesIn("flushed.mov"), frames);
}

void TestClipGrowing::aFragmentIsHiddenUntilItIsDurable()
{
    const ClipInfo info = sampleInfo();
    ClipWriter writer;
    writer.setSyncing(ClipWriter::Syncing::BySync);
    QCOMPARE(writer.open(stdPath("hidden.mov"), info).code, 0);
    QCOMPARE(writeFrames(writer, info, 30).code, 0);
    QCOMPARE(framesIn("hidden.mov"), 0);
    QCOMPARE(writer.sync().code, 0);
    QCOMPARE(framesIn("hidden.mov"), 24);
    // The commit itself is durable with the next one.
    QCOMPARE(writer.committedFrames(), std::int64_t(0));
    QCOMPARE(writer.sync().code, 0);
    QCOMPARE(writer.committedFrames(), std::int64_t(24));
    QCOMPARE(writer.close().code, 0);
    QCOMPARE(framesIn("hidden.mov"), 30);
}

void TestClipGrowing::anUncommittedTailOfAnyLengthHidesNothing()
{
    const ClipInfo info = sampleInfo();
    ClipWriter writer;
    writer.setSyncing(ClipWriter::Syncing::BySync);
    QCOMPARE(writer.open(stdPath("tail.mov"), info).code, 0);
    QCOMPARE(writeFrames(writer, info, 24).code, 0);
    QCOMPARE(writer.sync().code, 0);
    const int committed = int(contentOf(path("tail.mov")).size());
    QCOMPARE(writeFrames(writer, info, 12, 24).code, 0);
    const QByteArray whole = contentOf(path("tail.mov"));
    QVERIFY(whole.size() > committed + 1000);

    QVERIFY(setContent(path("cut.mov"), whole.left(committed + 600)));
    for (int cut = committed + 600; cut >= committed; --cut) {
        QVERIFY(QFile::resize(path("cut.mov"), cut));
        ClipReader reader;
        QCOMPARE(reader.open(stdPath("cut.mov")).code, 0);
        QCOMPARE(reader.info().frames, std::int64_t(24));
        if (cut % 40 == 0) {
            QCOMPARE(firstWrongFrame(reader), -1);
            QCOMPARE(probedFrames("cut.mov"), 24);
        }
    }
    for (qsizetype cut = committed + 600; cut < whole.size(); cut += 39'973) {
        QVERIFY(setContent(path("cut.mov"), whole.left(cut)));
        QCOMPARE(framesIn("cut.mov"), 24);
        QCOMPARE(probedFrames("cut.mov"), 24);
    }
    // A commit that reached the medium in part is skipped as well.
    for (const char *type : { "mree", "moee", "mooe", "fref", "froo" }) {
        QByteArray half = whole;
        half.replace(committed + 4, 4, type);
        QVERIFY(setContent(path("cut.mov"), half));
        QCOMPARE(framesIn("cut.mov"), 24);
        QCOMPARE(probedFrames("cut.mov"), 24);
    }
}

void TestClipGrowing::aClosingCutAnywhereHidesNothing()
{
    const ClipInfo info = sampleInfo();
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("closing.mov"), info).code, 0);
    QCOMPARE(writeFrames(writer, info, 31).code, 0);
    QCOMPARE(writer.flush().code, 0);
    const QByteArray growing = contentOf(path("closing.mov"));
    QCOMPARE(writer.close().code, 0);
    QByteArray closed = contentOf(path("closing.mov"));
    QCOMPARE(closed.mid(36, growing.size() - 36), growing.mid(36));

    // The placeholder as it was before the last step of closing.
    closed.replace(20, 16, growing.mid(20, 16));
    QVERIFY(setContent(path("cut.mov"), closed));
    for (qsizetype cut = closed.size(); cut >= growing.size(); cut -= 5) {
        QVERIFY(QFile::resize(path("cut.mov"), cut));
        QCOMPARE(framesIn("cut.mov"), 31);
        if (cut % 53 == 0) {
            QCOMPARE(probedFrames("cut.mov"), 31);
        }
    }
}

void TestClipGrowing::aClipCutAnywhereKeepsWhatItHolds()
{
    const ClipInfo info = sampleInfo(30000, 1001);
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("whole.mov"), info).code, 0);
    QList<qsizetype> ends;
    for (int i = 0; i < 5; ++i) {
        QCOMPARE(writeFrames(writer, info, 14, 14 * i).code, 0);
        ends.append(contentOf(path("whole.mov")).size());
    }
    const QByteArray whole = contentOf(path("whole.mov"));
    QVERIFY(setContent(path("cut.mov"), whole));
    for (qsizetype cut = whole.size(); cut >= 0; cut -= 1009) {
        QVERIFY(QFile::resize(path("cut.mov"), cut));
        const auto held =
            std::ranges::count_if(ends, [&](qsizetype end) { return end <= cut; }) * 14;
        ClipReader reader;
        const bool isOpen = reader.open(stdPath("cut.mov")).code == 0;
        QVERIFY(isOpen || held == 0);
        QVERIFY(!isOpen || reader.info().frames >= held);
        for (qint64 i = 0; isOpen && i < reader.info().frames; ++i) {
            QCOMPARE(readPicture(reader, i), picture(int(i)));
            QVERIFY(i >= held || readSound(reader, i) == sound(int(i), info));
        }
    }
}

void TestClipGrowing::zerosBehindTheLastFragmentHideNothing()
{
    const ClipInfo info = sampleInfo();
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("zeros.mov"), info).code, 0);
    QCOMPARE(writeFrames(writer, info, 24).code, 0);
    for (const int zeros : { 1, 7, 8, 15, 16, 17, 4096, 100'001 }) {
        QVERIFY(setContent(path("cut.mov"), contentOf(path("zeros.mov")) + QByteArray(zeros, 0)));
        QCOMPARE(framesIn("cut.mov"), 24);
        QCOMPARE(probedFrames("cut.mov"), 24);
    }
}

void TestClipGrowing::aKilledWriterLosesAtMostOneFragment()
{
    const ClipInfo info = sampleInfo();
    QRandomGenerator generator(20);
    for (int round = 0; round < 8; ++round) {
        QFile::remove(path("killed.mov"));
        const std::string target = stdPath("killed.mov");
        int frames[2];
        QCOMPARE(pipe(frames), 0);
        const pid_t child = fork();
        QVERIFY(child >= 0);
        if (child == 0) {
            ClipWriter writer;
            if (!writer.open(target, info)) {
                for (int i = 0; writeFrames(writer, info, 1, i).code == 0; ++i) {
                    (void)!::write(frames[1], "f", 1);
                }
            }
            _exit(1);
        }
        ::close(frames[1]);
        const int wanted = int(generator.bounded(10, 200));
        int written = 0;
        char one = 0;
        while (written < wanted && ::read(frames[0], &one, 1) == 1) {
            ++written;
        }
        ::kill(child, SIGKILL);
        int status = 0;
        QCOMPARE(::waitpid(child, &status, 0), child);
        ::close(frames[0]);
        QVERIFY(WIFSIGNALED(status));
        const qint64 found = framesIn("killed.mov");
        QVERIFY(found >= framesInFragments(written));
        QCOMPARE(qint64(probedFrames("killed.mov")), found);
    }
}

void TestClipGrowing::aFullMediumLeavesWhatWasWritten_data()
{
    QTest::addColumn<int>("limit");
    QTest::newRow("in the head") << 1000;
    QTest::newRow("in the first fragment") << 5000;
    QTest::newRow("in the second fragment") << 20'000;
    for (int limit = 290'000; limit < 460'000; limit += 12'001) {
        QTest::addRow("%d", limit) << limit;
    }
}

void TestClipGrowing::aFullMediumLeavesWhatWasWritten()
{
    QFETCH(int, limit);
    const ClipInfo info = sampleInfo();
    QFile::remove(path("full.mov"));
    ClipWriter writer;
    int openCode = 0;
    int writeCode = 0;
    int closeCode = 0;
    {
        FileSizeLimit full { rlim_t(limit) };
        openCode = writer.open(stdPath("full.mov"), info).code;
        if (openCode == 0) {
            writeCode = writeFrames(writer, info, 100).code;
            closeCode = writer.close().code;
        }
    }
    if (limit < 2000) {
        QCOMPARE(openCode, EFBIG);
        QVERIFY(!QFile::exists(path("full.mov")));
        return;
    }
    QCOMPARE(openCode, 0);
    QCOMPARE(writeCode, EFBIG);
    QCOMPARE(closeCode, EFBIG);
    QCOMPARE(writer.frames(), framesInFragments(int(writer.frames())));
    QCOMPARE(writer.frames() > 0, limit >= 20'000);
    QCOMPARE(framesIn("full.mov"), qint64(writer.frames()));
    if (writer.frames() > 0) {
        QCOMPARE(qint64(probedFrames("full.mov")), qint64(writer.frames()));
        // Only a limit just behind a fragment leaves no room for the index.
        ClipReader reader;
        QCOMPARE(reader.open(stdPath("full.mov")).code, 0);
        QVERIFY(reader.info().isComplete || contentOf(path("full.mov")).size() > limit - 4000);
    }
}

void TestClipGrowing::aFullFileSystemLeavesWhatWasWritten()
{
    const SmallMedium medium(path("medium"), 1024);
    if (!medium.isMounted()) {
        QSKIP("a small file system takes the right to mount one");
    }
    const ClipInfo info = sampleInfo();
    ClipWriter writer;
    const int openCode = writer.open(stdPath("medium/clip.mov"), info).code;
    const int writeCode = writeFrames(writer, info, 500).code;
    const int closeCode = writer.close().code;
    const qint64 found = framesIn("medium/clip.mov");
    ClipReader reader;
    const bool isComplete = !reader.open(stdPath("medium/clip.mov")) && reader.info().isComplete;
    reader.close();
    QCOMPARE(openCode, 0);
    QCOMPARE(writeCode, ENOSPC);
    QCOMPARE(closeCode, ENOSPC);
    QVERIFY(found > 48);
    QCOMPARE(found, qint64(writer.frames()));
    QVERIFY(isComplete);
}

void TestClipGrowing::aMediumFilledToTheLastByteTakesTheIndex_data()
{
    QTest::addColumn<bool>("isFlushed");
    QTest::newRow("all written") << true;
    QTest::newRow("a fragment begun") << false; // its frames have the room that they need
}

void TestClipGrowing::aMediumFilledToTheLastByteTakesTheIndex()
{
    QFETCH(bool, isFlushed);
    const SmallMedium medium(path("medium"), 24 * 1024);
    if (!medium.isMounted()) {
        QSKIP("a small file system takes the right to mount one");
    }
    // Pictures of unequal sizes make the longest index.
    const ClipInfo info = sampleInfo(60, 1, 1);
    constexpr int frames = 3005;
    ClipWriter writer;
    int codes[4] = { };
    codes[0] = writer.open(stdPath("medium/clip.mov"), info).code;
    codes[1] = writeFrames(writer, info, frames).code;
    codes[2] = isFlushed ? writer.flush().code : 0;
    QByteArray block(1 << 16, 'x');
    QFile filler(path("medium/filler"));
    const bool isFillerOpen = filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered);
    while (!block.isEmpty()) {
        if (filler.write(block) != block.size()) {
            block.chop((block.size() + 1) / 2);
        }
    }
    filler.close();
    codes[3] = writer.close().code;
    ClipReader reader;
    const int readCode = reader.open(stdPath("medium/clip.mov")).code;
    const auto found = reader.info();
    const qint64 wrong = firstWrongFrame(reader);
    reader.close();
    QVERIFY(isFillerOpen);
    QCOMPARE(codes[0], 0);
    QCOMPARE(codes[1], 0);
    QCOMPARE(codes[2], 0);
    QCOMPARE(codes[3], 0);
    QCOMPARE(readCode, 0);
    QVERIFY(found.isComplete);
    QCOMPARE(found.frames, std::int64_t(frames));
    QCOMPARE(writer.committedFrames(), found.frames);
    QCOMPARE(wrong, qint64(-1));
}

void TestClipGrowing::aMediumThatGetsFullTakesEveryFrameThatItTook()
{
    const SmallMedium medium(path("medium"), 324);
    if (!medium.isMounted()) {
        QSKIP("a small file system takes the right to mount one");
    }
    const ClipInfo info = sampleInfo();
    ClipWriter writer;
    int taken = 0;
    int code = writer.open(stdPath("medium/clip.mov"), info).code;
    const int openCode = code;
    for (; code == 0 && taken < 1000; taken += code == 0) {
        code = writeFrames(writer, info, 1, taken).code;
    }
    const int closeCode = writer.close().code;
    ClipReader reader;
    const int readCode = reader.open(stdPath("medium/clip.mov")).code;
    const auto found = reader.info();
    const qint64 wrong = firstWrongFrame(reader);
    reader.close();
    QCOMPARE(openCode, 0);
    QCOMPARE(code, ENOSPC);
    QCOMPARE(closeCode, ENOSPC);
    QCOMPARE(readCode, 0);
    QVERIFY(found.isComplete);
    QVERIFY(taken % fragmentFrames != 0);
    QCOMPARE(found.frames, std::int64_t(taken));
    QCOMPARE(wrong, qint64(-1));
}

void TestClipGrowing::nothingStaysReservedBehindAClosedClip()
{
    const ClipInfo info = sampleInfo();
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("exact.mov"), info).code, 0);
    QCOMPARE(writeFrames(writer, info, 100).code, 0);
    QCOMPARE(writer.close().code, 0);
    struct stat status { };
    QCOMPARE(::stat(stdPath("exact.mov").c_str(), &status), 0);
    QVERIFY(status.st_blocks * 512 < status.st_size + 2 * status.st_blksize);
}

void TestClipGrowing::afterAnErrorTheWriterRefusesFrames()
{
    const ClipInfo info = sampleInfo();
    ClipWriter writer;
    int codes[4] = { };
    {
        FileSizeLimit full { 200'000 };
        codes[0] = writer.open(stdPath("refusing.mov"), info).code;
        codes[1] = writeFrames(writer, info, 100).code;
    }
    codes[2] = writeFrames(writer, info, 1).code;
    codes[3] = writer.flush().code;
    QCOMPARE(codes[0], 0);
    QCOMPARE(codes[1], EFBIG);
    QCOMPARE(codes[2], EFBIG);
    QCOMPARE(codes[3], EFBIG);
}

QTEST_GUILESS_MAIN(TestClipGrowing)
#include "tst_clip_growing.moc"
