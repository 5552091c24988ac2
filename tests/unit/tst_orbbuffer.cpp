#include "liborb/orbbuffer.h"

#include <QTest>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <limits>
#include <thread>
#include <vector>

namespace {

/// A promise that counts what happens to it and keeps the buffer until the test fulfils it.
class CountingPromise : public OrbBufferPromise
{
public:
    struct Counts {
        std::atomic<int> started = 0;
        std::atomic<int> destroyed = 0;
    };

    explicit CountingPromise(Counts *counts) : _counts(counts) {}
    ~CountingPromise() override { ++_counts->destroyed; }
    void start(const OrbBuffer &buffer) override
    {
        ++_counts->started;
        kept = buffer;
    }

    OrbBuffer kept;

private:
    Counts *_counts;
};

/// A promise that is kept (or broken) on the spot.
class InstantPromise : public OrbBufferPromise
{
public:
    explicit InstantPromise(uchar *bytes) : _bytes(bytes) {}
    void start(const OrbBuffer &buffer) override
    {
        if (_bytes != nullptr)
            buffer.fulfil(_bytes, 4, {});
        else
            buffer.fail();
    }

private:
    uchar *_bytes;
};

} // namespace

class TestOrbBuffer : public QObject
{
    Q_OBJECT

private slots:
    void theDefaultBufferIsInvalid();
    void aBufferHasItsSizeAndAlignment_data();
    void aBufferHasItsSizeAndAlignment();
    void whatCannotBeHadIsInvalid();
    void theHugestBufferFailsOrWorksButDoesNotCrash();
    void copiesSeeEveryWriteDeliberately();
    void truncatingOnlyShortens();
    void aPromiseIsValidButNotReady();
    void aPromiseNobodyWantsIsDestroyedUnstarted();
    void aPromiseStartsOnce();
    void anInstantPromiseIsReadyAfterTheRequest();
    void aBrokenPromiseIsInvalid();
    void fulfillingWithNothingIsFailure();
    void lateResultsAreReleasedUnseen();
    void waitingCrossesThreads();
    void waitingForABrokenPromiseEnds();
    void manyWaitersAndOneWorker();
    void memoryGoesWithTheLastCopy();
    void theHookRunsOnceWhenTheLastCopyGoes();
    void aBufferWithoutMemoryIsCountedToo();
};

void TestOrbBuffer::theDefaultBufferIsInvalid()
{
    OrbBuffer buffer;
    QVERIFY(!buffer.isValid());
    QVERIFY(!buffer.isReady());
    QCOMPARE(buffer.size(), 0u);
    QVERIFY(buffer.data() == nullptr);
    QVERIFY(!buffer.wait());
    buffer.request();
    buffer.fail();
    buffer.truncate(1);
    QVERIFY(buffer == OrbBuffer());
}

void TestOrbBuffer::aBufferHasItsSizeAndAlignment_data()
{
    QTest::addColumn<quint32>("size");
    QTest::addColumn<quint32>("alignment");
    QTest::newRow("any") << 1u << 0u;
    QTest::newRow("byte") << 3u << 1u;
    QTest::newRow("vector") << 1000u << 64u;
    QTest::newRow("page") << 100u << 4096u;
    QTest::newRow("large") << 4096u << (1u << 20);
}

void TestOrbBuffer::aBufferHasItsSizeAndAlignment()
{
    QFETCH(quint32, size);
    QFETCH(quint32, alignment);
    OrbBuffer buffer(size, alignment);
    QVERIFY(buffer.isValid());
    QVERIFY(buffer.isReady());
    QVERIFY(buffer.wait());
    QCOMPARE(buffer.size(), size);
    QCOMPARE(reinterpret_cast<std::uintptr_t>(buffer.data()) % std::max(1u, alignment), 0u);
    std::memset(buffer.data(), 0xa5, size);
    QCOMPARE(std::as_const(buffer).data()[size - 1], uchar(0xa5));
}

void TestOrbBuffer::whatCannotBeHadIsInvalid()
{
    QVERIFY(!OrbBuffer(0, 0).isValid());
    QVERIFY(!OrbBuffer(100, 3).isValid());
    QVERIFY(!OrbBuffer(100, 48).isValid());
    QVERIFY(!OrbBuffer(nullptr).isValid());
    QVERIFY(!OrbBuffer(nullptr).wait());
}

void TestOrbBuffer::theHugestBufferFailsOrWorksButDoesNotCrash()
{
    constexpr quint32 huge = std::numeric_limits<quint32>::max();
    const OrbBuffer buffer(huge, 1u << 31);
    QCOMPARE(buffer.size(), buffer.isValid() ? huge : 0u);
    QCOMPARE(buffer.data() != nullptr, buffer.isValid());
}

void TestOrbBuffer::copiesSeeEveryWriteDeliberately()
{
    OrbBuffer original(4, 0);
    OrbBuffer copy = original;
    QVERIFY(copy == original);
    original.data()[0] = 1;
    copy.data()[1] = 2;
    QCOMPARE(copy.data()[0], uchar(1));
    QCOMPARE(original.data()[1], uchar(2));
    copy.truncate(2);
    QCOMPARE(original.size(), 2u);
    QVERIFY(!(OrbBuffer(4, 0) == original));
}

void TestOrbBuffer::truncatingOnlyShortens()
{
    OrbBuffer buffer(10, 0);
    const uchar *before = buffer.data();
    buffer.truncate(20);
    QCOMPARE(buffer.size(), 10u);
    buffer.truncate(7);
    QCOMPARE(buffer.size(), 7u);
    QVERIFY(buffer.data() == before);
    buffer.truncate(0);
    QVERIFY(buffer.isValid());
}

void TestOrbBuffer::aPromiseIsValidButNotReady()
{
    CountingPromise::Counts counts;
    const OrbBuffer buffer(std::make_shared<CountingPromise>(&counts));
    QVERIFY(buffer.isValid());
    QVERIFY(!buffer.isReady());
    QCOMPARE(buffer.size(), 0u);
    QVERIFY(buffer.data() == nullptr);
}

void TestOrbBuffer::aPromiseNobodyWantsIsDestroyedUnstarted()
{
    CountingPromise::Counts counts;
    {
        OrbBuffer buffer(std::make_shared<CountingPromise>(&counts));
        OrbBuffer copy = buffer;
        buffer = OrbBuffer();
        QCOMPARE(counts.destroyed.load(), 0);
    }
    QCOMPARE(counts.destroyed.load(), 1);
    QCOMPARE(counts.started.load(), 0);
}

void TestOrbBuffer::aPromiseStartsOnce()
{
    CountingPromise::Counts counts;
    uchar bytes[4] = {9, 8, 7, 6};
    OrbBuffer buffer(std::make_shared<CountingPromise>(&counts));
    const OrbBuffer copy = buffer;
    buffer.request();
    copy.request();
    QCOMPARE(counts.started.load(), 1);
    QVERIFY(!buffer.isReady());
    copy.fulfil(bytes, 4, {});
    QCOMPARE(counts.destroyed.load(), 1);
    QVERIFY(buffer.isReady());
    QCOMPARE(buffer.size(), 4u);
    QCOMPARE(buffer.data()[3], uchar(6));
    buffer.request();
    QCOMPARE(counts.started.load(), 1);
}

void TestOrbBuffer::anInstantPromiseIsReadyAfterTheRequest()
{
    uchar bytes[4] = {};
    const OrbBuffer buffer(std::make_shared<InstantPromise>(bytes));
    buffer.request();
    QVERIFY(buffer.isReady());
    QVERIFY(buffer.wait());
    QVERIFY(buffer.data() == bytes);
}

void TestOrbBuffer::aBrokenPromiseIsInvalid()
{
    const OrbBuffer buffer(std::make_shared<InstantPromise>(nullptr));
    QVERIFY(buffer.isValid());
    QVERIFY(!buffer.wait());
    QVERIFY(!buffer.isValid());
    QVERIFY(!buffer.isReady());
    QVERIFY(buffer.data() == nullptr);
}

void TestOrbBuffer::fulfillingWithNothingIsFailure()
{
    CountingPromise::Counts counts;
    const OrbBuffer buffer(std::make_shared<CountingPromise>(&counts));
    int released = 0;
    buffer.fulfil(nullptr, 10, [&released] { ++released; });
    QVERIFY(!buffer.isValid());
    QCOMPARE(released, 1);
}

void TestOrbBuffer::lateResultsAreReleasedUnseen()
{
    CountingPromise::Counts counts;
    uchar first[1] = {1};
    uchar second[1] = {2};
    int released = 0;
    const OrbBuffer buffer(std::make_shared<CountingPromise>(&counts));
    buffer.fulfil(first, 1, {});
    buffer.fulfil(second, 1, [&released] { ++released; });
    QCOMPARE(released, 1);
    buffer.fail();
    QVERIFY(buffer.data() == first);
    OrbBuffer().fulfil(second, 1, [&released] { ++released; });
    OrbBuffer(8, 0).fulfil(second, 1, [&released] { ++released; });
    QCOMPARE(released, 3);
}

void TestOrbBuffer::waitingCrossesThreads()
{
    CountingPromise::Counts counts;
    uchar bytes[4] = {42};
    const OrbBuffer buffer(std::make_shared<CountingPromise>(&counts));
    bool kept = false;
    std::thread waiter([buffer, &kept] { kept = buffer.wait() && buffer.data()[0] == 42; });
    std::thread worker([buffer, &counts, &bytes] {
        while (counts.started == 0)
            std::this_thread::yield();
        buffer.fulfil(bytes, 4, {});
    });
    waiter.join();
    worker.join();
    QVERIFY(kept);
    QCOMPARE(counts.started.load(), 1);
}

void TestOrbBuffer::waitingForABrokenPromiseEnds()
{
    CountingPromise::Counts counts;
    const OrbBuffer buffer(std::make_shared<CountingPromise>(&counts));
    bool kept = true;
    std::thread waiter([buffer, &kept] { kept = buffer.wait(); });
    while (counts.started == 0)
        std::this_thread::yield();
    buffer.fail();
    waiter.join();
    QVERIFY(!kept);
}

void TestOrbBuffer::manyWaitersAndOneWorker()
{
    for (int round = 0; round < 200; ++round) {
        CountingPromise::Counts counts;
        uchar bytes[1] = {static_cast<uchar>(round)};
        std::atomic<int> right = 0;
        {
            const OrbBuffer buffer(std::make_shared<CountingPromise>(&counts));
            std::vector<std::thread> threads;
            for (int i = 0; i < 3; ++i) {
                threads.emplace_back([buffer, &right, round] {
                    right += buffer.wait() && buffer.data()[0] == static_cast<uchar>(round);
                });
            }
            threads.emplace_back([buffer, &bytes] { buffer.fulfil(bytes, 1, {}); });
            for (std::thread &thread : threads)
                thread.join();
        }
        QCOMPARE(right.load(), 3);
        QVERIFY(counts.started <= 1);
        QCOMPARE(counts.destroyed.load(), 1);
    }
}

void TestOrbBuffer::memoryGoesWithTheLastCopy()
{
    int released = 0;
    uchar bytes[1] = {};
    OrbBuffer outer;
    {
        CountingPromise::Counts counts;
        OrbBuffer buffer(std::make_shared<CountingPromise>(&counts));
        buffer.fulfil(bytes, 1, [&released] { ++released; });
        outer = buffer;
    }
    QCOMPARE(released, 0);
    outer = OrbBuffer();
    QCOMPARE(released, 1);
}

void TestOrbBuffer::theHookRunsOnceWhenTheLastCopyGoes()
{
    int gone = 0;
    {
        OrbBuffer buffer(16, 0);
        buffer.setReleaseHook([&gone] { ++gone; });
        const OrbBuffer copy = buffer;
        buffer = OrbBuffer();
        QCOMPARE(gone, 0);
    }
    QCOMPARE(gone, 1);
}

void TestOrbBuffer::aBufferWithoutMemoryIsCountedToo()
{
    int gone = 0;
    {
        OrbBuffer buffer;
        buffer.setReleaseHook([&gone] { ++gone; });
        QVERIFY(!buffer.isValid());
        const OrbBuffer copy = buffer;
        buffer = OrbBuffer();
        QCOMPARE(gone, 0);
    }
    QCOMPARE(gone, 1);
}

QTEST_APPLESS_MAIN(TestOrbBuffer)
#include "tst_orbbuffer.moc"
