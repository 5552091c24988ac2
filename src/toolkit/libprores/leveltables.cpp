#include "libprores/leveltables.h"

namespace prores {

namespace {

constexpr std::uint32_t packed(int length, unsigned context, std::uint32_t onward, std::uint32_t level)
{
    return static_cast<std::uint32_t>(length) | context << 8 | onward << 16 | level << 24;
}

// The level at the top of \a bits, behind \a before bits of its run; the context has the run's class.
std::uint32_t levelEntry(unsigned context, std::uint64_t bits, int before, std::uint32_t onward)
{
    const Number level = numberAt(bits, levelClasses.code[context % classesEach]);
    const int length = before + level.length + 1;
    if (level.length == 0 || length > LevelTable::bits || level.value > 126)
        return 0;
    const std::uint32_t magnitude = level.value + 1;
    const bool isNegative = (bits << level.length) >> 63 != 0;
    return packed(length, context / classesEach * classesEach + contextOf(0, magnitude) % classesEach, onward,
                  isNegative ? 0 - magnitude : magnitude);
}

std::uint32_t entry(unsigned context, std::uint64_t bits)
{
    const Number run = numberAt(bits, runClasses.code[context / classesEach]);
    if (run.length == 0 || run.length > LevelTable::bits || run.value > LevelTable::mostRun)
        return 0;
    const unsigned pending = contextOf(run.value, 0) / classesEach * classesEach + context % classesEach;
    const std::uint32_t both = levelEntry(pending, bits << run.length, run.length, run.value + 1);
    return both != 0 ? both : packed(run.length, levelPending + pending, run.value + 1, 0);
}

} // namespace

LevelTable::LevelTable()
{
    for (unsigned context = 0; context < 2 * levelPending; ++context) {
        for (unsigned index = 0; index < 1u << bits; ++index) {
            const std::uint64_t next = std::uint64_t {index} << (64 - bits);
            at[context << bits | index]
                = context < levelPending ? entry(context, next) : levelEntry(context - levelPending, next, 0, 0);
        }
    }
}

DcTable::DcTable()
{
    for (unsigned context = 0; context < 4; ++context) {
        for (unsigned index = 0; index < 1u << bits; ++index) {
            const Number number = numberAt(std::uint64_t {index} << (64 - bits), dcCodes[context]);
            const bool isHere = number.length > 0 && number.length <= bits;
            const unsigned next = dcContextOf((number.value + 1) >> 1);
            at[context << bits | index] = static_cast<std::uint16_t>(
                isHere ? static_cast<unsigned>(number.length) | next << 4 | number.value << 6 : 0);
        }
    }
}

const LevelTables &levelTables()
{
    static const LevelTables made;
    return made;
}

} // namespace prores
