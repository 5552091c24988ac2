#include "libprores/levelreader.h"

#include "libprores/bitreader.h"
#include "libprores/codewords.h"

#include <algorithm>

// Most levels take few bits with the run before them. A look-up by the contexts and the next bits tells both at
// once, how long they are, and the contexts of what follows; that chain of look-ups is all that one level waits for
// of the one before. Two planes are read in turns, so that while one waits the other goes on. Where the bits are not
// in the table, or the end is near, codes are taken apart one by one.

namespace prores {

namespace {

constexpr int indexBits = 10;  ///< of the look-up
constexpr int inOneGo = 4;     ///< look-ups that the bits at hand are enough for, and 32 are left before the last
constexpr int mostRun = 62;    ///< in the table
constexpr int longestCode = 31;
static_assert(inOneGo * indexBits <= 56 && (inOneGo - 1) * indexBits <= 32);
static_assert(inOneGo * (mostRun + 1) <= ReadLevels::slack);

constexpr int classes = 6; ///< of run codes, and of level codes

template <std::size_t Given>
struct Classes {
    std::array<Code, classes> code {};
    std::array<std::uint8_t, Given> of {};
};

template <std::size_t Given>
constexpr Classes<Given> classesOf(const std::array<Code, Given> &codes)
{
    Classes<Given> result;
    std::size_t count = 0;
    for (std::size_t i = 0; i < Given; ++i) {
        std::size_t at = 0;
        while (at < count && !(result.code[at] == codes[i]))
            ++at;
        if (at == count)
            result.code[count++] = codes[i];
        result.of[i] = static_cast<std::uint8_t>(at);
    }
    return result;
}

constexpr auto runClasses6 = classesOf(runCodes);
constexpr auto levelClasses6 = classesOf(levelCodes);

constexpr unsigned contextOf(std::uint32_t run, std::uint32_t magnitude)
{
    return runClasses6.of[std::min<std::uint32_t>(run, 15)] * unsigned {classes}
        + levelClasses6.of[std::min<std::uint32_t>(magnitude, 9)];
}

constexpr unsigned firstContext = contextOf(4, 2);

struct Number {
    std::uint32_t value = 0;
    int length = 0; ///< 0: not a code
};

// The code at the top of \a bits.
constexpr Number numberAt(std::uint64_t bits, Code code)
{
    const int zeros = std::countl_zero(bits);
    if (zeros > code.unary) {
        const int length = 2 * zeros + code.golomb - code.unary;
        if (length > longestCode)
            return {};
        return {static_cast<std::uint32_t>(bits >> (64 - length)) - (1u << code.golomb) + code.threshold(), length};
    }
    const int length = zeros + 1 + code.rice;
    const auto all = static_cast<std::uint32_t>(bits >> (64 - length));
    return {(static_cast<std::uint32_t>(zeros) << code.rice) + (all & ((1u << code.rice) - 1)), length};
}

// A run, a level and its sign, by contexts and bits. Of the entry, from below: 8 bits of length (0: not here), 8 of
// the run + 1, 8 of the level, 8 of the contexts that follow.
struct LevelTable {
    std::uint32_t at[classes * classes << indexBits];

    LevelTable()
    {
        for (unsigned context = 0; context < classes * classes; ++context) {
            for (unsigned index = 0; index < 1u << indexBits; ++index)
                at[context << indexBits | index] = entry(context, index);
        }
    }

private:
    static std::uint32_t entry(unsigned context, unsigned index)
    {
        const std::uint64_t bits = std::uint64_t {index} << (64 - indexBits);
        const Number run = numberAt(bits, runClasses6.code[context / classes]);
        if (run.length == 0 || run.length >= indexBits || run.value > mostRun)
            return 0;
        const Number level = numberAt(bits << run.length, levelClasses6.code[context % classes]);
        const int length = run.length + level.length + 1;
        if (level.length == 0 || length > indexBits || level.value > 126)
            return 0;
        const std::uint32_t magnitude = level.value + 1;
        const bool isNegative = (index >> (indexBits - length) & 1) != 0;
        return static_cast<std::uint32_t>(length) | (run.value + 1) << 8
            | ((isNegative ? 256 - magnitude : magnitude) & 255) << 16 | contextOf(run.value, magnitude) << 24;
    }
};

// A difference of DC levels, by context and bits: 8 bits of length (0: not here), 8 of the folded value.
struct DcTable {
    static constexpr int bits = 8;
    std::uint16_t at[4 << bits];

    DcTable()
    {
        for (unsigned context = 0; context < 4; ++context) {
            for (unsigned index = 0; index < 1u << bits; ++index) {
                const Number number = numberAt(std::uint64_t {index} << (64 - bits), dcCodes[context]);
                const bool isHere = number.length > 0 && number.length <= bits;
                at[context << bits | index]
                    = static_cast<std::uint16_t>(isHere ? number.length | static_cast<int>(number.value) << 8 : 0);
            }
        }
    }
};

// A plane being read.
struct Reading : BitReader {
    unsigned context = firstContext;
    int position = 0; ///< of the level read last
    std::int16_t *to = nullptr;
    bool isDamaged = false;

    Reading(const PlaneBits &plane, ReadLevels &levels, int blocks)
        : BitReader {plane.begin, plane.begin + plane.bytes}, position(blocks - 1), to(levels.at)
    {
    }

    bool number(Code code, std::uint32_t &value)
    {
        refill();
        const Number found = numberAt(bits, code);
        value = found.value;
        take(found.length);
        return found.length != 0 && count >= 0;
    }
};

constexpr int unfolded(std::uint32_t value)
{
    return static_cast<int>(value >> 1) ^ -static_cast<int>(value & 1);
}

bool readDc(Reading &reading, int blocks, const DcTable &table)
{
    std::uint32_t value = 0;
    if (!reading.number(firstDcCode, value))
        return false;
    int level = unfolded(value);
    reading.to[0] = static_cast<std::int16_t>(level);
    unsigned context = 3;
    int sign = 0; // -1 after a negative difference
    for (int i = 1; i < blocks; ++i) {
        reading.refill();
        const unsigned entry = table.at[context << DcTable::bits | reading.bits >> (64 - DcTable::bits)];
        if (entry != 0) {
            value = entry >> 8;
            reading.take(static_cast<int>(entry & 255));
        } else if (!reading.number(dcCodes[context], value)) {
            return false;
        }
        const auto magnitude = static_cast<int>((value + 1) >> 1);
        sign = magnitude == 0 ? 0 : sign ^ -static_cast<int>(value & 1);
        level += (magnitude ^ sign) - sign;
        reading.to[i] = static_cast<std::int16_t>(level);
        context = static_cast<unsigned>(std::min(magnitude, 3));
    }
    return reading.count >= 0;
}

// One level, whatever its length; false when it is damaged. Stops at the limit.
bool readOne(Reading &reading, int limit)
{
    std::uint32_t run = 0;
    std::uint32_t level = 0;
    reading.isDamaged = !reading.number(runClasses6.code[reading.context / classes], run);
    if (reading.isDamaged)
        return false;
    if (run + 1 >= static_cast<std::uint32_t>(limit - reading.position)) {
        reading.position = limit;
        return true;
    }
    reading.position += static_cast<int>(run) + 1;
    reading.isDamaged = !reading.number(levelClasses6.code[reading.context % classes], level);
    if (reading.isDamaged)
        return false;
    reading.refill();
    const std::uint32_t magnitude = level + 1;
    const bool isNegative = reading.bits >> 63 != 0;
    reading.take(1);
    const auto value = static_cast<std::uint16_t>(isNegative ? 0 - magnitude : magnitude);
    reading.to[reading.position] = static_cast<std::int16_t>(value);
    reading.context = contextOf(run, magnitude);
    reading.isDamaged = reading.count < 0;
    return !reading.isDamaged;
}

// As many levels as one refill is sure to hold; false when the next one is not in the table.
inline bool readSome(Reading &reading, const LevelTable &table)
{
    reading.refillFar();
    for (int i = 0; i < inOneGo; ++i) {
        const std::uint32_t entry = table.at[reading.context << indexBits | reading.bits >> (64 - indexBits)];
        if (entry == 0)
            return false;
        reading.take(static_cast<int>(entry & 255));
        reading.position += static_cast<int>(entry >> 8 & 255);
        reading.to[reading.position] = static_cast<std::int8_t>(entry >> 16);
        reading.context = entry >> 24;
    }
    return true;
}

// To the end of the plane, or to the limit.
void readRest(Reading &reading, int limit, const LevelTable &table)
{
    while (reading.position < limit && reading.isFar()) {
        if (!readSome(reading, table) && reading.position < limit && !readOne(reading, limit))
            return;
    }
    while (reading.position < limit) {
        reading.refill();
        if (reading.isOver() || !readOne(reading, limit))
            return;
    }
}

// As long as both are far from their ends.
void readBoth(Reading &first, Reading &second, int limit, const LevelTable &table)
{
    Reading a = first;
    Reading b = second;
    while (a.position < limit && b.position < limit && a.isFar() && b.isFar()) {
        const bool isFirst = readSome(a, table);
        const bool isSecond = readSome(b, table);
        if (!isFirst && a.position < limit && !readOne(a, limit))
            break;
        if (!isSecond && b.position < limit && !readOne(b, limit))
            break;
    }
    first = a;
    second = b;
}

} // namespace

void ReadLevels::clear()
{
    std::fill_n(at, std::min(positions * blocks + slack, 64 * mostBlocks + slack), std::int16_t {0});
    positions = 0;
}

unsigned readLevels(const PlaneBits *planes, int count, int blocks, int positions, ReadLevels *const *to)
{
    static const LevelTable table;
    static const DcTable dcTable;
    const int all = 64 * blocks;
    const int limit = positions > 1 ? positions * blocks : 0;
    Reading readings[2] = {Reading(planes[0], *to[0], blocks), Reading(planes[count - 1], *to[count - 1], blocks)};
    for (int i = 0; i < count; ++i) {
        to[i]->blocks = blocks;
        readings[i].isDamaged = !readDc(readings[i], blocks, dcTable);
    }
    if (count == 2 && !readings[0].isDamaged && !readings[1].isDamaged)
        readBoth(readings[0], readings[1], limit, table);
    unsigned damaged = 0;
    for (int i = 0; i < count; ++i) {
        if (!readings[i].isDamaged)
            readRest(readings[i], limit, table);
        if (readings[i].isDamaged || (limit == all && readings[i].position >= all))
            damaged |= 1u << i;
        to[i]->positions = std::min(readings[i].position / blocks + 1, 64);
    }
    return damaged;
}

} // namespace prores
