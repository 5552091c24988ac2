#include "services/rvcam/camera.h"

#include "libpicture/framebar.h"
#include "libpicture/tone.h"
#include "services/rvcam/frameclock.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace cam {

namespace {

void setTimecode(bus::FrameInfo &info, const Timecode &timecode)
{
    info.tcHour = static_cast<std::int8_t>(timecode.hour);
    info.tcMin = static_cast<std::int8_t>(timecode.minute);
    info.tcSec = static_cast<std::int8_t>(timecode.second);
    info.tcFrame = static_cast<std::int8_t>(timecode.frame);
    info.tcFps = static_cast<std::int16_t>(timecode.fps);
    info.tcFlags = timecode.drop ? 3 : 1;
}

} // namespace

int runCamera(const Settings &settings, Source &source)
{
    const bus::Format &format = settings.format;
    bus::Writer writer;
    if (!writer.open(settings.bus)) {
        std::fprintf(stderr, "rvcam: cannot feed bus %s: %s\n", settings.bus.c_str(),
                     std::strerror(errno));
        return 1;
    }

    FrameClock clock(format.rateNum, format.rateDen);
    clock.start();
    bool complained = false;
    for (std::int64_t n = 0; settings.frames == 0 || n < settings.frames; ++n) {
        // Drawn ahead of its time: at the deadline there is nothing left to do but to publish.
        const picture::View view = writer.beginFrame(format);
        bus::FrameInfo info;
        if (view.isValid()) {
            const bool signal = source.draw(view, n);
            if (signal && settings.stamp)
                picture::writeFrameNumber(view, settings.first + static_cast<std::uint32_t>(n));
            info.content = signal ? bus::Content::Live : bus::Content::None;
            info.samples = picture::samplesOfFrame(n, format.rateNum, format.rateDen);
            info.samples = std::min(info.samples, bus::maxSamples);
            if (format.audioChannels > 0) {
                source.sound(writer.audioSlot(),
                             picture::samplesBeforeFrame(n, format.rateNum, format.rateDen),
                             info.samples);
            }
            setTimecode(info, settings.timecode.after(n));
        } else if (!complained) {
            std::fprintf(stderr, "rvcam: no memory for a frame on bus %s: %s\n",
                         settings.bus.c_str(), std::strerror(errno));
            complained = true;
        }

        if (!clock.waitFor(n))
            break;
        if (!view.isValid())
            continue;
        info.timeNs = clock.dueNs(n);
        info.recordFlag = settings.recordFlag != isToggled();
        writer.publish(info);
    }
    return 0;
}

} // namespace cam
