#include "libvanta/mediaslot.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <string_view>

namespace {

constexpr const char *stateNames[] = {"empty", "loading", "ready", "failed", "ejected"};

constexpr eParam_t parameters[] = {
    eParamMediaSlot1,  eParamMediaSlot2,  eParamMediaSlot3,  eParamMediaSlot4,
    eParamMediaSlot5,  eParamMediaSlot6,  eParamMediaSlot7,  eParamMediaSlot8,
    eParamMediaSlot9,  eParamMediaSlot10, eParamMediaSlot11, eParamMediaSlot12,
    eParamMediaSlot13, eParamMediaSlot14, eParamMediaSlot15, eParamMediaSlot16,
};
static_assert(std::size(parameters) == mediaSlotCount);

bool readNumber(std::string_view word, std::uint64_t &number)
{
    const auto [stop, problem] = std::from_chars(word.data(), word.data() + word.size(), number);
    return problem == std::errc() && stop == word.data() + word.size();
}

} // namespace

eParam_t mediaSlotParameter(int slot)
{
    return parameters[slot];
}

const char *nameOf(SlotState state)
{
    return stateNames[static_cast<int>(state)];
}

std::string textOf(const MediaSlot &slot)
{
    return std::string(nameOf(slot.state)) + (slot.isReadOnly ? " ro " : " rw ") +
        std::to_string(slot.freeBytes) + ' ' + std::to_string(slot.totalBytes) + ' ' + slot.path;
}

std::optional<MediaSlot> mediaSlotOf(const std::string &text)
{
    std::array<std::string_view, 4> words;
    std::string_view rest = text;
    for (std::string_view &word : words) {
        const std::size_t blank = rest.find(' ');
        if (blank == std::string_view::npos)
            return std::nullopt;
        word = rest.substr(0, blank);
        rest.remove_prefix(blank + 1);
    }
    const auto state = std::ranges::find(stateNames, words[0]);
    MediaSlot slot;
    if (state == std::end(stateNames) || (words[1] != "rw" && words[1] != "ro") ||
        !readNumber(words[2], slot.freeBytes) || !readNumber(words[3], slot.totalBytes) || rest.empty())
        return std::nullopt;
    slot.state = static_cast<SlotState>(state - std::begin(stateNames));
    slot.isReadOnly = words[1] == "ro";
    slot.path = rest;
    return slot;
}
