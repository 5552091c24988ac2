#pragma once

#include "liborb/drivers/software/picturecoder.h"
#include "liborb/drivers/software/proresby.h"
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
    double meanMs = 0.0;     ///< mean coding time of one picture
    double medianMs = 0.0;   ///< from request to bytes, over the last five seconds; 0 when there was none
    double worstMs = 0.0;
};

/// Codes raw pictures into the data types 202 to 206, 230 and 231. Nothing is coded until a promised buffer is
/// requested; requests are started in the order they were made. The project's ProRes encoder codes picture after
/// picture, the slices of each side by side; all other coders work on as many pictures as there are workers. The
/// same pictures give the same bytes whatever the number of workers and their timing. Thread-safe.
class EncoderPool
{
public:
    explicit EncoderPool(int workers = 0, ProResBy proRes = ProResBy::Own); ///< 0: one a core
    ~EncoderPool(); ///< fails what is still waiting

    /// True when \a desc is a raster and data type that can be coded.
    static bool canCode(const OrbImageDesc &desc);
    /// Names the encoder used for a data type, "own" or "ffmpeg"; empty when there is none. For tests and logs.
    QString codecName(const OrbId &dataType) const;

    /// A buffer that will hold \a raw coded as \a desc says (data type, raster, rate, scan mode).
    /// The raw picture is kept until the coding is done or the buffer is dropped. Pictures requested one after
    /// another whose \a number counts on are a stream, which keeps a data rate; a gap begins another one.
    OrbBuffer promise(const RawPictureRef &raw, const OrbImageDesc &desc, std::int64_t number = standalone);
    /// True when pictures of a stream are coded to a data rate, so that their bytes depend on those before.
    bool keepsRate(const OrbId &dataType) const;
    /// Pictures like \a desc will come: what it takes to code a stream of them is made ready in the background.
    void expect(const OrbImageDesc &desc);
    /// What is requested from now on belongs to other streams than what was requested before, whatever its numbers.
    void beginStream();
    EncoderStats stats() const;

private:
    struct Private;
    std::shared_ptr<Private> _d;
};

} // namespace ferin
