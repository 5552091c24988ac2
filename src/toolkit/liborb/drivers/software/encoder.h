#pragma once

#include "liborb/drivers/software/rawpicture.h"
#include "liborb/orbbuffer.h"
#include "liborb/orbimagedesc.h"

#include <QString>

#include <functional>
#include <memory>

namespace ferin {

/// Counters of the coder pool since its start.
struct EncoderStats {
    quint64 coded = 0;       ///< pictures
    quint64 failed = 0;
    int waiting = 0;         ///< requested and not yet started
    double meanMs = 0.0;     ///< mean coding time of one picture on one worker
};

/// Codes raw pictures into the data types 202 to 206, 230 and 231, frame-parallel on a small pool of workers
/// (two by default, or the number of cores). Nothing is coded until a promised buffer is requested.
/// Thread-safe. Requests are started in the order they were made; each coded picture stands alone.
class EncoderPool
{
public:
    explicit EncoderPool(int workers = 0); ///< 0: one a core
    ~EncoderPool(); ///< fails what is still waiting

    /// True when \a desc is a raster and data type that can be coded.
    static bool canCode(const OrbImageDesc &desc);
    /// Names the implementation used for a data type: "ffmpeg" is all there is by default; for tests and logs.
    QString codecName(const OrbId &dataType) const;

    /// A buffer that will hold \a raw coded as \a desc says (data type, raster, rate, scan mode).
    /// The raw picture is kept until the coding is done or the buffer is dropped.
    OrbBuffer promise(const RawPictureRef &raw, const OrbImageDesc &desc);
    EncoderStats stats() const;

private:
    struct Private;
    std::shared_ptr<Private> _d;
};

} // namespace ferin
