#pragma once

#include "catalogue/parameters.h"

#include <cstdint>
#include <optional>
#include <string>

/// What is in a slot for a medium.
enum class SlotState {
    Empty,   ///< nothing is mounted there
    Loading, ///< a medium has come and is being listed for the first time
    Ready,
    Failed,  ///< a medium is there and cannot be read
    Ejected, ///< its medium was given up and is not used again before it is mounted anew
};

/// One slot as the media service tells of it.
struct MediaSlot {
    SlotState state = SlotState::Empty;
    bool isReadOnly = false;
    std::uint64_t freeBytes = 0; ///< the superuser's share included
    std::uint64_t totalBytes = 0;
    std::string path; ///< the mount point
    bool operator==(const MediaSlot &) const = default;
};

/// The slots told of in eParamMediaSlot1 and those that follow it.
inline constexpr int mediaSlotCount = 16;
/// The parameter of a slot, from 0.
eParam_t mediaSlotParameter(int slot);

/// "ready", "empty" ...
const char *nameOf(SlotState state);
/// A slot as its parameter's value: state, rw or ro, bytes free, bytes in all and the path, a blank between.
std::string textOf(const MediaSlot &slot);
/// What textOf() wrote; nothing for any other text.
std::optional<MediaSlot> mediaSlotOf(const std::string &text);
