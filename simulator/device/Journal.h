// What all platform calls have in common: they are journalled with their arguments and results, and fail as the fault
// rules say.
#pragma once

#include <fmt/format.h>

#include <chrono>
#include <exception>
#include <functional>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>

#include "simulator/device/Device.h"

namespace sim {

// Values as the journal shows them.
template <typename Number, std::enable_if_t<std::is_arithmetic_v<Number> || std::is_enum_v<Number>, int> = 0>
std::string toJournal(Number value) {
    if constexpr (std::is_same_v<Number, bool>) {
        return value ? "true" : "false";
    } else if constexpr (std::is_enum_v<Number>) {
        return std::to_string(static_cast<std::underlying_type_t<Number>>(value));
    } else {
        return fmt::format("{}", value);
    }
}
inline std::string toJournal(std::string_view value) {
    return fmt::format("\"{}\"", value);
}
inline std::string toJournal(const std::string& value) {
    return toJournal(std::string_view(value));
}
inline std::string toJournal(const char* value) {
    return value != nullptr ? toJournal(std::string_view(value)) : "null";
}
inline std::string toJournal(const void* value) {
    return value != nullptr ? "object" : "null";
}

inline std::string toJournal(const std::list<std::string>& values) {
    std::string text;
    for (const std::string& value : values) {
        text += (text.empty() ? "" : ", ") + toJournal(value);
    }
    return "[" + text + "]";
}

// The arguments of a call.
template <typename... Values>
std::string toJournal(const std::tuple<Values...>& values) {
    std::string text;
    const auto append = [&](const std::string& value) { text += (text.empty() ? "" : ", ") + value; };
    std::apply([&](const auto&... each) { (append(toJournal(each)), ...); }, values);
    return text;
}

// What a call gives out beside its result, as the journal shows it.
struct Given {
    std::string text;
};

// Counts a call, and returns the failure that a rule wants for it. If that is an exception, journals and throws it.
std::optional<FaultInjector::Hit> nextFailure(Device& device, const PlatformCall& call, const std::string& arguments);

// Runs the body of a platform call, which takes a Device and a Given, the Device, or nothing.
template <typename Body>
auto perform(Body& body, Device& device, Given& given) {
    if constexpr (std::is_invocable_v<Body, Device&, Given&>) {
        return body(device, given);
    } else if constexpr (std::is_invocable_v<Body, Device&>) {
        return body(device);
    } else {
        return body();
    }
}

// A platform call: does what `body` does, unless a fault rule says otherwise, and journals it. If `body` throws,
// because the TV's own files are unusable, the call fails with -1, false or null. `damage` damages the file that it has
// made.
template <typename Arguments, typename Body>
auto platformCall(const PlatformCall& call, const Arguments& arguments, Body body,
                  const std::function<void(Damage)>& damage = {}) {
    Device& device = Device::current();
    Given given;
    using Result = decltype(perform(body, device, given));
    const std::string written = toJournal(arguments);
    const std::optional<FaultInjector::Hit> hit = nextFailure(device, call, written);
    Result result{};
    if (!fails(hit, Failure::Kind::Result) && !fails(hit, Failure::Kind::Null)) {
        try {
            result = perform(body, device, given);
            if (fails(hit, Failure::Kind::Damage)) {
                damage(hit->failure.damage);
            }
        } catch (const std::exception& error) {
            if constexpr (std::is_same_v<Result, int>) {
                result = -1;
            }
            given.text = error.what();
        }
    }
    if constexpr (!std::is_pointer_v<Result>) {
        if (fails(hit, Failure::Kind::Result) || fails(hit, Failure::Kind::Answer)) {
            result = static_cast<Result>(hit->failure.number);
        }
    }
    device.record.call(call.name, written, toJournal(result) + (given.text.empty() ? "" : ", " + given.text),
                       hit ? std::optional(hit->rule) : std::nullopt);
    return result;
}

// Journals a call that has no result and cannot fail.
template <typename... Values>
void platformNotice(const PlatformCall& call, const Values&... arguments) {
    Device::current().record.call(call.name, toJournal(std::tuple(arguments...)), "", std::nullopt);
}

// An event as it arrives: as it was sent, or as a fault rule has changed it.
struct Arrival {
    int code = 0;
    bool hasUserData = true;
    bool hasData = true;
    std::optional<Damage> damage;       // for the file that it brings
    std::optional<std::int64_t> fault;  // the rule that changed it
};

// Posts an event that carries `code` to the main loop, due after `delay`; a fault rule may lose, delay or change it.
// `deliver` hands it over and journals it, because it alone knows what the event brings.
void platformEvent(Device& device, const PlatformCall& event, const std::string& about, std::chrono::milliseconds delay,
                   int code, const std::function<void(const Arrival&)>& deliver);

}  // namespace sim
