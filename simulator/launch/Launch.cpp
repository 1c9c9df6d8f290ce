#include "simulator/launch/Launch.h"

#include <fmt/format.h>

#include <filesystem>

#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/lineup/Application.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

// The application beside this program.
fs::path applicationPath() {
    fs::path path = fs::read_symlink("/proc/self/exe").parent_path() / application::NAME;
    if (!fs::exists(path)) {
        throw Error(Error::Kind::Missing,
                    fmt::format("{} is not there; build or install the application beside halcyon-tv", path.string()));
    }
    return path;
}

Launch launchOf(const RunRequest& request, const Tv& tv, const std::string& cloud, const FolderLock& lock) {
    Launch launch;
    launch.words = {applicationPath(), "--caller", "halcyon-tv"};
    if (!request.noReply) {
        launch.words.emplace_back("--reply");
    }
    if (request.realtime) {
        launch.words.emplace_back("--realtime");
    }
    if (request.refuseDuplicates) {
        launch.words.emplace_back("--refuse-duplicates");
    }
    if (!request.backup.empty()) {
        launch.words.insert(launch.words.end(), {"--backup", request.backup});
    }
    launch.words.emplace_back("--");  // what follows is extra values, whatever it looks like
    launch.words.insert(launch.words.end(), request.extras.begin(), request.extras.end());
    launch.errors = request.errors;
    launch.handedDown = {lock.descriptor()};
    launch.environment = {{HOME_VARIABLE, tv.home()},
                          {CLOUD_VARIABLE, cloud},
                          {LOCK_VARIABLE, std::to_string(lock.descriptor())},
                          {KEEP_VARIABLE, std::to_string(request.keep)},
                          {SANDBOX_VARIABLE, request.noSandbox ? "off" : "on"}};
    return launch;
}

}  // namespace

EndedProcess execute(const Launch& launch) {
    const Process application(launch);
    return {application.id(), describeEnd(application.wait())};
}

RunReport launchAndJudge(const RunRequest& request, Tv& tv, const std::string& cloud, const CloudStore& store,
                         const FolderLock& lock, const Execute& execute) {
    const std::int64_t before = tv.runs().newest();
    const EndedProcess end = execute(launchOf(request, tv, cloud, lock));
    const std::optional<Run> run = tv.runs().close(before, end.pid, end.how);
    if (!run) {
        throw Error(fmt::format("the application did not start on the TV at {}: {}", tv.home().string(), end.how));
    }
    RunReport report = reportOn(tv, store, *run);
    tv.runs().add(run->id, report.verdict);
    return report;
}

}  // namespace sim
