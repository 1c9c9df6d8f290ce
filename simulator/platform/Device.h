// The TV as the application's process sees it: what all platform services share.
#pragma once

#include <fmt/format.h>

#include <exception>
#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <utility>

#include "simulator/cloud/CloudStore.h"
#include "simulator/platform/EventLoop.h"
#include "simulator/tv/Faults.h"
#include "simulator/tv/RunRecord.h"
#include "simulator/tv/Tv.h"

namespace sim {

class Device {
public:
    // The process's device, opened at the first use, which may be before main(). Where there is no TV, that use ends
    // the process with a message and EXIT_NO_TV.
    static Device& current();

    // Closes it: the next use opens anew, and begins a new run.
    static void close();

    static constexpr int EXIT_NO_TV = 3;

    Tv tv;
    CloudStore cloud;
    RunRecorder record;
    FaultInjector faults;
    EventLoop loop;
    std::string chosenBackup;            // id of the backup that a restore shall get; empty: the newest
    std::multiset<std::string> awaited;  // what the application is still bound to: open sessions, subscriptions

    void noLongerAwaited(const std::string& what);

private:
    explicit Device(const std::filesystem::path& home);
};

// The failure that a call shall have now, if any. Throws when it is an exception, which is in the record then.
std::optional<FaultInjector::Hit> nextFailure(Device& device, const std::string& name, const std::string& arguments);

// How results stand in the journal.
inline std::string toJournal(int result) {
    return std::to_string(result);
}
inline std::string toJournal(bool result) {
    return result ? "true" : "false";
}
inline std::string toJournal(const char* result) {
    return result != nullptr ? fmt::format("\"{}\"", result) : "null";
}
inline std::string toJournal(const void* result) {
    return result != nullptr ? "object" : "null";
}

// What a call gives out beside its result, as it stands in the journal.
struct Given {
    std::string text;
};

// The body of a platform call, which may say what it gives out.
template <typename Body>
auto perform(Body& body, Given& given) {
    if constexpr (std::is_invocable_v<Body, Given&>) {
        return body(given);
    } else {
        return body();
    }
}

// A platform call: does what `body` does, unless a fault rule says otherwise, and journals it. Where the TV's own files
// are unusable, so that `body` throws, the call fails with -1, false or null. `damage` damages what the call has made,
// in the way it is told.
template <typename Body>
auto platformCall(const std::string& name, const std::string& arguments, Body body,
                  const std::function<void(const std::string& how)>& damage = {}) {
    Given given;
    using Result = decltype(perform(body, given));
    Device& device = Device::current();
    const std::optional<FaultInjector::Hit> hit = nextFailure(device, name, arguments);
    const auto fails = [&](Failure::Kind kind) { return hit && hit->failure.kind == kind; };
    Result result{};
    if (!fails(Failure::Kind::Result) && !fails(Failure::Kind::Null)) {
        try {
            result = perform(body, given);
            if (fails(Failure::Kind::Damage)) {
                damage(hit->failure.text);
            }
        } catch (const std::exception& error) {
            if constexpr (std::is_same_v<Result, int>) {
                result = -1;
            }
            given.text = error.what();
        }
    }
    if constexpr (!std::is_pointer_v<Result>) {
        if (fails(Failure::Kind::Result) || fails(Failure::Kind::Answer)) {
            result = static_cast<Result>(hit->failure.number);
        }
    }
    device.record.call(name, arguments, toJournal(result) + (given.text.empty() ? "" : ", " + given.text),
                       hit ? std::optional(hit->rule) : std::nullopt);
    return result;
}

// The same for a call that has no result and cannot fail.
void platformNotice(const std::string& name, const std::string& arguments);

}  // namespace sim
