#include "liborb/drivers/software/capturequeue.h"
#include "liborb/drivers/software/soundfifo.h"

#include <QTest>

using namespace ferin;

namespace {

CaptureEntry entryWith(std::int64_t number, const OrbBuffer &buffer)
{
    OrbImageDesc desc;
    desc.setSize(64, 64);
    CaptureEntry entry;
    entry.number = number;
    entry.frame.vids().append(OrbImage(desc, buffer));
    return entry;
}

/// Queues a frame whose picture notes in \a started when it is to be coded.
void push(CaptureQueue &queue, int number, std::vector<int> &started, bool cameraRecords = false)
{
    struct Promise : OrbBufferPromise {
        Promise(int given, std::vector<int> &list) : number(given), started(list) {}
        void start(const OrbBuffer &) override { started.push_back(number); }
        int number;
        std::vector<int> &started;
    };
    const OrbBuffer buffer(std::make_shared<Promise>(number, started));
    CaptureEntry entry = entryWith(number, buffer);
    entry.cameraRecords = cameraRecords;
    queue.push(entry, buffer);
}

} // namespace

class tst_device_capture : public QObject
{
    Q_OBJECT
private slots:
    void framesNotReleasedFillTheQueue();
    void aFrameCountsUntilItsLastCopyGoes();
    void framesWithoutABufferAreBoundedToo();
    void framesAreReadInOrder();
    void waitingFramesAreCodedOnceAndInOrder();
    void inARecordingThatKeepsARateFramesAreCodedInTheOrderOfReading();
    void theFrameThatTheCameraStartedARecordingWithIsCodedFirst();
    void aRawPictureCountsUntilItsLastUserLetsGo();
    void tokensOutliveTheirCounter();
    void channelsAreMapped_data();
    void channelsAreMapped();
    void soundIsCutToExactBlocks();
    void missingSoundIsSilence();
    void soundThatNobodyTakesIsBounded();
};

void tst_device_capture::framesNotReleasedFillTheQueue()
{
    CaptureQueue queue(2);
    OrbBuffer a(16, 0);
    queue.push(entryWith(0, a), a);
    QVERIFY(!queue.isFull());
    OrbBuffer b(16, 0);
    queue.push(entryWith(1, b), b);
    QVERIFY(queue.isFull());
    const auto held = queue.pop();
    const auto alsoHeld = queue.pop();
    QVERIFY(queue.isFull()); // read, but not released
    QCOMPARE(queue.size(), 0);
    QCOMPARE(queue.unreleased(), 2);
}

void tst_device_capture::aFrameCountsUntilItsLastCopyGoes()
{
    CaptureQueue queue(2);
    {
        OrbBuffer buffer(16, 0);
        queue.push(entryWith(0, buffer), buffer);
    }
    std::optional<CaptureEntry> read = queue.pop();
    OrbFrame copy = read->frame;
    read.reset();
    QCOMPARE(queue.unreleased(), 1);
    copy = OrbFrame();
    QCOMPARE(queue.unreleased(), 0);
}

void tst_device_capture::framesWithoutABufferAreBoundedToo()
{
    CaptureQueue queue(2);
    queue.push(entryWith(0, OrbBuffer()), OrbBuffer());
    queue.push(entryWith(1, OrbBuffer()), OrbBuffer());
    QVERIFY(queue.isFull());
    queue.pop();
    QVERIFY(!queue.isFull());
}

void tst_device_capture::framesAreReadInOrder()
{
    CaptureQueue queue(8);
    QVERIFY(!queue.nextNumber());
    QVERIFY(!queue.pop());
    queue.push(entryWith(7, OrbBuffer()), OrbBuffer());
    queue.push(entryWith(9, OrbBuffer()), OrbBuffer());
    QCOMPARE(*queue.nextNumber(), std::int64_t(7));
    QCOMPARE(queue.pop()->number, std::int64_t(7));
    QCOMPARE(queue.pop()->number, std::int64_t(9));
}

void tst_device_capture::waitingFramesAreCodedOnceAndInOrder()
{
    std::vector<int> started;
    CaptureQueue queue(8);
    push(queue, 0, started);
    push(queue, 1, started);
    QVERIFY(started.empty());
    queue.requestWaiting();
    queue.requestWaiting();
    QCOMPARE(started, (std::vector<int>{0, 1}));
    queue.pop();
    push(queue, 2, started);
    push(queue, 3, started);
    queue.requestWaiting();
    QCOMPARE(started, (std::vector<int>{0, 1, 2, 3}));
    for (int i = 0; i < 3; ++i)
        queue.pop();
    push(queue, 4, started);
    QCOMPARE(started.size(), std::size_t(4)); // nobody has asked
}

void tst_device_capture::inARecordingThatKeepsARateFramesAreCodedInTheOrderOfReading()
{
    for (const bool isRateKept : {true, false}) {
        std::vector<int> started;
        CaptureQueue queue(8, isRateKept);
        for (int i = 0; i < 4; ++i)
            push(queue, i, started);
        queue.pop();
        QVERIFY(started.empty()); // nobody records
        queue.setRecording(true);
        QVERIFY(started.empty());
        const auto read = queue.pop();
        QCOMPARE(started, isRateKept ? std::vector<int> {1} : std::vector<int>());
        queue.requestWaiting(); // before the frame is written
        read->frame.vids().first().buffer().request();
        QCOMPARE(started, isRateKept ? (std::vector<int> {1, 2, 3}) : (std::vector<int> {2, 3, 1}));
        queue.setRecording(false);
        push(queue, 4, started);
        for (int i = 0; i < 3; ++i)
            queue.pop();
        QCOMPARE(started.size(), std::size_t(3));
    }
}

void tst_device_capture::theFrameThatTheCameraStartedARecordingWithIsCodedFirst()
{
    for (const bool hasCamera : {true, false}) {
        std::vector<int> started;
        CaptureQueue queue(8, true);
        for (int i = 0; i < 3; ++i)
            push(queue, i, started, hasCamera && i > 0);
        queue.pop();
        const auto read = queue.pop();
        queue.setRecording(true);
        queue.requestWaiting();
        QCOMPARE(started, hasCamera ? (std::vector<int> {1, 2}) : std::vector<int> {2});
    }
}

void tst_device_capture::aRawPictureCountsUntilItsLastUserLetsGo()
{
    Allowance raws(1);
    RawPictureRef mine = std::make_shared<RawPicture>();
    RawPictureRef inUse = counted(mine, raws);
    QVERIFY(raws.isUsedUp());
    QCOMPARE(inUse.get(), mine.get());
    RawPictureRef coder = inUse;
    inUse.reset();
    QVERIFY(raws.isUsedUp());
    coder.reset();
    QVERIFY(!raws.isUsedUp());
    QVERIFY(!counted(nullptr, raws));
}

void tst_device_capture::tokensOutliveTheirCounter()
{
    std::shared_ptr<void> token;
    {
        Allowance allowance(3);
        token = allowance.take();
        QCOMPARE(allowance.out(), 1);
    }
    token.reset();
}

void tst_device_capture::channelsAreMapped_data()
{
    QTest::addColumn<QByteArray>("sound");
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("to");
    QTest::addColumn<QByteArray>("mapped");
    const QByteArray stereo("aaabbbAAABBB", 12);
    const QByteArray silence(3, '\0');
    QTest::newRow("as it is") << stereo << 2 << 2 << stereo;
    QTest::newRow("fewer") << stereo << 2 << 1 << QByteArray("aaaAAA");
    QTest::newRow("more") << stereo << 2 << 3
                          << "aaabbb" + silence + "AAABBB" + silence;
    QTest::newRow("none wanted") << stereo << 2 << 0 << QByteArray();
    QTest::newRow("none there") << QByteArray() << 0 << 2 << QByteArray();
    QTest::newRow("a torn sample is dropped") << stereo.left(8) << 2 << 1 << QByteArray("aaa");
}

void tst_device_capture::channelsAreMapped()
{
    QFETCH(QByteArray, sound);
    QFETCH(int, from);
    QFETCH(int, to);
    QFETCH(QByteArray, mapped);
    QCOMPARE(mapChannels(sound, from, to), mapped);
}

void tst_device_capture::soundIsCutToExactBlocks()
{
    SoundFifo fifo(1);
    fifo.put("aaabbbccc", 1);
    QCOMPARE(fifo.take(2), QByteArray("aaabbb"));
    fifo.put("dddeee", 1);
    QCOMPARE(fifo.take(2), QByteArray("cccddd"));
}

void tst_device_capture::missingSoundIsSilence()
{
    SoundFifo fifo(2);
    fifo.put("aaabbb", 2);
    QCOMPARE(fifo.take(2), QByteArray("aaabbb\0\0\0\0\0\0", 12));
    QCOMPARE(fifo.take(1), QByteArray(6, '\0'));
    QCOMPARE(SoundFifo(0).take(100), QByteArray());
}

void tst_device_capture::soundThatNobodyTakesIsBounded()
{
    SoundFifo fifo(2);
    for (int i = 0; i < 1000; ++i)
        fifo.put(QByteArray(1920 * 6, 'x'), 2);
    fifo.put("aaabbb", 2);
    int heard = 0;
    while (fifo.take(1) != QByteArray(6, '\0') && heard < 100'000)
        ++heard;
    QVERIFY(heard <= 8192);
    QVERIFY(heard > 0);
}

QTEST_APPLESS_MAIN(tst_device_capture)
#include "tst_device_capture.moc"
