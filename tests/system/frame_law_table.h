#pragma once

#include "frame_law_clips.h"
#include "frame_law_player.h"

#include <cstdint>
#include <vector>

namespace law {

/// How much is tried.
enum class Extent {
    Short, ///< a representative part, for every build
    Full   ///< every format, speed and place
};

/// The table that is printed, a line a run, and what it comes to.
class Table
{
public:
    void head() const;
    /// \a late are frames that came late and right, because the machine was busy.
    void add(const QString &format, const QString &speed, bool looping, const QString &where, int frames,
             int late, const QString &problem);
    /// Prints the sum; true when every line holds.
    bool close(double seconds) const;

private:
    int _lines = 0;
    int _wrong = 0;
    int _late = 0;
    std::int64_t _frames = 0;
};

/// Speeds, ends, joins, changes, cues and stills in one format.
void runPlayback(Table &table, const ClipFormat &format, Extent extent, const QString &folder,
                 std::uint32_t seed);

/// Records over a minute and a tenth minute with drop-frame labels and plays what was recorded.
void runDropFrame(Table &table, Extent extent, const QString &folder);

} // namespace law
