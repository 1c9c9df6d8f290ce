// Two TVs and a cloud in which runs are tried under faults, and which are put back after each.
#pragma once

#include <array>
#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "simulator/base/Names.h"
#include "simulator/launch/Launch.h"
#include "simulator/reports/Invariants.h"

namespace sim {

enum class SweptOperation { Backup, Restore, RestoreWithScan };
template <>
inline constexpr std::array<Name<SweptOperation>, 3> NAMES<SweptOperation>{{
    {SweptOperation::Backup, "backup"},
    {SweptOperation::Restore, "restore"},
    {SweptOperation::RestoreWithScan, "restore-with-scan"},
}};

// A call of a run that fails, and how; or "disk", whose power is "cut" at the nth step that changes it.
struct Fault {
    std::string call;
    int nth = 1;
    std::string failure;
};

// "IUtil::GetServiceDb result=0", "bnr_init throw at call 2"; several are separated by " and ".
std::string toText(const std::vector<Fault>& faults);

// A call that a run has made.
struct MadeCall {
    std::string call;
    int nth = 1;
};

// What became of a run under faults.
struct SweptRun {
    std::vector<Fault> faults;
    std::size_t fired = 0;  // how many of them
    Outcome outcome = Outcome::Open;
    std::string told;               // the caller and the cloud: "done", "failed" or "nothing"
    std::string truth;              // "new" or "old" channels; of a backup "stored" or "not stored"
    std::vector<std::string> lost;  // items
    std::vector<Violation> violations;
    std::vector<MadeCall> calls;  // those that can fail, from the last fault that fired on; without faults, all
};

// The text of a scenario, in the folder of copyTo(), that fails as long as the run breaks a promise.
std::string toScenario(SweptOperation operation, const SweptRun& run);

class SweepWorld {
public:
    // Makes the TVs and a backup of the first in an empty folder. The application is killed if it takes longer than
    // `limit`. Throws Error.
    SweepWorld(std::filesystem::path folder, std::filesystem::path program, std::chrono::milliseconds limit);

    // Puts all back, and runs the application. A backup that came of it is also restored. After a power cut, the TV's
    // next run is looked at, too.
    SweptRun run(SweptOperation operation, const std::vector<Fault>& faults);

    // Copies the TVs and the cloud as every run finds them, for the scenarios of toScenario().
    void copyTo(const std::filesystem::path& folder) const;

private:
    struct Place {
        std::filesystem::path home;
        Setup setup;
        std::string ipServices;
    };

    Place make(const std::string& name, const char* channels) const;
    void putBack(const std::filesystem::path& part) const;
    Baseline baselineOf(SweptOperation operation) const;
    RunReport launch(Tv& tv, SweptOperation operation, bool isServedHere, const std::string& backup = "") const;
    void checkStored(const RunReport& report, std::vector<Violation>& violations);
    void checkNext(Tv& tv, SweptOperation operation, Baseline baseline, std::vector<Violation>& violations) const;

    std::filesystem::path m_folder;
    std::filesystem::path m_program;
    std::chrono::milliseconds m_limit;
    std::string m_cloud;
    Place m_old;  // with channels of its own, and a backup
    Place m_new;  // fresh from the factory
};

}  // namespace sim
