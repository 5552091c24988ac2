#include "tst_clip_tools.h"

#include <QRandomGenerator>
#include <QTest>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <functional>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace cliptest;
using clip::ClipInfo;
using clip::ClipReader;
using clip::ClipWriter;

namespace {

/// One call of the writer that changes the medium.
struct Operation
{
    bool isSync = false;
    off_t offset = 0;
    QByteArray bytes;
    std::int64_t committed = 0; ///< what the writer calls committed at that time
    bool isPastCache = false;
    std::uintptr_t address = 0;
};

/// Stands between the writer and the system: keeps what passes, and fails on request.
struct Medium
{
    bool isWatching = false;
    QList<Operation> operations;
    std::function<std::int64_t()> committed;
    int failFrom = -1;          ///< number of the first operation that fails
    int failures = 0;           ///< how many fail
    int errorCode = 0;
    bool isSlow = false;        ///< every write is interrupted, then short
    bool hasOnlyCache = false;  ///< nothing can be written past it
    bool refusesToOpen = false; ///< and it says so when asked to

    /// True when the operation is to fail.
    bool take(Operation operation)
    {
        const auto number = int(operations.size());
        operation.committed = committed ? committed() : 0;
        operations.append(std::move(operation));
        return failFrom >= 0 && number >= failFrom && number < failFrom + failures;
    }
};

Medium &medium()
{
    static Medium instance;
    return instance;
}

} // namespace

// The library's calls end here instead of in the C library.
extern "C" {

int open64(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = flags & O_CREAT ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    if (medium().isWatching && medium().refusesToOpen && (flags & O_DIRECT) != 0) {
        errno = EINVAL;
        return -1;
    }
    return int(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

int fdatasync(int descriptor)
{
    if (medium().isWatching && medium().take({ true, 0, { } })) {
        errno = medium().errorCode;
        return -1;
    }
    return int(syscall(SYS_fdatasync, descriptor));
}

ssize_t pwrite64(int descriptor, const void *bytes, size_t length, off64_t offset)
{
    if (medium().isWatching) {
        const QByteArray content(static_cast<const char *>(bytes), qsizetype(length));
        const bool isPastCache = (fcntl(descriptor, F_GETFL) & O_DIRECT) != 0;
        if (medium().take({ false, offset, content, 0, isPastCache, std::uintptr_t(bytes) })) {
            errno = medium().errorCode;
            return -1;
        }
        if (isPastCache && medium().hasOnlyCache) {
            errno = EINVAL;
            return -1;
        }
        if (medium().isSlow) {
            if (medium().operations.size() % 2 == 0) {
                errno = EINTR;
                return -1;
            }
            length = (length + 1) / 2;
        }
    }
    return syscall(SYS_pwrite64, descriptor, bytes, length, offset);
}

} // extern "C"

/// Media that fail, and power that goes.
class TestClipFaults : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void interruptedAndShortWritesAreContinued_data() { addSizes(); }
    void interruptedAndShortWritesAreContinued();
    void largePicturesGoPastTheCacheInWholeBlocks();
    void whatCannotGoPastTheCacheGoesThroughIt_data();
    void whatCannotGoPastTheCacheGoesThroughIt();
    void anyFailureLeavesTheCommittedFrames_data();
    void anyFailureLeavesTheCommittedFrames();
    void aFailedSyncIsNeverRepeated();
    void aPowerCutAtAnyInstantLeavesTheCommittedFrames_data();
    void aPowerCutAtAnyInstantLeavesTheCommittedFrames();
    void nothingIsCommittedBeforeItIsDurable();

private:
    void addSizes();
    QString path(const QString &name) const { return _dir.filePath(name); }
    std::string stdPath(const QString &name) const { return path(name).toStdString(); }
    int record(const QString &name, int frames, std::int64_t *committed = nullptr) const;

    QTemporaryDir _dir;
};

void TestClipFaults::init()
{
    medium() = { };
    pictureScale = 1;
}

void TestClipFaults::addSizes()
{
    QTest::addColumn<int>("scale");
    QTest::addColumn<int>("frames");
    QTest::newRow("small pictures") << 1 << 40;
    QTest::newRow("large pictures") << largePictures << 10;
}

/// Records a whole clip with a flush in the middle; the first error there was.
int TestClipFaults::record(const QString &name, int frames, std::int64_t *committed) const
{
    const ClipInfo info = sampleInfo();
    QFile::remove(path(name));
    ClipWriter writer;
    medium().committed = [&] { return writer.committedFrames(); };
    medium().isWatching = true;
    int code = writer.open(stdPath(name), info).code;
    if (code == 0) {
        code = writeFrames(writer, info, frames / 2).code;
        const int flushCode = writer.flush().code;
        const int restCode = writeFrames(writer, info, frames - frames / 2, frames / 2).code;
        const int closeCode = writer.close().code;
        for (const int later : { flushCode, restCode, closeCode }) {
            code = code != 0 ? code : later;
        }
    }
    medium().isWatching = false;
    medium().committed = { };
    if (committed) {
        *committed = writer.committedFrames();
    }
    return code;
}

void TestClipFaults::interruptedAndShortWritesAreContinued()
{
    QFETCH(int, scale);
    QFETCH(int, frames);
    pictureScale = scale;
    medium().isSlow = true;
    QCOMPARE(record("slow.mov", frames), 0);
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("slow.mov")).code, 0);
    QCOMPARE(reader.info().frames, std::int64_t(frames));
    QVERIFY(reader.info().isComplete);
    QCOMPARE(firstWrongFrame(reader), -1);
}

/// The addresses and places that every file system takes; what stands before and behind the blocks goes the usual way.
void TestClipFaults::largePicturesGoPastTheCacheInWholeBlocks()
{
    constexpr int frames = 10;
    constexpr qsizetype block = 4096;
    pictureScale = largePictures;
    QCOMPARE(record("large.mov", frames), 0);
    qsizetype past = 0;
    qsizetype all = 0;
    for (const Operation &operation : std::as_const(medium().operations)) {
        all += operation.bytes.size();
        if (!operation.isPastCache)
            continue;
        past += operation.bytes.size();
        QCOMPARE(qsizetype(operation.offset) % block, qsizetype(0));
        QCOMPARE(operation.bytes.size() % block, qsizetype(0));
        QCOMPARE(qsizetype(operation.address % block), qsizetype(0));
    }
    if (past == 0)
        QSKIP("the file system of the tests takes nothing past its cache");
    QVERIFY2(past > all - frames * (2 * block + 20'000), qPrintable(QString("%1 of %2").arg(past).arg(all)));
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("large.mov")).code, 0);
    QCOMPARE(reader.info().frames, std::int64_t(frames));
    QCOMPARE(firstWrongFrame(reader), -1);
}

void TestClipFaults::whatCannotGoPastTheCacheGoesThroughIt_data()
{
    QTest::addColumn<bool>("refusesToOpen");
    QTest::addColumn<qsizetype>("most");
    QTest::newRow("known from the start") << true << qsizetype(0);
    QTest::newRow("known from the first write") << false << qsizetype(1); // what failed is not tried again
}

void TestClipFaults::whatCannotGoPastTheCacheGoesThroughIt()
{
    QFETCH(bool, refusesToOpen);
    QFETCH(qsizetype, most);
    constexpr int frames = 10;
    pictureScale = largePictures;
    QCOMPARE(record("past.mov", frames), 0);
    medium() = { };
    medium().hasOnlyCache = true;
    medium().refusesToOpen = refusesToOpen;
    QCOMPARE(record("through.mov", frames), 0);
    const auto tries = std::count_if(medium().operations.cbegin(), medium().operations.cend(),
                                     [](const Operation &operation) { return operation.isPastCache; });
    QVERIFY2(tries <= most, qPrintable(QString::number(tries)));
    QVERIFY(contentOf(path("past.mov")) == contentOf(path("through.mov")));
}

void TestClipFaults::anyFailureLeavesTheCommittedFrames_data()
{
    QTest::addColumn<int>("errorCode");
    QTest::addColumn<int>("failures");
    QTest::addColumn<int>("scale");
    QTest::addColumn<int>("frames");
    QTest::newRow("the medium is gone") << EIO << 1'000'000 << 1 << 60;
    QTest::newRow("one failure") << EIO << 1 << 1 << 60;
    QTest::newRow("no space for good") << ENOSPC << 1'000'000 << 1 << 60;
    QTest::newRow("no space for once") << ENOSPC << 1 << 1 << 60;
    QTest::newRow("read only") << EROFS << 1'000'000 << 1 << 60;
    QTest::newRow("one failure, large pictures") << EIO << 1 << largePictures << 7;
    QTest::newRow("no space for once, large pictures") << ENOSPC << 1 << largePictures << 7;
}

void TestClipFaults::anyFailureLeavesTheCommittedFrames()
{
    QFETCH(int, errorCode);
    QFETCH(int, failures);
    QFETCH(int, scale);
    QFETCH(int, frames);
    pictureScale = scale;
    QCOMPARE(record("sound.mov", frames), 0);
    const auto operations = int(medium().operations.size());
    QVERIFY(operations > 20);
    for (int i = 0; i < operations; ++i) {
        medium() = { };
        medium().failFrom = i;
        medium().failures = failures;
        medium().errorCode = errorCode;
        std::int64_t committed = 0;
        QCOMPARE(record("failed.mov", frames, &committed), errorCode);
        QVERIFY(medium().operations.size() < 2 * operations);
        ClipReader reader;
        const bool isOpen = reader.open(stdPath("failed.mov")).code == 0;
        QVERIFY(isOpen || committed == 0);
        QVERIFY(!isOpen || reader.info().frames >= committed);
        QVERIFY(!isOpen || firstWrongFrame(reader) == -1);
    }
}

void TestClipFaults::aFailedSyncIsNeverRepeated()
{
    // Head and sync; picture, sound and front of the first fragment, sync, commit; four pictures, sound
    // and front of the second, and the sync that fails.
    medium().failFrom = 13;
    medium().failures = 1;
    medium().errorCode = EIO;
    QCOMPARE(record("sync.mov", 60), EIO);
    QVERIFY(medium().operations.last().isSync);
    // The system may answer the second call with success and have lost the data.
    QCOMPARE(medium().operations.size(), qsizetype(14));
}

void TestClipFaults::aPowerCutAtAnyInstantLeavesTheCommittedFrames_data()
{
    QTest::addColumn<quint32>("seed");
    QTest::addColumn<int>("scale");
    QTest::addColumn<int>("frames");
    for (quint32 seed = 1; seed <= 8; ++seed) {
        QTest::addRow("seed %u", seed) << seed << 1 << 60;
    }
    QTest::newRow("large pictures") << quint32(9) << largePictures << 7;
}

void TestClipFaults::aPowerCutAtAnyInstantLeavesTheCommittedFrames()
{
    QFETCH(quint32, seed);
    QFETCH(int, scale);
    QFETCH(int, frames);
    pictureScale = scale;
    QRandomGenerator generator(seed);
    constexpr int sector = 512;
    QCOMPARE(record("cut.mov", frames), 0);
    const auto operations = medium().operations;
    const auto apply = [](QByteArray &image, off_t offset, const QByteArray &bytes) {
        if (image.size() < offset + bytes.size()) {
            image.resize(offset + bytes.size(), 0);
        }
        image.replace(offset, bytes.size(), bytes);
    };

    QByteArray durable;
    QList<Operation> loose;
    for (qsizetype i = 2; i <= operations.size(); ++i) {
        // All before the last sync is on the medium, and any sectors of what came after it.
        durable.clear();
        loose.clear();
        for (const Operation &operation : operations.first(i)) {
            if (!operation.isSync) {
                loose.append(operation);
                continue;
            }
            for (const Operation &write : std::as_const(loose)) {
                apply(durable, write.offset, write.bytes);
            }
            loose.clear();
        }
        const quint32 chance = generator.bounded(1u, 100u);
        for (const Operation &write : std::as_const(loose)) {
            for (off_t at = write.offset; at < write.offset + write.bytes.size();) {
                const off_t next = std::min<off_t>((at / sector + 1) * sector,
                                                   write.offset + write.bytes.size());
                if (generator.bounded(100u) < chance) {
                    apply(durable, at, write.bytes.mid(at - write.offset, next - at));
                }
                at = next;
            }
        }
        const std::int64_t committed = i < operations.size() ? operations[i].committed : frames;
        QVERIFY(setContent(path("image.mov"), durable));
        ClipReader reader;
        const bool isOpen = reader.open(stdPath("image.mov")).code == 0;
        QVERIFY(isOpen || committed == 0);
        QVERIFY(!isOpen || reader.info().frames >= committed);
        QVERIFY(!isOpen || firstWrongFrame(reader) == -1);
    }
}

void TestClipFaults::nothingIsCommittedBeforeItIsDurable()
{
    QCOMPARE(record("order.mov", 60), 0);
    // Each commit and the last step of closing come right behind a sync or another commit.
    int commits = 0;
    bool isAfterSync = false;
    for (const Operation &operation : std::as_const(medium().operations)) {
        if (operation.isSync) {
            isAfterSync = true;
        } else if (operation.bytes == "moof" || operation.offset == 20) {
            QVERIFY(isAfterSync);
            ++commits;
        } else {
            isAfterSync = false;
        }
    }
    // 30 frames flushed and 30 more make eight fragments.
    QCOMPARE(commits, 8 + 1);
    QVERIFY(medium().operations.last().isSync);
}

QTEST_GUILESS_MAIN(TestClipFaults)
#include "tst_clip_faults.moc"
