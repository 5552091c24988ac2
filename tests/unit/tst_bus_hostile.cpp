#include "libbus/bus.h"
#include "libbus/buslayout.h"

#include <QTest>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace bus;

namespace {

constexpr Format small = {128, 96, 25, 1, 0, 2};

/// A shared memory object that the test scribbles into as it likes.
class Object
{
public:
    Object()
    {
        static int count = 0;
        name = "/rvtest_hostile_" + std::to_string(getpid()) + "_" + std::to_string(++count);
    }
    ~Object() { shm_unlink(name.c_str()); }

    void write(std::size_t at, const void *data, std::size_t bytes) const
    {
        const int fd = shm_open(name.c_str(), O_RDWR | O_CREAT, 0600);
        QVERIFY(fd >= 0);
        const auto written = pwrite(fd, data, bytes, static_cast<off_t>(at));
        ::close(fd);
        QCOMPARE(written, static_cast<ssize_t>(bytes));
    }
    template<typename T>
    void poke(std::size_t at, T value) const
    {
        write(at, &value, sizeof value);
    }
    void resize(std::size_t bytes) const
    {
        const int fd = shm_open(name.c_str(), O_RDWR | O_CREAT, 0600);
        QVERIFY(fd >= 0);
        const int result = ftruncate(fd, static_cast<off_t>(bytes));
        ::close(fd);
        QCOMPARE(result, 0);
    }

    std::string name;
};

bool put(Writer &writer, std::uint16_t value)
{
    const picture::View view = writer.beginFrame(small);
    if (!view.isValid())
        return false;
    std::fill_n(view.plane[0], picture::bytesFor(small.width, small.height) / 2, value);
    FrameInfo info;
    info.content = Content::Live;
    info.samples = 16;
    writer.publish(info);
    return true;
}

} // namespace

class TestBusHostile : public QObject
{
    Q_OBJECT

private slots:
    void namesThatAreNoneAreRefused();
    void otherObjectsAreRefused_data();
    void otherObjectsAreRefused();
    void everyHeaderFieldIsChecked_data();
    void everyHeaderFieldIsChecked();
    void aWriterReplacesAForeignObject();
    void impossibleRecordsAreSkipped_data();
    void impossibleRecordsAreSkipped();
    void anObjectCutUnderAReaderIsNoCrash();
    void anObjectCutUnderAWriterIsMadeAnew();
    void aCountThatRunsBackwardsIsFollowed();
    void garbageNeverCrashesAReader();
};

void TestBusHostile::namesThatAreNoneAreRefused()
{
    for (const char *name : {"", "/", "/a/b", "/..", "/."}) {
        Writer writer;
        Reader reader;
        QVERIFY(!writer.open(name));
        QVERIFY(!reader.open(name));
    }
    Reader reader;
    QVERIFY(!reader.open(std::string(5000, 'x')));
}

void TestBusHostile::otherObjectsAreRefused_data()
{
    QTest::addColumn<qulonglong>("bytes");
    QTest::newRow("empty") << 0ULL;
    QTest::newRow("one byte") << 1ULL;
    QTest::newRow("a header only") << static_cast<qulonglong>(sizeof(Header));
    QTest::newRow("one byte short") << static_cast<qulonglong>(objectBytes - 1);
    QTest::newRow("zeros") << static_cast<qulonglong>(objectBytes);
    QTest::newRow("larger") << static_cast<qulonglong>(objectBytes * 2);
}

void TestBusHostile::otherObjectsAreRefused()
{
    QFETCH(qulonglong, bytes);
    const Object object;
    object.resize(static_cast<std::size_t>(bytes));
    Reader reader;
    QVERIFY(!reader.open(object.name));
    QCOMPARE(errno, EPROTO);
    Frame frame;
    QVERIFY(!reader.next(frame, 0));
}

void TestBusHostile::everyHeaderFieldIsChecked_data()
{
    QTest::addColumn<int>("offset");
    QTest::newRow("magic") << static_cast<int>(offsetof(Header, magic));
    QTest::newRow("version") << static_cast<int>(offsetof(Header, version));
    QTest::newRow("headerBytes") << static_cast<int>(offsetof(Header, headerBytes));
    QTest::newRow("objectBytes") << static_cast<int>(offsetof(Header, objectBytes));
    QTest::newRow("slotBytes") << static_cast<int>(offsetof(Header, slotBytes));
    QTest::newRow("ringSlots") << static_cast<int>(offsetof(Header, ringSlots));
    QTest::newRow("pictureOffset") << static_cast<int>(offsetof(Header, pictureOffset));
    QTest::newRow("audioOffset") << static_cast<int>(offsetof(Header, audioOffset));
}

void TestBusHostile::everyHeaderFieldIsChecked()
{
    QFETCH(int, offset);
    const Object object;
    {
        Writer writer;
        QVERIFY(writer.open(object.name));
        QVERIFY(put(writer, 1));
    }
    Reader reader;
    QVERIFY(reader.open(object.name));
    object.poke<std::uint32_t>(static_cast<std::size_t>(offset), 0x7fff'fff1U);
    QVERIFY(!reader.open(object.name));
    QCOMPARE(errno, EPROTO);
}

void TestBusHostile::aWriterReplacesAForeignObject()
{
    const Object object;
    object.write(0, "this is not a bus", 17);
    Writer writer;
    QVERIFY(writer.open(object.name));
    QVERIFY(put(writer, 9));
    Reader reader;
    Frame frame;
    QVERIFY(reader.open(object.name));
    QVERIFY(reader.next(frame, 0));
    QCOMPARE(frame.picture[0], std::uint16_t {9});
}

void TestBusHostile::impossibleRecordsAreSkipped_data()
{
    QTest::addColumn<int>("offset");
    QTest::addColumn<int>("value");
    struct Row {
        const char *name;
        std::size_t offset;
        int value;
    };
    // clang-format off
    static constexpr Row rows[] = {
        {"no width",          offsetof(Record, width),         0},
        {"wide",              offsetof(Record, width),         4098},
        {"odd width",         offsetof(Record, width),         127},
        {"negative width",    offsetof(Record, width),         -2},
        {"high",              offsetof(Record, height),        2161},
        {"huge",              offsetof(Record, height),        0x7fffffff},
        {"no rate",           offsetof(Record, rateNum),       0},
        {"no rate divisor",   offsetof(Record, rateDen),       -1},
        {"scan",              offsetof(Record, scanMode),      3},
        {"channels",          offsetof(Record, audioChannels), 9},
        {"negative channels", offsetof(Record, audioChannels), -1},
        {"content",           offsetof(Record, content),       5},
        {"samples",           offsetof(Record, samples),       maxSamples + 1},
        {"negative samples",  offsetof(Record, samples),       -1},
        {"another number",    offsetof(Record, sequence),      77},
    };
    // clang-format on
    for (const Row &row : rows)
        QTest::newRow(row.name) << static_cast<int>(row.offset) << row.value;
}

void TestBusHostile::impossibleRecordsAreSkipped()
{
    QFETCH(int, offset);
    QFETCH(int, value);
    const Object object;
    Writer writer;
    Reader reader;
    Frame frame;
    QVERIFY(writer.open(object.name));
    QVERIFY(reader.open(object.name));
    QVERIFY(put(writer, 1));
    const std::size_t record = slotOffset(1) + offsetof(SlotHeader, record);
    object.poke<std::int32_t>(record + static_cast<std::size_t>(offset), value);
    QVERIFY(!reader.next(frame, 0));
    QVERIFY(put(writer, 2));
    QVERIFY(reader.next(frame, 0));
    QCOMPARE(frame.info.sequence, std::uint64_t {2});
    QCOMPARE(reader.missed(), std::uint64_t {1});

    const std::string unended(64, 'x');
    QVERIFY(put(writer, 3));
    object.write(slotOffset(3) + offsetof(SlotHeader, record) + offsetof(Record, clip),
                 unended.data(), unended.size());
    QVERIFY(!reader.next(frame, 0));
}

void TestBusHostile::anObjectCutUnderAReaderIsNoCrash()
{
    for (const std::size_t bytes : {std::size_t {0}, std::size_t {40}, headerSpace,
                                    slotOffset(1) + 10, slotOffset(1) + pictureOffset + 100}) {
        const Object object;
        Writer writer;
        Reader reader;
        Frame frame;
        QVERIFY(writer.open(object.name));
        QVERIFY(reader.open(object.name));
        QVERIFY(put(writer, 1));
        object.resize(bytes);
        QVERIFY(!reader.next(frame, 1));
        QVERIFY(!reader.isAlive(-1));
        reader.wake();
        QVERIFY(!reader.next(frame, -1));
    }
}

void TestBusHostile::anObjectCutUnderAWriterIsMadeAnew()
{
    const Object object;
    Writer writer;
    Reader reader;
    Frame frame;
    QVERIFY(writer.open(object.name));
    QVERIFY(reader.open(object.name));
    QVERIFY(put(writer, 1));
    QVERIFY(reader.next(frame, 0));
    object.resize(4096);
    QVERIFY(put(writer, 2));
    QVERIFY(reader.next(frame, 0));
    QCOMPARE(frame.picture[0], std::uint16_t {2});
}

void TestBusHostile::aCountThatRunsBackwardsIsFollowed()
{
    const Object object;
    Reader reader;
    Frame frame;
    {
        Writer writer;
        QVERIFY(writer.open(object.name));
        QVERIFY(reader.open(object.name));
        for (std::uint16_t i = 1; i <= 9; ++i)
            QVERIFY(put(writer, i));
        QVERIFY(reader.next(frame, 0, false));
        QCOMPARE(frame.info.sequence, std::uint64_t {9});
    }
    object.poke<std::uint64_t>(offsetof(Header, sequence), 2);
    object.poke<std::uint32_t>(offsetof(Header, published), 2);
    Writer writer;
    QVERIFY(writer.open(object.name));
    QVERIFY(put(writer, 33));
    QVERIFY(reader.next(frame, 0));
    QCOMPARE(frame.info.sequence, std::uint64_t {3});
    QCOMPARE(frame.picture[0], std::uint16_t {33});
}

void TestBusHostile::garbageNeverCrashesAReader()
{
    // One thread scribbles over the header's counters and the slot headers while a writer writes
    // and a reader reads; whatever the reader delivers keeps within the limits.
    const Object object;
    Writer writer;
    Reader reader;
    Frame frame;
    QVERIFY(writer.open(object.name));
    QVERIFY(reader.open(object.name));
    std::atomic<bool> done = false;
    std::thread scribbler([&] {
        std::mt19937 random(20240817);
        const int fd = shm_open(object.name.c_str(), O_RDWR, 0);
        while (!done) {
            const std::uint32_t value = random() % 3 == 0 ? random() : random() % 5000;
            const bool counters = random() % 8 == 0;
            const std::size_t at = counters ? 48 + random() % 4 * 4
                                            : slotOffset(random() % 4)
                                                  + random() % (sizeof(SlotHeader) / 4) * 4;
            if (pwrite(fd, &value, sizeof value, static_cast<off_t>(at)) < 0)
                break;
        }
        ::close(fd);
    });
    bool sound = true;
    for (int i = 0; i < 5000 && sound; ++i) {
        put(writer, static_cast<std::uint16_t>(i));
        if (!reader.next(frame, i % 100 == 0 ? 1 : 0, i % 2 == 0))
            continue;
        const bool has = frame.info.content != Content::None;
        sound = frame.format.width <= maxWidth && frame.format.height <= maxHeight
                && frame.info.samples <= maxSamples && frame.info.clip.size() < 64
                && frame.picture.size() * 2
                       == (has ? picture::bytesFor(frame.format.width, frame.format.height) : 0);
    }
    done = true;
    scribbler.join();
    QVERIFY(sound);
}

QTEST_APPLESS_MAIN(TestBusHostile)
#include "tst_bus_hostile.moc"
