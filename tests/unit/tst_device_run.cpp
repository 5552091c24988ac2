// The whole software device on a real clock, with the moving pattern as its input and the program
// bus as its output. What is asserted are frame numbers, never times.

#include "devicehost.h"
#include "logcollector.h"

#include "libbus/bus.h"
#include "libpicture/framebar.h"
#include "libpicture/patterns.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

#include <unistd.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/log.h>
}

namespace {

constexpr int width = 320;
constexpr int height = 180;

OrbImageDesc imageDesc(const OrbId &type)
{
    OrbImageDesc desc;
    desc.setSize(width, height);
    desc.setAspectRatio(width, height);
    desc.setFrameRate(25, 1);
    desc.setDataType(type);
    return desc;
}

OrbVideoDeviceSetup setupFor(OrbVideoDeviceSetup::Mode mode)
{
    OrbAudioDesc audio;
    audio.setDataType(OrbIdAudioDataType);
    audio.setChans(2);
    audio.setSampleRate(48000, 1);
    audio.setFrameRate(25, 1);
    OrbVideoDeviceSetup setup;
    setup.setMode(mode);
    setup.setImageDesc(imageDesc(OrbIdImageProRes422));
    setup.setAudioDesc(audio);
    setup.setImageCount(1);
    setup.setVideoInputSource(OrbIdVideoPort601);
    setup.setTimecodeInputSource(OrbIdTimecodePreset);
    setup.setMaxBuffers(150);
    return setup;
}

struct Seen {
    bus::FrameInfo info;
    int bar = -1; // the number in the picture
};

/// The number in the picture of a coded frame, read by an independent decoder.
int numberInCoded(const OrbBuffer &coded)
{
    const AVCodec *codec = avcodec_find_decoder(AV_CODEC_ID_PRORES);
    AVCodecContext *context = avcodec_alloc_context3(codec);
    AVPacket *packet = av_packet_alloc();
    AVFrame *frame = av_frame_alloc();
    int number = -1;
    context->thread_count = 1;
    if (avcodec_open2(context, codec, nullptr) == 0
        && av_new_packet(packet, static_cast<int>(coded.size())) == 0) {
        memcpy(packet->data, coded.data(), coded.size());
        if (avcodec_send_packet(context, packet) == 0
            && avcodec_receive_frame(context, frame) == 0
            && frame->format == AV_PIX_FMT_YUV422P10LE) {
            picture::View view;
            view.width = frame->width;
            view.height = frame->height;
            for (int p = 0; p < 3; ++p) {
                view.plane[p] = reinterpret_cast<std::uint16_t *>(frame->data[p]);
                view.stride[p] = frame->linesize[p] / 2;
            }
            number = static_cast<int>(picture::readFrameNumber(view).value_or(0xffffffffU));
        }
    }
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&context);
    return number;
}

/// A device with a host that writes down what it is told, and a reader on its bus.
class Bench : public DeviceHost
{
public:
    void driverVbi(const OrbVbiInfo &info) override
    {
        if (isInSetup)
            ++vbisInSetup;
        ++vbis;
        lastVbi = info;
        if (onVbi)
            onVbi();
    }
    void driverPlayedKeyFrame(const OrbMetadataHash &meta) override
    {
        keyFrames.append(meta.valueFor(OrbIdFrameNumber).toInt());
    }
    void driverWriteFailed(const OrbError &, const OrbFrame &) override { ++writeFailures; }
    void driverHardwareStarted() override { ++started; }
    void driverFlushed(const OrbMetadataHash &meta) override
    {
        flushedAt.append(meta.valueFor(OrbIdFrameNumber).toInt());
    }
    void driverInputChanged(int input, const OrbVideoState &state) override
    {
        if (input == 0)
            states.append(state);
    }
    void driverInputAncDataChanged(const OrbMetadataHash &data) override
    {
        recordFlags.append(data.valueFor(OrbIdCameraRecordFlag).toBool());
    }

    bool runSetup(const OrbVideoDeviceSetup &setup)
    {
        isInSetup = true;
        if (driver->setup(setup).isError())
            return false;
        return until([this] { return !isInSetup; }) && !setupError.isError();
    }
    void drain()
    {
        OrbFrame frame;
        while (!driver->readFrame(frame).isError()) {
        }
    }
    /// Captures \a count frames, coded.
    QList<OrbFrame> record(int count)
    {
        QList<OrbFrame> frames;
        onVbi = [&] {
            OrbFrame frame;
            while (frames.size() < count && !driver->readFrame(frame).isError()) {
                frame.vids().first().buffer().request();
                frames.append(frame);
            }
        };
        until([&] { return frames.size() >= count; });
        onVbi = nullptr;
        for (const OrbFrame &frame : frames)
            frame.vids().first().buffer().wait();
        return frames;
    }
    int skipped() const
    {
        const QString state = driver->stateAsString();
        const QString before = state.section(QStringLiteral(" skipped"), 0, 0);
        return before.section(QLatin1Char(' '), -1).toInt();
    }
    /// What the bus showed as new frames of a clip.
    QList<int> played() const
    {
        QList<int> numbers;
        for (const Seen &frame : seen) {
            if (frame.info.content == bus::Content::Playback)
                numbers.append(static_cast<int>(frame.info.frameNumber));
        }
        return numbers;
    }

    bus::Reader reader;
    std::function<void()> onVbi;
    std::vector<Seen> seen;
    QList<OrbVideoState> states;
    QList<int> keyFrames;
    QList<int> flushedAt;
    QList<bool> recordFlags;
    OrbVbiInfo lastVbi;
    int vbis = 0;
    int vbisInSetup = 0;
    int started = 0;
    int writeFailures = 0;

private:
    /// Follows the bus, too.
    void turn() override
    {
        QCoreApplication::processEvents(QEventLoop::AllEvents);
        if (!reader.isOpen() && !reader.open(qEnvironmentVariable("RVD_PROGRAM_BUS").toStdString()))
            usleep(2000);
        look();
    }
    void look()
    {
        bus::Frame frame;
        if (!reader.isOpen() || !reader.next(frame, 2))
            return;
        Seen one {frame.info, -1};
        if (const auto number = picture::readFrameNumber(frame.view()))
            one.bar = static_cast<int>(*number);
        seen.push_back(one);
    }
};

/// A camera on an input bus, on a clock of its own that is a little off.
class Camera
{
public:
    explicit Camera(double rate) : _thread([this, rate] { run(rate); }) {}
    ~Camera()
    {
        _ending = true;
        _thread.join();
    }
    static std::string busName()
    {
        return "/rvd_device_camera_" + std::to_string(getpid());
    }

    std::atomic<bool> isRecording = false;

private:
    void run(double rate)
    {
        bus::Writer writer;
        if (!writer.open(busName()))
            return;
        const bus::Format format {width, height, 25, 1, 0, 2};
        const auto begun = std::chrono::steady_clock::now();
        for (int n = 0; !_ending; ++n) {
            const picture::View slot = writer.beginFrame(format);
            picture::drawBlack(slot);
            picture::writeFrameNumber(slot, static_cast<std::uint32_t>(n));
            bus::FrameInfo info;
            info.content = bus::Content::Live;
            info.recordFlag = isRecording;
            info.tcHour = 5;
            info.tcSec = static_cast<std::int8_t>(n / 25 % 60);
            info.tcFrame = static_cast<std::int8_t>(n % 25);
            info.tcFps = 25;
            info.tcFlags = OrbTimecode::Valid;
            writer.publish(info);
            std::this_thread::sleep_until(begun + std::chrono::duration<double>((n + 1) / rate));
        }
        writer.close();
        bus::Writer::remove(busName());
    }

    std::atomic<bool> _ending = false;
    std::thread _thread;
};

/// Feeds a clip to the device at every beat, as a transport does.
class Player
{
public:
    Player(Bench &bench, const QList<OrbFrame> &clip) : _bench(bench), _clip(clip)
    {
        bench.onVbi = [this] { feed(); };
    }
    ~Player() { _bench.onVbi = nullptr; }
    void seek(int frame) { next = frame; }

    int next = 0;
    bool isHolding = false; // the last frame goes out again and again

private:
    void feed()
    {
        while (_bench.driver->framesWritable() > 0 && next < _clip.size()) {
            if (_bench.driver->writeFrame(_clip.at(next)).isError())
                return;
            if (!isHolding || next + 1 < _clip.size())
                ++next;
        }
    }

    Bench &_bench;
    const QList<OrbFrame> &_clip;
};

} // namespace

class tst_device_run : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void eeShowsEveryFrameOfTheInputOnce();
    void capturedFramesAreCodedWhenTheyAreWanted();
    void labelsCountInRecord();
    void theInternalGeneratorReplacesTheInput();
    void withoutSignalFramesHaveNoPicture();
    void anInputInAnotherFormatIsNotCaptured();
    void framesThatNobodyReadsAreDroppedAndTold();
    void aSourceOnItsOwnClockLosesNoFrame();
    void aCameraBringsItsLabelsAndItsRecordFlag();
    void aSignalThatGoesAndComesBackIsTold();
    void aClipPlaysFrameByFrame();
    void doubleSpeedShowsEverySecondFrame();
    void halfSpeedShowsEachFrameTwice();
    void aSetupForAnotherRasterComesAfterTheFramesQueued();
    void aFlushStopsWhereTheOutputIs();
    void keyFramesAreToldOnce();
    void aStarvedOutputDropsFramesUnlessTheStreamHasEnded();
    void thePictureStandsOverASetup();
    void setupsAreRefusedWhenTheyMakeNoSense();
    void nothingArrivesAfterTheDeviceIsClosed();

private:
    QList<OrbFrame> clip();
    QTemporaryDir _dir;
    QList<OrbFrame> _clip;
};

void tst_device_run::initTestCase()
{
    QVERIFY(configureDevice(_dir, "[inputs]\n601=pattern\nformat=320x180p25\n603=bus:"
                                      + QByteArray::fromStdString(Camera::busName())
                                      + "\n[reference]\npresent=true\nlocked=true\n"));
    av_log_set_level(AV_LOG_ERROR);
}

/// A clip of sixty frames, numbered from 0, whose pictures carry numbers from some base on.
QList<OrbFrame> tst_device_run::clip()
{
    if (!_clip.isEmpty())
        return _clip;
    Bench bench;
    if (!bench.runSetup(setupFor(OrbVideoDeviceSetup::Capture)))
        return {};
    _clip = bench.record(60);
    for (int i = 0; i < _clip.size(); ++i) {
        OrbMetadataHash &meta = _clip[i].meta();
        meta.insert(OrbIdFrameNumber, i);
        meta.insert(OrbIdTrickPlay, false);
        meta.insert(OrbIdTimecode, QVariant::fromValue(OrbTimecode(i, 25, false)));
    }
    return _clip;
}

void tst_device_run::eeShowsEveryFrameOfTheInputOnce()
{
    Bench bench;
    QVERIFY(bench.isOpen);
    QVERIFY(bench.runSetup(setupFor(OrbVideoDeviceSetup::Capture)));
    bench.onVbi = [&] { bench.drain(); };
    QVERIFY(bench.until([&] { return bench.seen.size() >= 40; }));
    if (bench.skipped() > 0)
        QSKIP("this machine was too busy to keep a frame clock");
    const int base = bench.seen.front().bar - static_cast<int>(bench.seen.front().info.sequence);
    for (const Seen &frame : bench.seen) {
        QCOMPARE(frame.info.content, bus::Content::Live);
        QCOMPARE(frame.bar - static_cast<int>(frame.info.sequence), base);
        QCOMPARE(frame.info.samples, 1920);
        QCOMPARE(frame.info.frameNumber, std::int64_t(-1));
    }
    QCOMPARE(bench.started, 1);
    QCOMPARE(bench.vbisInSetup, 0);
    QCOMPARE(bench.dropped, 0);
    QCOMPARE(bench.states.size(), 1);
    QVERIFY(bench.states.first().isValid());
    QCOMPARE(bench.states.first().captureImageDesc(), imageDesc(OrbIdImageV210));
    QVERIFY(bench.driver->refInputState(0).locked());
    QVERIFY(!bench.driver->refInputState(1).present());
}

void tst_device_run::capturedFramesAreCodedWhenTheyAreWanted()
{
    Bench bench;
    QVERIFY(bench.runSetup(setupFor(OrbVideoDeviceSetup::Capture)));
    const QList<OrbFrame> frames = bench.record(20);
    QCOMPARE(frames.size(), 20);
    const int base = numberInCoded(frames.first().vids().first().buffer());
    QVERIFY(base >= 0);
    const int count = frames.first().meta().valueFor(OrbIdFrameNumber).toInt();
    for (int i = 0; i < frames.size(); ++i) {
        const OrbFrame &frame = frames.at(i);
        QVERIFY(frame.hasValidVideo());
        QCOMPARE(frame.vids().size(), 1);
        QCOMPARE(frame.vids().first().desc(), imageDesc(OrbIdImageProRes422));
        QCOMPARE(numberInCoded(frame.vids().first().buffer()), base + i);
        QCOMPARE(frame.meta().valueFor(OrbIdFrameNumber).toInt(), count + i);
        QCOMPARE(frame.auds().size(), 1);
        QCOMPARE(frame.auds().first().buffers().first().size(), 1920U * 2 * 3);
    }
}

void tst_device_run::labelsCountInRecord()
{
    Bench bench;
    QVERIFY(bench.runSetup(setupFor(OrbVideoDeviceSetup::Capture)));
    const auto label = [](const OrbFrame &frame) {
        return frame.meta().valueFor(OrbIdTimecode).value<OrbTimecode>();
    };
    const OrbTimecode start(1, 0, 0, 0, 25, 0);
    bench.driver->setProperty(OrbIdPropTimecodePreset, QVariant::fromValue(start));
    for (const OrbFrame &frame : bench.record(5))
        QCOMPARE(label(frame).toString(), start.toString());
    bench.drain();
    bench.driver->setProperty(OrbIdPropPlayMode, int {OrbIdPlayModeRecord});
    bench.driver->setProperty(OrbIdPropTimecodePreset, QVariant::fromValue(start));
    const QList<OrbFrame> frames = bench.record(10);
    for (int i = 0; i < frames.size(); ++i)
        QCOMPARE(label(frames.at(i)).toString(), start.advanced(i).toString());
    bench.driver->setProperty(OrbIdPropTimecodePreset, QVariant::fromValue(label(frames.last())));
    QCOMPARE(label(bench.record(1).first()).toString(), start.advanced(10).toString());
}

void tst_device_run::theInternalGeneratorReplacesTheInput()
{
    Bench bench;
    OrbVideoDeviceSetup setup = setupFor(OrbVideoDeviceSetup::Capture);
    setup.setVideoInputSource(OrbIdSourceInternal);
    setup.setVideoSignalGenMode(OrbIdVideoGenBars);
    setup.setAudioInputSource(OrbIdSourceInternal);
    setup.setAudioSignalGenMode(OrbIdAudioGenSilence);
    QVERIFY(bench.runSetup(setup));
    const QList<OrbFrame> frames = bench.record(3);
    QVERIFY(frames.first().hasValidVideo());
    const OrbBuffer silence = frames.first().auds().first().buffers().first();
    QCOMPARE(QByteArray(reinterpret_cast<const char *>(silence.data()), silence.size()),
             QByteArray(1920 * 6, '\0'));
    QCOMPARE(bench.seen.back().bar, -1);
    QCOMPARE(bench.seen.back().info.content, bus::Content::Live);

    setup.setVideoSignalGenMode(OrbIdVideoGenMoving);
    QVERIFY(bench.runSetup(setup));
    QVERIFY(bench.until([&] { return bench.seen.back().bar >= 3; }));
}

void tst_device_run::withoutSignalFramesHaveNoPicture()
{
    Bench bench;
    OrbVideoDeviceSetup setup = setupFor(OrbVideoDeviceSetup::Capture);
    QVERIFY(bench.runSetup(setup));
    setup.setVideoInputSource(OrbIdVideoPort602);
    setup.setBlackingEnabled(true);
    QVERIFY(bench.runSetup(setup));
    const QList<OrbFrame> frames = bench.record(3);
    for (const OrbFrame &frame : frames) {
        QCOMPARE(frame.vids().size(), 1);
        QVERIFY(!frame.hasValidVideo());
        QVERIFY(frame.vids().first().desc().isValid());
        QCOMPARE(frame.auds().first().buffers().first().size(), 1920U * 2 * 3);
    }
    QVERIFY(bench.until([&] { return bench.seen.back().info.content == bus::Content::Black; }));
    QCOMPARE(bench.states.size(), 2);
    QVERIFY(!bench.states.last().isValid());

    setup.setBlackingEnabled(false);
    QVERIFY(bench.runSetup(setup));
    QVERIFY(bench.until([&] { return bench.seen.back().info.content == bus::Content::None; }));

    setup.setVideoInputSource(OrbIdVideoPort601);
    QVERIFY(bench.runSetup(setup));
    QVERIFY(bench.until([&] { return bench.seen.back().info.content == bus::Content::Live; }));
    QVERIFY(bench.states.last().isValid());
}

void tst_device_run::anInputInAnotherFormatIsNotCaptured()
{
    Bench bench;
    OrbVideoDeviceSetup setup = setupFor(OrbVideoDeviceSetup::Capture);
    OrbImageDesc image = setup.imageDesc();
    image.setFrameRate(24, 1);
    setup.setImageDesc(image);
    QVERIFY(bench.runSetup(setup));
    for (const OrbFrame &frame : bench.record(3))
        QVERIFY(!frame.hasValidVideo());
    QVERIFY(bench.states.last().isValid()); // so that the engine can set up what there is
}

void tst_device_run::framesThatNobodyReadsAreDroppedAndTold()
{
    Bench bench;
    OrbVideoDeviceSetup setup = setupFor(OrbVideoDeviceSetup::Capture);
    setup.setMaxBuffers(6);
    const LogCollector log;
    QVERIFY(bench.runSetup(setup));
    QVERIFY(bench.until([&] { return bench.dropped >= 5; }));
    QVERIFY(log.contains(1, "machine.cpp", "Frame lost: too many frames wait to be read"));
    QVERIFY(log.lines().filter(QRegularExpression("^1 ")).size() < bench.dropped); // once a second
    QCOMPARE(bench.driver->framesReadable(), 6);

    QList<OrbFrame> kept;
    OrbFrame frame;
    while (!bench.driver->readFrame(frame).isError())
        kept.append(frame);
    frame = OrbFrame();
    const int before = bench.dropped;
    QVERIFY(bench.until([&] { return bench.dropped >= before + 2; })); // read, but not released
    QCOMPARE(bench.driver->framesReadable(), 0);
    kept.clear();
    QVERIFY(bench.until([&] { return bench.driver->framesReadable() > 0; }));
    QVERIFY(!bench.driver->readFrame(frame).isError());
    QVERIFY(frame.meta().valueFor(OrbIdFrameNumber).toInt() > 10); // lost frames cost numbers
}

void tst_device_run::aSourceOnItsOwnClockLosesNoFrame()
{
    for (double rate : {25.02, 24.98}) {
        Camera camera(rate);
        Bench bench;
        OrbVideoDeviceSetup setup = setupFor(OrbVideoDeviceSetup::Capture);
        setup.setVideoInputSource(OrbIdVideoPort603);
        QVERIFY(bench.runSetup(setup));
        bench.onVbi = [&] { bench.drain(); };
        QVERIFY(bench.until([&] { return !bench.seen.empty() && bench.seen.back().bar >= 0; }));
        bench.drain(); // frames from before the signal may still wait
        const QList<OrbFrame> frames = bench.record(75);
        if (bench.dropped > 0 || bench.skipped() > 0)
            QSKIP("this machine was too busy to keep a frame clock");
        const int base = numberInCoded(frames.first().vids().first().buffer());
        QVERIFY(base >= 0);
        for (int i = 0; i < frames.size(); ++i)
            QCOMPARE(numberInCoded(frames.at(i).vids().first().buffer()), base + i);
    }
}

void tst_device_run::aCameraBringsItsLabelsAndItsRecordFlag()
{
    Camera camera(25.0);
    Bench bench;
    OrbVideoDeviceSetup setup = setupFor(OrbVideoDeviceSetup::Capture);
    setup.setVideoInputSource(OrbIdVideoPort603);
    setup.setTimecodeInputSource(OrbIdTimecodeLtc);
    QVERIFY(bench.runSetup(setup));
    QVERIFY(bench.until([&] { return !bench.seen.empty() && bench.seen.back().bar >= 0; }));
    bench.drain();
    const QList<OrbFrame> frames = bench.record(2);
    const auto label = frames.last().meta().valueFor(OrbIdTimecode).value<OrbTimecode>();
    QCOMPARE(label.hour(), 5);
    QCOMPARE(static_cast<int>(label.frameCount() % (25 * 60)),
             numberInCoded(frames.last().vids().first().buffer()));
    QVERIFY(bench.lastVbi.inputTimecode().isValid());
    QVERIFY(!frames.last().meta().contains(OrbIdCameraRecordFlag)); // no camera was chosen

    setup.setCameraInput(OrbIdCameraInput1);
    QVERIFY(bench.runSetup(setup));
    QCOMPARE(bench.record(1).first().meta().valueFor(OrbIdCameraRecordFlag), QVariant(false));
    QVERIFY(bench.recordFlags.isEmpty());
    camera.isRecording = true;
    QVERIFY(bench.until([&] { return bench.recordFlags == QList<bool> {true}; }));
    bench.drain();
    QCOMPARE(bench.record(3).last().meta().valueFor(OrbIdCameraRecordFlag), QVariant(true));

    // The camera is heard in playback too.
    setup.setMode(OrbVideoDeviceSetup::Playback);
    QVERIFY(bench.runSetup(setup));
    camera.isRecording = false;
    QVERIFY(bench.until([&] { return bench.recordFlags == (QList<bool> {true, false}); }));
}

void tst_device_run::aSignalThatGoesAndComesBackIsTold()
{
    Bench bench;
    OrbVideoDeviceSetup setup = setupFor(OrbVideoDeviceSetup::Capture);
    setup.setVideoInputSource(OrbIdVideoPort603);
    QVERIFY(bench.runSetup(setup));
    bench.onVbi = [&] { bench.drain(); };
    const auto isValid = [&] { return !bench.states.isEmpty() && bench.states.last().isValid(); };
    const auto shows = [&](bus::Content content) {
        return !bench.seen.empty() && bench.seen.back().info.content == content;
    };
    for (int i = 0; i < 2; ++i) {
        {
            Camera camera(25.0);
            QVERIFY(bench.until(isValid));
            QVERIFY(bench.until([&] { return shows(bus::Content::Live); }));
        }
        QVERIFY(bench.until([&] { return !isValid(); }));
        QVERIFY(bench.until([&] { return shows(bus::Content::None); }));
    }
}

void tst_device_run::aClipPlaysFrameByFrame()
{
    const QList<OrbFrame> frames = clip();
    QCOMPARE(frames.size(), 60);
    const int base = numberInCoded(frames.first().vids().first().buffer());
    Bench bench;
    QVERIFY(bench.runSetup(setupFor(OrbVideoDeviceSetup::Playback)));
    QCOMPARE(bench.driver->framesReadable(), 0);
    QCOMPARE(bench.driver->framesWritable(), 8);
    OrbFrame none;
    QCOMPARE(bench.driver->readFrame(none), OrbError(EINVAL));
    bench.driver->setProperty(OrbIdPropPlayMode, int {OrbIdPlayModePlay});
    bench.driver->setProperty(OrbIdPropSpeed, 1.0);
    bench.driver->setProperty(OrbIdPropClipName, QStringLiteral("Harbour"));
    Player player(bench, frames);
    QVERIFY(bench.until([&] { return bench.played().size() >= 40; }));
    int expected = bench.played().first();
    for (const Seen &frame : bench.seen) {
        if (frame.info.content != bus::Content::Playback)
            continue;
        QCOMPARE(static_cast<int>(frame.info.frameNumber), expected);
        QCOMPARE(frame.bar, base + expected);
        QCOMPARE(frame.info.samples, 1920);
        QCOMPARE(QByteArray(frame.info.clip.c_str()), QByteArray("Harbour"));
        QCOMPARE(int {frame.info.tcSec} * 25 + frame.info.tcFrame, expected);
        ++expected;
    }
    QCOMPARE(bench.writeFailures, 0);
    const int onOutput = bench.driver->currentFrameMetadata().valueFor(OrbIdFrameNumber).toInt();
    QVERIFY(onOutput >= expected - 1);
    QVERIFY(bench.lastVbi.tcgTimecode().isValid());
}

void tst_device_run::doubleSpeedShowsEverySecondFrame()
{
    const QList<OrbFrame> frames = clip();
    Bench bench;
    QVERIFY(bench.runSetup(setupFor(OrbVideoDeviceSetup::Playback)));
    bench.driver->setProperty(OrbIdPropSpeed, 2.0);
    Player player(bench, frames);
    QVERIFY(bench.until([&] { return bench.played().size() >= 20; }));
    const QList<int> numbers = bench.played();
    for (int i = 1; i < numbers.size(); ++i)
        QCOMPARE(numbers.at(i) - numbers.at(i - 1), 2);
    QCOMPARE(bench.dropped, 0); // only normal speed can drop
}

void tst_device_run::halfSpeedShowsEachFrameTwice()
{
    const QList<OrbFrame> frames = clip();
    Bench bench;
    QVERIFY(bench.runSetup(setupFor(OrbVideoDeviceSetup::Playback)));
    bench.driver->setProperty(OrbIdPropSpeed, 0.5);
    Player player(bench, frames);
    QVERIFY(bench.until([&] { return bench.played().size() >= 12; }));
    const QList<int> numbers = bench.played();
    for (int i = 1; i < numbers.size(); ++i)
        QCOMPARE(numbers.at(i) - numbers.at(i - 1), 1);
    QHash<int, int> shown;
    for (const Seen &frame : bench.seen)
        ++shown[static_cast<int>(frame.info.frameNumber)];
    for (int i = 1; i + 1 < numbers.size(); ++i)
        QVERIFY(shown.value(numbers.at(i)) >= 2);
}

void tst_device_run::aSetupForAnotherRasterComesAfterTheFramesQueued()
{
    const QList<OrbFrame> frames = clip().mid(0, 8);
    Bench bench;
    QVERIFY(bench.runSetup(setupFor(OrbVideoDeviceSetup::Playback)));
    bench.driver->setProperty(OrbIdPropSpeed, 0.5);
    for (const OrbFrame &frame : frames)
        QVERIFY(!bench.driver->writeFrame(frame).isError());
    OrbVideoDeviceSetup other = setupFor(OrbVideoDeviceSetup::Playback);
    OrbImageDesc small = imageDesc(OrbIdImageProRes422);
    small.setSize(64, 64);
    other.setImageDesc(small);
    QVERIFY(bench.runSetup(other));
    QCOMPARE(bench.played(), (QList<int> {0, 1, 2, 3, 4, 5, 6, 7}));

    QVERIFY(bench.runSetup(setupFor(OrbVideoDeviceSetup::Playback)));
    QVERIFY(!bench.driver->writeFrame(frames.first()).isError());
    bench.driver->setProperty(OrbIdPropSpeed, 0.01);
    bench.driver->flush(); // nobody wants them any more
    QVERIFY(bench.runSetup(other));
}

void tst_device_run::aFlushStopsWhereTheOutputIs()
{
    const QList<OrbFrame> frames = clip();
    Bench bench;
    QVERIFY(bench.runSetup(setupFor(OrbVideoDeviceSetup::Playback)));
    bench.driver->setProperty(OrbIdPropSpeed, 1.0);
    QVERIFY(!bench.driver->writeFrame(frames.at(33)).isError());
    bench.driver->flush();
    QVERIFY(bench.until([&] { return bench.flushedAt.size() == 1; }));
    QVERIFY(bench.flushedAt.first() == 33);

    Player player(bench, frames);
    QVERIFY(bench.until([&] { return bench.played().contains(10); }));
    bench.driver->flush();
    player.seek(50);
    const int stopped
        = bench.driver->currentFrameMetadata().valueFor(OrbIdFrameNumber).toInt();
    QVERIFY(bench.until([&] { return bench.played().contains(55); }));
    QCOMPARE(bench.flushedAt.size(), 2);
    QCOMPARE(bench.flushedAt.last(), stopped);
    const QList<int> numbers = bench.played();
    const auto jump = numbers.indexOf(50);
    QVERIFY(jump > 0);
    QVERIFY(numbers.at(jump - 1) <= stopped); // nothing that was queued came out
    QCOMPARE(numbers.at(jump + 1), 51);
}

void tst_device_run::keyFramesAreToldOnce()
{
    QList<OrbFrame> frames = clip().mid(0, 10);
    frames.first().setKeyFrameFlag(true);
    frames.last().setKeyFrameFlag(true);
    frames.last().meta().insert(OrbIdEndOfStream, true);
    Bench bench;
    QVERIFY(bench.runSetup(setupFor(OrbVideoDeviceSetup::Playback)));
    bench.driver->setProperty(OrbIdPropPlayMode, int {OrbIdPlayModePlay});
    bench.driver->setProperty(OrbIdPropSpeed, 1.0);
    Player player(bench, frames);
    player.isHolding = true;
    QVERIFY(bench.until([&] { return bench.keyFrames.size() >= 2; }));
    const int before = bench.vbis;
    QVERIFY(bench.until([&] { return bench.vbis >= before + 12; }));
    QCOMPARE(bench.keyFrames, (QList<int> {0, 9}));
    QCOMPARE(bench.seen.back().info.content, bus::Content::Held);
    QCOMPARE(bench.seen.back().info.frameNumber, std::int64_t(9));
}

void tst_device_run::aStarvedOutputDropsFramesUnlessTheStreamHasEnded()
{
    QList<OrbFrame> frames = clip().mid(0, 12);
    Bench bench;
    QVERIFY(bench.runSetup(setupFor(OrbVideoDeviceSetup::Playback)));
    bench.driver->setProperty(OrbIdPropPlayMode, int {OrbIdPlayModePlay});
    bench.driver->setProperty(OrbIdPropSpeed, 1.0);
    {
        Player player(bench, frames);
        const LogCollector log;
        QVERIFY(bench.until([&] { return bench.dropped >= 3; }));
        QVERIFY(log.contains(1, "machine.cpp", "Frame lost: it was not ready to be shown in time"));
        QVERIFY(bench.played().contains(11));
    }
    frames.last().meta().insert(OrbIdEndOfStream, true);
    bench.driver->flush();
    bench.seen.clear();
    Player player(bench, frames);
    player.seek(6);
    QVERIFY(bench.until([&] { return bench.played().contains(11); }));
    const int before = bench.dropped;
    const int then = bench.vbis;
    QVERIFY(bench.until([&] { return bench.vbis >= then + 8; }));
    QCOMPARE(bench.dropped, before);
}

void tst_device_run::thePictureStandsOverASetup()
{
    Bench bench;
    QVERIFY(bench.runSetup(setupFor(OrbVideoDeviceSetup::Capture)));
    bench.onVbi = [&] { bench.drain(); };
    QVERIFY(bench.until([&] { return !bench.seen.empty() && bench.seen.back().bar >= 5; }));
    bench.seen.clear();
    QVERIFY(bench.runSetup(setupFor(OrbVideoDeviceSetup::Playback)));
    const int vbis = bench.vbis;
    QVERIFY(bench.until([&] { return bench.vbis >= vbis + 4 && bench.seen.size() > 4; }));
    QVERIFY(bench.seen.back().bar >= 5);
    QCOMPARE(bench.seen.back().info.content, bus::Content::Held);
    for (const Seen &frame : bench.seen)
        QVERIFY(frame.bar >= 5); // no black in between
}

void tst_device_run::setupsAreRefusedWhenTheyMakeNoSense()
{
    Bench bench;
    QCOMPARE(bench.driver->setup(OrbVideoDeviceSetup()), OrbError(EINVAL));
    OrbVideoDeviceSetup setup = setupFor(OrbVideoDeviceSetup::Capture);
    OrbImageDesc image = setup.imageDesc();
    image.setFrameRate(25, 0);
    setup.setImageDesc(image);
    QCOMPARE(bench.driver->setup(setup), OrbError(EINVAL));
    image.setFrameRate(25, 1);
    image.setSize(8192, 4320);
    setup.setImageDesc(image);
    QCOMPARE(bench.driver->setup(setup), OrbError(EINVAL));

    // A data type without a coder is found out after the setup has begun.
    setup = setupFor(OrbVideoDeviceSetup::Capture);
    setup.setImageDesc(imageDesc(OrbIdImageRgb444));
    QVERIFY(!bench.runSetup(setup));
    QCOMPARE(bench.setupError, OrbError(EINVAL));

    QVERIFY(!bench.driver->setup(setupFor(OrbVideoDeviceSetup::Capture)).isError());
    QCOMPARE(bench.driver->setup(setupFor(OrbVideoDeviceSetup::Capture)), OrbError(EBUSY));
}

void tst_device_run::nothingArrivesAfterTheDeviceIsClosed()
{
    Bench bench;
    QVERIFY(bench.runSetup(setupFor(OrbVideoDeviceSetup::Capture)));
    QVERIFY(bench.until([&] { return bench.vbis >= 2; }));
    bench.driver->flush();
    bench.driver->close();
    const int vbis = bench.vbis;
    QCoreApplication::processEvents();
    QCOMPARE(bench.vbis, vbis);
    QVERIFY(bench.flushedAt.isEmpty());
    OrbFrame frame;
    QCOMPARE(bench.driver->readFrame(frame), OrbError(EBADF));
    QVERIFY(bench.driver->open(QStringLiteral("ferin"), &bench));
}

QTEST_GUILESS_MAIN(tst_device_run)
#include "tst_device_run.moc"
