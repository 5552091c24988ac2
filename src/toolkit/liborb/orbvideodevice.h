#pragma once

#include "liborb/ifaces/videodriver.h"

#include <QObject>

#include <memory>

/// A video device: captures frames from an input or plays frames to the output, never both.
/// Opened by name; the driver behind it does the work. All calls and signals on the event-loop thread.
/// On a device that is not open, operations do nothing and answer empty values or EBADF.
class OrbVideoDevice : public QObject, private OrbVideoDriverHost
{
    Q_OBJECT
public:
    explicit OrbVideoDevice(QObject *parent = nullptr);
    ~OrbVideoDevice() override;

    // Answers at once
    bool open(const QString &name); ///< false when there is no such device or it fails
    void close();
    bool isOpen() const;
    bool isInSetup() const;
    bool isFlushing() const;
    /// The setup last applied: the one of the last setup() that completed without an error.
    OrbVideoDeviceSetup currentSetup() const;
    void setProperty(const OrbId &id, const QVariant &value);
    OrbError readFrame(OrbFrame &frame);
    OrbError writeFrame(const OrbFrame &frame);
    int framesReadable() const; ///< frames waiting in the capture queue
    int framesWritable() const; ///< free slots of the playback queue; 0 unless set up for playback
    OrbMetadataHash currentFrameMetadata() const; ///< of the frame now on output
    /// Entry \a index of the reference inputs; not present when there is no such entry.
    OrbVideoRefState refInputState(int index) const;
    QString stateAsString() const;
    OrbCaptureFigures captureFigures() const;

    // Starts and completes by a signal
    OrbError setup(const OrbVideoDeviceSetup &setup); ///< EBUSY during another setup
    void flush(); ///< completes by flushed(); nothing while one is under way

signals:
    void vbi(const OrbVbiInfo &info);
    void setupIsDone(const OrbError &error);
    void playedKeyFrame(const OrbMetadataHash &meta);
    void frameDropped();
    void readFromHardwareFailed(const OrbError &error);
    void writeToHardwareFailed(const OrbError &error, const OrbFrame &frame);
    void hardwareStarted();
    void flushed(const OrbMetadataHash &meta);
    void inputChanged(int input, const OrbVideoState &state);
    void firmwareLoading(const QString &id, bool done);
    void raiseVFRAlarm(bool active);
    void inputAncDataChanged(const OrbMetadataHash &data);
    void alarmTriggered(const OrbAlarm &alarm);

private:
    void driverVbi(const OrbVbiInfo &info) override;
    void driverSetupIsDone(const OrbError &error) override;
    void driverPlayedKeyFrame(const OrbMetadataHash &meta) override;
    void driverFrameDropped() override;
    void driverReadFailed(const OrbError &error) override;
    void driverWriteFailed(const OrbError &error, const OrbFrame &frame) override;
    void driverHardwareStarted() override;
    void driverFlushed(const OrbMetadataHash &meta) override;
    void driverInputChanged(int input, const OrbVideoState &state) override;
    void driverFirmwareLoading(const QString &id, bool done) override;
    void driverRaiseVfrAlarm(bool active) override;
    void driverInputAncDataChanged(const OrbMetadataHash &data) override;
    void driverAlarm(const OrbAlarm &alarm) override;

    std::unique_ptr<OrbVideoDriver> _driver;
    OrbVideoDeviceSetup _currentSetup;
    OrbVideoDeviceSetup _pendingSetup;
    bool _inSetup = false;
    bool _flushing = false;
};
