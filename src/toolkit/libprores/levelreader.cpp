#include "libprores/levelreader.h"

#include "libprores/planereading.h"

#include <algorithm>

// Each level waits for the look-up of the one before. So some planes are read in turns, and while one waits the others
// go on; when one ends the next takes its turns. Where the bits are not in the table, codes are taken apart one by one.

namespace prores {

namespace {

constexpr int inOneGo = 4;   ///< look-ups that the bits at hand are enough for
constexpr int dcInOneGo = 4;
static_assert(inOneGo * LevelTable::bits <= 56 && (dcInOneGo + 1) * DcTable::bits <= 56);
static_assert(inOneGo * (LevelTable::mostRun + 1) <= ReadLevels::slack);

constexpr int unfolded(std::uint32_t value)
{
    return static_cast<int>(value >> 1) ^ -static_cast<int>(value & 1);
}

// The DC levels of a plane, one after the other. Its members live in registers, too.
struct DcReading {
    Turn turn;
    std::int16_t *to = nullptr;
    int level = 0;
    unsigned context = 3;
    int sign = 0; // -1 after a negative difference

    explicit DcReading(const Reading &reading, std::int16_t *at) : turn(reading.turn), to(at) { }

    void refill(Reading &reading)
    {
        if (turn.next > reading.last()) [[unlikely]] {
            reading.turn = turn;
            reading.refill();
            turn = reading.turn;
        } else {
            turn.refill();
        }
    }

    std::uint32_t number(Reading &reading, Code code)
    {
        reading.turn = turn;
        reading.refill();
        const std::uint32_t value = reading.number(code);
        reading.refill();
        turn = reading.turn;
        return value;
    }

    void first(Reading &reading)
    {
        level = unfolded(number(reading, firstDcCode));
        *to++ = static_cast<std::int16_t>(level);
    }

    void next(Reading &reading, const DcTable &table)
    {
        const unsigned entry = table.at[context << DcTable::bits | turn.bits >> (64 - DcTable::bits)];
        std::uint32_t value = entry >> 6;
        if (entry != 0) [[likely]] {
            turn.take(static_cast<int>(entry & 15));
            context = entry >> 4 & 3;
        } else {
            value = number(reading, dcCodes[context]);
            context = dcContextOf((value + 1) >> 1);
        }
        const auto magnitude = static_cast<int>((value + 1) >> 1);
        sign = magnitude == 0 ? 0 : sign ^ -static_cast<int>(value & 1);
        level += (magnitude ^ sign) - sign;
        *to++ = static_cast<std::int16_t>(level);
    }

    void end(Reading &reading)
    {
        reading.turn = turn;
        reading.turn.context = firstContext << LevelTable::bits;
        reading.endDc();
    }
};

// Of one plane, or of two of as many blocks in turns.
template <bool IsPair>
void readDc(Reading *readings, const PlaneToRead *planes, const DcTable &table)
{
    DcReading a(readings[0], planes[0].to->at);
    DcReading b(readings[IsPair], planes[IsPair].to->at);
    a.first(readings[0]);
    if constexpr (IsPair)
        b.first(readings[1]);
    for (int left = planes->blocks - 1; left > 0; left -= dcInOneGo) {
        a.refill(readings[0]);
        if constexpr (IsPair)
            b.refill(readings[1]);
        for (int i = 0; i < std::min(left, dcInOneGo); ++i) {
            a.next(readings[0], table);
            if constexpr (IsPair)
                b.next(readings[1], table);
        }
    }
    a.end(readings[0]);
    if constexpr (IsPair)
        b.end(readings[1]);
}

// The planes that are not done, one after the other.
struct Queue {
    Reading *next = nullptr;
    Reading *end = nullptr;

    Reading *take()
    {
        while (next != end && next->isDone)
            ++next;
        return next != end ? next++ : nullptr;
    }
};

// Levels of one plane after the other, look-up by look-up. Its members live in registers, too.
struct LevelReading {
    Reading *reading = nullptr;
    Turn turn;
    unsigned taken = 0;      // bits since the last refill, in the lowest 8
    std::uint32_t entry = 0; // of the table

    explicit LevelReading(Reading *first) : reading(first), turn(first->turn) { }

    void refill()
    {
        turn.refill();
        taken = 0;
    }

    bool look(const LevelTable &table)
    {
        entry = table.at[turn.context | turn.bits >> (64 - LevelTable::bits)];
        return entry != 0;
    }

    void take()
    {
        turn.bits <<= entry & 63;
        taken += entry;
        turn.at += entry >> 16 & 255;
        *turn.at = static_cast<std::int8_t>(entry >> 24);
        turn.context = (entry >> 8 & 255) << LevelTable::bits;
    }

    // Goes on to the next plane when this one is done; false when there is none.
    bool settle(Queue &queue)
    {
        turn.count -= static_cast<int>(taken & 255);
        if (entry != 0 && !reading->isFull(turn) && turn.next <= reading->last()) [[likely]]
            return true;
        reading->turn = turn;
        bool isGoing = reading->resume(entry == 0);
        if (Reading *next = isGoing ? nullptr : queue.take()) {
            reading = next;
            isGoing = true;
        }
        turn = reading->turn;
        return isGoing;
    }
};

// One to three planes, which take their turns level by level, until one of them is done and none is left to follow
// it.
template <int Count>
void readTogether(Reading *const *readings, Queue &queue, const LevelTable &table)
{
    LevelReading a(readings[0]);
    LevelReading b(readings[Count > 1 ? 1 : 0]);
    LevelReading c(readings[Count > 2 ? 2 : 0]);
    for (bool isGoing = true; isGoing;) {
        a.refill();
        if constexpr (Count > 1)
            b.refill();
        if constexpr (Count > 2)
            c.refill();
        for (int i = 0; i < inOneGo; ++i) {
            bool isThere = a.look(table);
            if constexpr (Count > 1)
                isThere = b.look(table) && isThere;
            if constexpr (Count > 2)
                isThere = c.look(table) && isThere;
            if (!isThere) [[unlikely]]
                break;
            a.take();
            if constexpr (Count > 1)
                b.take();
            if constexpr (Count > 2)
                c.take();
        }
        isGoing = a.settle(queue);
        if constexpr (Count > 1)
            isGoing = b.settle(queue) && isGoing;
        if constexpr (Count > 2)
            isGoing = c.settle(queue) && isGoing;
    }
    a.reading->turn = a.turn;
    if constexpr (Count > 1)
        b.reading->turn = b.turn;
    if constexpr (Count > 2)
        c.reading->turn = c.turn;
}

void readInTurns(Reading *readings, int count, const LevelTable &table)
{
    Queue queue {readings, readings + count};
    Reading *turns[3] = {queue.take(), queue.take(), queue.take()};
    if (turns[2] != nullptr)
        readTogether<3>(turns, queue, table);
    queue = {readings, readings + count};
    turns[0] = queue.take();
    turns[1] = queue.take();
    if (turns[1] != nullptr)
        readTogether<2>(turns, queue, table);
    queue = {readings, readings + count};
    turns[0] = queue.take();
    if (turns[0] != nullptr)
        readTogether<1>(turns, queue, table);
}

} // namespace

void ReadLevels::clear()
{
    std::fill_n(at, positions * blocks, std::int16_t {0});
    positions = 0;
}

void prepareLevelReading()
{
    static_cast<void>(levelTables());
}

unsigned readLevels(const PlaneToRead *planes, int count, int positions)
{
    const auto &[table, dcTable] = levelTables();
    Reading readings[mostPlanesAtOnce];
    for (int i = 0; i < count; ++i)
        readings[i].begin(planes[i], positions);
    for (int i = 0; i < count;) {
        const bool isPair = i + 1 < count && planes[i + 1].blocks == planes[i].blocks;
        if (isPair)
            readDc<true>(readings + i, planes + i, dcTable);
        else
            readDc<false>(readings + i, planes + i, dcTable);
        i += isPair ? 2 : 1;
    }
    readInTurns(readings, count, table);
    unsigned damaged = 0;
    for (int i = 0; i < count; ++i) {
        readings[i].end(planes[i], positions);
        damaged |= (readings[i].isDamaged() ? 1u : 0u) << i;
    }
    return damaged;
}

} // namespace prores
