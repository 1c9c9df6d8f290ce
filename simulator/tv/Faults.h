// Faults as data: rules that make a platform call fail.
#pragma once

#include <SQLiteCpp/Database.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace sim {

// What happens instead of, or on top of, what a healthy TV does.
struct Failure {
    enum class Kind {
        Result,  // the call returns `number` and does nothing else; of an event: it carries that code
        Answer,  // the call does what it should, and then returns `number`
        Null,    // the call returns null; of an event: it comes with null user data
        Throw,   // the call throws std::runtime_error
        Damage,  // the file that the call makes is damaged, see damageFile()
        Delay,   // the event comes `number` milliseconds later
        Lost,    // the event never comes
        NoData,  // the event comes with null data
        Cut,     // the power is cut: the process is killed
    };
    Kind kind;
    int number = 0;
    std::string text;  // as it is written: "result=6", "null", "damage=truncate"
};

// Reads "result=6" and the like. Throws Error.
Failure parseFailure(const std::string& text);

// A call or event that can fail, with each kind of failure that it can have. "result" takes other numbers than those
// here.
struct FaultTarget {
    std::string call;
    std::vector<std::string> failures;
};
const std::vector<FaultTarget>& faultTargets();

struct FaultRule {
    std::int64_t id = 0;
    std::string call;
    std::string failure;
    int nth = 1;    // the first call of a run that fails, counted from 1
    int times = 1;  // how often it fires in all; 0: for ever
    int fired = 0;
};

// Rules are kept in the TV. These throw Error for a call or a failure that there is not.
std::int64_t addFault(SQLite::Database& database, const FaultRule& rule);
std::vector<FaultRule> listFaults(SQLite::Database& database);
bool removeFault(SQLite::Database& database, std::int64_t id);  // false: there is no such rule
void clearFaults(SQLite::Database& database);

// The rules as they bear on one run.
class FaultInjector {
public:
    struct Hit {
        std::int64_t rule;
        Failure failure;
    };

    explicit FaultInjector(SQLite::Database& database);

    // Counts a call, and gives the failure that it shall have.
    std::optional<Hit> next(const std::string& call);

private:
    SQLite::Database& m_database;
    std::vector<FaultRule> m_rules;
    std::map<std::string, int> m_counts;
};

// Damages a file: "damage=" and truncate (its second half goes), corrupt (some bytes are wrong), empty, missing,
// dangling (a link to nowhere), unwritable (it can be read, but not be written again, not even by root).
void damageFile(const std::filesystem::path& file, const std::string& how);

}  // namespace sim
