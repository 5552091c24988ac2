#include "services/rvcam/patternsource.h"

#include "libpicture/framebar.h"
#include "libpicture/tone.h"

namespace cam {

PatternSource::PatternSource(const Settings &settings)
    : _settings(settings)
{
    if (settings.pattern == Pattern::Moving)
        _moving = std::make_unique<picture::MovingPattern>(settings.format.width,
                                                           settings.format.height);
}

bool PatternSource::draw(const picture::View &view, std::int64_t frame)
{
    const std::uint32_t number = _settings.first + static_cast<std::uint32_t>(frame);
    switch (_settings.pattern) {
    case Pattern::Moving:
        _moving->draw(view, number);
        return true;
    case Pattern::Bars:
        picture::drawBars(view);
        break;
    case Pattern::Ramp:
        picture::drawRamp(view);
        break;
    case Pattern::Black:
        picture::drawBlack(view);
        break;
    }
    picture::writeFrameNumber(view, number);
    return true;
}

void PatternSource::sound(std::uint8_t *out, std::int64_t firstSample, int samples)
{
    picture::writeTone(out, firstSample, samples, _settings.format.audioChannels,
                       _settings.levelDbfs);
}

} // namespace cam
