// The platform's calls and events as data, for the journal, the fault rules, the verdict and tests that try all faults.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sim {

struct PlatformCall {
    std::string_view name;
    std::string_view item;  // what it works on, as in NAMES<Item>, or "favname" for any of the five; empty if on none
    std::string_view failures;  // as in fault rules, separated by blanks; only the numbers that are worth a test

    std::vector<std::string> failureList() const;
};

namespace calls {
// How calls fail that return a status (0 is success), a number (above 0 is success) or an object; how a file that a
// call makes is damaged; and how an event goes wrong.
#define STATUS "result=-1 throw"
#define POSITIVE "result=0 result=-1 throw"
#define POINTER "null throw"
#define DAMAGE "damage=truncate damage=corrupt damage=empty damage=missing damage=dangling damage=unwritable"
#define EVENT "null lost delay=60000"
#define PLATFORM_CALL(identifier, name, item, failures, ...) \
    inline constexpr PlatformCall identifier{name, item, failures};
#include "simulator/wire/PlatformCalls.inc"
#undef PLATFORM_CALL
#undef STATUS
#undef POSITIVE
#undef POINTER
#undef DAMAGE
#undef EVENT
}  // namespace calls

// How the result of a cloud_request begins if the backup arrived, and is damaged.
constexpr char DAMAGED_BACKUP[] = "damaged: ";

// All of them.
const std::vector<const PlatformCall*>& platformCalls();

// Those that a fault rule can make fail.
std::vector<PlatformCall> callsThatCanFail();

// " (did you mean 'bnr_init'?)" of a name that none has, if one is close; else empty.
std::string nearCall(std::string_view name);

// The one of that name, or with that name after its "::", which no two have; null if there is none.
const PlatformCall* findPlatformCall(std::string_view name);

}  // namespace sim
