#pragma once

#include "libprores/format.h"
#include "libprores/workers.h"

#include <cstdint>
#include <memory>

namespace prores {

/// Which code runs; all give the same bytes.
enum class Path { Best, Portable, Avx2, Avx512 };

struct Settings {
    std::size_t wantedBytes = 0;  ///< in a frame; 0 = the usual number
    std::size_t largestBytes = 0; ///< of a frame; 0 = the profile's limit. Alpha comes on top of both
    int index = 0;                ///< 1..224: quantise all with it, whatever the size; 0 = by rate
    Path path = Path::Best;       ///< one that the processor lacks falls back to the portable one
};

/// What became of a frame.
struct FrameReport {
    std::size_t bytes = 0; ///< 0 when the picture was refused or the room too small
    double scale = 0.0;    ///< it was quantised with
    int passes = 0;        ///< 1, or more when it came out larger than allowed
};

/// Codes the pictures of one stream into ProRes frames, as a movie's packets hold them. The bytes depend
/// on the format, the settings and the pictures coded so far, and on nothing else: not on the path, the
/// number of threads, or the machine. One thread at a time; nothing is allocated per frame.
class Encoder
{
public:
    /// \a format must be valid, see isValid(). \a workers may be null, else it outlives the encoder.
    explicit Encoder(const Format &format, const Settings &settings = {}, Workers *workers = nullptr);
    ~Encoder();
    Encoder(const Encoder &) = delete;
    Encoder &operator=(const Encoder &) = delete;

    const Format &format() const;
    /// The name of the path in use: "portable", "avx2" or "avx512".
    const char *pathName() const;
    /// Room that is enough for every frame.
    std::size_t room() const;
    /// Forgets the pictures coded so far: another stream of the same format begins.
    void restart();
    /// Codes \a picture, of the stream's format, to \a to.
    FrameReport encode(const Picture &picture, std::uint8_t *to, std::size_t room);

private:
    struct Private;
    std::unique_ptr<Private> _d;
};

} // namespace prores
