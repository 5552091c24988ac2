#pragma once

#include "liborb/drivers/software/rawpicture.h"
#include "liborb/orbimagelut.h"
#include "libpicture/colourtable.h"

#include <QSize>

#include <memory>

namespace ferin {

using ColourTableRef = std::shared_ptr<const picture::ColourTable>;

/// The table that \a lut stands for on pictures of \a height lines; null when it changes nothing.
ColourTableRef colourTableOf(const OrbImageLut &lut, int height);

/// Puts captured pictures through the input's look-up table. One thread. Without a table nothing is taken and nothing
/// is done.
class InputColouring
{
public:
    /// From now on pictures of \a raster through \a lut, \a most of them in use at once.
    void set(const OrbImageLut &lut, const QSize &raster, int most);
    const ColourTableRef &table() const { return _table; }

    /// The picture through the table; null when all pictures are in use.
    RawPictureRef through(const RawPictureRef &picture);
    /// The same for a picture that comes again and again and never changes: it is done once.
    RawPictureRef throughOnce(const RawPictureRef &still);

private:
    ColourTableRef _table;
    std::unique_ptr<RawPicturePool> _pool;
    QSize _poolRaster;
    int _poolSize = 0;
    RawPictureRef _still;
    RawPictureRef _stillThrough;
};

} // namespace ferin
