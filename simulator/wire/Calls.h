// What crosses the socket: the application's calls of the platform, the TV's calls of the application, and what each
// side tells the other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "simulator/wire/Values.h"

namespace wire {

// Of a signature such as Answer<int, Text>(Handle).
template <typename Signature>
struct Traits;
template <typename Result, typename... Values>
struct Traits<Result(Values...)> {
    using Answer = Result;
    using Arguments = std::tuple<Values...>;
};

// What the application calls. Both sides are built from one table, so that a call's place in it is its number.
enum class CallId : std::uint16_t {
#define PLATFORM_CALL(identifier, name, item, failures, ...) identifier,
#include "simulator/wire/PlatformCalls.inc"
#undef PLATFORM_CALL
};

// The application does not call it: no traits.
using NoCall = void;

template <CallId id>
struct CallSignature;
#define PLATFORM_CALL(identifier, name, item, failures, ...) \
    template <>                                              \
    struct CallSignature<CallId::identifier> {               \
        using Type = __VA_ARGS__;                            \
    };
#include "simulator/wire/PlatformCalls.inc"
#undef PLATFORM_CALL

template <CallId id>
using Call = Traits<typename CallSignature<id>::Type>;

// What the TV calls while the application waits for an answer: its callbacks, and what only its process can do.
#define WIRE_EVENTS(EVENT)                                                                                     \
    EVENT(create, bool())                                                                                      \
    EVENT(control, None(Handle request))                                                                       \
    EVENT(pause, None())                                                                                       \
    EVENT(resume, None())                                                                                      \
    EVENT(terminate, None())                                                                                   \
    EVENT(response, None(std::int32_t handler, std::int32_t code, bool hasUserData, Text metadata, Text file)) \
    EVENT(signal, None(Handle subscriber, std::int32_t code, std::int32_t profile, bool hasUserData))          \
    EVENT(seal, Text(std::string file)) /* the path of a copy that nobody can change */

enum class EventId : std::uint16_t {
#define EVENT(identifier, ...) identifier,
    WIRE_EVENTS(EVENT)
#undef EVENT
};

template <EventId id>
struct EventSignature;
#define EVENT(identifier, ...)                   \
    template <>                                  \
    struct EventSignature<EventId::identifier> { \
        using Type = __VA_ARGS__;                \
    };
WIRE_EVENTS(EVENT)
#undef EVENT

template <EventId id>
using EventCall = Traits<typename EventSignature<id>::Type>;

// The kinds of messages. The application's side begins with Hello. Then it speaks, and the TV's side answers each Call;
// before that it may call the application by Events, during which the application makes Calls until it has Returned.
enum class Kind : std::uint16_t {
    // From the application.
    Hello,      // see below
    Call,       // its arguments; is answered
    Notice,     // a call without a result; is not answered
    SystemLog,  // see below; is not answered
    Logger,     // see below; is not answered
    Crash,      // an exception in words, which is about to end the application; is answered by an empty Answer
    Returned,   // the result of an event
    // From the TV.
    Welcome,    // see below
    Dismissal,  // the exit code that the application ends with at once
    Answer,     // of a call
    Exception,  // what the call throws
    Event,      // its arguments
    Time,       // the TV's, in milliseconds since 1970; before an event, unless it is the machine's
};

struct Hello {
    std::uint32_t version = 0;
    std::int32_t process = 0;
    std::vector<std::string> words;  // of the command line
    auto fields() { return std::tie(version, process, words); }
};
constexpr std::uint32_t VERSION = 2;

struct Welcome {
    bool isConfined = false;  // the application shall confine itself to these folders and files
    std::vector<std::string> writable;
    std::vector<std::string> readable;
    std::string zone;  // time zone as $TZ has it; empty: the machine's
    auto fields() { return std::tie(isConfined, writable, readable, zone); }
};

struct SystemLog {
    std::int32_t priority = 0;
    std::string tag;
    std::string text;
    auto fields() { return std::tie(priority, tag, text); }
};

struct Logger {
    std::string file;
    std::string function;
    std::int32_t line = 0;
    std::string message;
    auto fields() { return std::tie(file, function, line, message); }
};

}  // namespace wire
