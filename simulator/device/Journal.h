// Journals the platform calls with their arguments and results, and makes them fail as the fault rules say.
#pragma once

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <chrono>
#include <exception>
#include <functional>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <vector>

#include "simulator/device/Device.h"

namespace sim {

// Values as the journal shows them.
template <typename Number, std::enable_if_t<std::is_arithmetic_v<Number> || std::is_enum_v<Number>, int> = 0>
std::string toJournal(Number value) {
    if constexpr (std::is_enum_v<Number>) {
        return fmt::format("{}", codeOf(value));
    } else {
        return fmt::format("{}", value);
    }
}
inline std::string toJournal(const std::string& value) {
    return fmt::format("\"{}\"", value);
}
inline std::string toJournal(const char* value) {
    return value != nullptr ? toJournal(std::string(value)) : "null";
}
inline std::string toJournal(const void* value) {
    return value != nullptr ? "object" : "null";
}
inline std::string toJournal(const std::list<std::string>& values) {
    return values.empty() ? "[]" : fmt::format("[\"{}\"]", fmt::join(values, "\", \""));
}

// The arguments of a call.
template <typename... Values>
std::string toJournal(const std::tuple<Values...>& values) {
    const auto texts =
        std::apply([](const auto&... each) { return std::vector<std::string>{toJournal(each)...}; }, values);
    return fmt::format("{}", fmt::join(texts, ", "));
}

// What a call returns through its parameters, as the journal shows it.
using Given = std::string;

// Counts a call and returns the rule that makes it fail, if any. If it shall throw, journals the call and throws
// std::runtime_error.
std::optional<FaultRule> nextFailure(Device& device, const PlatformCall& call, const std::string& arguments);

// Runs the body of a platform call, which takes the Device and `given`, the Device only, or nothing.
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

// Performs a platform call as `body` does, unless a fault rule makes it fail, and journals it. If `body` throws,
// because a file of the TV cannot be used, the call returns -1, false or null. `damage` damages the file that the call
// has made.
template <typename Arguments, typename Body>
auto platformCall(const PlatformCall& call, const Arguments& arguments, Body body,
                  const std::function<void(Damage)>& damage = {}) {
    Device& device = Device::current();
    Given given;
    using Result = decltype(perform(body, device, given));
    const std::string written = toJournal(arguments);
    const std::optional<FaultRule> hit = nextFailure(device, call, written);
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
            given = error.what();
        }
    }
    if constexpr (!std::is_pointer_v<Result>) {
        if (fails(hit, Failure::Kind::Result) || fails(hit, Failure::Kind::Answer)) {
            result = static_cast<Result>(hit->failure.number);
        }
    }
    device.record.call(call.name, written, toJournal(result) + (given.empty() ? "" : ", " + given),
                       hit ? std::optional(hit->id) : std::nullopt);
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

// Posts an event that carries `code` to the main loop, due after `delay`, unless a fault rule loses, delays or changes
// it. `deliver` calls back the application and journals that: it knows what the event brings.
void platformEvent(Device& device, const PlatformCall& event, const std::string& about, std::chrono::milliseconds delay,
                   int code, const std::function<void(const Arrival&)>& deliver);

}  // namespace sim
