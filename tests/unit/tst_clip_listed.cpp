#include "cliplister.h"
#include "libclip/cliprecovery.h"
#include "libclip/rawfile.h"
#include "tst_clip_tools.h"

#include <cerrno>
#include <cstdarg>

#include <fcntl.h>
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

private:
    std::list<Clip> list();
    void leaveClip(const QString &path) const;

    KnownClips _known;
    QTemporaryDir _dir { scratchTemplate() };
};

std::list<Clip> TestClipListed::list()
{
    ClipLister lister(_known, RVGROK);
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

QTEST_GUILESS_MAIN(TestClipListed)
#include "tst_clip_listed.moc"
