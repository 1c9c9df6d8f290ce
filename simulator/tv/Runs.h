// The records of the application's runs on a TV: what came in, what went out, each platform call and each log record.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/base/Database.h"
#include "simulator/lineup/Codes.h"
#include "simulator/lineup/Setup.h"
#include "simulator/tv/PendingRecords.h"
#include "simulator/tv/Verdict.h"

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

// The channel set-up is in the cloud, or back from it, and the application ended as it should.
bool succeeded(const Run& run);

class Runs {
public:
    // Records wait in the file `pending` until many go into the database at once; who reads them here finds them all.
    Runs(Database& database, std::filesystem::path pending) : m_database(database), m_pending(std::move(pending)) {}

    // Oldest first.
    std::vector<Run> list() const;
    std::optional<Run> find(std::int64_t id) const;
    std::int64_t newest() const;  // its id; 0 before the first
    std::vector<CallRecord> calls(std::int64_t run) const;
    std::vector<LogRecord> log(std::int64_t run) const;

    // The id of the backup that a run of an account had last; empty: none had one.
    std::string lastBackup(const std::string& account) const;

    // A new run of the process `pid`; its id. For who has the TV for a run, like all that bring records in.
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

    // From here on a record is kept, whatever becomes of the process. Throws Error where it cannot be.
    void add(std::int64_t run, const CallRecord& call);
    void add(std::int64_t run, const LogRecord& log);

    // Brings into the database what waits for it; what cannot be brought there now, on a full disk say, goes on
    // waiting.
    void flush();

    // For who has the TV for a run: the run that the process `pid`, which has ended, began after the run `after`; one
    // that did not come to its end is recorded as crashed with `detail`. Nothing: the process did not come so far as to
    // begin a record.
    std::optional<Run> close(std::int64_t after, int pid, const std::string& detail);

    // Records runs as crashed that have not ended, though their process has. For everybody.
    void closeAbandoned();

private:
    template <typename Record>
    void addPending(std::int64_t run, const Record& record);
    void closeRunning(std::int64_t id, const std::string& detail);

    Database& m_database;
    PendingRecords m_pending;
    std::size_t m_flushedAt = 0;  // how much of it there was when it was last tried to bring it into the database
};

}  // namespace sim
