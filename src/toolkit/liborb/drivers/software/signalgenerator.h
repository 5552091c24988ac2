#pragma once

#include "liborb/drivers/software/rawpicture.h"
#include "liborb/orbid.h"
#include "libpicture/patterns.h"

#include <QByteArray>
#include <QSize>

#include <cstdint>
#include <memory>

namespace ferin {

/// Makes the test pictures of one raster: black, bars or the moving pattern with its frame numbers.
/// Each picture() is the next one. A picture that never changes is drawn once and shared. Used on
/// one thread.
class SignalGenerator
{
public:
    /// \a mode is 800, 801 or 802; anything else is black. The moving pattern's background takes a
    /// while (some tens of milliseconds at 1080 lines) and is made here.
    SignalGenerator(const OrbId &mode, const QSize &raster);

    OrbId mode() const { return _mode; }
    QSize raster() const { return _raster; }
    bool isStill() const { return _mode != OrbIdVideoGenMoving; }
    /// The next picture, from \a pool unless it is a still one; null when the pool is empty. Moves
    /// on by a frame in either case.
    RawPictureRef picture(RawPicturePool &pool);
    /// Draws the picture that picture() made last, or would have made.
    void draw(const picture::View &view) const;
    /// Leaves out \a frames pictures.
    void skip(int frames) { _next += static_cast<std::uint32_t>(frames); }
    std::uint32_t next() const { return _next; }

private:
    OrbId _mode;
    QSize _raster;
    std::unique_ptr<picture::MovingPattern> _pattern;
    std::unique_ptr<RawPicturePool> _stillPool;
    RawPictureRef _still;
    std::uint32_t _next = 0;
};

/// A tone or silence in blocks that join without a click.
class SoundGenerator
{
public:
    /// \a mode 901 is the tone, anything else silence.
    QByteArray block(const OrbId &mode, int samples, int channels);

private:
    std::int64_t _sample = 0;
};

} // namespace ferin
