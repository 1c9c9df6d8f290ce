// The result of a run of the application, and its timeline.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/cloud/OpenCloud.h"
#include "simulator/tv/Tv.h"

namespace sim {

struct RunReport {
    Run run;
    Verdict verdict;
    std::string response;  // in words, like the next two
    std::string reply;
    std::string end;
    std::vector<std::string> complaints = {};  // of the TV's services, such as of a record that is not whole
    std::string unrecorded = {};               // why the verdict could not be added to the record
};

// With the verdict that was given at the run's end. If there is none, the newest run is judged now, or stays unchecked
// if the TV or the store cannot be read; an older one gets the outcome that its record tells, and no items, as the TV
// has changed since. Only to judge, the store is opened. Throws Error if the record cannot be read.
RunReport reportRun(const Tv& tv, const StoreOpener& store, const Run& run);
std::vector<RunReport> reportRuns(const Tv& tv, const StoreOpener& store);  // all of them, oldest first

// A call or a log record of a run.
struct Moment {
    int seq = 0;
    std::int64_t at = 0;  // milliseconds of the TV's time since the start
    std::optional<CallRecord> call;
    std::optional<LogRecord> log;  // under the sink "both" if both sinks got it
    bool isDecisive = false;       // it decided the outcome
};

// A moment without its time, in one line.
std::string textOf(const Moment& moment);

// What a timeline shows.
struct TimelineFilter {
    bool calls = true;
    bool log = true;
    bool sinks = false;  // each log record once for each sink that got it
    int priority = 0;    // log records of this priority and above
    std::string call;    // calls of this name; empty: all
    std::string text;    // what has it in its message, name, arguments or result
};

std::vector<Moment> timelineOf(const Tv& tv, const RunReport& report, const TimelineFilter& filter);

}  // namespace sim
