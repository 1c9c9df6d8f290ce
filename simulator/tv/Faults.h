// Faults as data: rules that make a platform call fail. They are kept in the TV.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/lineup/Codes.h"
#include "simulator/tv/PlatformCalls.h"

namespace sim {

class Database;

// What happens instead of, or on top of, what a healthy TV does.
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
    };
    Kind kind;
    int number = 0;
    Damage damage = Damage::Missing;
};

template <>
inline constexpr std::array<Name<Failure::Kind>, 9> NAMES<Failure::Kind>{{
    {Failure::Kind::Result, "result"},
    {Failure::Kind::Answer, "answer"},
    {Failure::Kind::Null, "null"},
    {Failure::Kind::Throw, "throw"},
    {Failure::Kind::Damage, "damage"},
    {Failure::Kind::Delay, "delay"},
    {Failure::Kind::Lost, "lost"},
    {Failure::Kind::NoData, "no-data"},
    {Failure::Kind::Cut, "cut"},
}};

// Reads "result=6", "damage=empty", "null" and the like. Throws Error, which names the nearest of the candidates.
Failure parseFailure(const std::string& text, const std::vector<std::string>& candidates = {});

struct FaultRule {
    std::int64_t id = 0;
    std::string call;
    std::string failure;
    int nth = 1;    // the first call of a run that fails, counted from 1
    int times = 1;  // how often it fires in all; 0: for ever
    int fired = 0;
};

class Faults {
public:
    explicit Faults(Database& database) : m_database(database) {}

    // Gives the new rule's id. Throws Error for a call or a failure that there is not; of the kinds with a number, any
    // number will do.
    std::int64_t add(const FaultRule& rule);
    std::vector<FaultRule> list() const;
    void countFired(std::int64_t id);
    bool remove(std::int64_t id);  // false: there is no such rule
    void clear();

private:
    Database& m_database;
};

}  // namespace sim
