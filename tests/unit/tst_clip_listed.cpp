#include "cliplister.h"
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

QTEST_GUILESS_MAIN(TestClipListed)
#include "tst_clip_listed.moc"
