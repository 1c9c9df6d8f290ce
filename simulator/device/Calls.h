// What the TV's services do about the application's platform calls: each is counted, made to fail if a fault rule says
// so, done, recorded and answered.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "simulator/device/Device.h"
#include "simulator/device/Journal.h"
#include "simulator/tv/PlatformCalls.h"
#include "simulator/wire/Calls.h"

namespace sim {

// A call while it is done.
struct CurrentCall {
    Device& device;
    std::string given;  // what it gives out, as the record shall show it; empty: as toJournal() shows that
};

// What a factory that returns a status gives out.
inline const wire::Answer<int, wire::Hidden<wire::Object>> OBJECT{0, wire::Hidden<wire::Object>{{true}}};

namespace detail {

// The application may hand over null, which no service takes.
template <typename Value>
const Value& checked(const Value& value) {
    return value;
}
const std::string& checked(const wire::Text& text);

// Makes what a body returns an answer.
template <typename Answer, typename Result>
Answer toAnswer(Result&& result) {
    if constexpr (std::is_convertible_v<Result, Answer>) {
        return std::forward<Result>(result);
    } else {
        return {std::forward<Result>(result), std::nullopt};
    }
}

// Does a call, and damages what it has made or gives out if the rule says so.
template <typename Answer, typename Arguments, typename Body, typename Harm>
Answer perform(CurrentCall& call, const Arguments& arguments, const std::optional<Hit>& hit, const Body& body,
               const Harm& damage) {
    const auto withTexts = [&](const auto&... each) {
        Answer answer = toAnswer<Answer>(body(call, checked(each)...));
        if constexpr (!std::is_same_v<Harm, std::nullptr_t>) {
            if (fails(hit, Failure::Kind::Damage)) {
                damage(call, answer, hit->failure.damage, checked(each)...);
            }
        }
        return answer;
    };
    Answer answer = std::apply(withTexts, arguments);
    if (call.given.empty() && answer.out) {
        call.given = toJournal(*answer.out);
    }
    return answer;
}

// -1, false or null.
template <typename Answer>
Answer failed() {
    Answer answer{};
    if constexpr (std::is_same_v<decltype(answer.result), int>) {
        answer.result = -1;
    }
    return answer;
}

// Replaces the result if the rule says so.
template <typename Answer>
void overrule(Answer& answer, const std::optional<Hit>& hit) {
    if constexpr (std::is_arithmetic_v<decltype(answer.result)>) {
        if (fails(hit, Failure::Kind::Result) || fails(hit, Failure::Kind::Answer)) {
            answer.result = static_cast<decltype(answer.result)>(hit->failure.number);
        }
    }
}

}  // namespace detail

// A service's calls are added by the function that its source has.
class Calls {
public:
    explicit Calls(Device& device);
    Calls(const Calls&) = delete;
    Calls& operator=(const Calls&) = delete;

    // Adds a call. `body` takes the CurrentCall and the arguments, texts as const std::string&, and returns the answer,
    // or its result. If it throws, because a file of the TV cannot be used, the call returns -1, false or null.
    // `damage` takes the same and how to damage the file that the call has made, or what else it gives out.
    template <wire::CallId id, typename Body, typename Harm = std::nullptr_t>
    void add(Body body, Harm damage = nullptr);

    // Adds what becomes of a call that is more than done and recorded.
    using Handler = std::function<void(std::string_view body, bool isAnswered)>;
    void addRaw(wire::CallId id, Handler handler) { m_handlers.at(static_cast<std::size_t>(id)) = std::move(handler); }

    // Adds what is to be done before a call that was added, even if that is made to fail.
    void addBefore(wire::CallId id, const Handler& first);

    // Does what a message asks for. Throws wire::ProtocolError if it asks for nothing, wire::Closed if the application
    // has ended meanwhile.
    void dispatch(const wire::Message& message);

    // Answers a call.
    void answer(wire::CallId id, std::string_view body);

    // Throws Failed after it has recorded the call, if a fault rule makes it throw.
    std::optional<Hit> nextFailure(const PlatformCall& call, const std::string& arguments);

    Device& device;

private:
    std::array<Handler, static_cast<std::size_t>(wire::CallId::disk) + 1> m_handlers;
};

// A call that throws in the application, because a fault rule says so.
struct Failed {
    std::string what;
};

// Records an event that has no result and cannot fail.
template <typename... Values>
void note(Device& device, const PlatformCall& event, const Values&... arguments) {
    device.record.call(event.name, toJournal(std::tuple(arguments...)), "", std::nullopt);
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
// it. `deliver` calls back the application and records that: it knows what the event brings.
void postEvent(Calls& calls, const PlatformCall& event, const std::string& about, std::chrono::milliseconds delay,
               int code, const std::function<void(const Arrival&)>& deliver);

// The calls of each service.
void addAppCalls(Calls& calls);
void addSettingsCalls(Calls& calls);
void addCloudCalls(Calls& calls);
void addDatabaseCalls(Calls& calls);
void addViewingCalls(Calls& calls);
void addCiCalls(Calls& calls);

template <wire::CallId id, typename Body, typename Harm>
void Calls::add(Body body, Harm damage) {
    using Answer = typename wire::Call<id>::Answer;
    addRaw(id, [this, body, damage](std::string_view bytes, bool isAnswered) {
        const PlatformCall& call = *platformCalls()[static_cast<std::size_t>(id)];
        const auto arguments = wire::decode<typename wire::Call<id>::Arguments>(bytes);
        const std::string written = toJournal(arguments);
        const std::optional<Hit> hit = nextFailure(call, written);
        CurrentCall current{device, ""};
        Answer answer{};
        try {
            if (!fails(hit, Failure::Kind::Result) && !fails(hit, Failure::Kind::Null)) {
                answer = detail::perform<Answer>(current, arguments, hit, body, damage);
            }
        } catch (const std::exception& error) {
            answer = detail::failed<Answer>();
            current.given = error.what();
        }
        detail::overrule(answer, hit);
        device.record.call(call.name, written,
                           toJournal(answer.result) + (current.given.empty() ? "" : ", " + current.given),
                           hit ? std::optional(hit->rule) : std::nullopt);
        if (isAnswered) {
            this->answer(id, wire::encode(answer));
        }
    });
}

}  // namespace sim
