// The records of the application's runs on a TV: what came in, what went out, each platform call and each log record.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/tv/Codes.h"
#include "simulator/tv/Database.h"
#include "simulator/tv/Fingerprint.h"

namespace sim {

struct Run {
    std::int64_t id = 0;
    int pid = 0;
    std::string started;    // UTC, ISO 8601
    std::string operation;  // "backup" or "restore"; empty when the launch request did not get that far
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

// Calls and log records are counted together, so that their order is known.
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

class Runs {
public:
    explicit Runs(Database& database) : m_database(database) {}

    // Oldest first.
    std::vector<Run> list() const;
    std::optional<Run> find(std::int64_t id) const;
    std::int64_t newest() const;  // its id; 0 before the first
    std::vector<CallRecord> calls(std::int64_t run) const;
    std::vector<LogRecord> log(std::int64_t run) const;

    // The id of the backup that a run of an account had last; empty: none had one.
    std::string lastBackup(const std::string& account) const;

    // A new run of the process `pid`; its id.
    std::int64_t begin(int pid, const std::string& started);

    // What the TV's items were when the run began.
    void addBefore(std::int64_t run, const Fingerprints& fingerprints);
    Fingerprints before(std::int64_t run) const;

    // Keeps what became of a run. Nothing: nobody has looked at its end.
    void add(std::int64_t run, const Verdict& verdict);
    std::optional<Verdict> verdict(std::int64_t run) const;

    // Forgets all but the newest runs, with all that is recorded of them.
    void keep(int count);

    // Writes all that a run is but its id, process and start.
    void save(const Run& run);

    void add(std::int64_t run, const CallRecord& call);
    void add(std::int64_t run, const LogRecord& log);

    // The run that the process `pid`, which has ended, began after the run `after`; one that did not come to its end is
    // recorded as crashed with `detail`. Nothing: the process did not come so far as to begin a record.
    std::optional<Run> close(std::int64_t after, int pid, const std::string& detail);

    // Records runs as crashed that have not ended, though their process has.
    void closeAbandoned();

private:
    Database& m_database;
    std::optional<Statement> m_addCall;  // prepared at their first use: a run adds hundreds
    std::optional<Statement> m_addLog;
};

}  // namespace sim
