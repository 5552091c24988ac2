#pragma once

#include "libprores/encoder.h"
#include "libprores/frameinfo.h"

#include <memory>

namespace prores {

/// What stands where a slice cannot be decoded.
enum class Concealment {
    Grey,
    Keep, ///< what stood there before
};

struct DecoderSettings {
    Reduction reduction = Reduction::None;
    Concealment concealment = Concealment::Grey;
    Path path = Path::Best; ///< one that the processor lacks falls back to the portable one
};

/// Where a picture goes: planar, one 10-bit sample in each host-order 16-bit word, both fields line by line.
/// Large ones are written fastest where every line begins at a multiple of 64 bytes.
struct DecodedPicture {
    std::uint16_t *plane[4] = {}; ///< Y, Cb, Cr; alpha is skipped where it has none
    std::ptrdiff_t stride[4] = {}; ///< samples from line to line
    int width = 0;                 ///< of Y: planeWidth(0) and
    int height = 0;                ///< planeHeight() at the decoder's reduction
    bool is444 = false;
};

struct DecodeReport {
    bool isFrame = false; ///< false: nothing was written, as this is no frame, or not of the picture's raster
    int slices = 0;
    int damaged = 0;      ///< slices that were concealed

    bool isSound() const { return isFrame && damaged == 0; }
};

/// Decodes ProRes frames, as a movie's packets hold them, of whatever raster and profile comes. At full size the
/// samples are those of FFmpeg's decoder at 10 bit, to the last bit; reduced ones come from the lowest coefficients
/// alone, and what follows them in the stream is neither read nor checked. No stream, however broken, does any
/// harm. One thread at a time; nothing is allocated for a frame when one as large was decoded before.
class Decoder
{
public:
    /// \a workers may be null, else it outlives the decoder.
    explicit Decoder(const DecoderSettings &settings = {}, Workers *workers = nullptr);
    ~Decoder();
    Decoder(const Decoder &) = delete;
    Decoder &operator=(const Decoder &) = delete;

    /// The name of the path in use: "portable", "avx2" or "avx512".
    const char *pathName() const;
    /// Decodes the \a size bytes at \a frame into \a to. Samples outside of the raster stay as they are.
    DecodeReport decode(const std::uint8_t *frame, std::size_t size, const DecodedPicture &to);

private:
    struct Private;
    std::unique_ptr<Private> _d;
};

} // namespace prores
