#include "smallmedium.h"
#include "tst_clip_tools.h"

#include "libclip/boxwriter.h"
#include "libclip/cliprecovery.h"
#include "libclip/movhead.h"

#include <QDateTime>
#include <QRandomGenerator>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace cliptest;
using clip::ClipInfo;
using clip::ClipReader;
using clip::ClipWriter;
using clip::Codec;
using clip::Recovery;
using clip::Scan;
using Outcome = clip::Recovery::Outcome;

namespace {

/// Counts the calls that change the medium; the process ends, or the call fails, at a chosen one.
struct Gate
{
    enum class Then { Nothing, Die, DieHalfWay, Fail };

    bool isWatching = false;
    int calls = 0;
    int reads = 0;
    int chosen = -1;
    Then then = Then::Nothing;
    int errorCode = 0;

    /// True when the call is to be left out.
    bool isTime()
    {
        return isWatching && calls++ == chosen;
    }
};

Gate gate;

long passOrFail(bool isNow, long number, long descriptor, const void *bytes, long length, long offset)
{
    // What stands within one sector is written whole or not at all.
    if (isNow && gate.then == Gate::Then::DieHalfWay && number == SYS_pwrite64 && length > 16) {
        (void)syscall(number, descriptor, bytes, length / 2, offset);
    }
    if (isNow && gate.then != Gate::Then::Fail) {
        _exit(7);
    }
    if (isNow) {
        errno = gate.errorCode;
        return -1;
    }
    return syscall(number, descriptor, bytes, length, offset);
}

} // namespace

// The library's calls end here instead of in the C library.
extern "C" {

int fdatasync(int descriptor)
{
    return int(passOrFail(gate.isTime(), SYS_fdatasync, descriptor, nullptr, 0, 0));
}

ssize_t pwrite64(int descriptor, const void *bytes, size_t length, off64_t offset)
{
    return passOrFail(gate.isTime(), SYS_pwrite64, descriptor, bytes, long(length), offset);
}

ssize_t pread64(int descriptor, void *bytes, size_t length, off64_t offset)
{
    ++gate.reads;
    return syscall(SYS_pread64, descriptor, bytes, length, offset);
}

int ftruncate64(int descriptor, off64_t length)
{
    if (gate.isTime()) {
        return int(passOrFail(true, SYS_ftruncate, descriptor, nullptr, 0, 0));
    }
    return int(syscall(SYS_ftruncate, descriptor, length));
}

int fallocate64(int descriptor, int mode, off64_t offset, off64_t length)
{
    if (gate.isTime()) {
        return int(passOrFail(true, SYS_fallocate, descriptor, nullptr, 0, 0));
    }
    return int(syscall(SYS_fallocate, descriptor, mode, offset, length));
}

} // extern "C"

/// Clips that their writers left open are completed in place.
class TestClipRecovery : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void aRecoveredClipIsTheOneItsWriterWouldHaveClosed_data();
    void aRecoveredClipIsTheOneItsWriterWouldHaveClosed();
    void recoveryKilledAtAnyCallEndsInTheSameFile_data();
    void recoveryKilledAtAnyCallEndsInTheSameFile();
    void aCallThatFailsLosesNothingAndMayBeTriedAgain_data();
    void aCallThatFailsLosesNothingAndMayBeTriedAgain();
    void whatWasNeverCommittedIsCutOff();
    void theTimeOfTheLastChangeStays();
    void aCommitThatTheMediumLostBeforeALaterOneCostsNothing();
    void aClipThatIsBeingWrittenIsLeftAlone();
    void aMediumThatMayNotBeWrittenIsLeftAlone();
    void otherFilesAreLeftAlone();
    void aHeadThatDiffersInAnyByteIsLeftAlone();
    void damagedFragmentsNeitherCrashItNorGetIn();
    void aClipWithoutAFrameIsRemoved();
    void aPlanThatDoesNotFitItsFileIsNotCarriedOut();
    void tenHoursTakeTwoReadsAFragment();

private:
    QString path(const QString &name) const { return _dir.filePath(name); }
    std::string stdPath(const QString &name) const { return path(name).toStdString(); }
    /// What a writer left behind that died after \a frames frames, and what it would have closed.
    void makePair(const ClipInfo &info, int frames, QByteArray &left, QByteArray &closed) const;
    Recovery recover(const QString &name) const { return clip::recover(stdPath(name)); }
    int callsOfRecovery(const QByteArray &left) const;

    QTemporaryDir _dir { scratchTemplate() };
};

void TestClipRecovery::init()
{
    gate = { };
}

void TestClipRecovery::makePair(const ClipInfo &info, int frames, QByteArray &left,
                                QByteArray &closed) const
{
    QFile::remove(path("pair.mov"));
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("pair.mov"), info).code, 0);
    QCOMPARE(writeFrames(writer, info, frames / 2).code, 0);
    QCOMPARE(writer.flush().code, 0);
    QCOMPARE(writeFrames(writer, info, frames - frames / 2, frames / 2).code, 0);
    QCOMPARE(writer.flush().code, 0);
    left = contentOf(path("pair.mov"));
    QCOMPARE(writer.close().code, 0);
    closed = contentOf(path("pair.mov"));
    QVERIFY(left != closed);
}

int TestClipRecovery::callsOfRecovery(const QByteArray &left) const
{
    if (!setContent(path("counted.mov"), left)) {
        return 0;
    }
    gate = { };
    gate.isWatching = true;
    const auto outcome = recover("counted.mov").outcome;
    gate.isWatching = false;
    return outcome == Outcome::Recovered ? gate.calls : 0;
}

void TestClipRecovery::aRecoveredClipIsTheOneItsWriterWouldHaveClosed_data()
{
    QTest::addColumn<int>("codec");
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<int>("rateNum");
    QTest::addColumn<int>("rateDen");
    QTest::addColumn<int>("scan");
    QTest::addColumn<int>("channels");
    QTest::addColumn<int>("timecodeFps");
    QTest::addColumn<QString>("reel");

    constexpr int p = int(Scan::Progressive);
    constexpr int i = int(Scan::Interlaced);
    constexpr int s = int(Scan::Segmented);
    // clang-format off
    QTest::newRow("25")         << int(Codec::ProRes422)      << 1920 << 1080 << 25    << 1    << p << 2 << 25 << "A1";
    QTest::newRow("29.97 drop") << int(Codec::ProRes422Hq)    << 1920 << 1080 << 30000 << 1001 << i << 8 << 30 << "Tü";
    QTest::newRow("23.976")     << int(Codec::ProRes422Lt)    << 1920 << 1080 << 24000 << 1001 << s << 2 << 24 << "";
    QTest::newRow("59.94")      << int(Codec::ProRes422Proxy) << 1280 << 720  << 60000 << 1001 << p << 0 << 60 << "B";
    QTest::newRow("halved")     << int(Codec::ProRes4444)     << 3840 << 2160 << 50    << 1    << p << 2 << 25 << "C";
    QTest::newRow("525 lines")  << int(Codec::ProRes422)      << 720  << 486  << 30000 << 1001 << i << 1 << 30 << "D";
    QTest::newRow("625 lines")  << int(Codec::ProRes422)      << 720  << 576  << 25    << 1    << i << 2 << 25 << "E";
    QTest::newRow("v210")       << int(Codec::V210)           << 1920 << 1080 << 24    << 1    << p << 2 << 24 << "F";
    QTest::newRow("dnx")        << int(Codec::DnxHqx)         << 1920 << 1080 << 30    << 1    << p << 2 << 30 << "G";
    QTest::newRow("untimed")    << int(Codec::ProRes422)      << 1920 << 1080 << 30000 << 1001 << p << 2 << 0  << "H";
    QTest::newRow("nothing")    << int(Codec::DnxHqx)         << 1920 << 1080 << 60    << 1    << p << 0 << 0  << "";
    // clang-format on
}

void TestClipRecovery::aRecoveredClipIsTheOneItsWriterWouldHaveClosed()
{
    QFETCH(int, codec);
    QFETCH(int, width);
    QFETCH(int, height);
    QFETCH(int, rateNum);
    QFETCH(int, rateDen);
    QFETCH(int, scan);
    QFETCH(int, channels);
    QFETCH(int, timecodeFps);
    QFETCH(QString, reel);
    ClipInfo info = sampleInfo(rateNum, rateDen, channels);
    info.video.codec = Codec(codec);
    info.video.width = width;
    info.video.height = height;
    info.video.scan = Scan(scan);
    info.video.topFieldFirst = height != 486;
    info.reel = reel.toStdString();
    info.timecode->fps = timecodeFps;
    info.timecode->dropFrame = reel == "Tü";
    if (timecodeFps == 0) {
        info.timecode.reset();
    }
    QByteArray left;
    QByteArray closed;
    makePair(info, 101, left, closed);
    QVERIFY(setContent(path("left.mov"), left));

    const Recovery recovery = recover("left.mov");
    QCOMPARE(recovery.error.text, std::string());
    QCOMPARE(int(recovery.outcome), int(Outcome::Recovered));
    QCOMPARE(recovery.frames, std::int64_t(101));
    QVERIFY(contentOf(path("left.mov")) == closed);
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("left.mov")).code, 0);
    QVERIFY(reader.info().isComplete);
    QCOMPARE(reader.info().reel, info.reel);
    QCOMPARE(firstWrongFrame(reader), -1);

    QCOMPARE(int(recover("left.mov").outcome), int(Outcome::Complete));
    QVERIFY(contentOf(path("left.mov")) == closed);
}

void TestClipRecovery::recoveryKilledAtAnyCallEndsInTheSameFile_data()
{
    QTest::addColumn<bool>("isHalfWay");
    QTest::addColumn<int>("tail");
    QTest::newRow("before the call") << false << 0;
    QTest::newRow("half way through") << true << 0;
    QTest::newRow("before the call, with a tail") << false << 5000;
    QTest::newRow("half way through, with a tail") << true << 300'000;
}

void TestClipRecovery::recoveryKilledAtAnyCallEndsInTheSameFile()
{
    QFETCH(bool, isHalfWay);
    QFETCH(int, tail);
    QByteArray left;
    QByteArray closed;
    makePair(sampleInfo(), 90, left, closed);
    left += noise(tail, 5);
    const int calls = callsOfRecovery(left);
    QVERIFY(calls >= 5);
    for (int first = 0; first < calls; ++first) {
        QVERIFY(setContent(path("killed.mov"), left));
        // Killed at one call, then at each one of the next attempt, then left to finish.
        for (int second = -1; second < calls; ++second) {
            const pid_t child = fork();
            QVERIFY(child >= 0);
            if (child == 0) {
                gate = { };
                gate.isWatching = true;
                gate.chosen = second < 0 ? first : second;
                gate.then = isHalfWay ? Gate::Then::DieHalfWay : Gate::Then::Die;
                _exit(recover("killed.mov").outcome == Outcome::Failed ? 1 : 0);
            }
            int status = 0;
            QCOMPARE(waitpid(child, &status, 0), child);
            QVERIFY(WIFEXITED(status) && WEXITSTATUS(status) != 1);
            ClipReader reader;
            QCOMPARE(reader.open(stdPath("killed.mov")).code, 0);
            QCOMPARE(reader.info().frames, std::int64_t(90));
        }
        QVERIFY(recover("killed.mov").outcome <= Outcome::Recovered);
        QVERIFY(contentOf(path("killed.mov")) == closed);
    }
}

void TestClipRecovery::aCallThatFailsLosesNothingAndMayBeTriedAgain_data()
{
    QTest::addColumn<int>("code");
    QTest::newRow("EIO") << EIO;
    QTest::newRow("ENOSPC") << ENOSPC;
    QTest::newRow("EDQUOT") << EDQUOT;
}

void TestClipRecovery::aCallThatFailsLosesNothingAndMayBeTriedAgain()
{
    QFETCH(int, code);
    QByteArray left;
    QByteArray closed;
    makePair(sampleInfo(), 90, left, closed);
    left += noise(3000, 6);
    const int calls = callsOfRecovery(left);
    for (int i = 0; i < calls; ++i) {
        QVERIFY(setContent(path("failed.mov"), left));
        gate = { };
        gate.isWatching = true;
        gate.chosen = i;
        gate.then = Gate::Then::Fail;
        gate.errorCode = code;
        const Recovery recovery = recover("failed.mov");
        gate.isWatching = false;
        // Giving room back behind a complete clip is all that may fail unnoticed.
        const bool isLost = recovery.outcome == Outcome::Failed && recovery.error.code == code;
        QVERIFY(isLost || i == calls - 2);
        ClipReader reader;
        QCOMPARE(reader.open(stdPath("failed.mov")).code, 0);
        QCOMPARE(reader.info().frames, std::int64_t(90));
        QCOMPARE(firstWrongFrame(reader), -1);
        QVERIFY(recover("failed.mov").outcome <= Outcome::Recovered);
        QVERIFY(contentOf(path("failed.mov")) == closed);
    }
}

void TestClipRecovery::whatWasNeverCommittedIsCutOff()
{
    const ClipInfo info = sampleInfo();
    ClipWriter writer;
    writer.setSyncing(ClipWriter::Syncing::BySync);
    QCOMPARE(writer.open(stdPath("tail.mov"), info).code, 0);
    QCOMPARE(writeFrames(writer, info, 24).code, 0);
    QCOMPARE(writer.sync().code, 0);
    QCOMPARE(writeFrames(writer, info, 24, 24).code, 0);
    const QByteArray left = contentOf(path("tail.mov"));
    QCOMPARE(writer.close().code, 0);
    QByteArray found;
    for (qsizetype cut = left.size(); cut > left.size() * 2 / 3; cut -= 33'331) {
        QVERIFY(setContent(path("cut.mov"), left.left(cut)));
        const Recovery recovery = recover("cut.mov");
        QCOMPARE(int(recovery.outcome), int(Outcome::Recovered));
        QCOMPARE(recovery.frames, std::int64_t(24));
        QVERIFY(found.isEmpty() || found == contentOf(path("cut.mov")));
        found = contentOf(path("cut.mov"));
    }
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("cut.mov")).code, 0);
    QVERIFY(reader.info().isComplete);
    QCOMPARE(firstWrongFrame(reader), -1);
    QCOMPARE(number(stream(probe(path("cut.mov")), "video"), "nb_read_packets"), 24);
}

void TestClipRecovery::theTimeOfTheLastChangeStays()
{
    QByteArray left;
    QByteArray closed;
    makePair(sampleInfo(), 24, left, closed);
    QVERIFY(setContent(path("timed.mov"), left));
    const auto then = QDateTime::fromSecsSinceEpoch(1'700'000'000);
    QFile file(path("timed.mov"));
    QVERIFY(file.open(QIODevice::ReadWrite));
    QVERIFY(file.setFileTime(then, QFileDevice::FileModificationTime));
    file.close();
    QCOMPARE(int(recover("timed.mov").outcome), int(Outcome::Recovered));
    QCOMPARE(QFileInfo(path("timed.mov")).lastModified(), then);
}

void TestClipRecovery::aCommitThatTheMediumLostBeforeALaterOneCostsNothing()
{
    QByteArray left;
    QByteArray closed;
    makePair(sampleInfo(), 96, left, closed);
    QList<qsizetype> commits;
    for (qsizetype at = left.indexOf("moof"); at >= 0; at = left.indexOf("moof", at + 1)) {
        commits.append(at);
    }
    QCOMPARE(commits.size(), qsizetype(10));
    QByteArray torn = left;
    for (const int lost : { 0, 2, 3, 6 }) {
        torn.replace(commits[lost], 4, "free");
    }
    QVERIFY(setContent(path("torn.mov"), torn));
    QCOMPARE(recover("torn.mov").frames, std::int64_t(96));
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("torn.mov")).code, 0);
    QCOMPARE(reader.info().frames, std::int64_t(96));
    QCOMPARE(firstWrongFrame(reader), -1);
}

void TestClipRecovery::aClipThatIsBeingWrittenIsLeftAlone()
{
    const ClipInfo info = sampleInfo();
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("busy.mov"), info).code, 0);
    QCOMPARE(int(recover("busy.mov").outcome), int(Outcome::Busy));
    QCOMPARE(writeFrames(writer, info, 30).code, 0);
    const QByteArray content = contentOf(path("busy.mov"));
    QCOMPARE(int(recover("busy.mov").outcome), int(Outcome::Busy));
    QVERIFY(contentOf(path("busy.mov")) == content);
    QCOMPARE(writer.close().code, 0);
    QCOMPARE(int(recover("busy.mov").outcome), int(Outcome::Complete));
}

void TestClipRecovery::aMediumThatMayNotBeWrittenIsLeftAlone()
{
    const SmallMedium medium(path("medium"), 4096);
    if (!medium.isMounted()) {
        QSKIP("a read-only file system takes the right to mount one");
    }
    QByteArray left;
    QByteArray closed;
    makePair(sampleInfo(), 40, left, closed);
    const bool isSet = setContent(path("medium/clip.mov"), left);
    const bool isReadOnly = ::mount("none", stdPath("medium").c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0;
    const auto outcome = recover("medium/clip.mov").outcome;
    ClipReader reader;
    const int code = reader.open(stdPath("medium/clip.mov")).code;
    const qint64 wrong = firstWrongFrame(reader);
    const qint64 frames = reader.info().frames;
    reader.close();
    QVERIFY(isSet && isReadOnly);
    QCOMPARE(int(outcome), int(Outcome::ReadOnly));
    QCOMPARE(code, 0);
    QCOMPARE(frames, qint64(40));
    QCOMPARE(wrong, qint64(-1));
}

void TestClipRecovery::otherFilesAreLeftAlone()
{
    QByteArray foreign(4096, 0);
    for (const QByteArray &content : { QByteArray(), QByteArray("hello"), foreign, noise(5000, 1) }) {
        QVERIFY(setContent(path("other.mov"), content));
        QCOMPARE(int(recover("other.mov").outcome), int(Outcome::NotOurs));
        QVERIFY(contentOf(path("other.mov")) == content);
    }
    QCOMPARE(int(recover("missing.mov").outcome), int(Outcome::Failed));
    QCOMPARE(recover("missing.mov").error.code, ENOENT);
    QCOMPARE(int(clip::recover(_dir.path().toStdString()).outcome), int(Outcome::Failed));
    QByteArray left;
    QByteArray closed;
    makePair(sampleInfo(), 24, left, closed);
    QVERIFY(setContent(path("target.mov"), left));
    QFile::remove(path("link.mov"));
    QVERIFY(QFile::link(path("target.mov"), path("link.mov")));
    QCOMPARE(int(recover("link.mov").outcome), int(Outcome::Failed));
    QVERIFY(contentOf(path("target.mov")) == left);

    // A fragmented movie that another program left open.
    const QByteArray made = run("ffmpeg", { "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc=d=2:s=320x180",
        "-c:v", "prores", "-movflags", "empty_moov+frag_keyframe", "-f", "mov", path("ffmpeg.mov") });
    const QByteArray content = contentOf(path("ffmpeg.mov"));
    QVERIFY(content.size() > 1000);
    QCOMPARE(int(recover("ffmpeg.mov").outcome), int(Outcome::NotOurs));
    QVERIFY(contentOf(path("ffmpeg.mov")) == content);
}

void TestClipRecovery::aHeadThatDiffersInAnyByteIsLeftAlone()
{
    const ClipInfo info = sampleInfo();
    QByteArray left;
    QByteArray closed;
    makePair(info, 24, left, closed);
    const auto headSize = qsizetype(clip::movieHead(info).size());
    for (qsizetype at = 0; at < headSize; ++at) {
        QByteArray changed = left;
        changed[at] = char(changed[at] ^ 0x41);
        QVERIFY(setContent(path("changed.mov"), changed));
        const auto outcome = recover("changed.mov").outcome;
        // Some bytes are the format itself: another name of the reel makes another clip.
        if (outcome != Outcome::Recovered) {
            QVERIFY(contentOf(path("changed.mov")) == changed);
            continue;
        }
        ClipReader reader;
        QCOMPARE(reader.open(stdPath("changed.mov")).code, 0);
        QCOMPARE(reader.info().frames, std::int64_t(24));
        QCOMPARE(readPicture(reader, 23), picture(23));
    }
}

void TestClipRecovery::damagedFragmentsNeitherCrashItNorGetIn()
{
    QByteArray left;
    QByteArray closed;
    makePair(sampleInfo(), 48, left, closed);
    QRandomGenerator generator(11);
    qsizetype fourth = 0; // which begins with the twelfth frame
    for (int i = 0; i < 4; ++i) {
        fourth = left.indexOf("moof", fourth + 1);
    }
    for (int round = 0; round < 1500; ++round) {
        QByteArray damaged = left;
        for (int i = 0; i < 1 + round % 4; ++i) {
            const auto at = fourth - 4 + qsizetype(generator.bounded(round % 2 ? 240 : 60));
            damaged[at] = char(generator.bounded(256));
        }
        QVERIFY(setContent(path("damaged.mov"), damaged));
        const Recovery recovery = recover("damaged.mov");
        QCOMPARE(int(recovery.outcome), int(Outcome::Recovered));
        QVERIFY(recovery.frames >= 12 && recovery.frames <= 48);
        ClipReader reader;
        QCOMPARE(reader.open(stdPath("damaged.mov")).code, 0);
        QCOMPARE(reader.info().frames, recovery.frames);
        QCOMPARE(readPicture(reader, 11), picture(11));
    }
}

void TestClipRecovery::aClipWithoutAFrameIsRemoved()
{
    const auto head = clip::movieHead(sampleInfo(30000, 1001));
    const QByteArray bytes(reinterpret_cast<const char *>(head.data()), qsizetype(head.size()));
    QVERIFY(setContent(path("empty.mov"), bytes));
    QCOMPARE(int(recover("empty.mov").outcome), int(Outcome::Removed));
    QVERIFY(!QFile::exists(path("empty.mov")));

    const auto reserved = QByteArray::fromStdString(clip::reservedContent(16384));
    QCOMPARE(reserved.size(), qsizetype(16384));
    QVERIFY(setContent(path("name.mov"), reserved));
    QCOMPARE(int(recover("name.mov").outcome), int(Outcome::Removed));
    QVERIFY(!QFile::exists(path("name.mov")));
    QVERIFY(setContent(path("name.mov"), reserved + "x"));
    QCOMPARE(int(recover("name.mov").outcome), int(Outcome::NotOurs));
}

void TestClipRecovery::aPlanThatDoesNotFitItsFileIsNotCarriedOut()
{
    QByteArray left;
    QByteArray closed;
    makePair(sampleInfo(), 48, left, closed);
    QVERIFY(setContent(path("planned.mov"), left));
    const auto carryOut = [&](auto change) {
        return clip::recover(stdPath("planned.mov"), [&](const clip::RawFile &file) {
            std::optional<clip::RecoveryPlan> plan = clip::planRecovery(file);
            change(plan);
            return plan;
        });
    };
    using Plan = std::optional<clip::RecoveryPlan>;
    const std::function<void(Plan &)> lies[] = {
        [](Plan &plan) { plan.reset(); },
        [](Plan &plan) { plan->frames = 0; },
        [](Plan &plan) { plan->end = 30; },
        [&](Plan &plan) { plan->end = std::uint64_t(left.size()) + 1; },
        [](Plan &plan) { plan->movie.clear(); },
        [](Plan &plan) { plan->movie.pop_back(); },
        [](Plan &plan) { plan->movie[4] = std::byte('f'); },
    };
    for (const auto &lie : lies) {
        QCOMPARE(int(carryOut(lie).outcome), int(Outcome::Failed));
        QVERIFY(contentOf(path("planned.mov")) == left);
    }
    const Recovery recovery = carryOut([](Plan &) { });
    QCOMPARE(int(recovery.outcome), int(Outcome::Recovered));
    QVERIFY(contentOf(path("planned.mov")) == closed);
}

/// Fragments of half a second at 60 frames a second, 800 GB of them, without their pictures.
void TestClipRecovery::tenHoursTakeTwoReadsAFragment()
{
    constexpr int fragments = 72'000;
    constexpr int frames = 30;
    constexpr std::uint32_t size = 360'000;
    ClipInfo info = sampleInfo(60, 1, 0);
    info.timecode.reset();
    const auto head = clip::movieHead(info);
    const int descriptor = ::open(stdPath("hours.mov").c_str(), O_RDWR | O_CREAT, 0600);
    QVERIFY(descriptor >= 0);
    std::uint64_t offset = head.size();
    QCOMPARE(::pwrite(descriptor, head.data(), head.size(), 0), ssize_t(head.size()));
    for (std::uint32_t i = 0; i < fragments; ++i) {
        clip::BoxWriter writer;
        writer.box("moof", [&] {
            writer.full("mfhd", 0, 0, [&] { writer.u32(i + 1); });
            writer.box("traf", [&] {
                writer.full("tfhd", 0, 0x39, [&] { writer.u32(1).u64(offset).u32(1).u32(0).u32(0); });
                writer.full("tfdt", 1, 0, [&] { writer.u64(std::uint64_t(i) * frames); });
                writer.full("trun", 0, 0x201, [&] {
                    writer.u32(frames).u32(300);
                    for (int frame = 0; frame < frames; ++frame) {
                        writer.u32(size);
                    }
                });
            });
        });
        const std::uint64_t headSize = writer.size();
        constexpr std::uint64_t dataSize = 16 + 300 + std::uint64_t(size) * frames;
        writer.u32(1).code("mdat").u64(dataSize);
        const auto length = ssize_t(writer.size());
        QCOMPARE(::pwrite(descriptor, writer.bytes().data(), writer.size(), off_t(offset)), length);
        offset += headSize + dataSize;
    }
    QCOMPARE(::ftruncate(descriptor, off_t(offset)), 0);
    ::close(descriptor);

    gate.reads = 0;
    const std::clock_t before = std::clock();
    const Recovery recovery = recover("hours.mov");
    const double seconds = double(std::clock() - before) / CLOCKS_PER_SEC;
    qInfo("ten hours, %.0f GB: recovered in %.2f s of processor time", double(offset) / 1e9, seconds);
    QCOMPARE(int(recovery.outcome), int(Outcome::Recovered));
    QCOMPARE(recovery.frames, std::int64_t(fragments) * frames);
    QVERIFY(gate.reads <= 2 * fragments + 100);
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("hours.mov")).code, 0);
    QVERIFY(reader.info().isComplete);
    QCOMPARE(reader.info().frames, std::int64_t(fragments) * frames);
    reader.close();
    QVERIFY(QFile::remove(path("hours.mov")));
}

QTEST_GUILESS_MAIN(TestClipRecovery)
#include "tst_clip_recovery.moc"
