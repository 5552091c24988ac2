#pragma once

#include "libbus/bus.h"
#include "liborb/drivers/software/softwaredriver.h"

#include <QString>

#include <memory>

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
};
