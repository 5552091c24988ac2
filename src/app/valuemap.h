#pragma once

#include "liborb/orbid.h"

#include <optional>
#include <span>

/// One row of a switch from a parameter value to a toolkit identifier.
struct ValueToId {
    int value;
    OrbId id;
};

/// The identifier of the row with \a value; nothing when there is no such row.
inline std::optional<OrbId> idForValue(std::span<const ValueToId> rows, int value)
{
    for (const ValueToId &row : rows) {
        if (row.value == value)
            return row.id;
    }
    return std::nullopt;
}

/// Whether no two rows have the same value, for a switch to check itself.
constexpr bool valuesAreDistinct(std::span<const ValueToId> rows)
{
    for (const ValueToId &a : rows) {
        for (const ValueToId &b : rows) {
            if (&a != &b && a.value == b.value)
                return false;
        }
    }
    return true;
}
