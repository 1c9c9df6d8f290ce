// Rules, kept in the TV, that make platform calls fail.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/lineup/Codes.h"
#include "simulator/tv/PlatformCalls.h"

namespace sim {

class Database;

// What happens instead of, or in addition to, what a healthy TV does.
struct Failure {
    enum class Kind {
        Result,  // the call returns `number` and does nothing else; of an event: it carries that code
        Answer,  // the call does what it should, and then returns `number`
        Null,    // the call returns null; of an event: it comes with null user data
        Throw,   // the call throws std::runtime_error
        Damage,  // the file that the call makes is damaged
        Delay,   // the event comes `number` milliseconds later
        Lost,    // the event never comes
        NoData,  // the event comes with null data
        Cut,     // the power is cut: the process is killed
        Works,   // none: between others of a sequence
    };
    Kind kind = Kind::Throw;
    int number = 0;
    Damage damage = Damage::Missing;
};

template <>
inline constexpr std::array<Name<Failure::Kind>, 10> NAMES<Failure::Kind>{{
    {Failure::Kind::Result, "result"},
    {Failure::Kind::Answer, "answer"},
    {Failure::Kind::Null, "null"},
    {Failure::Kind::Throw, "throw"},
    {Failure::Kind::Damage, "damage"},
    {Failure::Kind::Delay, "delay"},
    {Failure::Kind::Lost, "lost"},
    {Failure::Kind::NoData, "no-data"},
    {Failure::Kind::Cut, "cut"},
    {Failure::Kind::Works, "works"},
}};

// As users write it: "result=6", "damage=empty", "null" and the like; several are separated by blanks.
std::string toText(const Failure& failure);
std::string toText(const std::vector<Failure>& failures);

struct FaultRule {
    std::int64_t id = 0;
    std::string call;
    std::vector<Failure> failures;  // one at each time that it fires, the last one from then on; never empty
    int nth = 1;                    // the first call of a run that fails, counted from 1
    int times = 1;                  // how often it fires in all; 0: every time
    std::int64_t run = 0;           // the only run in which it fires; 0: any
    int fired = 0;

    // Whether it fires at the nth such call of a run, the calls of earlier runs aside.
    bool firesAt(std::int64_t run, int nth) const;
};

// A rule that makes such calls of a run fail from the first one on, each once. Throws Error if there is no such call,
// or it cannot fail like that; of failures with a number, any number will do.
FaultRule makeRule(const std::string& call, const std::string& failures);

class Faults {
public:
    explicit Faults(Database& database) : m_database(database) {}

    // Returns the new rule's id. Throws Error if `nth` is below 1, or `times` or `run` below 0.
    std::int64_t add(const FaultRule& rule);
    std::vector<FaultRule> list() const;
    void countFired(std::int64_t id);
    bool remove(std::int64_t id);  // false if there is none
    void clear();

private:
    Database& m_database;
};

}  // namespace sim
