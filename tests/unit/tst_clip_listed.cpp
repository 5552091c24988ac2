#include "cliplister.h"
#include "libclip/cliprecovery.h"
#include "libclip/rawfile.h"
#include "tst_clip_tools.h"

#include <sys/wait.h>
#include <unistd.h>

using namespace cliptest;

/// The media service and clips whose writers died.
class TestClipListed : public QObject
{
    Q_OBJECT

private slots:
    void aClipWhoseWriterDiedIsCompletedWhenItIsListed();
    void aClipWhoseWriterDiedBeforeItsFirstFrameIsGone();
    void aReservedNameIsLeftToItsWriter();

private:
    std::list<Clip> list();

    KnownClips _known;
    QTemporaryDir _dir { scratchTemplate() };
};

std::list<Clip> TestClipListed::list()
{
    ClipLister lister(_known, RVGROK);
    int error = 0;
    return lister.list(_dir.path().toStdString(), error);
}

void TestClipListed::aClipWhoseWriterDiedIsCompletedWhenItIsListed()
{
    const QString path = _dir.filePath("dead.mov");
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

QTEST_GUILESS_MAIN(TestClipListed)
#include "tst_clip_listed.moc"
