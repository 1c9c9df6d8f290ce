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

ProcessOptions processOptions(const RunRequest& request, const Tv& tv, const std::string& cloud,
                              const FolderLock& lock) {
    ProcessOptions options;
    options.words = {applicationPath(), "--caller", "halcyon-tv"};
    if (request.replyRequested) {
        options.words.emplace_back("--reply");
    }
    if (request.realtime) {
        options.words.emplace_back("--realtime");
    }
    if (request.refuseDuplicates) {
        options.words.emplace_back("--refuse-duplicates");
    }
    if (!request.backup.empty()) {
        options.words.insert(options.words.end(), {"--backup", request.backup});
    }
    options.words.emplace_back("--");  // what follows is extra values, whatever it looks like
    options.words.insert(options.words.end(), request.extras.begin(), request.extras.end());
    options.handedDown = {lock.descriptor()};
    options.environment = {{HOME_VARIABLE, tv.home()},
                           {CLOUD_VARIABLE, cloud},
                           {LOCK_VARIABLE, std::to_string(lock.descriptor())},
                           {KEEP_VARIABLE, std::to_string(request.keep)},
                           {SANDBOX_VARIABLE, request.isConfined ? "on" : "off"}};
    return options;
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

EndedProcess execute(const ProcessOptions& options) {
    const Process application(options);
    return {application.id(), describeEnd(application.wait())};
}

RunReport launchAndJudge(const RunRequest& request, Tv& tv, const std::string& cloud, const CloudStore& store,
                         const FolderLock& lock, const Execute& execute) {
    const std::int64_t before = tv.runs().newest();
    ProcessOptions options = processOptions(request, tv, cloud, lock);
    const std::unique_ptr<std::FILE, decltype(&std::fclose)> printed(request.isLogShown ? nullptr : std::tmpfile(),
                                                                     &std::fclose);
    options.errors = printed ? ::fileno(printed.get()) : options.errors;
    const EndedProcess end = execute(options);
    const std::optional<Run> run = tv.runs().close(before, end.pid, end.how);
    if (!run) {
        throw Error(fmt::format("the application did not start on the TV at {}: {}{}{}", tv.home().string(), end.how,
                                printed ? "\n" : "", printed ? contentOf(printed.get()) : ""));
    }
    RunReport report = reportRun(tv, store, *run);
    tv.runs().record(run->id).add(report.verdict);
    return report;
}

}  // namespace sim
