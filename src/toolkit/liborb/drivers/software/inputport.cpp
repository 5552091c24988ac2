#include "liborb/drivers/software/inputport.h"

#include "liborb/orblog.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <utility>

namespace ferin {

namespace {

constexpr const char *logFile = "inputport.cpp";

void logStatus(const OrbId &connector, const InputStatus &status)
{
    const QString state = stateOf(status).toString();
    if (status.problem.isEmpty())
        orbLogOutput(3, logFile, __LINE__, "Connector %d: %s\n", connector.value(),
                     qPrintable(state));
    else
        orbLogOutput(2, logFile, __LINE__, "Connector %d: %s (%s)\n", connector.value(),
                     qPrintable(state), qPrintable(status.problem));
}

} // namespace

/// What an input's thread tells; it outlives an input that is being retired.
struct InputPort::Watch {
    std::mutex mutex;
    InputStatus status;
    StateHandler onState; // empty once another connector is selected
};

OrbVideoState stateOf(const InputStatus &status)
{
    OrbVideoState state;
    state.setPresent(status.present);
    state.setValid(status.present && status.valid);
    if (!state.isValid())
        return state;
    OrbImageDesc format = status.format;
    if (!format.aspectRatio().isValid())
        format.setAspectRatio(format.width(), format.height());
    format.setDataType(OrbIdImageV210);
    state.setInputImageDesc(format);
    state.setCaptureImageDesc(format);
    return state;
}

InputPort::InputPort(const DeviceConfig &config, const StateHandler &onState)
    : _config(config), _onState(onState), _watch(std::make_shared<Watch>())
{
}

InputPort::~InputPort()
{
    {
        const std::lock_guard lock(_watch->mutex);
        _watch->onState = nullptr;
    }
    _input.reset();
    _retiring.clear(); // waits
}

void InputPort::retire(std::unique_ptr<Input> input)
{
    std::erase_if(_retiring, [](const std::future<void> &ended) {
        return ended.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    });
    if (!input)
        return;
    // Stopping a source may take as long as its last read does; the frame clock does not wait for
    // that.
    std::shared_ptr<Input> last = std::move(input);
    _retiring.push_back(std::async(std::launch::async, [last]() mutable { last.reset(); }));
}

void InputPort::select(const OrbId &connector)
{
    if (connector == _connector)
        return;
    {
        const std::lock_guard lock(_watch->mutex);
        _watch->onState = nullptr;
    }
    retire(std::move(_input));
    _generator.reset();
    _connector = connector;
    _pace.restart();
    _overruns = 0;
    _watch = std::make_shared<Watch>();

    const QString source = _config.source(connector);
    _generatorMode = generatorOf(source);
    orbLogOutput(3, logFile, __LINE__, "Connector %d: source \"%s\"\n", connector.value(),
                 qPrintable(source));
    if (_generatorMode.isValid()) {
        _watch->status.present = true;
        _watch->status.valid = true;
        _watch->status.format = _config.patternFormat;
        _onState(stateOf(_watch->status));
        return;
    }
    _onState(OrbVideoState()); // until the source says otherwise
    _watch->onState = _onState;
    _input = createInput(source);
    if (!_input)
        return;
    _input->start([watch = _watch, connector](const InputStatus &status) {
        logStatus(connector, status);
        const std::lock_guard lock(watch->mutex);
        watch->status = status;
        if (watch->onState)
            watch->onState(stateOf(status));
    });
}

bool InputPort::delivers(const OrbImageDesc &image) const
{
    const std::lock_guard lock(_watch->mutex);
    const InputStatus &status = _watch->status;
    return status.present && status.valid && status.format.size() == image.size()
           && status.format.frameRate() == image.frameRate();
}

SignalGenerator *InputPort::generator()
{
    if (!_generatorMode.isValid())
        return nullptr;
    if (!_generator)
        _generator = std::make_unique<SignalGenerator>(_generatorMode,
                                                       _config.patternFormat.size());
    return _generator.get();
}

int InputPort::framesDue(std::int64_t periodNs, std::int64_t &shiftNs)
{
    shiftNs = 0;
    if (!_input)
        return 0;
    const int waiting = _input->waiting();
    if (!_input->isPaced())
        return std::min(waiting, 1);
    return _pace.framesDue(waiting, _input->heldFrames(), periodNs, shiftNs);
}

bool InputPort::take(InputFrame &frame)
{
    return _input && _input->take(frame);
}

int InputPort::framesToDrain() const
{
    if (!_input)
        return 0;
    return _input->isPaced() ? InputPace::mostDue : 1;
}

int InputPort::newlyLost()
{
    if (!_input)
        return 0;
    const quint64 now = _input->overruns();
    const quint64 lost = now - std::exchange(_overruns, now);
    return static_cast<int>(std::min<quint64>(lost, 1000));
}

} // namespace ferin
