#include "app/recordingfigures.h"

#include "config/configinterface.h"
#include "libconfig/paramdescriptor.h"
#include "liborb/orbconnect.h"
#include "liborb/orbvideodevice.h"
#include "transport/vtrobject.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr const char *logFile = "recordingfigures.cpp";
constexpr int periodMs = 1000;

enum Row { Waiting, Median, Worst, Late };
constexpr quint32 parameters[] = {eParamCaptureQueue, eParamCodingTime, eParamWorstCodingTime, eParamLateFrames};

quint32 wholeMs(double time)
{
    return static_cast<quint32>(std::ceil(std::clamp(time, 0.0, 1e6)));
}

} // namespace

RecordingFigures::RecordingFigures(QObject *controller)
    : QObject(controller), _config(controller->findChild<ConfigInterface *>()),
      _device(controller->findChild<OrbVideoDevice *>())
{
    const auto *vtr = controller->findChild<VtrObject *>();
    if (_config == nullptr || _device == nullptr || vtr == nullptr)
        return;
    _timer.setTimerType(Qt::PreciseTimer);
    _timer.setInterval(periodMs);
    ORB_TESTED(connect(&_timer, SIGNAL(timeout()), this, SLOT(publish())));
    ORB_TESTED(connect(vtr, SIGNAL(modeChanged(VtrState::Mode, VtrState::Mode)), this,
                       SLOT(modeChanged(VtrState::Mode, VtrState::Mode))));
}

void RecordingFigures::modeChanged(VtrState::Mode, VtrState::Mode mode)
{
    const bool isRecording = mode == VtrState::Record;
    if (isRecording == _timer.isActive())
        return;
    if (isRecording) {
        _lateBefore = _device->captureFigures().lateFrames;
        _timer.start();
    } else {
        _timer.stop();
    }
    publish();
}

void RecordingFigures::publish()
{
    const OrbCaptureFigures figures = _device->captureFigures();
    publish(Waiting, static_cast<quint32>(std::max(figures.waitingFrames, 0)));
    publish(Median, wholeMs(figures.medianCodingMs));
    publish(Worst, wholeMs(figures.worstCodingMs));
    publish(Late, static_cast<quint32>(figures.lateFrames - _lateBefore));
}

void RecordingFigures::publish(int row, quint32 value)
{
    std::optional<quint32> &published = _published[static_cast<std::size_t>(row)];
    if (published == value)
        return;
    published = value;
    _config->setUInt32(parameters[row], value);
}
