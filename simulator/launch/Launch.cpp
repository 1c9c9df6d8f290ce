#include "simulator/launch/Launch.h"

#include <fmt/format.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/lineup/Application.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

// The application beside this program.
fs::path applicationPath() {
    std::error_code error;
    fs::path path = fs::read_symlink("/proc/self/exe", error).parent_path() / application::NAME;
    if (!pathExists(path)) {
        throw Error(Error::Kind::Missing,
                    fmt::format("{} is not there; build or install the application beside halcyon-tv", path.string()));
    }
    return path;
}

Launch launchOf(const RunRequest& request, const Tv& tv, const std::string& cloud, const FolderLock& lock) {
    Launch launch;
    launch.words = {applicationPath(), "--caller", "halcyon-tv"};
    if (request.replyRequested) {
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
    launch.handedDown = {lock.descriptor()};
    launch.environment = {{HOME_VARIABLE, tv.home()},
                          {CLOUD_VARIABLE, cloud},
                          {LOCK_VARIABLE, std::to_string(lock.descriptor())},
                          {KEEP_VARIABLE, std::to_string(request.keep)},
                          {SANDBOX_VARIABLE, request.isConfined ? "on" : "off"}};
    return launch;
}

std::string contentOf(std::FILE* file) {
    std::rewind(file);
    std::string text;
    std::array<char, 4096> buffer;
    for (std::size_t count = 0; (count = std::fread(buffer.data(), 1, buffer.size(), file)) > 0;) {
        text.append(buffer.data(), count);
    }
    return text;
}

}  // namespace

EndedProcess execute(const Launch& launch) {
    const Process application(launch);
    return {application.id(), describeEnd(application.wait())};
}

RunReport launchAndJudge(const RunRequest& request, Tv& tv, const std::string& cloud, const CloudStore& store,
                         const FolderLock& lock, const Execute& execute) {
    const std::int64_t before = tv.runs().newest();
    Launch launch = launchOf(request, tv, cloud, lock);
    const std::unique_ptr<std::FILE, decltype(&std::fclose)> printed(request.isLogShown ? nullptr : std::tmpfile(),
                                                                     &std::fclose);
    launch.errors = printed ? ::fileno(printed.get()) : launch.errors;
    const EndedProcess end = execute(launch);
    const std::optional<Run> run = tv.runs().close(before, end.pid, end.how);
    if (!run) {
        throw Error(fmt::format("the application did not start on the TV at {}: {}{}{}", tv.home().string(), end.how,
                                printed ? "\n" : "", printed ? contentOf(printed.get()) : ""));
    }
    RunReport report = reportOn(tv, store, *run);
    tv.runs().add(run->id, report.verdict);
    return report;
}

}  // namespace sim
