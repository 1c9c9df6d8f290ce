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

// The number that a record's file is named after; nothing if it is another file.
std::optional<std::int64_t> idOf(const fs::path& file) {
    return file.extension() == SUFFIX ? toNumber<std::int64_t>(file.stem().string()) : std::nullopt;
}

bool isAlive(int pid) {
    // Of a process of another user, EPERM says that it lives.
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
    if (!isRegularFile(fileOf(id))) {
        return std::nullopt;
    }
    Run run = record(id).run();
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

Run Runs::begin(int pid, const std::string& started) {
    makeFolders(m_folder);
    Run run;
    run.id = newest() + 1;
    run.pid = pid;
    run.started = started;
    record(run.id).create(run);
    return run;
}

void Runs::keep(int count) {
    const std::vector<std::int64_t> all = ids();
    for (std::size_t i = 0; i + static_cast<std::size_t>(count) < all.size(); ++i) {
        removeFile(fileOf(all[i]));
    }
}

std::optional<Run> Runs::close(std::int64_t after, std::optional<int> pid, const std::string& detail) {
    const std::int64_t id = newest();
    if (id <= after) {
        return std::nullopt;
    }
    Run run = record(id).run();
    run.id = id;
    // The process may have ended before it began a record; then the newest run is of another one.
    if (pid && run.pid != *pid) {
        return std::nullopt;
    }
    if (run.ended == RunEnd::Running) {
        run.ended = RunEnd::Crashed;
        run.detail = detail;
        record(id).save(run);
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

fs::path Runs::fileOf(std::int64_t id) const {
    return m_folder / fmt::format("{:06}{}", id, SUFFIX);
}

}  // namespace sim
