#include "cliplister.h"
#include "libclip/boxwriter.h"
#include "libclip/cliprecovery.h"
#include "libclip/movhead.h"
#include "libclip/rawfile.h"
#include "recoveryanswer.h"
#include "tst_clip_tools.h"

#include <cerrno>
#include <cstdarg>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace cliptest;

namespace {

bool hasLeases = true;

} // namespace

/// The library's calls end here instead of in the C library.
extern "C" int fcntl64(int file, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    if (command == F_SETLEASE && !hasLeases) {
        errno = EINVAL;
        return -1;
    }
    return int(syscall(SYS_fcntl, file, command, argument));
}

/// The media service and clips whose writers died.
class TestClipListed : public QObject
{
    Q_OBJECT

private slots:
    void aClipWhoseWriterDiedIsCompletedWhenItIsListed();
    void aClipWhoseWriterDiedBeforeItsFirstFrameIsGone();
    void aReservedNameIsLeftToItsWriter();
    void withoutLeasesALockTellsOfAWriter();
    void withoutLeasesAClipIsCompletedWhenNobodyElseCanWriteIt();
    void onlyTheConfinedProcessReadsWhatIsCompleted();
    void aFileThatTakesTheReadersMemoryTakesNoneOfTheService();
    void aPlanIsSentWhole();
    void whatIsNoPlanIsRefused_data();
    void whatIsNoPlanIsRefused();

private:
    std::list<Clip> list(const std::string &inspector = RVGROK);
    void leaveClip(const QString &path) const;

    KnownClips _known;
    QTemporaryDir _dir { scratchTemplate() };
};

std::list<Clip> TestClipListed::list(const std::string &inspector)
{
    ClipLister lister(_known, inspector);
    int error = 0;
    return lister.list(_dir.path().toStdString(), error);
}

/// A clip of 30 frames whose writer died.
void TestClipListed::leaveClip(const QString &path) const
{
    const pid_t child = fork();
    QVERIFY(child >= 0);
    if (child == 0) {
        clip::ClipWriter writer;
        const bool isWritten = !writer.open(path.toStdString(), sampleInfo())
            && !writeFrames(writer, sampleInfo(), 30) && !writer.flush();
        _exit(isWritten ? 0 : 1);
    }
    int status = 0;
    QCOMPARE(waitpid(child, &status, 0), child);
    QCOMPARE(WEXITSTATUS(status), 0);
}

void TestClipListed::aClipWhoseWriterDiedIsCompletedWhenItIsListed()
{
    const QString path = _dir.filePath("dead.mov");
    leaveClip(path);
    for (int i = 0; i < 2; ++i) {
        const std::list<Clip> clips = list();
        QCOMPARE(clips.size(), std::size_t(1));
        QVERIFY(clips.front().state() == ClipState::Ready);
        QCOMPARE(clips.front().getFrameCount(), 30);
    }
    clip::ClipReader reader;
    QCOMPARE(reader.open(path.toStdString()).code, 0);
    QVERIFY(reader.info().isComplete);
    QCOMPARE(firstWrongFrame(reader), -1);
    QVERIFY(QFile::remove(path));
}

void TestClipListed::aClipWhoseWriterDiedBeforeItsFirstFrameIsGone()
{
    const QString path = _dir.filePath("begun.mov");
    QByteArray head;
    {
        clip::ClipWriter writer;
        QCOMPARE(writer.open(path.toStdString(), sampleInfo()).code, 0);
        head = contentOf(path);
        // Its writer is there.
        QCOMPARE(list().size(), std::size_t(1));
    }
    const std::string reserved = clip::reservedContent(16384);
    for (const QByteArray &left : { head, QByteArray::fromStdString(reserved) }) {
        QVERIFY(setContent(path, left));
        QVERIFY(list().empty());
        QVERIFY(!QFile::exists(path));
    }
    // Somebody else's file is not.
    QVERIFY(setContent(path, "somebody else's" + head));
    (void)list();
    QVERIFY(QFile::remove(path));
}

void TestClipListed::aReservedNameIsLeftToItsWriter()
{
    const QString path = _dir.filePath("reserved.mov");
    clip::RawFile file;
    QCOMPARE(file.create(path.toStdString()).code, 0);
    const std::string content = clip::reservedContent(16384);
    QCOMPARE(file.writeAt(0, std::as_bytes(std::span(content))).code, 0);
    (void)list();
    QVERIFY(QFile::exists(path));
    QVERIFY(clip::recover(path.toStdString()).outcome == clip::Recovery::Outcome::Busy);
    // The name is another clip's already when the reservation is let go.
    QVERIFY(file.isAt(path.toStdString()));
    QVERIFY(QFile::remove(path));
    QVERIFY(!file.isAt(path.toStdString()));
    QVERIFY(setContent(path, "another one"));
    QVERIFY(!file.isAt(path.toStdString()));
    QVERIFY(QFile::remove(path));
}

void TestClipListed::withoutLeasesALockTellsOfAWriter()
{
    hasLeases = false;
    const QString path = _dir.filePath("written.mov");
    clip::ClipWriter writer;
    QCOMPARE(writer.open(path.toStdString(), sampleInfo()).code, 0);
    QCOMPARE(writeFrames(writer, sampleInfo(), 30).code, 0);
    QCOMPARE(writer.flush().code, 0);
    const timespec longAgo[2] = { { 1000, 0 }, { 1000, 0 } };
    QCOMPARE(utimensat(AT_FDCWD, path.toLocal8Bit().constData(), longAgo, 0), 0);
    const QByteArray before = contentOf(path);
    const std::list<Clip> clips = list();
    QCOMPARE(clips.size(), std::size_t(1));
    QVERIFY(clips.front().state() == ClipState::Recording);
    QCOMPARE(contentOf(path), before);
    QCOMPARE(writer.close().code, 0);
    hasLeases = true;
    QVERIFY(QFile::remove(path));
}

void TestClipListed::withoutLeasesAClipIsCompletedWhenNobodyElseCanWriteIt()
{
    hasLeases = false;
    const QString path = _dir.filePath("left.mov");
    leaveClip(path);
    struct stat status { };
    QCOMPARE(::stat(_dir.path().toLocal8Bit().constData(), &status), 0);
    const bool isOwnDevice = gnu_dev_major(status.st_dev) != 0;
    const auto isComplete = [&] {
        clip::ClipReader reader;
        return !reader.open(path.toStdString()) && reader.info().isComplete;
    };
    // Another machine may have it open, where there is no device of this one.
    (void)list();
    QCOMPARE(isComplete(), isOwnDevice);
    const timespec longAgo[2] = { { 1000, 0 }, { 1000, 0 } };
    QCOMPARE(utimensat(AT_FDCWD, path.toLocal8Bit().constData(), longAgo, 0), 0);
    (void)list();
    QVERIFY(isComplete());
    hasLeases = true;
    QVERIFY(QFile::remove(path));
}

void TestClipListed::onlyTheConfinedProcessReadsWhatIsCompleted()
{
    const QString path = _dir.filePath("unread.mov");
    leaveClip(path);
    const QByteArray left = contentOf(path);
    // A reader that dies of every file.
    (void)list("/bin/false");
    QVERIFY(contentOf(path) == left);
    // One of another name is not known.
    const QString renamed = _dir.filePath("read.mov");
    QVERIFY(QFile::rename(path, renamed));
    QCOMPARE(list().size(), std::size_t(1));
    QVERIFY(contentOf(renamed) != left);
    QVERIFY(QFile::remove(renamed));
}

/// Fragments of nothing, none of them committed: all are kept until one is.
void TestClipListed::aFileThatTakesTheReadersMemoryTakesNoneOfTheService()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    QSKIP("the reader's memory has no bound under a sanitizer");
#endif
    constexpr int fragments = 1'500'000;
    const auto head = clip::movieHead(sampleInfo());
    clip::BoxWriter nothing;
    nothing.u32(8).code("free").u32(1).code("mdat").u64(16);
    const QByteArray fragment(reinterpret_cast<const char *>(nothing.bytes().data()), qsizetype(nothing.size()));
    const QByteArray content =
        QByteArray(reinterpret_cast<const char *>(head.data()), qsizetype(head.size())) + fragment.repeated(fragments);
    const QString path = _dir.filePath("hostile.mov");
    QVERIFY(setContent(path, content));
    rusage before { };
    rusage after { };
    QCOMPARE(getrusage(RUSAGE_SELF, &before), 0);
    (void)list();
    QCOMPARE(getrusage(RUSAGE_SELF, &after), 0);
    QVERIFY2(after.ru_maxrss - before.ru_maxrss < 32 * 1024, qPrintable(QString::number(after.ru_maxrss)));
    QVERIFY(contentOf(path) == content);
    QVERIFY(QFile::remove(path));
    // The next clip has a reader again.
    leaveClip(path);
    (void)list();
    clip::ClipReader reader;
    QCOMPARE(reader.open(path.toStdString()).code, 0);
    QVERIFY(reader.info().isComplete);
    QVERIFY(QFile::remove(path));
}

void TestClipListed::aPlanIsSentWhole()
{
    for (const std::size_t length : { 0u, 1u, 32768u, 100'000u }) {
        int ends[2];
        QCOMPARE(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
        clip::RecoveryPlan plan;
        plan.kind = clip::RecoveryPlan::Kind::Completed;
        plan.end = 0x0123456789abcdef;
        plan.frames = 0x123456789;
        const QByteArray movie = noise(int(length), 7);
        plan.movie.assign(bytesOf(movie).begin(), bytesOf(movie).end());
        QVERIFY(sendPlan(ends[0], plan));
        const auto received = receivePlan([&](std::span<std::byte> bytes) {
            return long(recv(ends[1], bytes.data(), bytes.size(), MSG_DONTWAIT));
        });
        QVERIFY(received.has_value());
        QVERIFY(received->kind == plan.kind);
        QCOMPARE(received->end, plan.end);
        QCOMPARE(received->frames, plan.frames);
        QVERIFY(received->movie == plan.movie);
        ::close(ends[0]);
        QVERIFY(!sendPlan(ends[0], plan));
        ::close(ends[1]);
    }
}

void TestClipListed::whatIsNoPlanIsRefused_data()
{
    QTest::addColumn<QByteArrayList>("messages");
    const auto number = [](quint64 value) {
        QByteArray bytes;
        for (int i = 0; i < 8; ++i) {
            bytes.append(char(value >> 8 * i));
        }
        return bytes;
    };
    const auto head = [&](quint64 kind, quint64 end, quint64 frames, quint64 movieBytes) {
        return number(kind) + number(end) + number(frames) + number(movieBytes);
    };
    QTest::newRow("nothing") << QByteArrayList { };
    QTest::newRow("half a head") << QByteArrayList { head(2, 0, 1, 8).first(16) };
    QTest::newRow("a kind that there is not") << QByteArrayList { head(3, 0, 1, 0) };
    QTest::newRow("more frames than there are") << QByteArrayList { head(2, 0, ~0ull, 0) };
    QTest::newRow("a movie without end") << QByteArrayList { head(2, 0, 1, 1ull << 40) };
    QTest::newRow("half a movie") << QByteArrayList { head(2, 0, 1, 8), "moov" };
    QTest::newRow("more than a movie") << QByteArrayList { head(2, 0, 1, 8), "moovmoovmoov" };
}

void TestClipListed::whatIsNoPlanIsRefused()
{
    QFETCH(QByteArrayList, messages);
    QVERIFY(!receivePlan([&](std::span<std::byte> bytes) {
        if (messages.isEmpty()) {
            return -1L;
        }
        const QByteArray message = messages.takeFirst();
        const auto length = std::min(bytes.size(), std::size_t(message.size()));
        std::copy_n(bytesOf(message).begin(), length, bytes.begin());
        return long(length);
    }));
    QVERIFY(messages.isEmpty());
}

QTEST_GUILESS_MAIN(TestClipListed)
#include "tst_clip_listed.moc"
