#include "liborb/drivers/software/colouring.h"

namespace ferin {

ColourTableRef colourTableOf(const OrbImageLut &lut, int height)
{
    static_assert(sizeof(short) == sizeof(std::int16_t));
    return picture::ColourTable::make(lut.lutData(), lut.entries(), picture::matrixOf(height));
}

void InputColouring::set(const OrbImageLut &lut, const QSize &raster, int most)
{
    _table = colourTableOf(lut, raster.height());
    _still.reset();
    _stillThrough.reset();
    const bool isKept = _pool && _poolRaster == raster && _poolSize == most;
    if (_table && isKept)
        return;
    _pool.reset();
    if (!_table)
        return;
    // One more for the still picture, which is kept.
    _pool = std::make_unique<RawPicturePool>(raster.width(), raster.height(), most + 1);
    _pool->keepReady(fewestReady);
    _poolRaster = raster;
    _poolSize = most;
}

RawPictureRef InputColouring::through(const RawPictureRef &picture)
{
    RawPictureRef coloured = _pool ? _pool->take() : nullptr;
    if (coloured)
        _table->apply(picture->view, coloured->view);
    return coloured;
}

RawPictureRef InputColouring::throughOnce(const RawPictureRef &still)
{
    if (still != _still || !_stillThrough) {
        _stillThrough.reset();
        _stillThrough = through(still);
        _still = still;
    }
    return _stillThrough;
}

} // namespace ferin
