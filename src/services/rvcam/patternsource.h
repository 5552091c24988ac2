#pragma once

#include "libpicture/patterns.h"
#include "services/rvcam/settings.h"
#include "services/rvcam/source.h"

#include <memory>

namespace cam {

/// The test patterns, each with the frame-number bar on top, and the line-up tone or numbered samples.
class PatternSource : public Source
{
public:
    explicit PatternSource(const Settings &settings);
    bool draw(const picture::View &view, std::int64_t frame) override;
    void sound(std::uint8_t *out, std::int64_t firstSample, int samples) override;

private:
    Settings _settings;
    std::unique_ptr<picture::MovingPattern> _moving;
    std::unique_ptr<picture::NaturalPattern> _natural;
};

} // namespace cam
