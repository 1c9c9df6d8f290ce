// What is recorded of a run of the application: how it stands, each platform call and each log record. Calls and log
// records share one sequence of numbers, which tells their order.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/lineup/Codes.h"

namespace sim {

enum class Operation { None, Backup, Restore };  // None: the launch request did not get that far
template <>
inline constexpr std::array<Name<Operation>, 3> NAMES<Operation>{{
    {Operation::None, ""},
    {Operation::Backup, "backup"},
    {Operation::Restore, "restore"},
}};

// What the application told the cloud service of a restore.
enum class Reported { Nothing, Success, Failure };
template <>
inline constexpr std::array<Name<Reported>, 3> NAMES<Reported>{{
    {Reported::Nothing, ""},
    {Reported::Success, "success"},
    {Reported::Failure, "failure"},
}};

// How a run ended.
enum class RunEnd {
    Running,    // it has not
    Exit,       // by its own exit
    Reclaimed,  // by the framework: nothing was left to wait for
    Waiting,    // by the simulator: what it waited for will never come
    Refused,    // the main loop could not be run
    Crashed,    // an exception left the application, or a signal killed it
};
template <>
inline constexpr std::array<Name<RunEnd>, 6> NAMES<RunEnd>{{
    {RunEnd::Running, "running"},
    {RunEnd::Exit, "exit"},
    {RunEnd::Reclaimed, "reclaimed"},
    {RunEnd::Waiting, "waiting"},
    {RunEnd::Refused, "refused"},
    {RunEnd::Crashed, "crashed"},
}};

// Where the application has written a log record.
enum class LogSink { System, Logger, Both };
template <>
inline constexpr std::array<Name<LogSink>, 3> NAMES<LogSink>{{
    {LogSink::System, "system"},
    {LogSink::Logger, "logger"},
    {LogSink::Both, "both"},
}};

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
    LogSink sink = LogSink::System;
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
    std::string started;  // UTC, ISO 8601
    Operation operation = Operation::None;
    bool replyRequested = false;
    std::optional<int> reply;          // result code of the last reply that the caller got
    std::optional<Response> response;  // the cloud service's last
    Reported reported = Reported::Nothing;
    std::string account;   // of the backup that the cloud took or handed out
    std::string clientId;  // empty: there was none
    std::string category;
    std::string backup;  // its id
    RunEnd ended = RunEnd::Running;
    std::string detail;  // of a crash: the exception or signal; of a wait: for what
};

// What the application was launched with, beside what the run says.
struct LaunchRequest {
    std::vector<std::string> extras;  // key=value each
    std::string caller;
    std::string backup;  // the one to restore; empty: the newest
    bool refuseDuplicates = false;
};

// Whether the channel set-up is in the cloud, or back from it, and the application ended as it should.
bool succeeded(const Run& run);

}  // namespace sim
