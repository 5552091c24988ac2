// Look-up tables on the real device: a camera shows a coloured ramp on an input bus, and what stands on the
// program bus, in the recording and in playback is compared sample by sample.

#include "colourreference.h"
#include "devicehost.h"
#include "libbus/bus.h"
#include "liborb/drivers/software/encoder.h"
#include "liborb/orbimagelut.h"
#include "libpicture/patterns.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <thread>
#include <vector>

#include <unistd.h>

namespace {

constexpr int width = 320;
constexpr int height = 180; // BT.601

using Samples = std::vector<std::uint16_t>; // tightly packed: Y, Cb, Cr
using Table = std::vector<std::int16_t>;

std::string cameraBus()
{
    return "/rvd_lut_camera_" + std::to_string(getpid());
}

picture::View viewOf(const Samples &samples)
{
    return picture::viewOf(const_cast<std::uint16_t *>(samples.data()), width, height);
}

Samples samplesOf(const picture::View &view)
{
    Samples samples(std::size_t {width} * height * 2);
    picture::copy(view, viewOf(samples));
    return samples;
}

/// Luma over all of its codes, some lines of it grey and some in colours.
Samples colouredRamp()
{
    Samples samples(std::size_t {width} * height * 2);
    const picture::View view = viewOf(samples);
    picture::drawRamp(view);
    for (int y = height / 2; y < height; ++y) {
        std::fill_n(view.line(1, y), width / 2, std::uint16_t(512 - (y % 60)));
        std::fill_n(view.line(2, y), width / 2, std::uint16_t(512 + (y % 45)));
    }
    return samples;
}

Samples through(const Samples &samples, const Table &planes)
{
    Samples result = samples;
    const picture::View view = viewOf(result);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width / 2; ++x) {
            const colourreference::Pair now = colourreference::through(
                {view.line(0, y)[2 * x], view.line(0, y)[2 * x + 1], view.line(1, y)[x], view.line(2, y)[x]},
                planes, picture::matrixOf(height));
            view.line(0, y)[2 * x] = std::uint16_t(now.left);
            view.line(0, y)[2 * x + 1] = std::uint16_t(now.right);
            view.line(1, y)[x] = std::uint16_t(now.cb);
            view.line(2, y)[x] = std::uint16_t(now.cr);
        }
    }
    return result;
}

/// The largest difference of two samples in the same place.
int difference(const Samples &a, const Samples &b)
{
    int worst = a.size() == b.size() ? 0 : 9999;
    for (std::size_t i = 0; worst < 9999 && i < a.size(); ++i)
        worst = std::max(worst, std::abs(int(a[i]) - int(b[i])));
    return worst;
}

OrbImageLut lutOf(const Table &planes)
{
    OrbImageLut lut(OrbId(OrbIdLutRgb16), int(planes.size() / 3));
    std::copy(planes.begin(), planes.end(), lut.lutData());
    return lut;
}

OrbVideoDeviceSetup setupFor(OrbVideoDeviceSetup::Mode mode, OrbIdValue connector = OrbIdVideoPort601)
{
    OrbImageDesc image;
    image.setSize(width, height);
    image.setAspectRatio(width, height);
    image.setFrameRate(25, 1);
    image.setDataType(OrbIdImageProRes422);
    OrbVideoDeviceSetup setup;
    setup.setMode(mode);
    setup.setImageDesc(image);
    setup.setImageCount(1);
    setup.setVideoInputSource(connector);
    setup.setTimecodeInputSource(OrbIdTimecodePreset);
    setup.setMaxBuffers(150);
    return setup;
}

/// Shows one picture again and again.
class Camera
{
public:
    explicit Camera(const Samples &picture) : _thread([this, picture] { run(picture); }) {}
    ~Camera()
    {
        _ending = true;
        _thread.join();
    }

private:
    void run(const Samples &picture)
    {
        bus::Writer writer;
        if (!writer.open(cameraBus()))
            return;
        const bus::Format format {width, height, 25, 1, 0, 2};
        while (!_ending) {
            picture::copy(viewOf(picture), writer.beginFrame(format));
            bus::FrameInfo info;
            info.content = bus::Content::Live;
            writer.publish(info);
            std::this_thread::sleep_for(std::chrono::milliseconds(40));
        }
        writer.close();
        bus::Writer::remove(cameraBus());
    }

    std::atomic<bool> _ending = false;
    std::thread _thread;
};

/// A device with a host that only waits, and a reader on its bus.
class Bench : public DeviceHost
{
public:
    void driverVbi(const OrbVbiInfo &) override
    {
        OrbFrame frame;
        while (!driver->readFrame(frame).isError()) {
            if (wanted <= 0)
                continue;
            frame.vids().first().buffer().request();
            recorded.append(frame);
            --wanted;
        }
        while (!toPlay.vids().isEmpty() && driver->framesWritable() > 0) {
            toPlay.meta().insert(OrbIdFrameNumber, ++played);
            driver->writeFrame(toPlay);
        }
    }

    bool runSetup(const OrbVideoDeviceSetup &setup)
    {
        isInSetup = true;
        return !driver->setup(setup).isError() && until([this] { return !isInSetup; })
               && !setupError.isError();
    }
    /// The first picture of that kind on the bus from now on; nothing when none comes.
    Samples shown(bus::Content content)
    {
        Samples picture;
        int passed = 0; // a frame of the setup before may still stand in the ring
        until([&] {
            bus::Frame frame;
            if (!_reader.isOpen() && !_reader.open(qEnvironmentVariable("RVD_PROGRAM_BUS").toStdString()))
                return false;
            if (_reader.next(frame, 2) && frame.info.content == content && ++passed > 3)
                picture = samplesOf(frame.view());
            return !picture.empty();
        });
        return picture;
    }
    /// Captures one frame and waits until it is coded.
    OrbFrame record()
    {
        recorded.clear();
        wanted = 1;
        until([this] { return !recorded.isEmpty(); });
        if (recorded.isEmpty())
            return OrbFrame();
        recorded.first().vids().first().buffer().wait();
        return recorded.first();
    }

    OrbFrame toPlay; ///< again and again, with a number of its own each time
    QList<OrbFrame> recorded;
    int wanted = 0;
    int played = 0;

private:
    void turn() override
    {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 5);
        usleep(1000);
    }

    bus::Reader _reader;
};

} // namespace

class tst_device_lut : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void withoutTablesThePictureIsThatOfTheInput();
    void theInputTableIsOnTheBusAndInTheRecording();
    void theOutputTableIsOnTheBusAndNotInTheRecording();
    void bothTablesFollowEachOther();
    void aTableThatChangesNothingChangesNothing();
    void aStillTestSignalGoesThroughTheInputTable();
    void playbackGoesThroughTheOutputTableAndNotTheInputs();
    void aStandingPictureFollowsTheTable();
    void blackForAMissingSignalStaysBlack();

private:
    OrbBuffer codedOf(const Samples &picture);
    QTemporaryDir _dir;
};

void tst_device_lut::initTestCase()
{
    QVERIFY(configureDevice(_dir, "[inputs]\n602=bars\nformat=320x180p25\n601=bus:"
                                      + QByteArray::fromStdString(cameraBus())
                                      + "\n[reference]\npresent=true\nlocked=true\n"));
}

/// The very bytes that the device's coder makes of a picture.
OrbBuffer tst_device_lut::codedOf(const Samples &picture)
{
    static ferin::RawPicturePool pool(width, height, 4);
    const ferin::RawPictureRef raw = pool.take();
    picture::copy(viewOf(picture), raw->view);
    ferin::EncoderPool coder(1);
    OrbBuffer coded = coder.promise(raw, setupFor(OrbVideoDeviceSetup::Capture).imageDesc());
    coded.request();
    coded.wait();
    return coded;
}

#define COMPARE_BYTES(a, b)                                                                                    \
    do {                                                                                                       \
        QCOMPARE((a).size(), (b).size());                                                                      \
        QVERIFY(std::memcmp((a).data(), (b).data(), (a).size()) == 0);                                         \
    } while (false)

void tst_device_lut::withoutTablesThePictureIsThatOfTheInput()
{
    const Samples ramp = colouredRamp();
    Camera camera(ramp);
    Bench bench;
    QVERIFY(bench.runSetup(setupFor(OrbVideoDeviceSetup::Capture)));
    QCOMPARE(difference(bench.shown(bus::Content::Live), ramp), 0);
    const OrbFrame frame = bench.record();
    COMPARE_BYTES(frame.vids().first().buffer(), codedOf(ramp));
}

void tst_device_lut::theInputTableIsOnTheBusAndInTheRecording()
{
    const Samples ramp = colouredRamp();
    for (const Table &table : {colourreference::inverted(), colourreference::graded()}) {
        Camera camera(ramp);
        Bench bench;
        OrbVideoDeviceSetup setup = setupFor(OrbVideoDeviceSetup::Capture);
        setup.setInputLut(lutOf(table));
        QVERIFY(bench.runSetup(setup));
        const Samples shown = bench.shown(bus::Content::Live);
        QVERIFY(difference(shown, through(ramp, table)) <= 1);
        // What is recorded is what is shown.
        const OrbFrame frame = bench.record();
        COMPARE_BYTES(frame.vids().first().buffer(), codedOf(shown));
    }
}

void tst_device_lut::theOutputTableIsOnTheBusAndNotInTheRecording()
{
    const Samples ramp = colouredRamp();
    Camera camera(ramp);
    Bench bench;
    OrbVideoDeviceSetup setup = setupFor(OrbVideoDeviceSetup::Capture);
    setup.setOutputLut(lutOf(colourreference::graded()));
    QVERIFY(bench.runSetup(setup));
    const Samples shown = bench.shown(bus::Content::Live);
    QVERIFY(difference(shown, through(ramp, colourreference::graded())) <= 1);
    const OrbFrame frame = bench.record();
    COMPARE_BYTES(frame.vids().first().buffer(), codedOf(ramp));
}

void tst_device_lut::bothTablesFollowEachOther()
{
    const Samples ramp = colouredRamp();
    Camera camera(ramp);
    Bench bench;
    OrbVideoDeviceSetup setup = setupFor(OrbVideoDeviceSetup::Capture);
    setup.setInputLut(lutOf(colourreference::graded()));
    setup.setOutputLut(lutOf(colourreference::inverted()));
    QVERIFY(bench.runSetup(setup));
    const Samples shown = bench.shown(bus::Content::Live);
    const Samples wanted = through(through(ramp, colourreference::graded()), colourreference::inverted());
    QVERIFY(difference(shown, wanted) <= 2);
}

void tst_device_lut::aTableThatChangesNothingChangesNothing()
{
    const Samples ramp = colouredRamp();
    Table same(3 * 1024);
    for (std::size_t i = 0; i < same.size(); ++i)
        same[i] = std::int16_t(i % 1024);
    Camera camera(ramp);
    Bench bench;
    OrbVideoDeviceSetup setup = setupFor(OrbVideoDeviceSetup::Capture);
    setup.setInputLut(lutOf(same));
    setup.setOutputLut(lutOf(same));
    QVERIFY(bench.runSetup(setup));
    QCOMPARE(difference(bench.shown(bus::Content::Live), ramp), 0);
}

void tst_device_lut::aStillTestSignalGoesThroughTheInputTable()
{
    Samples bars(std::size_t {width} * height * 2);
    picture::drawBars(viewOf(bars));
    Bench bench;
    OrbVideoDeviceSetup setup = setupFor(OrbVideoDeviceSetup::Capture, OrbIdVideoPort602);
    setup.setInputLut(lutOf(colourreference::graded()));
    QVERIFY(bench.runSetup(setup));
    const Samples wanted = through(bars, colourreference::graded());
    const Samples first = bench.shown(bus::Content::Live);
    QVERIFY(difference(first, wanted) <= 1);
    QCOMPARE(difference(bench.shown(bus::Content::Live), first), 0);
    const OrbFrame frame = bench.record();
    COMPARE_BYTES(frame.vids().first().buffer(), codedOf(first));
    // Another table in the middle of it.
    setup.setInputLut(lutOf(colourreference::inverted()));
    QVERIFY(bench.runSetup(setup));
    QVERIFY(difference(bench.shown(bus::Content::Live), through(bars, colourreference::inverted())) <= 1);
}

void tst_device_lut::playbackGoesThroughTheOutputTableAndNotTheInputs()
{
    OrbFrame frame;
    {
        Camera camera(colouredRamp());
        Bench bench;
        QVERIFY(bench.runSetup(setupFor(OrbVideoDeviceSetup::Capture)));
        QVERIFY(!bench.shown(bus::Content::Live).empty());
        frame = bench.record();
    }
    Samples plain;
    for (const bool isOn : {false, true}) {
        Bench bench;
        OrbVideoDeviceSetup setup = setupFor(OrbVideoDeviceSetup::Playback);
        if (isOn) {
            setup.setInputLut(lutOf(colourreference::inverted()));
            setup.setOutputLut(lutOf(colourreference::graded()));
        }
        QVERIFY(bench.runSetup(setup));
        bench.toPlay = frame;
        const Samples shown = bench.shown(bus::Content::Playback);
        QVERIFY(!shown.empty());
        if (isOn)
            QVERIFY(difference(shown, through(plain, colourreference::graded())) <= 1);
        else
            plain = shown;
    }
    QVERIFY(difference(plain, colouredRamp()) < 40); // the coder's losses
}

void tst_device_lut::aStandingPictureFollowsTheTable()
{
    const Samples ramp = colouredRamp();
    OrbFrame frame;
    {
        Camera camera(ramp);
        Bench bench;
        QVERIFY(bench.runSetup(setupFor(OrbVideoDeviceSetup::Capture)));
        QVERIFY(!bench.shown(bus::Content::Live).empty());
        frame = bench.record();
    }
    Bench bench;
    OrbVideoDeviceSetup setup = setupFor(OrbVideoDeviceSetup::Playback);
    QVERIFY(bench.runSetup(setup));
    QVERIFY(!bench.driver->writeFrame(frame).isError());
    const Samples plain = bench.shown(bus::Content::Held);
    QVERIFY(difference(plain, ramp) < 40);
    setup.setOutputLut(lutOf(colourreference::inverted()));
    QVERIFY(bench.runSetup(setup));
    QVERIFY(difference(bench.shown(bus::Content::Held), through(plain, colourreference::inverted())) <= 1);
    setup.setOutputLut(OrbImageLut());
    QVERIFY(bench.runSetup(setup));
    QCOMPARE(difference(bench.shown(bus::Content::Held), plain), 0);
}

void tst_device_lut::blackForAMissingSignalStaysBlack()
{
    Bench bench;
    OrbVideoDeviceSetup setup = setupFor(OrbVideoDeviceSetup::Capture, OrbIdVideoPort603);
    setup.setBlackingEnabled(true);
    setup.setInputLut(lutOf(colourreference::inverted()));
    setup.setOutputLut(lutOf(colourreference::graded()));
    QVERIFY(bench.runSetup(setup));
    Samples black(std::size_t {width} * height * 2);
    picture::drawBlack(viewOf(black));
    QCOMPARE(difference(bench.shown(bus::Content::Black), black), 0);
}

QTEST_GUILESS_MAIN(tst_device_lut)
#include "tst_device_lut.moc"
