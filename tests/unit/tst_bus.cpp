#include "libbus/bus.h"

#include <QTest>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <string>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

using namespace bus;

namespace {

constexpr Format sd = {720, 576, 25, 1, 1, 2};

/// A bus name of this process alone; the object goes with it.
class Name
{
public:
    Name()
    {
        static int count = 0;
        _text = "/rvtest_bus_" + std::to_string(getpid()) + "_" + std::to_string(++count);
    }
    ~Name() { Writer::remove(_text); }
    operator const std::string &() const { return _text; }

private:
    std::string _text;
};

/// Publishes a frame whose every sample says which one it is.
bool put(Writer &writer, std::uint16_t value, const Format &format = sd, FrameInfo info = {})
{
    const picture::View view = writer.beginFrame(format);
    if (!view.isValid())
        return false;
    std::fill_n(view.plane[0], picture::bytesFor(format.width, format.height) / 2, value);
    if (info.samples > 0) {
        const int bytes = info.samples * format.audioChannels * 3;
        std::fill_n(writer.audioSlot(), bytes, static_cast<std::uint8_t>(value));
    }
    info.content = info.content == Content::None ? Content::Live : info.content;
    writer.publish(info);
    return true;
}

bool isUniform(const Frame &frame)
{
    return !frame.picture.empty()
           && std::ranges::all_of(frame.picture, [&](auto s) { return s == frame.picture[0]; });
}

} // namespace

class TestBus : public QObject
{
    Q_OBJECT

private slots:
    void aFrameArrivesWhole();
    void aPictureGoesWhereItIsWanted();
    void theLargestFormatFits();
    void formatsThatDoNotFitAreRefused();
    void framesArriveInOrder();
    void overwrittenFramesAreCountedAsMissed();
    void theNewestFrameMayBeAskedFor();
    void aReaderBeginsWithTheNewestFrame();
    void noSignalHasNeitherPictureNorSound();
    void theFormatMayChangeFromFrameToFrame();
    void nothingIsPublishedWithoutAFrame();
    void aSecondWriterIsRefusedWhileTheFirstLives();
    void aWriterTakesOverFromADeadOne();
    void aFrameThatAKilledWriterBeganIsNeverDelivered();
    void aReaderFollowsAReplacedObject();
    void aWriterMakesARemovedObjectAnew();
    void publishingWakesAReaderThatWaits();
    void wakeEndsAWait();
    void wakeBeforeAWaitEndsIt();
    void tornFramesAreNeverDelivered();
    void severalReadersFollowOneWriter();
    void aliveMeansPublishedLately();
};

void TestBus::aFrameArrivesWhole()
{
    const Name name;
    Writer writer;
    Reader reader;
    Frame frame;
    QVERIFY(!reader.open(name));
    QCOMPARE(errno, ENOENT);
    QVERIFY(!reader.next(frame, 0));
    QVERIFY(writer.open(name));
    QVERIFY(reader.open(name));
    QVERIFY(!reader.next(frame, 0));

    const Format format = {1920, 1080, 30000, 1001, 2, 8};
    FrameInfo info;
    info.timeNs = 123456789012345;
    info.content = Content::Playback;
    info.frameNumber = 1LL << 40;
    info.tcHour = 10;
    info.tcMin = 59;
    info.tcSec = 58;
    info.tcFrame = 29;
    info.tcFps = 30;
    info.tcFlags = 3;
    info.recordFlag = true;
    info.samples = 1602;
    info.clip = std::string(63, 'c') + "cut";
    QVERIFY(put(writer, 777, format, info));

    QVERIFY(reader.next(frame, 0));
    QVERIFY(frame.format == format);
    QCOMPARE(frame.info.sequence, std::uint64_t {1});
    QCOMPARE(frame.info.timeNs, info.timeNs);
    QVERIFY(frame.info.content == Content::Playback);
    QCOMPARE(frame.info.frameNumber, info.frameNumber);
    QCOMPARE(int {frame.info.tcHour}, 10);
    QCOMPARE(int {frame.info.tcMin}, 59);
    QCOMPARE(int {frame.info.tcSec}, 58);
    QCOMPARE(int {frame.info.tcFrame}, 29);
    QCOMPARE(int {frame.info.tcFps}, 30);
    QCOMPARE(int {frame.info.tcFlags}, 3);
    QVERIFY(frame.info.recordFlag);
    QCOMPARE(frame.info.samples, 1602);
    QCOMPARE(frame.info.clip, std::string(63, 'c'));
    QCOMPARE(frame.picture.size(), picture::bytesFor(1920, 1080) / 2);
    QVERIFY(isUniform(frame));
    QCOMPARE(frame.view().line(2, 1079)[959], std::uint16_t {777});
    QCOMPARE(frame.audio.size(), std::size_t {1602 * 8 * 3});
    QCOMPARE(frame.audio.back(), std::uint8_t {777 & 255});
    QVERIFY(!reader.next(frame, 0));
}

void TestBus::aPictureGoesWhereItIsWanted()
{
    const Name name;
    Writer writer;
    Reader reader;
    QVERIFY(writer.open(name));
    QVERIFY(reader.open(name));
    const Format format = {274, 300, 25, 1, 0, 2};
    FrameInfo info;
    info.content = Content::Live;
    info.samples = 10;
    for (const int gap : {0, 6}) {
        const picture::View slot = writer.beginFrame(format);
        for (int p = 0; p < 3; ++p) {
            for (int y = 0; y < 300; ++y) {
                for (int x = 0; x < (p == 0 ? 274 : 137); ++x)
                    slot.line(p, y)[x] = static_cast<std::uint16_t>((x * 7 + y * 3 + p) % 1024);
            }
        }
        writer.publish(info);
        std::vector<std::uint16_t> memory(3 * 300 * 300, 0xabcd);
        Frame frame;
        frame.target = [&](const Format &wanted) {
            picture::View view {wanted.width, wanted.height, {}, {274 + gap, 137 + gap, 137 + gap}};
            for (int p = 0; p < 3; ++p)
                view.plane[p] = memory.data() + p * 300 * 300;
            return view;
        };
        QVERIFY(reader.next(frame, 0));
        QVERIFY(frame.picture.empty());
        QCOMPARE(frame.audio.size(), std::size_t {60});
        const picture::View view = frame.target(format);
        for (int p = 0; p < 3; ++p) {
            const int width = p == 0 ? 274 : 137;
            for (int y = 0; y < 300; ++y) {
                for (int x = 0; x < width; ++x)
                    QCOMPARE(int {view.line(p, y)[x]}, (x * 7 + y * 3 + p) % 1024);
                for (int x = width; x < width + gap; ++x)
                    QCOMPARE(view.line(p, y)[x], std::uint16_t {0xabcd});
            }
        }
    }
    Frame frame;
    frame.target = [](const Format &) { return picture::View(); };
    QVERIFY(put(writer, 5, format, info));
    QVERIFY(reader.next(frame, 0)); // without its picture
    QVERIFY(frame.picture.empty());
    QCOMPARE(frame.audio.size(), std::size_t {60});
}

void TestBus::theLargestFormatFits()
{
    const Name name;
    Writer writer;
    Reader reader;
    Frame frame;
    QVERIFY(writer.open(name));
    QVERIFY(reader.open(name));
    const Format format = {maxWidth, maxHeight, 60, 1, 0, maxChannels};
    FrameInfo info;
    info.samples = maxSamples;
    for (std::uint16_t i = 1; i <= slotCount + 1; ++i) {
        QVERIFY(put(writer, i, format, info));
        QVERIFY(reader.next(frame, 0));
        QVERIFY(isUniform(frame));
        QCOMPARE(frame.picture[0], i);
        QCOMPARE(frame.audio.size(), std::size_t {maxSamples} * maxChannels * 3);
        QVERIFY(std::ranges::all_of(frame.audio, [i](int b) { return b == i; }));
    }
}

void TestBus::formatsThatDoNotFitAreRefused()
{
    const Name name;
    Writer writer;
    QVERIFY(!writer.beginFrame(sd).isValid());
    QVERIFY(writer.audioSlot() == nullptr);
    QVERIFY(writer.open(name));
    for (const Format &format : {Format {4098, 100, 25, 1, 0, 2}, Format {4096, 2161, 25, 1, 0, 2},
                                 Format {721, 100, 25, 1, 0, 2}, Format {0, 100, 25, 1, 0, 2},
                                 Format {720, -1, 25, 1, 0, 2}, Format {720, 576, 0, 1, 0, 2},
                                 Format {720, 576, 25, 1, 3, 2}, Format {720, 576, 25, 1, 0, 9}})
        QVERIFY(!writer.beginFrame(format).isValid());
    QVERIFY(put(writer, 1));
}

void TestBus::framesArriveInOrder()
{
    const Name name;
    Writer writer;
    Reader reader;
    Frame frame;
    QVERIFY(writer.open(name));
    QVERIFY(reader.open(name));
    std::uint64_t expected = 1;
    for (int round = 0; round < 20; ++round) {
        for (int i = 0; i < 1 + round % slotCount; ++i)
            QVERIFY(put(writer, 5));
        while (reader.next(frame, 0))
            QCOMPARE(frame.info.sequence, expected++);
    }
    QCOMPARE(expected, std::uint64_t {83});
    QCOMPARE(reader.missed(), std::uint64_t {0});
}

void TestBus::overwrittenFramesAreCountedAsMissed()
{
    const Name name;
    Writer writer;
    Reader reader;
    Frame frame;
    QVERIFY(writer.open(name));
    QVERIFY(reader.open(name));
    for (std::uint16_t i = 1; i <= 14; ++i)
        QVERIFY(put(writer, i));
    for (std::uint16_t i = 7; i <= 14; ++i) {
        QVERIFY(reader.next(frame, 0));
        QCOMPARE(frame.info.sequence, std::uint64_t {i});
        QCOMPARE(frame.picture[0], i);
        QCOMPARE(reader.missed(), std::uint64_t {6});
    }
    QVERIFY(!reader.next(frame, 0));
}

void TestBus::theNewestFrameMayBeAskedFor()
{
    const Name name;
    Writer writer;
    Reader reader;
    Frame frame;
    QVERIFY(writer.open(name));
    QVERIFY(reader.open(name));
    for (std::uint16_t i = 1; i <= 3; ++i)
        QVERIFY(put(writer, i));
    QVERIFY(reader.next(frame, 0, false));
    QCOMPARE(frame.info.sequence, std::uint64_t {3});
    QCOMPARE(reader.missed(), std::uint64_t {0});
    for (std::uint16_t i = 4; i <= 14; ++i)
        QVERIFY(put(writer, i));
    QVERIFY(reader.next(frame, 0, false));
    QCOMPARE(frame.info.sequence, std::uint64_t {14});
    QCOMPARE(reader.missed(), std::uint64_t {3}); // 4, 5 and 6 could no longer be had
    QVERIFY(!reader.next(frame, 0, false));
}

void TestBus::aReaderBeginsWithTheNewestFrame()
{
    const Name name;
    Writer writer;
    Reader reader;
    Frame frame;
    QVERIFY(writer.open(name));
    for (std::uint16_t i = 1; i <= 9; ++i)
        QVERIFY(put(writer, i));
    QVERIFY(reader.open(name));
    QVERIFY(reader.next(frame, 0));
    QCOMPARE(frame.info.sequence, std::uint64_t {9});
    QCOMPARE(reader.missed(), std::uint64_t {0});
}

void TestBus::noSignalHasNeitherPictureNorSound()
{
    const Name name;
    Writer writer;
    Reader reader;
    Frame frame;
    QVERIFY(writer.open(name));
    QVERIFY(reader.open(name));
    QVERIFY(writer.beginFrame(sd).isValid());
    FrameInfo info;
    info.samples = 1920;
    writer.publish(info);
    QVERIFY(reader.next(frame, 0));
    QVERIFY(frame.info.content == Content::None);
    QVERIFY(frame.picture.empty());
    QVERIFY(frame.audio.empty());
    QVERIFY(!frame.view().isValid());
}

void TestBus::theFormatMayChangeFromFrameToFrame()
{
    const Name name;
    Writer writer;
    Reader reader;
    Frame frame;
    QVERIFY(writer.open(name));
    QVERIFY(reader.open(name));
    const Format formats[] = {sd, {1920, 1080, 60, 1, 0, 8}, {128, 64, 24000, 1001, 0, 0}};
    for (std::uint16_t i = 0; i < 12; ++i) {
        const Format &format = formats[i % 3];
        FrameInfo info;
        info.samples = 800;
        QVERIFY(put(writer, i, format, info));
        QVERIFY(reader.next(frame, 0));
        QVERIFY(frame.format == format);
        QVERIFY(isUniform(frame));
        QCOMPARE(frame.picture.size() * 2, picture::bytesFor(format.width, format.height));
        QCOMPARE(frame.audio.size(), static_cast<std::size_t>(800 * 3 * format.audioChannels));
    }
}

void TestBus::nothingIsPublishedWithoutAFrame()
{
    const Name name;
    Writer writer;
    Reader reader;
    Frame frame;
    writer.publish({});
    QVERIFY(writer.open(name));
    QVERIFY(reader.open(name));
    writer.publish({});
    QVERIFY(!reader.next(frame, 0));
    QVERIFY(put(writer, 1));
    writer.publish({});
    QVERIFY(reader.next(frame, 0));
    QVERIFY(!reader.next(frame, 0));
}

void TestBus::aSecondWriterIsRefusedWhileTheFirstLives()
{
    const Name name;
    Writer first;
    Writer second;
    QVERIFY(first.open(name));
    QVERIFY(!second.open(name));
    QCOMPARE(errno, EBUSY);
    QVERIFY(!second.isOpen());
    QVERIFY(put(first, 1));
    first.close();
    QVERIFY(!first.isOpen());
    QVERIFY(second.open(name));
}

void TestBus::aWriterTakesOverFromADeadOne()
{
    const Name name;
    Reader reader;
    Frame frame;
    {
        Writer writer;
        QVERIFY(writer.open(name));
        QVERIFY(reader.open(name));
        for (std::uint16_t i = 1; i <= 3; ++i)
            QVERIFY(put(writer, i));
    }
    Writer writer;
    QVERIFY(writer.open(name));
    QVERIFY(put(writer, 4, {1280, 720, 50, 1, 0, 2}));
    for (std::uint16_t i = 1; i <= 4; ++i) {
        QVERIFY(reader.next(frame, 0));
        QCOMPARE(frame.info.sequence, std::uint64_t {i});
        QCOMPARE(frame.picture[0], i);
    }
    QCOMPARE(frame.format.width, 1280);
    QCOMPARE(reader.missed(), std::uint64_t {0});
}

void TestBus::aFrameThatAKilledWriterBeganIsNeverDelivered()
{
    const Name name;
    Reader reader;
    Frame frame;
    const pid_t child = fork();
    if (child == 0) {
        Writer writer;
        if (!writer.open(name))
            _exit(1);
        for (std::uint16_t i = 1; i <= 5; ++i)
            put(writer, i);
        const picture::View view = writer.beginFrame(sd);
        std::fill_n(view.plane[0], 1000, std::uint16_t {6});
        kill(getpid(), SIGKILL);
    }
    int status = 0;
    QCOMPARE(waitpid(child, &status, 0), child);
    QVERIFY(WIFSIGNALED(status));

    QVERIFY(reader.open(name));
    QVERIFY(reader.next(frame, 0));
    QCOMPARE(frame.info.sequence, std::uint64_t {5});
    QVERIFY(!reader.next(frame, 0));

    Writer writer;
    QVERIFY(writer.open(name));
    QVERIFY(put(writer, 60));
    QVERIFY(reader.next(frame, 0));
    QCOMPARE(frame.info.sequence, std::uint64_t {6});
    QVERIFY(isUniform(frame));
    QCOMPARE(frame.picture[0], std::uint16_t {60});
}

void TestBus::aReaderFollowsAReplacedObject()
{
    const Name name;
    Reader reader;
    Frame frame;
    Writer first;
    QVERIFY(first.open(name));
    QVERIFY(put(first, 1));
    QVERIFY(put(first, 2));
    QVERIFY(reader.open(name));
    QVERIFY(reader.next(frame, 0));
    QVERIFY(put(first, 3));
    Writer::remove(name);
    Writer second;
    QVERIFY(second.open(name));
    QVERIFY(put(second, 11));
    QVERIFY(put(second, 12));
    for (const std::uint16_t value : {3, 11, 12}) { // nothing of the old object is lost either
        QVERIFY(reader.next(frame, 0));
        QCOMPARE(frame.picture[0], value);
    }
    QCOMPARE(frame.info.sequence, std::uint64_t {2});
    QCOMPARE(reader.missed(), std::uint64_t {0});
}

void TestBus::aWriterMakesARemovedObjectAnew()
{
    const Name name;
    Writer writer;
    Reader reader;
    Frame frame;
    QVERIFY(writer.open(name));
    QVERIFY(put(writer, 1));
    Writer::remove(name);
    QVERIFY(!reader.open(name));
    QVERIFY(put(writer, 2));
    QVERIFY(reader.open(name));
    QVERIFY(reader.next(frame, 0));
    QCOMPARE(frame.picture[0], std::uint16_t {2});
}

void TestBus::publishingWakesAReaderThatWaits()
{
    const Name name;
    Writer writer;
    Reader reader;
    Frame frame;
    QVERIFY(writer.open(name));
    QVERIFY(reader.open(name));
    for (std::uint16_t i = 1; i <= 50; ++i) {
        std::thread other([&] { put(writer, i); });
        const bool came = reader.next(frame, 60000);
        other.join();
        QVERIFY(came);
        QCOMPARE(frame.picture[0], i);
    }
}

void TestBus::wakeEndsAWait()
{
    const Name name;
    Writer writer;
    Reader reader;
    Frame frame;
    QVERIFY(writer.open(name));
    QVERIFY(reader.open(name));
    for (int i = 0; i < 50; ++i) {
        std::thread other([&] { reader.wake(); });
        QVERIFY(!reader.next(frame, -1));
        other.join();
    }
}

void TestBus::wakeBeforeAWaitEndsIt()
{
    const Name name;
    Writer writer;
    Reader reader;
    Frame frame;
    QVERIFY(writer.open(name));
    QVERIFY(reader.open(name));
    reader.wake();
    QVERIFY(!reader.next(frame, -1));
    QVERIFY(put(writer, 1));
    QVERIFY(reader.next(frame, -1));
}

void TestBus::tornFramesAreNeverDelivered()
{
    const Name name;
    Writer writer;
    Reader reader;
    Frame frame;
    QVERIFY(writer.open(name));
    QVERIFY(reader.open(name));
    constexpr int frames = 20000;
    const Format small = {128, 96, 25, 1, 0, 2}; // small, so that the writer laps the reader
    std::atomic<bool> done = false;
    std::thread hammer([&] {
        FrameInfo info;
        info.samples = 64;
        for (int i = 1; i <= frames; ++i)
            put(writer, static_cast<std::uint16_t>(i), small, info);
        done = true;
    });
    std::uint64_t last = 0;
    std::uint64_t delivered = 0;
    bool whole = true;
    bool counted = true;
    bool unspoilt = true;
    while (last < frames && whole) {
        const bool finished = done;
        if (!reader.next(frame, 10, delivered % 3 != 0)) {
            unspoilt = unspoilt && (frame.info.sequence == last || frame.picture.empty());
            if (finished)
                break;
            continue;
        }
        const auto value = static_cast<std::uint16_t>(frame.info.sequence);
        whole = isUniform(frame) && frame.picture[0] == value
                && std::ranges::all_of(frame.audio, [&](int b) { return b == (value & 255); });
        counted = counted && reader.missed() <= frame.info.sequence - 1 - delivered;
        last = frame.info.sequence;
        ++delivered;
    }
    hammer.join();
    QVERIFY(whole);
    QVERIFY(counted);
    QVERIFY(unspoilt); // a frame given up half way is not left lying about
    QVERIFY(delivered > 0);
    QCOMPARE(last, std::uint64_t {frames});
}

void TestBus::severalReadersFollowOneWriter()
{
    const Name name;
    Writer writer;
    QVERIFY(writer.open(name));
    Reader readers[5];
    for (Reader &reader : readers)
        QVERIFY(reader.open(name));
    Frame frame;
    for (std::uint16_t i = 1; i <= 8; ++i) {
        QVERIFY(put(writer, i));
        for (Reader &reader : readers) {
            QVERIFY(reader.next(frame, 0));
            QCOMPARE(frame.picture[0], i);
        }
    }
}

void TestBus::aliveMeansPublishedLately()
{
    const Name name;
    Writer writer;
    Reader reader;
    QVERIFY(!reader.isAlive());
    QVERIFY(writer.open(name));
    QVERIFY(reader.open(name));
    QVERIFY(!reader.isAlive());
    QVERIFY(put(writer, 1));
    QVERIFY(reader.isAlive(3'600'000));
    QVERIFY(!reader.isAlive(-1));
}

QTEST_APPLESS_MAIN(TestBus)
#include "tst_bus.moc"
