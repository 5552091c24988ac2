#include "liborb/orbdrivers.h"
#include "liborb/orbvideodevice.h"

#include <QSignalSpy>
#include <QTest>

#include <cerrno>

namespace {

/// Does nothing by itself; the test answers for it.
class ScriptedDriver : public OrbVideoDriver
{
public:
    ~ScriptedDriver() override { current = nullptr; }
    bool open(const QString &name, OrbVideoDriverHost *host) override
    {
        _host = host;
        current = this;
        return name != QLatin1String("broken");
    }
    void close() override { ++closes; }
    void setProperty(const OrbId &id, const QVariant &value) override
    {
        properties.insert(id, value);
    }
    int framesReadable() const override { return 3; }
    int framesWritable() const override { return 5; }
    OrbError readFrame(OrbFrame &) override { return EAGAIN; }
    OrbError writeFrame(const OrbFrame &) override { return OrbError(); }
    OrbMetadataHash currentFrameMetadata() const override { return properties; }
    OrbVideoRefState refInputState(int index) const override
    {
        return OrbVideoRefState(index == 0, true);
    }
    QString stateAsString() const override { return QStringLiteral("scripted"); }
    OrbError setup(const OrbVideoDeviceSetup &) override
    {
        ++setups;
        return refusal;
    }
    void flush() override { ++flushes; }
    OrbVideoDriverHost *host() const { return _host; }

    static inline ScriptedDriver *current = nullptr;
    static inline int closes = 0;
    OrbMetadataHash properties;
    OrbError refusal;
    int setups = 0;
    int flushes = 0;

private:
    OrbVideoDriverHost *_host = nullptr;
};

OrbVideoDeviceSetup captureSetup()
{
    OrbVideoDeviceSetup setup;
    setup.setMode(OrbVideoDeviceSetup::Capture);
    return setup;
}

} // namespace

class tst_device_front : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase() { OrbDrivers::setVideoFactory({}); }
    void aClosedDeviceAnswersNothing();
    void anUnknownOrBrokenDeviceDoesNotOpen();
    void aSetupIsCurrentOnceItIsDone();
    void aRefusedSetupStartsNothing();
    void aFailedSetupLeavesTheCurrentOne();
    void aSecondSetupIsRefusedWhileOneIsUnderWay();
    void aFlushIsUnderWayUntilItIsAnswered();
    void callsReachTheDriver();
    void closingForgetsEverything();
};

void tst_device_front::initTestCase()
{
    OrbDrivers::setVideoFactory([](const QString &name) -> std::unique_ptr<OrbVideoDriver> {
        if (name == QLatin1String("unknown"))
            return nullptr;
        return std::make_unique<ScriptedDriver>();
    });
}

void tst_device_front::aClosedDeviceAnswersNothing()
{
    OrbVideoDevice device;
    OrbFrame frame;
    QVERIFY(!device.isOpen());
    QCOMPARE(device.setup(captureSetup()), OrbError(EBADF));
    QCOMPARE(device.readFrame(frame), OrbError(EBADF));
    QCOMPARE(device.writeFrame(frame), OrbError(EBADF));
    QCOMPARE(device.framesReadable(), 0);
    QCOMPARE(device.framesWritable(), 0);
    QVERIFY(device.currentFrameMetadata().isEmpty());
    QCOMPARE(device.refInputState(0), OrbVideoRefState());
    device.flush();
    QVERIFY(!device.isFlushing());
    QVERIFY(!device.isInSetup());
    device.setProperty(OrbIdPropClipName, QStringLiteral("x"));
    device.close();
}

void tst_device_front::anUnknownOrBrokenDeviceDoesNotOpen()
{
    OrbVideoDevice device;
    QVERIFY(!device.open("unknown"));
    QVERIFY(!device.open("broken"));
    QVERIFY(!device.isOpen());
    QVERIFY(device.open("good"));
    QVERIFY(!device.open("good"));
    QVERIFY(device.isOpen());
}

void tst_device_front::aSetupIsCurrentOnceItIsDone()
{
    OrbVideoDevice device;
    QVERIFY(device.open("good"));
    QSignalSpy done(&device, &OrbVideoDevice::setupIsDone);
    QCOMPARE(device.setup(captureSetup()), OrbError());
    QVERIFY(device.isInSetup());
    QVERIFY(device.currentSetup() != captureSetup());
    bool wasOver = false;
    connect(&device, &OrbVideoDevice::setupIsDone, this, [&] { wasOver = !device.isInSetup(); });
    ScriptedDriver::current->host()->driverSetupIsDone(OrbError());
    QVERIFY(wasOver);
    QCOMPARE(done.size(), 1);
    QCOMPARE(device.currentSetup(), captureSetup());
}

void tst_device_front::aRefusedSetupStartsNothing()
{
    OrbVideoDevice device;
    QVERIFY(device.open("good"));
    ScriptedDriver::current->refusal = OrbError(EINVAL);
    QCOMPARE(device.setup(captureSetup()), OrbError(EINVAL));
    QVERIFY(!device.isInSetup());
    QCOMPARE(device.currentSetup(), OrbVideoDeviceSetup());
}

void tst_device_front::aFailedSetupLeavesTheCurrentOne()
{
    OrbVideoDevice device;
    QVERIFY(device.open("good"));
    QCOMPARE(device.setup(captureSetup()), OrbError());
    ScriptedDriver::current->host()->driverSetupIsDone(OrbError(EIO));
    QVERIFY(!device.isInSetup());
    QCOMPARE(device.currentSetup(), OrbVideoDeviceSetup());
}

void tst_device_front::aSecondSetupIsRefusedWhileOneIsUnderWay()
{
    OrbVideoDevice device;
    QVERIFY(device.open("good"));
    QCOMPARE(device.setup(captureSetup()), OrbError());
    QCOMPARE(device.setup(captureSetup()), OrbError(EBUSY));
    QCOMPARE(ScriptedDriver::current->setups, 1);
}

void tst_device_front::aFlushIsUnderWayUntilItIsAnswered()
{
    OrbVideoDevice device;
    QVERIFY(device.open("good"));
    QSignalSpy flushed(&device, &OrbVideoDevice::flushed);
    device.flush();
    device.flush();
    QCOMPARE(ScriptedDriver::current->flushes, 1);
    QVERIFY(device.isFlushing());
    OrbMetadataHash meta;
    meta.insert(OrbIdFrameNumber, 77);
    ScriptedDriver::current->host()->driverFlushed(meta);
    QVERIFY(!device.isFlushing());
    QCOMPARE(flushed.size(), 1);
    const auto answer = flushed.first().first().value<OrbMetadataHash>();
    QCOMPARE(answer.valueFor(OrbIdFrameNumber).toInt(), 77);
}

void tst_device_front::callsReachTheDriver()
{
    OrbVideoDevice device;
    QVERIFY(device.open("good"));
    OrbFrame frame;
    QCOMPARE(device.framesReadable(), 3);
    QCOMPARE(device.framesWritable(), 5);
    QCOMPARE(device.readFrame(frame), OrbError(EAGAIN));
    QCOMPARE(device.writeFrame(frame), OrbError());
    QVERIFY(device.refInputState(0).present());
    QVERIFY(!device.refInputState(1).present());
    QCOMPARE(device.refInputState(-1), OrbVideoRefState());
    QCOMPARE(device.stateAsString(), QStringLiteral("scripted"));
    device.setProperty(OrbIdPropClipName, QStringLiteral("x"));
    QCOMPARE(device.currentFrameMetadata().valueFor(OrbIdPropClipName).toString(),
             QStringLiteral("x"));
}

void tst_device_front::closingForgetsEverything()
{
    OrbVideoDevice device;
    QVERIFY(device.open("good"));
    QCOMPARE(device.setup(captureSetup()), OrbError());
    ScriptedDriver::current->host()->driverSetupIsDone(OrbError());
    device.flush();
    ScriptedDriver::closes = 0;
    device.close();
    QCOMPARE(ScriptedDriver::closes, 1);
    QVERIFY(ScriptedDriver::current == nullptr);
    QVERIFY(!device.isFlushing());
    QCOMPARE(device.currentSetup(), OrbVideoDeviceSetup());
    QVERIFY(device.open("good"));
}

QTEST_GUILESS_MAIN(tst_device_front)
#include "tst_device_front.moc"
