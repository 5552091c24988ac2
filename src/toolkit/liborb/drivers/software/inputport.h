#pragma once

#include "liborb/drivers/software/deviceconfig.h"
#include "liborb/drivers/software/input.h"
#include "liborb/drivers/software/inputpace.h"
#include "liborb/drivers/software/signalgenerator.h"
#include "liborb/orbvideostate.h"

#include <functional>
#include <future>
#include <memory>
#include <vector>

namespace ferin {

/// The input connector that the device is set to, with whatever is plugged into it: a live source,
/// a generator that stands for one, or nothing. The source runs on while the rest of the setup
/// changes. Used on the frame clock's thread.
class InputPort
{
public:
    /// \a onState hears of each change of the connector's state, on any thread, until destruction.
    using StateHandler = std::function<void(const OrbVideoState &)>;
    InputPort(const DeviceConfig &config, const StateHandler &onState);
    ~InputPort();

    OrbId connector() const { return _connector; }
    /// Selects a connector; nothing when it is selected already.
    void select(const OrbId &connector);

    /// The source delivers frames of this raster and rate.
    bool delivers(const OrbImageDesc &image) const;
    /// The generator on this connector, null when it is another source. Made when it is first asked
    /// for.
    SignalGenerator *generator();
    bool isGenerator() const { return _generatorMode.isValid(); }

    /// Frames to capture at this beat. \a shiftNs is by how much the frame clock moves to follow the source.
    int framesDue(std::int64_t periodNs, std::int64_t &shiftNs);
    bool take(InputFrame &frame);
    /// Frames at most to take at a beat that captures nothing.
    int framesToDrain() const;
    /// Frames lost in the source's queue since the last call.
    int newlyLost();

private:
    struct Watch;
    void retire(std::unique_ptr<Input> input);

    const DeviceConfig &_config;
    StateHandler _onState;
    OrbId _connector;
    OrbId _generatorMode;
    std::shared_ptr<Watch> _watch;
    std::unique_ptr<Input> _input;
    std::unique_ptr<SignalGenerator> _generator;
    InputPace _pace;
    quint64 _overruns = 0;
    std::vector<std::future<void>> _retiring;
};

/// What the engine is told about a connector with \a status.
OrbVideoState stateOf(const InputStatus &status);

} // namespace ferin
