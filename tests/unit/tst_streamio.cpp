#include "liborb/drivers/clip/ioworker.h"
#include "liborb/drivers/clip/readdriver.h"
#include "liborb/drivers/clip/writedriver.h"
#include "tst_streamfiles.h"

#include <QTemporaryDir>

#include <atomic>
#include <cerrno>
#include <semaphore>

namespace {

/// A medium that hangs where it is told to until it is let go.
struct Gate
{
    std::binary_semaphore hung{0};   ///< somebody waits
    std::binary_semaphore letGo{0};
    std::binary_semaphore gone{0};   ///< the source was destroyed

    void wait()
    {
        hung.release();
        letGo.acquire();
    }
};

class HangingSource : public FrameSource
{
public:
    HangingSource(std::shared_ptr<Gate> gate, bool hangsInOpen)
        : _gate(std::move(gate)), _hangsInOpen(hangsInOpen)
    {
    }
    ~HangingSource() override { _gate->gone.release(); }
    OrbError open(OrbStreamInfo &info) override
    {
        info.setLength(10);
        if (_hangsInOpen)
            _gate->wait();
        return OrbError();
    }
    OrbError read(int number, OrbFrame &frame) override
    {
        if (number == 5)
            _gate->wait();
        frame.meta().insert(OrbId(OrbIdFrameNumber), number);
        return OrbError();
    }

private:
    std::shared_ptr<Gate> _gate;
    bool _hangsInOpen;
};

/// Writes down what a driver tells it.
class Host : public OrbMediaDriverHost
{
public:
    QStringList story;

    void driverOpened(const OrbError &error, const OrbStreamInfo &) override
    {
        story << QStringLiteral("opened %1").arg(error.value());
    }
    void driverClosed() override { story << QStringLiteral("closed"); }
    void driverFrameRead(int frame, const OrbFrame &, const OrbError &error, void *) override
    {
        story << QStringLiteral("read %1 %2").arg(frame).arg(error.value());
    }
    void driverFrameWritten(int frame, const OrbError &error) override
    {
        story << QStringLiteral("written %1 %2").arg(frame).arg(error.value());
    }
};

} // namespace

class TestStreamIo : public QObject
{
    Q_OBJECT

private slots:
    void jobsRunInOrderOnAThreadOfTheirOwn();
    void answersOfAClosedBoxNeverArrive();
    void finishDoesTheJobsThereAre();
    void aHungWorkerIsLeftBehindAndEndsWhenItsMediumLetsIt();
    void closingAHungReaderAnswersAtOnce();
    void destroyingAHungReaderLeavesItsSourceToTheThread_data();
    void destroyingAHungReaderLeavesItsSourceToTheThread();
    void tooManyReadsAreRefusedInOrder();
    void aWriterBehindAHungPromiseIsLeftBehind();
};

void TestStreamIo::jobsRunInOrderOnAThreadOfTheirOwn()
{
    IoWorker worker;
    QVERIFY(worker.start());
    AnswerBox answers;
    QList<int> order;
    bool isElsewhere = true;
    const auto here = std::this_thread::get_id();
    for (int i = 0; i < 50; ++i) {
        worker.post([&, i, answers] {
            const bool elsewhere = std::this_thread::get_id() != here;
            answers.post([&, i, elsewhere] {
                order << i;
                isElsewhere = isElsewhere && elsewhere && std::this_thread::get_id() == here;
            });
        });
    }
    QTRY_COMPARE_WITH_TIMEOUT(order.size(), 50, files::patienceMs);
    QVERIFY(std::is_sorted(order.begin(), order.end()));
    QVERIFY(isElsewhere);
    QVERIFY(worker.finish(std::chrono::milliseconds(files::patienceMs)));
    QCOMPARE(worker.jobsDone(), quint64(50));
}

void TestStreamIo::answersOfAClosedBoxNeverArrive()
{
    AnswerBox answers;
    bool hasArrived = false;
    answers.post([&] { hasArrived = true; });
    answers.close();
    answers.post([&] { hasArrived = true; });
    for (int turn = 0; turn < 10; ++turn)
        QCoreApplication::processEvents();
    QVERIFY(!hasArrived);
}

void TestStreamIo::finishDoesTheJobsThereAre()
{
    std::atomic<int> done{0};
    IoWorker worker;
    QVERIFY(worker.start());
    for (int i = 0; i < 100; ++i)
        worker.post([&] { ++done; });
    QVERIFY(worker.finish(std::chrono::milliseconds(files::patienceMs)));
    QCOMPARE(done.load(), 100);
    worker.post([&] { ++done; });
    QVERIFY(worker.finish(std::chrono::milliseconds(0)));
    QCOMPARE(done.load(), 100);
}

void TestStreamIo::aHungWorkerIsLeftBehindAndEndsWhenItsMediumLetsIt()
{
    const auto gate = std::make_shared<Gate>();
    {
        IoWorker worker;
        QVERIFY(worker.start());
        worker.post([gate] { gate->wait(); });
        worker.post([gate] { gate->gone.release(); });
        gate->hung.acquire();
        QVERIFY(!worker.finish(std::chrono::milliseconds(1)));
    }
    gate->letGo.release();
    QVERIFY(gate->gone.try_acquire_for(std::chrono::milliseconds(files::patienceMs)));
}

void TestStreamIo::closingAHungReaderAnswersAtOnce()
{
    const auto gate = std::make_shared<Gate>();
    Host host;
    {
        ReadDriver driver(&host, std::make_shared<HangingSource>(gate, false));
        driver.open();
        QTRY_COMPARE_WITH_TIMEOUT(host.story, QStringList{"opened 0"}, files::patienceMs);
        for (int number = 4; number < 8; ++number)
            driver.read(number, nullptr);
        gate->hung.acquire();
        driver.close();
        QTRY_COMPARE_WITH_TIMEOUT(host.story.last(), QStringLiteral("closed"), files::patienceMs);
        QCOMPARE(host.story,
                 (QStringList{"opened 0", "read 4 0", QStringLiteral("read 5 %1").arg(ECANCELED),
                              QStringLiteral("read 6 %1").arg(ECANCELED),
                              QStringLiteral("read 7 %1").arg(ECANCELED), "closed"}));
    }
    gate->letGo.release();
    QVERIFY(gate->gone.try_acquire_for(std::chrono::milliseconds(files::patienceMs)));
    for (int turn = 0; turn < 10; ++turn)
        QCoreApplication::processEvents();
    QCOMPARE(host.story.size(), 6);
}

void TestStreamIo::destroyingAHungReaderLeavesItsSourceToTheThread_data()
{
    QTest::addColumn<bool>("hangsInOpen");
    QTest::newRow("in open") << true;
    QTest::newRow("in read") << false;
}

void TestStreamIo::destroyingAHungReaderLeavesItsSourceToTheThread()
{
    QFETCH(bool, hangsInOpen);
    const auto gate = std::make_shared<Gate>();
    Host host;
    {
        ReadDriver driver(&host, std::make_shared<HangingSource>(gate, hangsInOpen));
        driver.open();
        driver.read(5, nullptr);
        driver.read(6, nullptr);
        gate->hung.acquire();
    }
    const auto heard = host.story.size();
    QVERIFY(!gate->gone.try_acquire());
    gate->letGo.release();
    QVERIFY(gate->gone.try_acquire_for(std::chrono::milliseconds(files::patienceMs)));
    QCoreApplication::processEvents();
    QCOMPARE(host.story.size(), heard);
}

void TestStreamIo::tooManyReadsAreRefusedInOrder()
{
    const auto gate = std::make_shared<Gate>();
    Host host;
    ReadDriver driver(&host, std::make_shared<HangingSource>(gate, true));
    driver.open();
    gate->hung.acquire();
    for (int i = 0; i < 300; ++i)
        driver.read(i % 4, nullptr);
    gate->letGo.release();
    QTRY_COMPARE_WITH_TIMEOUT(host.story.size(), 301, files::patienceMs);
    QCOMPARE(host.story[256], QStringLiteral("read 3 0"));
    QCOMPARE(host.story[257], QStringLiteral("read 0 %1").arg(ENOBUFS));
    QCOMPARE(host.story.filter(QRegularExpression(QStringLiteral(" 0$"))).size(), 257);
}

void TestStreamIo::aWriterBehindAHungPromiseIsLeftBehind()
{
    class Never : public OrbBufferPromise
    {
    public:
        explicit Never(std::shared_ptr<OrbBuffer> kept) : _kept(std::move(kept)) {}
        void start(const OrbBuffer &buffer) override { *_kept = buffer; }

    private:
        std::shared_ptr<OrbBuffer> _kept;
    };
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("a.mov"));
    const auto late = std::make_shared<OrbBuffer>();
    const OrbStreamInfo info = files::streamInfo();
    Host host;
    {
        WriteDriver driver(&host);
        driver.open(path, info);
        QTRY_COMPARE_WITH_TIMEOUT(host.story, QStringList{"opened 0"}, files::patienceMs);
        const OrbBuffer promise(std::make_shared<Never>(late));
        promise.request();
        driver.write(files::frame(info, 0));
        driver.write(files::frame(info, 1, promise));
        QTRY_COMPARE_WITH_TIMEOUT(host.story.size(), 2, files::patienceMs);
        driver.close();
    }
    // The coder comes to its end after all, and so does the clip.
    late->fail();
    QTRY_VERIFY_WITH_TIMEOUT(([&] {
                                 OrbStream stream;
                                 return files::open(stream, path, 1) == 0
                                     && !stream.info().isGrowing() && stream.info().length() == 1;
                             }()),
                             files::patienceMs);
    QCOMPARE(host.story, (QStringList{"opened 0", "written 0 0"}));
}

QTEST_GUILESS_MAIN(TestStreamIo)
#include "tst_streamio.moc"
