#include "simulator/tv/RunRecord.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <SQLiteCpp/VariadicBind.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "platform/cloud_backup.h"
#include "simulator/base/Clock.h"

namespace sim {

namespace {

std::int64_t beginRun(SQLite::Database& database) {
    SQLite::Statement insert(database, "INSERT INTO runs(pid, started) VALUES(?, ?)");
    SQLite::bind(insert, static_cast<int>(::getpid()), utcNow());
    insert.exec();
    return database.getLastInsertRowid();
}

std::optional<int> optionalInt(const SQLite::Column& column) {
    return column.isNull() ? std::nullopt : std::optional<int>(column.getInt());
}

Run readRun(SQLite::Statement& query) {
    Run run;
    run.id = query.getColumn("id");
    run.pid = query.getColumn("pid");
    run.started = query.getColumn("started").getString();
    run.operation = query.getColumn("operation").getString();
    run.replyRequested = query.getColumn("reply_requested").getInt() != 0;
    run.reply = optionalInt(query.getColumn("reply"));
    run.response = optionalInt(query.getColumn("response"));
    run.reported = query.getColumn("reported").getString();
    run.ended = query.getColumn("ended").getString();
    run.detail = query.getColumn("detail").getString();
    return run;
}

}  // namespace

bool Run::succeeded() const {
    if (operation == "backup") {
        return ended == Ended::EXIT && response == BNR_RESPONSE_BACKUP_COMPLETED;
    }
    return reported == "success" && (ended == Ended::EXIT || ended == Ended::RECLAIMED);
}

RunRecorder::RunRecorder(SQLite::Database& database)
    : m_database(database),
      m_run(beginRun(database)),
      m_insertCall(database, "INSERT INTO calls VALUES(?, ?, ?, ?, ?, ?)"),
      m_insertLog(database, "INSERT INTO log VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?)") {}

void RunRecorder::launched(const std::string& operation, bool replyRequested) {
    set("operation", operation);
    set("reply_requested", replyRequested ? 1 : 0);
}

void RunRecorder::replied(int result) {
    set("reply", result);
}

void RunRecorder::responded(int code) {
    set("response", code);
}

void RunRecorder::reported(const std::string& outcome) {
    set("reported", outcome);
}

void RunRecorder::ended(const std::string& how, const std::string& detail) {
    set("ended", how);
    set("detail", detail);
}

template <typename Value>
void RunRecorder::set(const char* column, const Value& value) {
    SQLite::Statement update(m_database, fmt::format("UPDATE runs SET {} = ? WHERE id = ?", column));
    SQLite::bind(update, value, m_run);
    update.exec();
}

void RunRecorder::call(const std::string& name, const std::string& arguments, const std::string& result,
                       std::optional<std::int64_t> fault) {
    m_insertCall.reset();
    SQLite::bind(m_insertCall, m_run, ++m_seq, name, arguments, result);
    if (fault) {
        m_insertCall.bind(6, *fault);
    } else {
        m_insertCall.bind(6);
    }
    m_insertCall.exec();
}

void RunRecorder::systemLog(int priority, const std::string& tag, const std::string& text) {
    m_insertLog.reset();
    m_insertLog.clearBindings();
    SQLite::bind(m_insertLog, m_run, ++m_seq, "system", priority, tag);
    m_insertLog.bind(9, text);
    m_insertLog.exec();
}

void RunRecorder::logger(const std::string& file, const std::string& function, int line, const std::string& message) {
    m_insertLog.reset();
    m_insertLog.clearBindings();
    SQLite::bind(m_insertLog, m_run, ++m_seq, "logger");
    m_insertLog.bind(6, file);
    m_insertLog.bind(7, function);
    m_insertLog.bind(8, line);
    m_insertLog.bind(9, message);
    m_insertLog.exec();
}

std::vector<Run> listRuns(SQLite::Database& database) {
    SQLite::Statement query(database, "SELECT * FROM runs ORDER BY id");
    std::vector<Run> runs;
    while (query.executeStep()) {
        runs.push_back(readRun(query));
    }
    return runs;
}

std::optional<Run> findRun(SQLite::Database& database, std::int64_t id) {
    SQLite::Statement query(database, "SELECT * FROM runs WHERE id = ?");
    query.bind(1, id);
    return query.executeStep() ? std::optional<Run>(readRun(query)) : std::nullopt;
}

std::vector<CallRecord> listCalls(SQLite::Database& database, std::int64_t run) {
    SQLite::Statement query(database,
                            "SELECT seq, name, arguments, result, fault FROM calls WHERE run = ? ORDER BY seq");
    query.bind(1, run);
    std::vector<CallRecord> calls;
    while (query.executeStep()) {
        std::optional<std::int64_t> fault;
        if (!query.isColumnNull(4)) {
            fault = query.getColumn(4).getInt64();
        }
        calls.push_back({query.getColumn(0), query.getColumn(1), query.getColumn(2), query.getColumn(3), fault});
    }
    return calls;
}

std::vector<LogRecord> listLog(SQLite::Database& database, std::int64_t run) {
    SQLite::Statement query(
        database, "SELECT seq, sink, priority, tag, file, function, line, message FROM log WHERE run = ? ORDER BY seq");
    query.bind(1, run);
    std::vector<LogRecord> records;
    while (query.executeStep()) {
        records.push_back({query.getColumn(0), query.getColumn(1), query.getColumn(2), query.getColumn(3),
                           query.getColumn(4), query.getColumn(5), query.getColumn(6), query.getColumn(7)});
    }
    return records;
}

void closeAbandonedRuns(SQLite::Database& database) {
    for (const Run& run : listRuns(database)) {
        if (run.ended == Ended::RUNNING && ::kill(run.pid, 0) != 0 && errno == ESRCH) {
            closeRun(database, run.id - 1, run.pid, "its process is gone");
        }
    }
}

std::int64_t newestRun(SQLite::Database& database) {
    return database.execAndGet("SELECT coalesce(max(id), 0) FROM runs").getInt64();
}

std::optional<Run> closeRun(SQLite::Database& database, std::int64_t after, int pid, const std::string& detail) {
    SQLite::Statement find(database, "SELECT id FROM runs WHERE id > ? AND pid = ?");
    SQLite::bind(find, after, pid);
    if (!find.executeStep()) {
        return std::nullopt;
    }
    const std::int64_t id = find.getColumn(0);
    find.reset();  // or the write below would be refused where another process has written meanwhile
    SQLite::Statement close(database, "UPDATE runs SET ended = ?, detail = ? WHERE id = ? AND ended = ?");
    SQLite::bind(close, Ended::CRASHED, detail, id, Ended::RUNNING);
    close.exec();
    return findRun(database, id);
}

}  // namespace sim
