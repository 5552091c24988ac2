#pragma once

#include <cstdint>
#include <string>
#include <variant>

/// A parameter's value: a number for unsigned and enumerated parameters, bytes for all others.
using ParamValue = std::variant<std::uint32_t, std::string>;

/// Strings and data longer than this are refused, so that any value fits one datagram.
inline constexpr std::size_t maxValueBytes = 900;
