#include "simulator/tv/Runs.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

#include "simulator/base/Files.h"
#include "simulator/base/Text.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr char SUFFIX[] = ".jsonl";

// The number that a record's file is named after. Nothing: it is another file.
std::optional<std::int64_t> idOf(const fs::path& file) {
    return file.extension() == SUFFIX ? toNumber<std::int64_t>(file.stem().string()) : std::nullopt;
}

bool isAlive(int pid) {
    return ::kill(pid, 0) == 0 || errno != ESRCH;
}

}  // namespace

bool succeeded(const Run& run) {
    if (run.operation == Operation::Backup) {
        return run.ended == RunEnd::Exit && run.response == Response::BackupCompleted;
    }
    return run.reported == Reported::Success && (run.ended == RunEnd::Exit || run.ended == RunEnd::Reclaimed);
}

std::vector<Run> Runs::list() const {
    std::vector<Run> runs;
    for (const std::int64_t id : ids()) {
        if (std::optional<Run> run = find(id)) {
            runs.push_back(std::move(*run));
        }
    }
    return runs;
}

std::optional<Run> Runs::find(std::int64_t id) const {
    if (!has(id)) {
        return std::nullopt;
    }
    Run run = RunFile(fileOf(id)).run();
    run.id = id;
    if (run.ended == RunEnd::Running && !isAlive(run.pid)) {
        run.ended = RunEnd::Crashed;
        run.detail = "its process is gone";
    }
    return run;
}

std::int64_t Runs::newest() const {
    const std::vector<std::int64_t> all = ids();
    return all.empty() ? 0 : all.back();
}

std::vector<CallRecord> Runs::calls(std::int64_t run) const {
    std::vector<CallRecord> calls;
    if (has(run)) {
        RunFile(fileOf(run)).forEachCall([&](CallRecord call) { calls.push_back(std::move(call)); });
    }
    return calls;
}

std::vector<LogRecord> Runs::log(std::int64_t run) const {
    std::vector<LogRecord> records;
    if (has(run)) {
        RunFile(fileOf(run)).forEachLog([&](LogRecord log) { records.push_back(std::move(log)); });
    }
    return records;
}

void Runs::addBefore(std::int64_t run, const Fingerprints& fingerprints) {
    writer(run).addBefore(fingerprints);
}

Fingerprints Runs::before(std::int64_t run) const {
    return has(run) ? RunFile(fileOf(run)).before() : Fingerprints();
}

void Runs::add(std::int64_t run, const Verdict& verdict) {
    writer(run).add(verdict);
}

std::optional<Verdict> Runs::verdict(std::int64_t run) const {
    return has(run) ? RunFile(fileOf(run)).verdict() : std::nullopt;
}

Run Runs::begin(int pid, const std::string& started) {
    makeFolders(m_folder);
    Run run;
    run.id = newest() + 1;
    run.pid = pid;
    run.started = started;
    m_written = run.id;
    m_writer.emplace(fileOf(run.id)).create(run);
    return run;
}

void Runs::save(const Run& run) {
    writer(run.id).save(run);
}

void Runs::add(std::int64_t run, const CallRecord& call) {
    writer(run).add(call);
}

void Runs::add(std::int64_t run, const LogRecord& log) {
    writer(run).add(log);
}

void Runs::keep(int count) {
    const std::vector<std::int64_t> all = ids();
    for (std::size_t i = 0; i + static_cast<std::size_t>(count) < all.size(); ++i) {
        removeFile(fileOf(all[i]));
    }
}

std::optional<Run> Runs::close(std::int64_t after, int pid, const std::string& detail) {
    const std::int64_t id = newest();
    if (id <= after || !has(id)) {
        return std::nullopt;
    }
    Run run = RunFile(fileOf(id)).run();
    run.id = id;
    if (run.pid != pid) {
        return std::nullopt;
    }
    if (run.ended == RunEnd::Running) {
        run.ended = RunEnd::Crashed;
        run.detail = detail;
        save(run);
    }
    return run;
}

std::vector<std::int64_t> Runs::ids() const {
    std::vector<std::int64_t> ids;
    for (const fs::path& member : membersOf(m_folder)) {
        if (const std::optional<std::int64_t> id = idOf(member)) {
            ids.push_back(*id);
        }
    }
    std::sort(ids.begin(), ids.end());
    return ids;
}

fs::path Runs::fileOf(std::int64_t run) const {
    return m_folder / fmt::format("{:06}{}", run, SUFFIX);
}

bool Runs::has(std::int64_t run) const {
    return isRegularFile(fileOf(run));
}

RunFile& Runs::writer(std::int64_t run) {
    if (!m_writer || m_written != run) {
        m_writer.emplace(fileOf(run));
        m_written = run;
    }
    return *m_writer;
}

}  // namespace sim
