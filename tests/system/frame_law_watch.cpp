#include "frame_law_watch.h"

#include "liborb/orbthread.h"
#include "libpicture/framebar.h"

#include <chrono>

namespace law {

namespace {

constexpr int bytesASample = 3;

/// The value that all samples have.
std::optional<int> valueOf(const bus::Frame &frame)
{
    const std::size_t count = frame.audio.size() / bytesASample;
    if (count == 0)
        return std::nullopt;
    for (std::size_t i = bytesASample; i < count * bytesASample; ++i) {
        if (frame.audio[i] != frame.audio[i - bytesASample])
            return std::nullopt;
    }
    return frame.audio[0] | frame.audio[1] << 8 | frame.audio[2] << 16;
}

Shown shownBy(bus::Frame &frame)
{
    constexpr std::uint16_t valid = 1;
    constexpr std::uint16_t drop = 2;
    const bus::FrameInfo &info = frame.info;
    Shown seen;
    seen.sequence = info.sequence;
    seen.content = info.content;
    seen.number = info.frameNumber;
    seen.picture = picture::readFrameNumber(frame.view());
    seen.label = {info.tcHour, info.tcMin, info.tcSec, info.tcFrame, info.tcFps,
                  (info.tcFlags & drop) != 0};
    seen.hasLabel = (info.tcFlags & valid) != 0;
    seen.samples = info.samples;
    seen.sound = valueOf(frame);
    seen.clip = info.clip;
    return seen;
}

} // namespace

Watch::Watch(const std::string &bus) : _bus(bus)
{
    _thread = std::thread([this] {
        orbNameThread("watch");
        orbRaiseThread();
        run();
    });
}

Watch::~Watch()
{
    _ends = true;
    _reader.wake();
    _thread.join();
}

std::size_t Watch::count() const
{
    const std::lock_guard lock(_mutex);
    return _seen.size();
}

std::vector<Shown> Watch::since(std::size_t from) const
{
    const std::lock_guard lock(_mutex);
    if (from >= _seen.size())
        return {};
    return {_seen.begin() + static_cast<std::ptrdiff_t>(from), _seen.end()};
}

Shown Watch::last() const
{
    const std::lock_guard lock(_mutex);
    return _seen.empty() ? Shown() : _seen.back();
}

void Watch::run()
{
    bus::Frame frame;
    std::uint64_t previous = 0;
    while (!_ends) {
        if (!_reader.isOpen() && !_reader.open(_bus)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            continue;
        }
        if (!_reader.next(frame, 200))
            continue;
        const Shown seen = shownBy(frame);
        if (previous != 0 && seen.sequence != previous + 1)
            _missed += seen.sequence > previous ? seen.sequence - previous - 1 : 1;
        previous = seen.sequence;
        const std::lock_guard lock(_mutex);
        _seen.push_back(seen);
    }
}

} // namespace law
