#include "libclip/clipreader.h"
#include "libclip/cliprecovery.h"
#include "liborb/drivers/clip/writedriver.h"
#include "liborb/orblog.h"
#include "tst_clip_calls.h"
#include "tst_streamfiles.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

namespace {

/// Keeps the last answer to each frame.
class Host : public OrbMediaDriverHost
{
public:
    int opened = -1;
    QList<int> answers;
    int repeated = -1; ///< a frame that was answered again
    int afterClose = 0;
    bool isClosed = false;

    void driverOpened(const OrbError &error, const OrbStreamInfo &) override { opened = error.value(); }
    void driverClosed() override { isClosed = true; }
    void driverFrameRead(int, const OrbFrame &, const OrbError &, void *) override {}
    void driverFrameWritten(int frame, const OrbError &error) override
    {
        afterClose += isClosed ? 1 : 0;
        if (frame < answers.size()) {
            repeated = frame;
            answers[frame] = error.value();
        } else {
            answers.append(error.value());
        }
    }

    int firstError() const
    {
        for (int i = 0; i < answers.size(); ++i) {
            if (answers[i] != 0)
                return i;
        }
        return int(answers.size());
    }
};

constexpr int frames = 64; // four fragments and four frames

} // namespace

/// The clip writer behind its driver: what a failing medium does not take is told.
class TestClipSink : public QObject
{
    Q_OBJECT

private slots:
    void aCallThatFailsIsToldOrHarmless_data();
    void aCallThatFailsIsToldOrHarmless();
    void aCloseThatLosesFramesAnswersTheFirstOfThemAgain();
    void afterAFailedSyncTheFileIsNeverSyncedAgain();
    void aNameWithoutAFrameIsKnownToRecovery();

private:
    void record(Host &host, int count = frames);

    QTemporaryDir _dir{QFileInfo(QStringLiteral("/dev/shm")).isWritable()
                           ? QStringLiteral("/dev/shm/tst_clip_sink-XXXXXX")
                           : QDir::tempPath() + QStringLiteral("/tst_clip_sink-XXXXXX")};
    QString _path;
};

void TestClipSink::record(Host &host, int count)
{
    QFile::remove(_path);
    const OrbStreamInfo info = files::streamInfo();
    WriteDriver driver(&host);
    driver.open(_path, info);
    waitUntil([&] { return host.opened >= 0; });
    if (host.opened == 0) {
        for (int i = 0; i < count; ++i)
            driver.write(files::frame(info, i));
        driver.flush();
    }
    driver.close();
    waitUntil([&] { return host.isClosed; });
}

void TestClipSink::aCallThatFailsIsToldOrHarmless_data()
{
    addFaults();
}

void TestClipSink::aCallThatFailsIsToldOrHarmless()
{
    QFETCH(int, code);
    QFETCH(bool, isForGood);
    _path = _dir.filePath(QStringLiteral("swept.mov"));
    int told = 0;
    int harmless = 0;
    for (int i = 0;; ++i) {
        fault.reset(i, code, isForGood);
        Host host;
        record(host);
        const bool wasReached = fault.calls > i;
        fault.reset(-1, 0, false);
        clip::ClipReader reader;
        const bool isReadable = !reader.open(_path.toStdString());
        const auto found = isReadable ? int(reader.info().frames) : 0;
        const bool isTold = host.opened != 0 || host.firstError() < frames;
        QCOMPARE(host.afterClose, 0);
        if (host.opened == 0)
            QCOMPARE(int(host.answers.size()), frames);
        // Nothing is lost that was not told.
        QVERIFY2(found >= (host.opened == 0 ? host.firstError() : 0), qPrintable(QString::number(i)));
        if (!isTold)
            QCOMPARE(found, frames);
        for (int frame = 0; frame < found; ++frame) {
            std::vector<std::byte> bytes(reader.pictureSize(frame));
            QCOMPARE(reader.readPicture(frame, bytes).code, 0);
            const QByteArray picture(reinterpret_cast<const char *>(bytes.data()), qsizetype(bytes.size()));
            QCOMPARE(picture, files::pictureBytes(frame));
        }
        if (!wasReached) {
            QVERIFY(!isTold);
            break;
        }
        ++(isTold ? told : harmless);
    }
    qInfo("%d calls failed: %d told, %d harmless", told + harmless, told, harmless);
    QVERIFY(told > 15);
}

void TestClipSink::aCloseThatLosesFramesAnswersTheFirstOfThemAgain()
{
    _path = _dir.filePath(QStringLiteral("closed.mov"));
    // Two times 14 frames are in fragments when what makes one of the next nine cannot be written.
    const OrbStreamInfo info = files::streamInfo();
    Host host;
    WriteDriver driver(&host);
    driver.open(_path, info);
    for (int i = 0; i < 37; ++i)
        driver.write(files::frame(info, i));
    QTRY_COMPARE_WITH_TIMEOUT(host.answers.size(), 37, files::patienceMs);
    QCOMPARE(host.firstError(), 37);
    fault.reset(0, ENOSPC, false, SYS_pwrite64);
    driver.close();
    QTRY_VERIFY_WITH_TIMEOUT(host.isClosed, files::patienceMs);
    fault.reset(-1, 0, false);
    QCOMPARE(host.repeated, 28);
    QCOMPARE(host.answers[28], ENOSPC);
    QCOMPARE(host.afterClose, 0);
    clip::ClipReader reader;
    QCOMPARE(reader.open(_path.toStdString()).code, 0);
    QVERIFY(reader.info().isComplete);
    QCOMPARE(reader.info().frames, std::int64_t(28));
}

void TestClipSink::afterAFailedSyncTheFileIsNeverSyncedAgain()
{
    _path = _dir.filePath(QStringLiteral("synced.mov"));
    // The first sync is that of the name, the second that of the head. How many more there are is a
    // matter of the threads' pace, but each fragment and the close have one.
    for (int i = 2;; ++i) {
        fault.reset(i, EIO, false, SYS_fdatasync);
        Host host;
        record(host);
        const int syncs = fault.calls;
        fault.reset(-1, 0, false);
        if (syncs <= i) {
            QVERIFY(i > 3);
            break;
        }
        QCOMPARE(syncs, i + 1);
        QVERIFY(host.firstError() < frames);
    }
}

void TestClipSink::aNameWithoutAFrameIsKnownToRecovery()
{
    _path = _dir.filePath(QStringLiteral("named.mov"));
    Host host;
    WriteDriver driver(&host);
    driver.open(_path, files::streamInfo());
    QTRY_COMPARE_WITH_TIMEOUT(host.opened, 0, files::patienceMs);
    // A copy is what a crash would have left.
    const QString left = _dir.filePath(QStringLiteral("left.mov"));
    QVERIFY(QFile::copy(_path, left));
    QCOMPARE(int(clip::recover(left.toStdString()).outcome), int(clip::Recovery::Outcome::Removed));
    driver.close();
    QTRY_VERIFY_WITH_TIMEOUT(host.isClosed, files::patienceMs);
    QVERIFY(!QFile::exists(_path));
}

QTEST_GUILESS_MAIN(TestClipSink)
#include "tst_clip_sink.moc"
