#pragma once

#include "transport/vtrstate.h"

#include <QObject>
#include <QTimer>

#include <array>
#include <optional>

class ConfigInterface;
class OrbVideoDevice;

/// Publishes how well a recording keeps up: frames in the device's queue, how long frames take to be coded, frames
/// that were late. When a recording begins, once a second and when it ends, and only what has changed; what the last
/// recording had stays until the next one.
class RecordingFigures : public QObject
{
    Q_OBJECT
public:
    /// Becomes a child of \a controller, whose engine, device and door to the store it uses.
    explicit RecordingFigures(QObject *controller);

private slots:
    void modeChanged(VtrState::Mode, VtrState::Mode mode);
    void publish();

private:
    void publish(int row, quint32 value);

    ConfigInterface *_config;
    const OrbVideoDevice *_device;
    QTimer _timer;
    quint64 _lateBefore = 0; // the recording
    std::array<std::optional<quint32>, 4> _published; // by this daemon
};
