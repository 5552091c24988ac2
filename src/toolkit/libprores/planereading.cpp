#include "libprores/planereading.h"

#include <cstring>

namespace prores {

void Reading::begin(const PlaneToRead &plane, int positions)
{
    turn.next = plane.bits.begin;
    _end = turn.next + plane.bits.bytes;
    turn.at = plane.to->at + plane.blocks - 1;
    _limit = plane.to->at + (positions > 1 ? positions * plane.blocks : 0);
    if (plane.bits.bytes >= 8)
        _last = _end - 8;
    else
        goToTail();
}

// Fewer than eight bytes are left then. What takes more than those and some zeros is damaged.
void Reading::goToTail()
{
    if (_isTail) {
        _isDamaged = true;
        turn.next = _tail + 8;
        return;
    }
    const std::ptrdiff_t bytes = _end - turn.next;
    std::memset(_tail, 0, sizeof _tail);
    if (bytes > 0)
        std::memcpy(_tail, turn.next, static_cast<std::size_t>(bytes));
    turn.next = _tail;
    _end = _tail + bytes;
    _last = _tail + tailBytes - 8;
    _isTail = true;
}

void Reading::refill()
{
    if (turn.next > _last)
        goToTail();
    turn.refill();
}

std::uint32_t Reading::number(Code code)
{
    const Number found = numberAt(turn.bits, code);
    turn.take(found.length);
    _isDamaged |= found.length == 0;
    return found.value;
}

// One level, whatever its length.
void Reading::readOne()
{
    unsigned context = (turn.context >> LevelTable::bits) - levelPending;
    if (turn.context >> LevelTable::bits < levelPending) {
        context += levelPending;
        const std::uint32_t run = number(runClasses.code[context / classesEach]);
        if (_isDamaged)
            return;
        if (run + 1 >= static_cast<std::uint32_t>(_limit - turn.at)) {
            turn.at = _limit;
            return;
        }
        turn.at += run + 1;
        context = contextOf(run, 0) / classesEach * classesEach + context % classesEach;
        refill();
    }
    const std::uint32_t magnitude = number(levelClasses.code[context % classesEach]) + 1;
    const bool isNegative = turn.bits >> 63 != 0;
    turn.take(1);
    *turn.at = static_cast<std::int16_t>(static_cast<std::uint16_t>(isNegative ? 0 - magnitude : magnitude));
    turn.context = (context / classesEach * classesEach + contextOf(0, magnitude) % classesEach) << LevelTable::bits;
}

// Up to 31 zeros at the end are padding, and a code that needs more of them does not end in time to be one.
bool Reading::resume(bool isMissing)
{
    if (isMissing && !isFull(turn)) {
        refill();
        if (turn.bits == 0 && left() < 32)
            isDone = true;
        else
            readOne();
    }
    if (turn.next > _last)
        goToTail();
    isDone |= isFull(turn) || _isDamaged;
    return !isDone;
}

void Reading::endDc()
{
    _isDamaged |= left() < 0;
    resume(false);
}

void Reading::end(const PlaneToRead &plane, int positions)
{
    const int all = 64 * plane.blocks;
    const auto position = static_cast<int>(turn.at - plane.to->at);
    if (isFull(turn))
        _isDamaged |= positions == 64;
    else
        _isDamaged |= left() < 0 || turn.context >> LevelTable::bits >= levelPending;
    plane.to->blocks = plane.blocks;
    plane.to->positions = std::min(position / plane.blocks + 1, 64);
    if (position >= all) // levels that were read beyond the last
        std::fill_n(plane.to->at + all, ReadLevels::slack, std::int16_t {0});
}

} // namespace prores
