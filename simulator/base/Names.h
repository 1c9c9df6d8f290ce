// Enums with printable names, listed once per enum in a specialisation of NAMES. A value that is not listed, such as a
// code from outside, is called "unknown".
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <type_traits>

namespace sim {

template <typename Enum>
struct Name {
    Enum value;
    std::string_view name;
};

constexpr std::string_view UNKNOWN = "unknown";

// For each enum, a std::array<Name<Enum>, N>.
template <typename Enum>
constexpr std::nullptr_t NAMES = nullptr;

template <typename Enum>
constexpr std::underlying_type_t<Enum> codeOf(Enum value) {
    return static_cast<std::underlying_type_t<Enum>>(value);
}

template <typename Enum>
std::string_view nameOf(Enum value) {
    for (const Name<Enum>& each : NAMES<Enum>) {
        if (each.value == value) {
            return each.name;
        }
    }
    return UNKNOWN;
}

template <typename Enum>
bool isKnown(Enum value) {
    return nameOf(value) != UNKNOWN;
}

template <typename Enum>
std::optional<Enum> fromName(std::string_view name) {
    for (const Name<Enum>& each : NAMES<Enum>) {
        if (each.name == name) {
            return each.value;
        }
    }
    return std::nullopt;
}

}  // namespace sim
