#include "services/rvcam/patternsource.h"

#include "libpicture/framebar.h"
#include "libpicture/tone.h"

namespace cam {

namespace {

/// Numbers the samples in their low 24 bits: whoever reads them sees each sample that is missing, double or moved.
/// Every second channel carries the complement, so that channels that change places are seen, too.
void writeCount(std::uint8_t *out, std::int64_t firstSample, int samples, int channels)
{
    for (int i = 0; i < samples; ++i) {
        const auto number = static_cast<std::uint32_t>((firstSample + i) & 0xffffff);
        for (int c = 0; c < channels; ++c) {
            const std::uint32_t value = c % 2 == 0 ? number : ~number;
            *out++ = static_cast<std::uint8_t>(value & 0xffU);
            *out++ = static_cast<std::uint8_t>((value >> 8) & 0xffU);
            *out++ = static_cast<std::uint8_t>((value >> 16) & 0xffU);
        }
    }
}

} // namespace

PatternSource::PatternSource(const Settings &settings)
    : _settings(settings)
{
    if (settings.pattern == Pattern::Moving)
        _moving = std::make_unique<picture::MovingPattern>(settings.format.width,
                                                           settings.format.height);
    if (settings.pattern == Pattern::Natural)
        _natural = std::make_unique<picture::NaturalPattern>(settings.format.width, settings.format.height);
}

bool PatternSource::draw(const picture::View &view, std::int64_t frame)
{
    const std::uint32_t number = _settings.first + static_cast<std::uint32_t>(frame);
    switch (_settings.pattern) {
    case Pattern::Moving:
        _moving->draw(view, number);
        return true;
    case Pattern::Natural:
        _natural->draw(view, number);
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
    if (_settings.sound == Sound::Count) {
        writeCount(out, firstSample, samples, _settings.format.audioChannels);
        return;
    }
    picture::writeTone(out, firstSample, samples, _settings.format.audioChannels,
                       _settings.levelDbfs);
}

} // namespace cam
