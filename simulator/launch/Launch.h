// Runs the application on a TV, from the launch to the verdict.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "simulator/base/FolderLock.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Process.h"
#include "simulator/reports/RunReport.h"

namespace sim {

struct RunRequest {
    std::vector<std::string> extras;   // of the launch request, key=value each
    std::filesystem::path program;     // any build of the application; empty: halcyon-lineup beside this program
    std::vector<std::string> wrapper;  // words before it, such as gdb --args: then it is neither confined nor captured
    std::string caller = "halcyon-tv";
    std::string backup;  // id of the backup to restore; empty for the newest
    bool refuseDuplicates = false;
    bool replyRequested = true;
    bool realtime = false;
    bool isBeforeKept = false;  // what the TV is now, see keepBefore()
    bool isConfined = true;     // to its own folders
    bool hasOwnGroup = false;   // of processes: signals from this process's terminal do not reach it
    bool isLogShown = false;    // on standard error, while it runs; its record has the log in any case
    bool isServedHere = false;  // this process is the TV's services: nothing else happens in it meanwhile
    // If this process is the services: the time after which the application is killed; 0: never.
    std::chrono::milliseconds limit{0};
    int keep = limits::RUNS_KEPT;  // records of runs, with that of this one
};

struct EndedProcess {
    int pid;
    std::string how;  // it ended, in words
};

// Starts the application by a call of `start`, and waits for its end. Throws Error.
using Start = std::function<Process()>;
using Execute = std::function<EndedProcess(const Start& start)>;
EndedProcess execute(const Start& start);

// Launches the application, and the TV's services as another process; judges the run by the TV and the store at
// `cloud`, and adds the verdict to its record unless it is unchecked. `lock` is the TV's run lock (lockTv). Throws
// Error; if there is no such program, or no run began, with what the application has printed.
RunReport launchAndJudge(const RunRequest& request, Tv& tv, const std::string& cloud, const CloudStore& store,
                         const FolderLock& lock, const Execute& execute);

}  // namespace sim
