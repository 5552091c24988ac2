#pragma once

#include "liborb/drivers/software/ffmpeghandles.h"
#include "libpicture/picture.h"

namespace ferin {

/// Turns decoded pictures of any kind into planar 10-bit 4:2:2. The common ones are converted here, field by
/// field when they are interlaced; everything else, and other sizes, by the codec library's scaler. One
/// thread uses a converter.
class PictureConverter
{
public:
    /// Draws \a from into \a to; \a from is cut to an even width when that is all that differs, otherwise
    /// scaled. False when the picture is of a kind that cannot be converted.
    bool convert(const AVFrame &from, bool interlaced, const picture::View &to);

private:
    bool scale(const AVFrame &from, bool interlaced, const picture::View &to);
    bool prepare(const AVFrame &from, int fromHeight, const picture::View &to, int toHeight);

    ScalerPtr _scaler;
};

} // namespace ferin
