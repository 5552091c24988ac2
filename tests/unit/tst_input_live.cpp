#include "tst_input_media.h"
#include "tst_input_tools.h"

#include "liborb/orb.h"

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>
#include <QUdpSocket>

#include <ctime>

using namespace ferin;
using namespace inputtest;

namespace {

/// A port that nobody listens on just now.
int freePort()
{
    QUdpSocket socket;
    socket.bind(QHostAddress::LocalHost, 0);
    return socket.localPort();
}

QString urlOf(int port)
{
    return QStringLiteral("udp://127.0.0.1:%1?pkt_size=1316").arg(port);
}

/// The ffmpeg program sends a file in real time, over and over.
class Sender
{
public:
    bool start(const QString &file, int port)
    {
        _process.start(QStringLiteral("ffmpeg"),
                       {"-v", "error", "-nostdin", "-re", "-stream_loop", "-1", "-i", file, "-c", "copy",
                        "-f", "mpegts", urlOf(port)});
        return _process.waitForStarted();
    }
    void stop()
    {
        _process.kill();
        _process.waitForFinished();
    }
    ~Sender() { stop(); }

private:
    QProcess _process;
};

double cpuSeconds()
{
    timespec time {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

constexpr int length = 100; ///< frames of the file that is sent

} // namespace

class TestInputLive : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void aSenderIsReceivedInOrder();
    void aSenderThatStopsAndComesBackIsFollowed();
    void anotherFormatIsNoticed();
    void nobodySendingCostsNothingAndEndsAtOnce();

private:
    QTemporaryDir _folder;
    QString _first, _second;
};

void TestInputLive::initTestCase()
{
    Orb::init(0);
    _first = _folder.filePath(QStringLiteral("first.ts"));
    _second = _folder.filePath(QStringLiteral("second.ts"));
    MediaSpec spec;
    spec.audioCodec = "mp2";
    spec.interlaced = true;
    MediaSpec other = spec;
    other.width = 1280;
    other.height = 720;
    other.rate = {50, 1};
    other.interlaced = false;
    for (const auto &[path, made] : {std::pair(_first, spec), std::pair(_second, other)}) {
        MediaMaker maker;
        QVERIFY(maker.open(path, made));
        for (int i = 0; i < length; ++i)
            QVERIFY(maker.write(static_cast<std::uint32_t>(i), i));
        QVERIFY(maker.close());
    }
}

void TestInputLive::aSenderIsReceivedInOrder()
{
    const int port = freePort();
    const auto input = createInput(urlOf(port));
    QVERIFY(input->isPaced());
    StatusLog log;
    input->start(log.handler());
    Sender sender;
    QVERIFY(sender.start(_first, port));
    const auto frames = takeFrames(*input, length + 50);
    QCOMPARE(frames.size(), std::size_t {length + 50});
    QCOMPARE(input->overruns(), quint64 {0});
    QVERIFY(log.last().valid);
    QCOMPARE(log.all().size(), std::size_t {1});
    QCOMPARE(log.last().format.size(), QSize(720, 576));
    QCOMPARE(log.last().format.frameRate().num(), 25);
    QCOMPARE(input->heldFrames(), 2);
    QVERIFY(log.last().format.isInterlaced());
    std::int64_t expected = frames[0].bar;
    int loud = 0;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const InputFrame &frame = frames[i].frame;
        QCOMPARE(frame.number, quint64 {i});
        QCOMPARE(frame.sound.size(), qsizetype {1920 * 2 * 3});
        QCOMPARE(frames[i].bar, expected);
        loud += frame.sound.count('\0') < frame.sound.size() * 3 / 4;
        expected = (expected + 1) % length;
    }
    QVERIFY2(loud >= length, qPrintable(QString::number(loud)));
}

void TestInputLive::aSenderThatStopsAndComesBackIsFollowed()
{
    const int port = freePort();
    const auto input = createInput(urlOf(port));
    StatusLog log;
    input->start(log.handler());
    for (int round = 0; round < 3; ++round) {
        Sender sender;
        QVERIFY(sender.start(_first, port));
        QVERIFY(waitFor([&] { return log.last().valid; }));
        InputFrame frame;
        while (input->take(frame)) { }
        const auto frames = takeFrames(*input, 20);
        QCOMPARE(frames.size(), std::size_t {20});
        for (std::size_t i = 1; i < frames.size(); ++i)
            QCOMPARE(frames[i].frame.number, frames[i - 1].frame.number + 1);
        sender.stop();
        QElapsedTimer timer;
        timer.start();
        QVERIFY(waitFor([&] { return !log.last().present; }));
        qInfo("noticed after %lld ms", static_cast<long long>(timer.elapsed()));
        QVERIFY(!log.last().valid);
        while (input->take(frame)) { }
    }
    QCOMPARE(log.all().size(), std::size_t {6});
}

void TestInputLive::anotherFormatIsNoticed()
{
    const int port = freePort();
    const auto input = createInput(urlOf(port));
    StatusLog log;
    input->start(log.handler());
    Sender first;
    QVERIFY(first.start(_first, port));
    QVERIFY(waitFor([&] { return log.last().valid; }));
    first.stop();
    Sender second;
    QVERIFY(second.start(_second, port));
    InputFrame frame;
    const bool isSeen = waitFor([&] {
        while (input->take(frame)) { }
        const InputStatus last = log.last();
        return last.valid && last.format.size() == QSize(1280, 720) && !last.format.isInterlaced()
               && last.format.frameRate() == OrbVideoRate(50, 1);
    });
    for (const InputStatus &status : log.all())
        qInfo("%d %d %s", status.present, status.valid, qPrintable(status.format.toString()));
    QVERIFY(isSeen);
    QCOMPARE(input->heldFrames(), 4); // as long as at 25 frames a second: a network knows no frames
    QVERIFY(waitFor([&] { return input->take(frame) && frame.picture->view.width == 1280; }));
}

void TestInputLive::nobodySendingCostsNothingAndEndsAtOnce()
{
    const auto input = createInput(urlOf(freePort()));
    StatusLog log;
    input->start(log.handler());
    const double before = cpuSeconds();
    QThread::sleep(2);
    const double spent = cpuSeconds() - before;
    QVERIFY2(spent < 0.2, qPrintable(QString::number(spent)));
    QVERIFY(log.all().empty());
    for (int i = 0; i < 3; ++i) {
        auto another = createInput(urlOf(freePort()));
        another->start(log.handler());
        QThread::msleep(100);
        QElapsedTimer timer;
        timer.start();
        another.reset();
        QVERIFY(timer.elapsed() < 5000);
    }
}

QTEST_GUILESS_MAIN(TestInputLive)
#include "tst_input_live.moc"
