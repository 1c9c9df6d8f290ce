#include "simulator/tv/Runs.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iterator>

#include "simulator/base/Error.h"

namespace sim {

namespace {

// A few milliseconds' work for the database.
constexpr std::size_t BATCH_BYTES = 256U << 10;

constexpr char COLUMNS[] =
    "SELECT id, pid, started, operation, reply_requested, reply, response, reported, ended, detail, account, "
    "client_id, category, backup FROM runs ";

Run readRun(const Statement& query) {
    Run run;
    run.id = query.integer(0);
    run.pid = static_cast<int>(query.integer(1));
    run.started = query.text(2);
    run.operation = query.text(3);
    run.replyRequested = query.integer(4) != 0;
    if (const std::optional<std::int64_t> reply = query.optionalInteger(5)) {
        run.reply = static_cast<int>(*reply);
    }
    if (const std::optional<std::int64_t> response = query.optionalInteger(6)) {
        run.response = static_cast<Response>(*response);
    }
    run.reported = query.text(7);
    run.ended = fromName<RunEnd>(query.text(8)).value_or(RunEnd::Crashed);
    run.detail = query.text(9);
    run.account = query.text(10);
    run.clientId = query.text(11);
    run.category = query.text(12);
    run.backup = query.text(13);
    return run;
}

constexpr auto IGNORE = [](std::int64_t, const auto&) {};

template <typename Record>
void keepOf(std::int64_t wanted, std::int64_t run, const Record& record, std::vector<Record>& kept) {
    if (run == wanted) {
        kept.push_back(record);
    }
}

// Those of `pending` that come after the last of `records`.
template <typename Record>
void appendNew(std::vector<Record>& records, const std::vector<Record>& pending) {
    const int last = records.empty() ? 0 : records.back().seq;
    std::copy_if(pending.begin(), pending.end(), std::back_inserter(records),
                 [&](const Record& record) { return record.seq > last; });
}

}  // namespace

bool succeeded(const Run& run) {
    if (run.operation == "backup") {
        return run.ended == RunEnd::Exit && run.response == Response::BackupCompleted;
    }
    return run.reported == "success" && (run.ended == RunEnd::Exit || run.ended == RunEnd::Reclaimed);
}

std::vector<Run> Runs::list() const {
    Statement query(m_database, std::string(COLUMNS) + "ORDER BY id");
    std::vector<Run> runs;
    while (query.next()) {
        runs.push_back(readRun(query));
    }
    return runs;
}

std::optional<Run> Runs::find(std::int64_t id) const {
    Statement query(m_database, std::string(COLUMNS) + "WHERE id = ?");
    return query.bind(id).next() ? std::optional(readRun(query)) : std::nullopt;
}

std::int64_t Runs::newest() const {
    return m_database.integer("SELECT coalesce(max(id), 0) FROM runs").value_or(0);
}

std::string Runs::lastBackup(const std::string& account) const {
    Statement query(m_database, "SELECT backup FROM runs WHERE account = ? AND backup <> '' ORDER BY id DESC LIMIT 1");
    return query.bind(account).next() ? query.text(0) : "";
}

// What waits is read first: in the meantime it may get into the database, but not out of it.
std::vector<CallRecord> Runs::calls(std::int64_t run) const {
    std::vector<CallRecord> pending;
    m_pending.forEach([&](std::int64_t of, const CallRecord& call) { keepOf(run, of, call, pending); }, IGNORE);
    Statement query(m_database, "SELECT seq, at, name, arguments, result, fault FROM calls WHERE run = ? ORDER BY seq");
    std::vector<CallRecord> calls;
    for (query.bind(run); query.next();) {
        calls.push_back({static_cast<int>(query.integer(0)), query.integer(1), query.text(2), query.text(3),
                         query.text(4), query.optionalInteger(5)});
    }
    appendNew(calls, pending);
    return calls;
}

std::vector<LogRecord> Runs::log(std::int64_t run) const {
    std::vector<LogRecord> pending;
    m_pending.forEach(IGNORE, [&](std::int64_t of, const LogRecord& log) { keepOf(run, of, log, pending); });
    Statement query(
        m_database,
        "SELECT seq, at, sink, priority, tag, file, function, line, message FROM log WHERE run = ? ORDER BY seq");
    std::vector<LogRecord> records;
    for (query.bind(run); query.next();) {
        records.push_back({static_cast<int>(query.integer(0)), query.integer(1), query.text(2),
                           static_cast<int>(query.integer(3)), query.text(4), query.text(5), query.text(6),
                           static_cast<int>(query.integer(7)), query.text(8)});
    }
    appendNew(records, pending);
    return records;
}

std::int64_t Runs::begin(int pid, const std::string& started) {
    flush();  // what a run that was killed has left
    m_database.change("INSERT INTO runs(pid, started) VALUES(?, ?)", pid, started);
    return m_database.lastRow();
}

void Runs::keep(int count) {
    const std::optional<std::int64_t> newestForgotten =
        m_database.integer("SELECT id FROM runs ORDER BY id DESC LIMIT 1 OFFSET ?", count);
    if (!newestForgotten) {
        return;
    }
    Transaction transaction(m_database);
    for (const char* table : {"calls WHERE run", "log WHERE run", "fingerprints WHERE run", "verdicts WHERE run",
                              "verdict_items WHERE run", "runs WHERE id"}) {
        m_database.change(std::string("DELETE FROM ") + table + " <= ?", *newestForgotten);
    }
    transaction.commit();
}

void Runs::save(const Run& run) {
    const std::optional<int> response = run.response ? std::optional(static_cast<int>(*run.response)) : std::nullopt;
    m_database.change(
        "UPDATE runs SET operation = ?, reply_requested = ?, reply = ?, response = ?, reported = ?, ended = ?, "
        "detail = ?, account = ?, client_id = ?, category = ?, backup = ? WHERE id = ?",
        run.operation, run.replyRequested ? 1 : 0, run.reply, response, run.reported, nameOf(run.ended), run.detail,
        run.account, run.clientId, run.category, run.backup, run.id);
}

void Runs::add(std::int64_t run, const CallRecord& call) {
    addPending(run, call);
}

void Runs::add(std::int64_t run, const LogRecord& log) {
    addPending(run, log);
}

template <typename Record>
void Runs::addPending(std::int64_t run, const Record& record) {
    m_pending.add(run, record);
    if (m_pending.size() - m_flushedAt >= BATCH_BYTES) {
        flush();
    }
}

// Some may be there already: whoever brought them died before they were taken off the file.
void Runs::flush() {
    m_flushedAt = m_pending.size();
    try {
        Transaction transaction(m_database);
        Statement addCall(m_database, "INSERT OR IGNORE INTO calls VALUES(?, ?, ?, ?, ?, ?, ?)");
        Statement addLog(m_database, "INSERT OR IGNORE INTO log VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
        m_pending.forEach(
            [&](std::int64_t run, const CallRecord& call) {
                addCall.bind(run, call.seq, call.at, call.name, call.arguments, call.result, call.fault).run();
            },
            [&](std::int64_t run, const LogRecord& log) {
                addLog
                    .bind(run, log.seq, log.at, log.sink, log.priority, log.tag, log.file, log.function, log.line,
                          log.message)
                    .run();
            });
        transaction.commit();
    } catch (const Error&) {
        return;
    }
    m_pending.clear();
    m_flushedAt = 0;
}

void Runs::addBefore(std::int64_t run, const Fingerprints& fingerprints) {
    Transaction transaction(m_database);
    for (const auto& [item, digest] : fingerprints) {
        m_database.change("INSERT INTO fingerprints VALUES(?, ?, ?)", run, nameOf(item), digest);
    }
    transaction.commit();
}

Fingerprints Runs::before(std::int64_t run) const {
    Statement query(m_database, "SELECT item, digest FROM fingerprints WHERE run = ?");
    Fingerprints fingerprints;
    for (query.bind(run); query.next();) {
        if (const std::optional<Item> item = fromName<Item>(query.text(0))) {
            fingerprints[*item] = query.text(1);
        }
    }
    return fingerprints;
}

void Runs::add(std::int64_t run, const Verdict& verdict) {
    Transaction transaction(m_database);
    m_database.change("INSERT INTO verdicts VALUES(?, ?, ?, ?, ?)", run, nameOf(verdict.outcome), nameOf(verdict.cause),
                      verdict.why, verdict.decisive);
    for (const ItemVerdict& item : verdict.items) {
        m_database.change("INSERT INTO verdict_items VALUES(?, ?, ?, ?)", run, nameOf(item.item), nameOf(item.state),
                          item.detail);
    }
    transaction.commit();
}

std::optional<Verdict> Runs::verdict(std::int64_t run) const {
    Statement query(m_database, "SELECT outcome, cause, why, decisive FROM verdicts WHERE run = ?");
    if (!query.bind(run).next()) {
        return std::nullopt;
    }
    Verdict verdict;
    verdict.outcome = fromName<Outcome>(query.text(0)).value_or(Outcome::Failed);
    verdict.cause = fromName<Cause>(query.text(1)).value_or(Cause::Other);
    verdict.why = query.text(2);
    verdict.decisive = static_cast<int>(query.integer(3));
    Statement items(m_database, "SELECT item, state, detail FROM verdict_items WHERE run = ? ORDER BY rowid");
    for (items.bind(run); items.next();) {
        const std::optional<Item> item = fromName<Item>(items.text(0));
        const std::optional<ItemState> state = fromName<ItemState>(items.text(1));
        if (item && state) {
            verdict.items.push_back({*item, *state, items.text(2)});
        }
    }
    return verdict;
}

std::optional<Run> Runs::close(std::int64_t after, int pid, const std::string& detail) {
    const std::optional<std::int64_t> id =
        m_database.integer("SELECT id FROM runs WHERE id > ? AND pid = ?", after, pid);
    if (!id) {
        return std::nullopt;
    }
    flush();
    closeRunning(*id, detail);
    return find(*id);
}

void Runs::closeAbandoned() {
    for (const Run& run : list()) {
        if (run.ended == RunEnd::Running && ::kill(run.pid, 0) != 0 && errno == ESRCH) {
            closeRunning(run.id, "its process is gone");
        }
    }
}

void Runs::closeRunning(std::int64_t id, const std::string& detail) {
    m_database.change("UPDATE runs SET ended = ?, detail = ? WHERE id = ? AND ended = ?", nameOf(RunEnd::Crashed),
                      detail, id, nameOf(RunEnd::Running));
}

}  // namespace sim
