#include "liborb/drivers/software/softwaredriver.h"

#include "liborb/drivers/software/machine.h"
#include "liborb/drivers/software/reference.h"

#include <cerrno>

namespace {

/// The driver is open while it has a machine. Answers reach the host through a mailbox that lives
/// as long as the device is open, so that none comes after close().
class SoftwareVideoDriver : public OrbVideoDriver
{
public:
    ~SoftwareVideoDriver() override { shut(); }

    bool open(const QString &, OrbVideoDriverHost *host) override
    {
        if (_machine || host == nullptr)
            return false;
        _config = ferin::DeviceConfig::load();
        _mail = std::make_unique<ferin::Mailbox>();
        _machine = std::make_unique<ferin::Machine>(_config, *_mail, host);
        return true;
    }
    void close() override { shut(); }

    void setProperty(const OrbId &id, const QVariant &value) override
    {
        if (_machine)
            _machine->setProperty(id, value);
    }
    int framesReadable() const override { return _machine ? _machine->framesReadable() : 0; }
    int framesWritable() const override { return _machine ? _machine->framesWritable() : 0; }
    OrbError readFrame(OrbFrame &frame) override
    {
        return _machine ? _machine->readFrame(frame) : OrbError(EBADF);
    }
    OrbError writeFrame(const OrbFrame &frame) override
    {
        return _machine ? _machine->writeFrame(frame) : OrbError(EBADF);
    }
    OrbMetadataHash currentFrameMetadata() const override
    {
        return _machine ? _machine->currentFrameMetadata() : OrbMetadataHash();
    }
    OrbVideoRefState refInputState(int index) const override
    {
        if (!_machine || index != 0)
            return OrbVideoRefState();
        return ferin::referenceState(_config, ferin::readKernelClock());
    }
    QString stateAsString() const override
    {
        return _machine ? _machine->stateAsString() : QStringLiteral("closed");
    }
    OrbCaptureFigures captureFigures() const override
    {
        return _machine ? _machine->captureFigures() : OrbCaptureFigures();
    }
    OrbError setup(const OrbVideoDeviceSetup &setup) override
    {
        return _machine ? _machine->setup(setup) : OrbError(EBADF);
    }
    void flush() override
    {
        if (_machine)
            _machine->flush();
    }

private:
    /// The threads end first; then the answers that are still under way go with the mailbox.
    void shut()
    {
        _machine.reset();
        _mail.reset();
    }

    ferin::DeviceConfig _config;
    std::unique_ptr<ferin::Mailbox> _mail;
    std::unique_ptr<ferin::Machine> _machine;
};

} // namespace

std::unique_ptr<OrbVideoDriver> createSoftwareVideoDriver()
{
    return std::make_unique<SoftwareVideoDriver>();
}
