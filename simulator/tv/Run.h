// What is recorded of a run of the application: what came in, what went out, each platform call and each log record.
// Calls and log records are counted together, so that their order is known.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "simulator/lineup/Codes.h"

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

struct Run {
    std::int64_t id = 0;
    int pid = 0;
    std::string started;    // UTC, ISO 8601
    std::string operation;  // "backup" or "restore"; empty if the launch request did not get that far
    bool replyRequested = false;
    std::optional<int> reply;          // result code of the last reply that the caller got
    std::optional<Response> response;  // the cloud service's last
    std::string reported;              // to the cloud service: "success", "failure" or ""
    std::string account;               // of the backup that the cloud took or handed out
    std::string clientId;              // empty: there was none
    std::string category;
    std::string backup;  // its id
    RunEnd ended = RunEnd::Running;
    std::string detail;  // of a crash: the exception or signal; of a wait: for what
};

// The channel set-up is in the cloud, or back from it, and the application ended as it should.
bool succeeded(const Run& run);

}  // namespace sim
