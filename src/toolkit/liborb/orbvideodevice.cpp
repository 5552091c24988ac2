#include "liborb/orbvideodevice.h"

#include "liborb/orbdrivers.h"

#include <cerrno>

OrbVideoDevice::OrbVideoDevice(QObject *parent) : QObject(parent) {}

OrbVideoDevice::~OrbVideoDevice()
{
    close();
}

bool OrbVideoDevice::open(const QString &name)
{
    if (_driver)
        return false;
    std::unique_ptr<OrbVideoDriver> driver = OrbDrivers::createVideo(name);
    if (!driver || !driver->open(name, this))
        return false;
    _driver = std::move(driver);
    return true;
}

void OrbVideoDevice::close()
{
    if (!_driver)
        return;
    _driver->close();
    _driver.reset();
    _currentSetup = OrbVideoDeviceSetup();
    _pendingSetup = OrbVideoDeviceSetup();
    _inSetup = false;
    _flushing = false;
}

bool OrbVideoDevice::isOpen() const
{
    return _driver != nullptr;
}

bool OrbVideoDevice::isInSetup() const
{
    return _inSetup;
}

bool OrbVideoDevice::isFlushing() const
{
    return _flushing;
}

OrbVideoDeviceSetup OrbVideoDevice::currentSetup() const
{
    return _currentSetup;
}

void OrbVideoDevice::setProperty(const OrbId &id, const QVariant &value)
{
    if (_driver)
        _driver->setProperty(id, value);
}

OrbError OrbVideoDevice::readFrame(OrbFrame &frame)
{
    return _driver ? _driver->readFrame(frame) : OrbError(EBADF);
}

OrbError OrbVideoDevice::writeFrame(const OrbFrame &frame)
{
    return _driver ? _driver->writeFrame(frame) : OrbError(EBADF);
}

int OrbVideoDevice::framesReadable() const
{
    return _driver ? _driver->framesReadable() : 0;
}

int OrbVideoDevice::framesWritable() const
{
    return _driver ? _driver->framesWritable() : 0;
}

OrbMetadataHash OrbVideoDevice::currentFrameMetadata() const
{
    return _driver ? _driver->currentFrameMetadata() : OrbMetadataHash();
}

OrbVideoRefState OrbVideoDevice::refInputState(int index) const
{
    return _driver && index >= 0 ? _driver->refInputState(index) : OrbVideoRefState();
}

QString OrbVideoDevice::stateAsString() const
{
    return _driver ? _driver->stateAsString() : QStringLiteral("closed");
}

OrbCaptureFigures OrbVideoDevice::captureFigures() const
{
    return _driver ? _driver->captureFigures() : OrbCaptureFigures();
}

OrbError OrbVideoDevice::setup(const OrbVideoDeviceSetup &setup)
{
    if (!_driver)
        return EBADF;
    if (_inSetup)
        return EBUSY;
    // Set before the driver is asked: a driver may complete within the call.
    _inSetup = true;
    _pendingSetup = setup;
    const OrbError refused = _driver->setup(setup);
    if (refused.isError())
        _inSetup = false;
    return refused;
}

void OrbVideoDevice::flush()
{
    if (!_driver || _flushing)
        return;
    _flushing = true;
    _driver->flush();
}

void OrbVideoDevice::driverVbi(const OrbVbiInfo &info)
{
    emit vbi(info);
}

void OrbVideoDevice::driverSetupIsDone(const OrbError &error)
{
    _inSetup = false;
    if (!error.isError())
        _currentSetup = _pendingSetup;
    emit setupIsDone(error);
}

void OrbVideoDevice::driverPlayedKeyFrame(const OrbMetadataHash &meta)
{
    emit playedKeyFrame(meta);
}

void OrbVideoDevice::driverFrameDropped()
{
    emit frameDropped();
}

void OrbVideoDevice::driverReadFailed(const OrbError &error)
{
    emit readFromHardwareFailed(error);
}

void OrbVideoDevice::driverWriteFailed(const OrbError &error, const OrbFrame &frame)
{
    emit writeToHardwareFailed(error, frame);
}

void OrbVideoDevice::driverHardwareStarted()
{
    emit hardwareStarted();
}

void OrbVideoDevice::driverFlushed(const OrbMetadataHash &meta)
{
    _flushing = false;
    emit flushed(meta);
}

void OrbVideoDevice::driverInputChanged(int input, const OrbVideoState &state)
{
    emit inputChanged(input, state);
}

void OrbVideoDevice::driverFirmwareLoading(const QString &id, bool done)
{
    emit firmwareLoading(id, done);
}

void OrbVideoDevice::driverRaiseVfrAlarm(bool active)
{
    emit raiseVFRAlarm(active);
}

void OrbVideoDevice::driverInputAncDataChanged(const OrbMetadataHash &data)
{
    emit inputAncDataChanged(data);
}

void OrbVideoDevice::driverAlarm(const OrbAlarm &alarm)
{
    emit alarmTriggered(alarm);
}
