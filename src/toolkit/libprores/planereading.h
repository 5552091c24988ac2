#pragma once

#include "libprores/bitreader.h"
#include "libprores/levelreader.h"
#include "libprores/leveltables.h"

namespace prores {

/// What changes with each code. Lives in registers: keep it local.
struct Turn {
    std::uint64_t bits = 0; ///< the next ones at the top, zeros behind the last
    const std::uint8_t *next = nullptr;
    std::int16_t *at = nullptr; ///< the level read last
    unsigned context = firstContext << LevelTable::bits; ///< where its look-ups begin
    int count = 0; ///< of bits at hand

    /// At least 56 bits are at hand then. From eight bytes that can be read.
    void refill()
    {
        bits |= loadBig64(next) >> count;
        next += (63 - count) >> 3;
        count |= 56;
    }

    void take(int length)
    {
        bits <<= length;
        count -= length;
    }
};

/// A plane being read. Its last bytes are read from a copy with zeros behind it, for which no code is in the tables:
/// thus nothing has to look for the end before each code.
class Reading
{
public:
    Turn turn;
    bool isDone = false; ///< no more levels follow

    void begin(const PlaneToRead &plane, int positions);
    /// To where turn.next may be for a refill.
    const std::uint8_t *last() const { return _last; }
    /// At the last level wanted, or beyond.
    bool isFull(const Turn &t) const { return t.at >= _limit; }
    void refill();
    /// The next number, from the bits at hand; 0 and damage when there is none.
    std::uint32_t number(Code code);
    /// Once the DC levels are read.
    void endDc();
    /// Where one look-up after the other does not go on: as the next level \a isMissing in the table, or some end is
    /// near. False when done.
    bool resume(bool isMissing);
    void end(const PlaneToRead &plane, int positions);
    /// After the end.
    bool isDamaged() const { return _isDamaged; }

private:
    /// Bits up to the end; below 0 when more were taken than there were.
    std::ptrdiff_t left() const { return (_end - turn.next) * 8 + turn.count; }
    void goToTail();
    void readOne();

    static constexpr std::ptrdiff_t tailBytes = 48;
    const std::uint8_t *_last = nullptr;
    const std::uint8_t *_end = nullptr;
    std::int16_t *_limit = nullptr;
    bool _isTail = false;
    bool _isDamaged = false;
    std::uint8_t _tail[tailBytes];
};

} // namespace prores
