// A run of the application on a TV, from the launch to the verdict.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "simulator/base/FolderLock.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Process.h"
#include "simulator/reports/RunReport.h"

namespace sim {

struct RunRequest {
    std::vector<std::string> extras;  // of the launch request, key=value each
    std::string backup;               // that the cloud shall hand out; empty: the newest
    bool refuseDuplicates = false;
    bool replyRequested = true;
    bool realtime = false;
    bool isConfined = true;
    bool isLogShown = false;  // on standard error, while it runs; its record has the log in any case
    int keep = limits::RUNS_KEPT;
};

// Launches the program, waits for its end, and says how it was.
struct EndedProcess {
    int pid;
    std::string how;
};
using Execute = std::function<EndedProcess(const ProcessOptions&)>;
EndedProcess execute(const ProcessOptions& options);

// Launches the application on a TV whose lock is held, gives the verdict on what it has made of the TV and the store at
// `cloud`, and keeps that with the run's record. Throws Error; if no run began, with what the
// application has printed.
RunReport launchAndJudge(const RunRequest& request, Tv& tv, const std::string& cloud, const CloudStore& store,
                         const FolderLock& lock, const Execute& execute);

}  // namespace sim
