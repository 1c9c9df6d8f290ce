// The record of the application's runs on a TV: what came in, what went out, each platform call and each log record.
#pragma once

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace sim {

struct Run {
    std::int64_t id = 0;
    int pid = 0;
    std::string started;    // UTC, ISO 8601
    std::string operation;  // "backup" or "restore"; empty when the launch request did not get that far
    bool replyRequested = false;
    std::optional<int> reply;     // result code of the last reply that the caller got
    std::optional<int> response;  // code of the cloud service's last response
    std::string reported;         // to the cloud service: "success", "failure" or ""
    std::string ended;            // see Ended
    std::string detail;           // of a crash: the exception or signal

    // The channel set-up is in the cloud, or back from it, and the application ended as it should.
    bool succeeded() const;
};

// How a run ended.
namespace Ended {
constexpr char RUNNING[] = "running";      // it has not
constexpr char EXIT[] = "exit";            // by its own exit
constexpr char RECLAIMED[] = "reclaimed";  // by the framework: nothing was left to wait for
constexpr char WAITING[] = "waiting";      // by the simulator: what it waited for will never come
constexpr char REFUSED[] = "refused";      // the main loop could not be run
constexpr char CRASHED[] = "crashed";      // an exception left the application, or a signal killed it
}  // namespace Ended

struct CallRecord {
    int seq;  // counts calls and log records together
    std::string name;
    std::string arguments;
    std::string result;
    std::optional<std::int64_t> fault;  // the rule that made it fail
};

struct LogRecord {
    int seq;
    std::string sink;  // "system" or "logger"
    int priority;      // system only
    std::string tag;   // system only
    std::string file;  // logger only, like function and line
    std::string function;
    int line;
    std::string message;  // of the system log with its prefix and newline
};

// Writes the record of one run as it happens.
class RunRecorder {
public:
    explicit RunRecorder(SQLite::Database& database);

    void launched(const std::string& operation, bool replyRequested);
    void replied(int result);
    void responded(int code);
    void reported(const std::string& outcome);
    void ended(const std::string& how, const std::string& detail);

    void call(const std::string& name, const std::string& arguments, const std::string& result,
              std::optional<std::int64_t> fault);
    void systemLog(int priority, const std::string& tag, const std::string& text);
    void logger(const std::string& file, const std::string& function, int line, const std::string& message);

private:
    template <typename Value>
    void set(const char* column, const Value& value);

    SQLite::Database& m_database;
    std::int64_t m_run;
    int m_seq = 0;
    SQLite::Statement m_insertCall;
    SQLite::Statement m_insertLog;
};

// Reads records. The newest run comes last.
std::vector<Run> listRuns(SQLite::Database& database);
std::optional<Run> findRun(SQLite::Database& database, std::int64_t id);
std::vector<CallRecord> listCalls(SQLite::Database& database, std::int64_t run);
std::vector<LogRecord> listLog(SQLite::Database& database, std::int64_t run);

// Records runs as crashed that have not ended, though their process has.
void closeAbandonedRuns(SQLite::Database& database);

// The newest run's id; 0 before the first.
std::int64_t newestRun(SQLite::Database& database);

// The run that the process `pid`, which has ended, began after the run `after`; one that did not come to its end is
// recorded as crashed with `detail`. Nothing: the process did not come so far as to begin a record.
std::optional<Run> closeRun(SQLite::Database& database, std::int64_t after, int pid, const std::string& detail);

}  // namespace sim
