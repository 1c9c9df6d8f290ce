// What became of a run of the application.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/cloud/CloudStore.h"
#include "simulator/tv/Tv.h"

namespace sim {

struct RunReport {
    Run run;
    Verdict verdict;
    std::string response;  // in words, like the others
    std::string reply;
    std::string end;
};

// With the verdict that was given at the run's end. Where nobody has looked then, with one of now for the newest run;
// of an older one there is the outcome by its record, and no items. Throws Error where the store cannot be read.
RunReport reportRun(const Tv& tv, const CloudStore& store, const Run& run);

// What was recorded of a run, in its order.
struct Moment {
    int seq = 0;
    std::int64_t at = 0;  // milliseconds of the TV's time since the start
    std::optional<CallRecord> call;
    std::optional<LogRecord> log;  // one that both sinks got is here once, under the sink "both"
    bool isDecisive = false;       // it decided the outcome
};

// What to leave out.
struct TimelineFilter {
    bool calls = true;
    bool log = true;
    bool sinks = false;  // a record for each sink
    int priority = 0;    // log records below it
    std::string call;    // all calls but this one; empty: none
    std::string text;    // all that does not have it in its message, name, arguments or result
};

std::vector<Moment> timelineOf(const Tv& tv, const RunReport& report, const TimelineFilter& filter);

}  // namespace sim
