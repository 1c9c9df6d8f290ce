// What is recorded of a run while it goes on. Calls and log records are counted together, so that their order is known.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace sim {

struct CallRecord {
    int seq = 0;
    std::int64_t at = 0;  // milliseconds of the TV's time since the start
    std::string name;
    std::string arguments;
    std::string result;
    std::optional<std::int64_t> fault;  // the rule that made it fail
};

struct LogRecord {
    int seq = 0;
    std::int64_t at = 0;
    std::string sink;  // "system" or "logger"
    int priority = 0;  // system only
    std::string tag;   // system only
    std::string file;  // logger only, like function and line
    std::string function;
    int line = 0;
    std::string message;  // of the system log with its prefix and newline
};

}  // namespace sim
