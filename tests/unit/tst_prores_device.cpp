#include "devicehost.h"
#include "prorestools.h"

#include "liborb/drivers/software/encoder.h"
#include "libpicture/framebar.h"
#include "libpicture/patterns.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <unistd.h>

// What the whole device records, on a real clock: the bytes follow from the pictures, not from when they are read.

namespace {

constexpr int width = 320;
constexpr int height = 180;
constexpr int manyWaiting = 7;    // more than a recording lets wait uncoded

OrbImageDesc imageDesc()
{
    OrbImageDesc desc;
    desc.setSize(width, height);
    desc.setAspectRatio(width, height);
    desc.setFrameRate(50, 1);
    desc.setDataType(OrbIdImageProRes422Proxy);
    return desc;
}

QByteArray bytesOf(const OrbBuffer &buffer)
{
    return QByteArray(reinterpret_cast<const char *>(buffer.data()), static_cast<qsizetype>(buffer.size()));
}

/// The number in a coded picture of the moving pattern.
std::uint32_t numberIn(const QByteArray &coded)
{
    prorestest::Judge judge(prorestest::formatOf(prores::Profile::Proxy, width, height));
    const AVFrame *frame = judge.decode(coded);
    if (frame == nullptr)
        return 0;
    picture::View view;
    view.width = frame->width;
    view.height = frame->height;
    for (int p = 0; p < 3; ++p) {
        view.plane[p] = reinterpret_cast<std::uint16_t *>(frame->data[p]);
        view.stride[p] = frame->linesize[p] / 2;
    }
    return picture::readFrameNumber(view).value_or(0);
}

/// The pictures of the pattern from number \a first on, coded one after the other.
QByteArrayList coded(std::uint32_t first, qsizetype count)
{
    ferin::EncoderPool coders(1);
    const picture::MovingPattern pattern(width, height);
    QByteArrayList frames;
    for (qsizetype i = 0; i < count; ++i) {
        ferin::RawPicturePool pool(width, height, 1);
        const ferin::RawPictureRef raw = pool.take();
        pattern.draw(raw->view, first + static_cast<std::uint32_t>(i));
        const OrbBuffer buffer = coders.promise(raw, imageDesc(), i);
        frames.append(buffer.wait() ? bytesOf(buffer) : QByteArray());
    }
    return frames;
}

class Device : public DeviceHost
{
public:
    /// Until frames have pictures.
    bool capture()
    {
        OrbVideoDeviceSetup setup;
        setup.setMode(OrbVideoDeviceSetup::Capture);
        setup.setImageDesc(imageDesc());
        setup.setImageCount(1);
        setup.setVideoInputSource(OrbIdVideoPort601);
        setup.setTimecodeInputSource(OrbIdTimecodePreset);
        setup.setMaxBuffers(150);
        OrbFrame frame;
        isInSetup = true;
        return !driver->setup(setup).isError() && until([this, &frame] {
            return !isInSetup && !driver->readFrame(frame).isError() && frame.vids().first().buffer().isValid();
        });
    }
    void setRecording(bool isRecording)
    {
        driver->setProperty(OrbIdPropPlayMode,
                            isRecording ? int {OrbIdPlayModeRecord} : int {OrbIdPlayModeEE});
    }
};

/// Reads \a count frames. Of each bunch of \a bunch the last one is asked for only when so many wait behind it that
/// the device has them coded.
QByteArrayList recorded(Device &device, int count, int bunch)
{
    QList<OrbBuffer> buffers;
    while (buffers.size() < count) {
        OrbFrame frame;
        if (!device.until([&] { return !device.driver->readFrame(frame).isError(); }))
            return {};
        const bool isLate = bunch > 0 && buffers.size() % bunch == bunch - 1;
        if (isLate && !device.until([&] { return device.driver->framesReadable() >= manyWaiting; }))
            return {};
        buffers.append(frame.vids().first().buffer());
        buffers.last().request();
    }
    QByteArrayList frames;
    for (const OrbBuffer &buffer : buffers)
        frames.append(buffer.wait() ? bytesOf(buffer) : QByteArray());
    return frames;
}

} // namespace

class ProresDevice : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void whatIsRecordedDoesNotDependOnWhenItIsRead_data();
    void whatIsRecordedDoesNotDependOnWhenItIsRead();
    void whatWasRecordedJustBeforeLeavesNoTrace();

private:
    QTemporaryDir _folder;
};

void ProresDevice::initTestCase()
{
    QVERIFY(configureDevice(_folder, "[inputs]\n601=pattern\nformat=320x180p50\n"));
}

void ProresDevice::whatIsRecordedDoesNotDependOnWhenItIsRead_data()
{
    QTest::addColumn<int>("bunch");
    QTest::newRow("at once") << 0;
    QTest::newRow("the first frame waits, as for a stream that opens") << 1;
    QTest::newRow("in bunches") << 5;
}

void ProresDevice::whatIsRecordedDoesNotDependOnWhenItIsRead()
{
    QFETCH(const int, bunch);
    Device device;
    QVERIFY(device.capture());
    device.setRecording(true);
    const QByteArrayList frames = recorded(device, 24, bunch);
    if (device.dropped > 0)
        QSKIP("this machine was too busy to keep a frame clock");
    QCOMPARE(frames.size(), qsizetype {24});
    QVERIFY(frames == coded(numberIn(frames.first()), frames.size()));
}

void ProresDevice::whatWasRecordedJustBeforeLeavesNoTrace()
{
    Device device;
    QVERIFY(device.capture());
    device.setRecording(true);
    QCOMPARE(recorded(device, 9, 0).size(), qsizetype {9});
    device.setRecording(false);
    device.setRecording(true);
    const QByteArrayList frames = recorded(device, 5, 0);
    if (device.dropped > 0)
        QSKIP("this machine was too busy to keep a frame clock");
    QCOMPARE(frames.size(), qsizetype {5});
    QVERIFY(frames == coded(numberIn(frames.first()), frames.size()));
}

QTEST_GUILESS_MAIN(ProresDevice)
#include "tst_prores_device.moc"
