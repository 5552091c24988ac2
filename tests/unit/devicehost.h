#pragma once

#include "libbus/bus.h"
#include "liborb/drivers/software/softwaredriver.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include <functional>
#include <memory>

#include <unistd.h>

/// Devices that are opened from now on are configured by \a text, which is kept in \a folder, and by nothing else; the
/// program bus is the test's own.
inline bool configureDevice(const QTemporaryDir &folder, const QByteArray &text)
{
    const QString path = folder.filePath(QStringLiteral("device.ini"));
    QFile file(path);
    qputenv("RVD_DEVICE_CONFIG", path.toUtf8());
    qputenv("RVD_PROGRAM_BUS", QByteArray("/rvd_device_test_") + QByteArray::number(getpid()));
    qunsetenv("RVD_INPUT");
    qunsetenv("RVD_INPUT_FORMAT");
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
}

/// The software device with a host that a test makes listen to what it wants to hear of; the rest is ignored.
class DeviceHost : public OrbVideoDriverHost
{
public:
    DeviceHost() : driver(createSoftwareVideoDriver()) { isOpen = driver->open(QStringLiteral("ferin"), this); }
    ~DeviceHost() override
    {
        driver.reset();
        bus::Writer::remove(qEnvironmentVariable("RVD_PROGRAM_BUS").toStdString());
    }

    /// Runs the event loop until \a done says so; false when it does not for so long that it never will.
    bool until(const std::function<bool()> &done)
    {
        QElapsedTimer timer;
        timer.start();
        while (!done()) {
            if (timer.elapsed() > longestMs)
                return false;
            turn();
        }
        return true;
    }

    void driverVbi(const OrbVbiInfo &) override {}
    void driverSetupIsDone(const OrbError &error) override
    {
        isInSetup = false;
        setupError = error;
    }
    void driverPlayedKeyFrame(const OrbMetadataHash &) override {}
    void driverFrameDropped() override { ++dropped; }
    void driverReadFailed(const OrbError &) override {}
    void driverWriteFailed(const OrbError &, const OrbFrame &) override {}
    void driverHardwareStarted() override {}
    void driverFlushed(const OrbMetadataHash &) override {}
    void driverInputChanged(int, const OrbVideoState &) override {}
    void driverFirmwareLoading(const QString &, bool) override {}
    void driverRaiseVfrAlarm(bool) override {}
    void driverInputAncDataChanged(const OrbMetadataHash &) override {}
    void driverAlarm(const OrbAlarm &) override {}

    std::unique_ptr<OrbVideoDriver> driver;
    OrbError setupError;
    bool isOpen = false;
    bool isInSetup = false;
    int dropped = 0;

protected:
    /// One turn of until().
    virtual void turn() { QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents); }

private:
    static constexpr qint64 longestMs = 30'000; // only a hanging device takes that long
};
