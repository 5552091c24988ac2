#include "libclip/clipreader.h"
#include "liborb/drivers/clip/writedriver.h"
#include "tst_clip_calls.h"
#include "tst_streamfiles.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

namespace {

constexpr int frames = 64; // four fragments and four frames

/// A stream that may know other media.
class Host : public OrbMediaDriverHost
{
public:
    int opened = -1;
    QList<int> answers;
    QStringList spares; ///< taken from the front
    QStringList asked;
    QStringList went;   ///< "from>to error"
    QList<int> lost;
    QList<bool> slow;
    bool isClosed = false;

    void driverOpened(const OrbError &error, const OrbStreamInfo &) override { opened = error.value(); }
    void driverClosed() override { isClosed = true; }
    void driverFrameRead(int, const OrbFrame &, const OrbError &, void *) override {}
    void driverFrameWritten(int frame, const OrbError &error) override
    {
        if (frame < answers.size())
            answers[frame] = error.value();
        else
            answers.append(error.value());
    }
    QVariant driverSpareDesc(const QVariant &failed, const OrbError &) override
    {
        asked << QFileInfo(failed.toString()).fileName();
        return spares.isEmpty() ? QVariant() : spares.takeFirst();
    }
    void driverWentOver(const QVariant &failed, const QVariant &desc, const OrbError &error) override
    {
        went << QStringLiteral("%1>%2 %3").arg(QFileInfo(failed.toString()).fileName(),
                                               QFileInfo(desc.toString()).fileName(),
                                               QString::number(error.value()));
    }
    void driverMediumFailed(const QVariant &, const OrbError &, int framesLost) override { lost << framesLost; }
    void driverMediumSlow(bool isSlow) override { slow << isSlow; }

    int errors() const { return int(answers.size() - answers.count(0)); }
};

/// A fifth of what a recorder has, where nothing depends on how busy the machine is.
using std::chrono::milliseconds;
constexpr WriteDriver::Patience littlePatience{.tick = milliseconds(40),         .slowAfter = milliseconds(70),
                                               .quickAfter = milliseconds(200),  .mayHangAfter = milliseconds(200),
                                               .hangsAfter = milliseconds(680), .toCatchUp = milliseconds(600)};

} // namespace

/// A recording whose medium fails goes on on another one and has every frame.
class TestClipSpare : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void noFrameIsLostWhicheverCallFails_data();
    void noFrameIsLostWhicheverCallFails();
    void withoutASpareTheFramesLostAreCounted();
    void aSpareThatFailsIsTheEnd();
    void aThirdMediumTakesWhatTheSecondDoesNot();
    void aNameThatIsTakenIsAskedForAgain();
    void aMediumIsNotTriedAgain();
    void aFrameThatCannotBeCodedIsNotTheMediumsFailure();
    void aMediumThatHangsIsLeftBehind_data();
    void aMediumThatHangsIsLeftBehind();
    void aMediumThatIsTooSlowIsLeft();
    void aStallOfThreeSecondsLosesNothingAndStays();
    void aClipWhoseNameIsGoneIsContinuedElsewhere();
    void framesAreReleasedWhenTheyAreCommitted();

private:
    QString first(const QString &name = QStringLiteral("a.mov")) const { return _dir.filePath("first/" + name); }
    QString second(const QString &name = QStringLiteral("a_2.mov")) const { return _dir.filePath("second/" + name); }
    QString third() const { return _dir.filePath(QStringLiteral("third/a_3.mov")); }
    void record(Host &host, int count = frames);
    int framesOf(const QString &path, int from, int &wrong) const;
    void verifyUnion(const QStringList &clips, int count, int end = 0) const;

    QTemporaryDir _dir{QFileInfo(QStringLiteral("/dev/shm")).isWritable()
                           ? QStringLiteral("/dev/shm/tst_clip_spare-XXXXXX")
                           : QDir::tempPath() + QStringLiteral("/tst_clip_spare-XXXXXX")};
};

void TestClipSpare::init()
{
    for (const char *folder : {"first", "second", "third"}) {
        QDir(_dir.filePath(QLatin1String(folder))).removeRecursively();
        QVERIFY(QDir().mkpath(_dir.filePath(QLatin1String(folder))));
    }
    fault.folder = "/first";
}

void TestClipSpare::cleanup()
{
    fault.isHanging = false;
    fault.reset(-1, 0, false);
}

void TestClipSpare::record(Host &host, int count)
{
    const OrbStreamInfo info = files::streamInfo();
    WriteDriver driver(&host);
    driver.open(first(), info);
    waitUntil([&] { return host.opened >= 0; });
    if (host.opened == 0) {
        for (int i = 0; i < count; ++i)
            driver.write(files::frame(info, i));
        driver.flush();
    }
    driver.close();
    waitUntil([&] { return host.isClosed; });
}

/// Frames of a clip, which begin with frame \a from of the recording; \a wrong counts those that are not it.
int TestClipSpare::framesOf(const QString &path, int from, int &wrong) const
{
    clip::ClipReader reader;
    if (reader.open(path.toStdString()))
        return 0;
    for (int frame = 0; frame < int(reader.info().frames); ++frame) {
        std::vector<std::byte> bytes(reader.pictureSize(frame));
        const bool isRead = !reader.readPicture(frame, bytes);
        const QByteArray picture(reinterpret_cast<const char *>(bytes.data()), qsizetype(bytes.size()));
        wrong += isRead && picture == files::pictureBytes(from + frame) ? 0 : 1;
    }
    return int(reader.info().frames);
}

/// Each clip goes on where the one before it ends, the first at \a end, or earlier, and the last has the last
/// frame.
void TestClipSpare::verifyUnion(const QStringList &clips, int count, int end) const
{
    for (const QString &path : clips) {
        clip::ClipReader reader;
        if (reader.open(path.toStdString()))
            continue;
        std::vector<std::byte> bytes(reader.pictureSize(0));
        QCOMPARE(reader.readPicture(0, bytes).code, 0);
        const QByteArray picture(reinterpret_cast<const char *>(bytes.data()), qsizetype(bytes.size()));
        int from = 0;
        while (from < end && picture != files::pictureBytes(from))
            ++from;
        int wrong = 0;
        end = from + framesOf(path, from, wrong);
        QCOMPARE(wrong, 0);
        // The start timecode is that of the frame.
        QVERIFY(reader.info().timecode.has_value());
        QCOMPARE(int(reader.info().timecode->frameCount) - 1078920, from);
    }
    QCOMPARE(end, count);
}

void TestClipSpare::noFrameIsLostWhicheverCallFails_data()
{
    addFaults();
    QTest::newRow("the server is gone") << ENOTCONN << true;
}

void TestClipSpare::noFrameIsLostWhicheverCallFails()
{
    QFETCH(int, code);
    QFETCH(bool, isForGood);
    int over = 0;
    int harmless = 0;
    for (int i = 0;; ++i) {
        QFile::remove(first());
        QFile::remove(second());
        fault.reset(i, code, isForGood);
        Host host;
        host.spares << second();
        record(host);
        const bool wasReached = fault.calls > i;
        fault.reset(-1, 0, false);
        if (host.opened == 0) {
            QCOMPARE(int(host.answers.size()), frames);
            QCOMPARE(host.errors(), 0);
            QVERIFY(host.lost.isEmpty() || host.lost == QList<int>{0});
            QCOMPARE(host.went.size(), QFile::exists(second()) ? 1 : 0);
            verifyUnion({first(), second()}, frames);
        }
        if (!wasReached)
            break;
        ++(host.went.isEmpty() ? harmless : over);
    }
    qInfo("%d calls failed: %d went over, %d did not", over + harmless, over, harmless);
    QVERIFY(over > 15);
}

void TestClipSpare::withoutASpareTheFramesLostAreCounted()
{
    fault.reset(2, EIO, true, SYS_fdatasync);
    Host host;
    record(host);
    fault.reset(-1, 0, false);
    int wrong = 0;
    const int found = framesOf(first(), 0, wrong);
    QCOMPARE(wrong, 0);
    QCOMPARE(host.asked.first(), QStringLiteral("a.mov"));
    QCOMPARE(host.lost.size(), 1);
    // What is not known to be safe is called lost; the file may have it.
    QVERIFY(host.lost[0] > 0 && host.lost[0] >= frames - found);
    QVERIFY(host.errors() > 0);
    QVERIFY(host.went.isEmpty());
}

void TestClipSpare::aSpareThatFailsIsTheEnd()
{
    fault.folder = nullptr;
    fault.reset(2, EIO, true, SYS_fdatasync);
    Host host;
    host.spares << second();
    record(host);
    fault.reset(-1, 0, false);
    QVERIFY(host.went.isEmpty());
    QCOMPARE(host.asked, QStringList({"a.mov", "a_2.mov"}));
    QCOMPARE(host.lost.size(), 1);
    QVERIFY(host.lost[0] > 0);
    QVERIFY(!QFile::exists(second()));
}

void TestClipSpare::aThirdMediumTakesWhatTheSecondDoesNot()
{
    fault.folder = "/second";
    fault.reset(2, EIO, true, SYS_fdatasync);
    Host host;
    host.spares << second() << third();
    const OrbStreamInfo info = files::streamInfo();
    WriteDriver driver(&host);
    driver.open(first(), info);
    waitUntil([&] { return host.opened == 0; });
    for (int i = 0; i < 20; ++i)
        driver.write(files::frame(info, i));
    waitUntil([&] { return host.answers.size() == 20; });
    QFile::remove(first()); // within a second the medium counts as gone
    waitUntil([&] { return host.went.size() == 1; });
    for (int i = 20; i < 100; ++i)
        driver.write(files::frame(info, i));
    waitUntil([&] { return host.went.size() == 2; });
    driver.close();
    waitUntil([&] { return host.isClosed; });
    QCOMPARE(host.errors(), 0);
    verifyUnion({second(), third()}, 100, 14); // the first fragment went with its clip
}

void TestClipSpare::aNameThatIsTakenIsAskedForAgain()
{
    QFile taken(second());
    QVERIFY(taken.open(QIODevice::WriteOnly));
    QCOMPARE(taken.write("somebody else's"), qint64(15));
    taken.close();
    fault.reset(2, EIO, true, SYS_fdatasync);
    Host host;
    host.spares << second() << second(QStringLiteral("a_3.mov"));
    record(host);
    QCOMPARE(host.asked, QStringList({"a.mov", "a_2.mov"}));
    QCOMPARE(host.went, QStringList({"a.mov>a_3.mov 5"}));
    QCOMPARE(host.errors(), 0);
    verifyUnion({first(), second(QStringLiteral("a_3.mov"))}, frames);
    QCOMPARE(QFileInfo(second()).size(), 15);
}

void TestClipSpare::aMediumIsNotTriedAgain()
{
    fault.reset(2, EIO, true, SYS_fdatasync);
    Host host;
    host.spares << first(QStringLiteral("a_2.mov"));
    record(host);
    QVERIFY(!QFile::exists(first(QStringLiteral("a_2.mov"))));
    QVERIFY(host.went.isEmpty());
    QVERIFY(host.lost.value(0) > 0);
}

void TestClipSpare::aFrameThatCannotBeCodedIsNotTheMediumsFailure()
{
    files::Coder coder;
    const OrbStreamInfo info = files::streamInfo();
    Host host;
    host.spares << second();
    WriteDriver driver(&host);
    driver.open(first(), info);
    for (int i = 0; i < 40; ++i)
        driver.write(files::frame(info, i, coder.promise(files::pictureBytes(i), i != 30)));
    driver.close();
    waitUntil([&] { return host.isClosed; });
    QVERIFY(host.asked.isEmpty());
    QVERIFY(host.lost.isEmpty());
    QCOMPARE(host.answers.indexOf(EIO), 30);
    verifyUnion({first()}, 30);
}

void TestClipSpare::aMediumThatHangsIsLeftBehind_data()
{
    QTest::addColumn<bool>("isClosing");
    QTest::newRow("while it is recorded to") << false;
    QTest::newRow("while its clip is closed") << true;
}

void TestClipSpare::aMediumThatHangsIsLeftBehind()
{
    QFETCH(bool, isClosing);
    const int before = IoWorker::leftBehind();
    fault.reset(2, 0, true, SYS_fdatasync);
    fault.isHanging = true;
    fault.stallMs = 1;
    Host host;
    host.spares << second();
    {
        const OrbStreamInfo info = files::streamInfo();
        WriteDriver driver(&host, littlePatience);
        driver.open(first(), info);
        waitUntil([&] { return host.opened == 0; });
        for (int i = 0; i < frames; ++i)
            driver.write(files::frame(info, i));
        if (isClosing)
            driver.close();
        waitUntil([&] { return !host.went.isEmpty(); });
        QCOMPARE(host.went, QStringList({QStringLiteral("a.mov>a_2.mov %1").arg(ETIMEDOUT)}));
        QCOMPARE(host.slow.first(), true);
        driver.close();
        waitUntil([&] { return host.isClosed; });
    }
    QCOMPARE(host.slow.last(), false);
    QCOMPARE(host.errors(), 0);
    QCOMPARE(int(host.answers.size()), frames);
    verifyUnion({first(), second()}, frames);
    QCOMPARE(IoWorker::leftBehind(), before + 1);
    fault.isHanging = false;
    QTRY_COMPARE_WITH_TIMEOUT(IoWorker::leftBehind(), before, files::patienceMs);
}

/// It answers every call, but frames come faster than it takes them.
void TestClipSpare::aMediumThatIsTooSlowIsLeft()
{
    fault.reset(2, 0, true, SYS_pwrite64);
    fault.stallMs = 80;
    constexpr int many = 400;
    Host host;
    host.spares << second();
    const OrbStreamInfo info = files::streamInfo();
    WriteDriver driver(&host, littlePatience);
    driver.open(first(), info);
    waitUntil([&] { return host.opened == 0; });
    for (int i = 0; i < many; ++i)
        driver.write(files::frame(info, i));
    waitUntil([&] { return !host.went.isEmpty(); });
    driver.close();
    waitUntil([&] { return host.isClosed; });
    QCOMPARE(host.went, QStringList({QStringLiteral("a.mov>a_2.mov %1").arg(ETIMEDOUT)}));
    QCOMPARE(host.errors(), 0);
    verifyUnion({first(), second()}, many);
}

void TestClipSpare::aStallOfThreeSecondsLosesNothingAndStays()
{
    fault.reset(2, 0, false, SYS_fdatasync);
    fault.stallMs = 3000;
    Host host;
    host.spares << second();
    record(host);
    QVERIFY(host.asked.isEmpty());
    QCOMPARE(host.errors(), 0);
    QCOMPARE(host.slow, QList<bool>({true, false}));
    verifyUnion({first()}, frames);
}

void TestClipSpare::aClipWhoseNameIsGoneIsContinuedElsewhere()
{
    Host host;
    host.spares << second();
    const OrbStreamInfo info = files::streamInfo();
    WriteDriver driver(&host);
    driver.open(first(), info);
    waitUntil([&] { return host.opened == 0; });
    for (int i = 0; i < 10; ++i)
        driver.write(files::frame(info, i));
    waitUntil([&] { return host.answers.size() == 10; });
    QVERIFY(QFile::remove(first()));
    waitUntil([&] { return !host.went.isEmpty(); });
    QCOMPARE(host.went, QStringList({QStringLiteral("a.mov>a_2.mov %1").arg(ENODEV)}));
    driver.close();
    waitUntil([&] { return host.isClosed; });
    verifyUnion({second()}, 10, 5); // as many were safe and went with their clip
}

void TestClipSpare::framesAreReleasedWhenTheyAreCommitted()
{
    Host host;
    const OrbStreamInfo info = files::streamInfo();
    const auto out = std::make_shared<std::atomic<int>>(0);
    WriteDriver driver(&host);
    driver.open(first(), info);
    for (int i = 0; i < 28; ++i) { // two fragments
        OrbBuffer picture = files::bufferOf(files::pictureBytes(i));
        ++*out;
        picture.setReleaseHook([out] { --*out; });
        driver.write(files::frame(info, i, picture));
    }
    waitUntil([&] { return host.answers.size() == 28; });
    waitUntil([&] { return *out == 0; });
    driver.close();
    waitUntil([&] { return host.isClosed; });
}

QTEST_GUILESS_MAIN(TestClipSpare)
#include "tst_clip_spare.moc"
