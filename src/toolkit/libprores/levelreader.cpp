#include "libprores/levelreader.h"

#include "libprores/bitreader.h"
#include "libprores/codewords.h"

#include <algorithm>
#include <array>
#include <bit>

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
constexpr unsigned levelPending = classes * classes; ///< added to a context when its run was read

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

// A run, a level and its sign, by contexts and bits; where all three are too long, the run alone, and the level by one
// more look-up in contexts of its own. Of the entry, from below: 8 bits of length (0: not here), 8 of the positions
// to go on, 8 of the level (0: not yet), 8 of the contexts that follow.
struct LevelTable {
    std::uint32_t at[2 * classes * classes << indexBits];

    LevelTable()
    {
        for (unsigned context = 0; context < 2 * classes * classes; ++context) {
            for (unsigned index = 0; index < 1u << indexBits; ++index) {
                const std::uint64_t bits = std::uint64_t {index} << (64 - indexBits);
                at[context << indexBits | index]
                    = context < levelPending ? entry(context, bits) : levelEntry(context - levelPending, bits, 0, 0);
            }
        }
    }

private:
    static std::uint32_t packed(int length, std::uint32_t onward, std::uint32_t level, unsigned context)
    {
        return static_cast<std::uint32_t>(length) | onward << 8 | (level & 255) << 16 | context << 24;
    }

    // The level at the top of \a bits, behind \a before bits of its run; the context has the run's class.
    static std::uint32_t levelEntry(unsigned context, std::uint64_t bits, int before, std::uint32_t onward)
    {
        const Number level = numberAt(bits, levelClasses6.code[context % classes]);
        const int length = before + level.length + 1;
        if (level.length == 0 || length > indexBits || level.value > 126)
            return 0;
        const std::uint32_t magnitude = level.value + 1;
        const bool isNegative = (bits << level.length) >> 63 != 0;
        return packed(length, onward, isNegative ? 0 - magnitude : magnitude,
                      context / classes * classes + contextOf(0, magnitude) % classes);
    }

    static std::uint32_t entry(unsigned context, std::uint64_t bits)
    {
        const Number run = numberAt(bits, runClasses6.code[context / classes]);
        if (run.length == 0 || run.length > indexBits || run.value > mostRun)
            return 0;
        const unsigned pending = contextOf(run.value, 0) / classes * classes + context % classes;
        const std::uint32_t both = levelEntry(pending, bits << run.length, run.length, run.value + 1);
        return both != 0 ? both : packed(run.length, run.value + 1, 0, levelPending + pending);
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

struct Tables {
    LevelTable levels;
    DcTable dc;
};

const Tables &tables()
{
    static const Tables made;
    return made;
}

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

    /// The next number, from the bits at hand; 0 and damage when there is none.
    std::uint32_t number(Code code)
    {
        const Number found = numberAt(bits, code);
        take(found.length);
        isDamaged = found.length == 0 || count < 0;
        return found.value;
    }
};

constexpr int unfolded(std::uint32_t value)
{
    return static_cast<int>(value >> 1) ^ -static_cast<int>(value & 1);
}

/// The DC levels of a plane, one by one.
struct DcReading {
    int level = 0;
    unsigned context = 3;
    int sign = 0; ///< -1 after a negative difference

    void first(Reading &reading)
    {
        reading.refill();
        level = unfolded(reading.number(firstDcCode));
        reading.to[0] = static_cast<std::int16_t>(level);
    }

    void next(Reading &reading, int block, const DcTable &table)
    {
        reading.refill();
        const unsigned entry = table.at[context << DcTable::bits | reading.bits >> (64 - DcTable::bits)];
        std::uint32_t value = entry >> 8;
        if (entry != 0)
            reading.take(static_cast<int>(entry & 255));
        else
            value = reading.number(dcCodes[context]);
        const auto magnitude = static_cast<int>((value + 1) >> 1);
        sign = magnitude == 0 ? 0 : sign ^ -static_cast<int>(value & 1);
        level += (magnitude ^ sign) - sign;
        reading.to[block] = static_cast<std::int16_t>(level);
        context = static_cast<unsigned>(std::min(magnitude, 3));
    }
};

void readDc(Reading *readings, int count, int blocks, const DcTable &table)
{
    DcReading dc[2];
    bool isDamaged[2] = {};
    for (int i = 0; i < count; ++i) {
        dc[i].first(readings[i]);
        isDamaged[i] = readings[i].isDamaged;
    }
    for (int block = 1; block < blocks; ++block) {
        for (int i = 0; i < count; ++i) {
            dc[i].next(readings[i], block, table);
            isDamaged[i] |= readings[i].isDamaged;
        }
    }
    for (int i = 0; i < count; ++i)
        readings[i].isDamaged = isDamaged[i] || readings[i].count < 0;
}

// One level, whatever its length; false when it is damaged. Stops at the limit.
bool readOne(Reading &reading, int limit)
{
    reading.refill();
    unsigned context = reading.context - levelPending;
    if (reading.context < levelPending) {
        const std::uint32_t run = reading.number(runClasses6.code[reading.context / classes]);
        if (reading.isDamaged)
            return false;
        if (run + 1 >= static_cast<std::uint32_t>(limit - reading.position)) {
            reading.position = limit;
            return true;
        }
        reading.position += static_cast<int>(run) + 1;
        context = contextOf(run, 0) / classes * classes + reading.context % classes;
        if (reading.count <= longestCode)
            reading.refill();
    }
    const std::uint32_t magnitude = reading.number(levelClasses6.code[context % classes]) + 1;
    const bool isNegative = reading.bits >> 63 != 0;
    reading.take(1);
    const auto value = static_cast<std::uint16_t>(isNegative ? 0 - magnitude : magnitude);
    reading.to[reading.position] = static_cast<std::int16_t>(value);
    reading.context = context / classes * classes + contextOf(0, magnitude) % classes;
    reading.isDamaged |= reading.count < 0;
    return !reading.isDamaged;
}

// The level that an entry of the table stands for.
inline void takeEntry(Reading &reading, std::uint32_t entry)
{
    reading.take(static_cast<int>(entry & 255));
    reading.position += static_cast<int>(entry >> 8 & 255);
    reading.to[reading.position] = static_cast<std::int8_t>(entry >> 16);
    reading.context = entry >> 24;
}

inline std::uint32_t entryAt(const Reading &reading, const LevelTable &table)
{
    return table.at[reading.context << indexBits | reading.bits >> (64 - indexBits)];
}

// As many levels as one refill is sure to hold; false when the next one is not in the table.
inline bool readSome(Reading &reading, const LevelTable &table)
{
    reading.refillFar();
    for (int i = 0; i < inOneGo; ++i) {
        const std::uint32_t entry = entryAt(reading, table);
        if (entry == 0)
            return false;
        takeEntry(reading, entry);
    }
    return true;
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

// To where the end is near, or to the limit.
void readFar(Reading &reading, int limit, const LevelTable &table)
{
    Reading own = reading;
    while (own.position < limit && own.isFar()) {
        if (!readSome(own, table) && own.position < limit && !readOne(own, limit))
            break;
    }
    reading = own;
}

// The last bytes, from a copy with zeros behind it: up to 31 zeros are padding, and a code that needs more of them
// does not end in time to be one.
void readTail(Reading &reading, int limit, const LevelTable &table)
{
    std::uint8_t bytes[48] = {};
    const std::uint8_t *end = std::copy(reading.next, reading.end, bytes);
    Reading own = reading;
    own.next = bytes;
    own.end = bytes + sizeof bytes;
    const auto left = [&own, end] { return (end - own.next) * 8 + own.count; };
    while (own.position < limit) {
        own.refillFar();
        if (own.bits == 0 && left() < 32)
            break;
        const std::uint32_t entry = entryAt(own, table);
        if (entry != 0)
            takeEntry(own, entry);
        else if (!readOne(own, limit))
            break;
    }
    reading.position = own.position;
    reading.isDamaged = own.isDamaged || left() < 0 || (own.context >= levelPending && own.position < limit);
}

} // namespace

void ReadLevels::clear()
{
    std::fill_n(at, positions * blocks, std::int16_t {0});
    positions = 0;
}

void prepareLevelReading()
{
    static_cast<void>(tables());
}

unsigned readLevels(const PlaneBits *planes, int count, int blocks, int positions, ReadLevels *const *to)
{
    const auto &[table, dcTable] = tables();
    const int all = 64 * blocks;
    const int limit = positions > 1 ? positions * blocks : 0;
    Reading readings[2] = {Reading(planes[0], *to[0], blocks), Reading(planes[count - 1], *to[count - 1], blocks)};
    readDc(readings, count, blocks, dcTable);
    if (count == 2 && !readings[0].isDamaged && !readings[1].isDamaged)
        readBoth(readings[0], readings[1], limit, table);
    unsigned damaged = 0;
    for (int i = 0; i < count; ++i) {
        Reading &reading = readings[i];
        if (!reading.isDamaged)
            readFar(reading, limit, table);
        if (!reading.isDamaged && !reading.isFar())
            readTail(reading, limit, table);
        if (reading.isDamaged || (limit == all && reading.position >= all))
            damaged |= 1u << i;
        to[i]->blocks = blocks;
        to[i]->positions = std::min(reading.position / blocks + 1, 64);
        if (reading.position >= all) // levels that were read beyond the last
            std::fill_n(to[i]->at + all, ReadLevels::slack, std::int16_t {0});
    }
    return damaged;
}

} // namespace prores
