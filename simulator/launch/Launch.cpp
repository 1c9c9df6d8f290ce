#include "simulator/launch/Launch.h"

#include <fmt/format.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>

#include "simulator/base/Descriptor.h"
#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Text.h"
#include "simulator/device/Service.h"
#include "simulator/lineup/Application.h"
#include "simulator/tv/StateBefore.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

// The application has ended, by a signal perhaps: what it asked for last may wait for a store that does not answer.
constexpr std::chrono::seconds PATIENCE{2};

// A program beside this one.
fs::path programPath(const char* name) {
    std::error_code error;
    fs::path path = fs::read_symlink("/proc/self/exe", error).parent_path() / name;
    if (!pathExists(path)) {
        throw Error(Error::Kind::Missing,
                    fmt::format("{} is not there; build or install it beside the other programs", path.string()));
    }
    return path;
}

std::vector<std::string> applicationWords(const RunRequest& request) {
    std::vector<std::string> words = request.wrapper;
    words.push_back(request.program.empty() ? programPath(application::NAME) : absolutePath(request.program));
    if (::access(words.back().c_str(), X_OK) != 0) {
        throw Error::ofSystem(words.back(), "cannot launch");
    }
    words.insert(words.end(), {"--caller", request.caller});
    if (request.replyRequested) {
        words.emplace_back("--reply");
    }
    if (request.realtime) {
        words.emplace_back("--realtime");
    }
    if (request.refuseDuplicates) {
        words.emplace_back("--refuse-duplicates");
    }
    if (!request.backup.empty()) {
        words.insert(words.end(), {"--backup", request.backup});
    }
    words.emplace_back("--");  // what follows is extra values, whatever it looks like
    words.insert(words.end(), request.extras.begin(), request.extras.end());
    return words;
}

// The two processes of a run, connected: ends[0] of each pair is the services', but that they only read from pipes.
struct Wires {
    DescriptorPair socket = socketPair(application::NAME);
    DescriptorPair output = pipePair(application::NAME);
    DescriptorPair errors = pipePair(application::NAME);
};

ProcessOptions serviceOptions(const RunRequest& request, const Tv& tv, const std::string& cloud, const FolderLock& lock,
                              const Wires& wires) {
    ProcessOptions options;
    options.words = {programPath("halcyon-tv"),
                     "service",
                     "--socket",
                     std::to_string(wires.socket[0].get()),
                     "--output",
                     std::to_string(wires.output[0].get()),
                     "--errors",
                     std::to_string(wires.errors[0].get())};
    options.handedDown = {lock.descriptor(), wires.socket[0].get(), wires.output[0].get(), wires.errors[0].get()};
    options.environment = {{HOME_VARIABLE, tv.home()},
                           {CLOUD_VARIABLE, cloud},
                           {LOCK_VARIABLE, std::to_string(lock.descriptor())},
                           {KEEP_VARIABLE, std::to_string(request.keep)},
                           {SANDBOX_VARIABLE, request.isConfined && request.wrapper.empty() ? "on" : "off"}};
    options.hasOwnGroup = request.hasOwnGroup;
    return options;
}

// Kills a process that takes too long.
class Deadline {
public:
    Deadline(int process, std::chrono::milliseconds limit) {
        s_process = process;
        struct sigaction kill = {};
        kill.sa_handler = [](int) { ::kill(s_process, SIGKILL); };
        ::sigaction(SIGALRM, &kill, &m_before);
        set(limit);
    }
    ~Deadline() {
        set(std::chrono::milliseconds(0));
        ::sigaction(SIGALRM, &m_before, nullptr);
    }
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;

private:
    static void set(std::chrono::milliseconds limit) {
        itimerval timer = {};
        timer.it_value.tv_sec = static_cast<std::time_t>(limit.count() / 1000);
        timer.it_value.tv_usec = static_cast<suseconds_t>(limit.count() % 1000 * 1000);
        ::setitimer(ITIMER_REAL, &timer, nullptr);
    }

    static inline volatile std::sig_atomic_t s_process = 0;
    struct sigaction m_before = {};
};

// Starts the application, and serves it in this process.
EndedProcess executeHere(const RunRequest& request, const ProcessOptions& application, const Tv& tv,
                         const std::string& cloud, const FolderLock& lock, Wires wires) {
    const Process started(application);
    for (DescriptorPair* pair : {&wires.socket, &wires.output, &wires.errors}) {
        (*pair)[1].reset();  // else it could not be seen that the application has ended
    }
    const Deadline deadline(started.id(), request.limit);
    ServiceOptions options;
    options.home = tv.home();
    options.cloud = cloud;
    options.lock = lock.descriptor();
    options.keep = request.keep;
    options.isConfined = request.isConfined;
    serveApplication(options, {std::move(wires.socket[0]), std::move(wires.output[0]), std::move(wires.errors[0])});
    return {started.id(), describeEnd(started.wait())};
}

// Starts the application by way of `execute`, and its services before it.
EndedProcess executeBeside(const ProcessOptions& services, const ProcessOptions& application,
                           std::optional<Wires>& wires, const Execute& execute) {
    const Process served(services);
    // The services end when nobody else has the application's end of the socket.
    const auto start = [&] {
        Process started(application);
        wires.reset();
        return started;
    };
    try {
        EndedProcess end = execute(start);
        served.waitOrKill(PATIENCE);
        return end;
    } catch (...) {
        wires.reset();
        served.waitOrKill(PATIENCE);
        throw;
    }
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

// The lines that are none of the application's log.
std::vector<std::string> complaintsIn(const std::string& printed) {
    const std::string prefix = std::string(application::NAME) + ": ";
    std::vector<std::string> complaints;
    for (const std::string& line : split(printed, '\n')) {
        if (line.compare(0, prefix.size(), prefix) == 0) {
            complaints.push_back(line);
        }
    }
    return complaints;
}

// The disk may be full: the run matters more.
void keepBeforeIfAsked(const RunRequest& request, const Tv& tv, std::int64_t run) {
    try {
        if (request.isBeforeKept) {
            keepBefore(tv, run);
        }
    } catch (const Error&) {
    }
}

}  // namespace

EndedProcess execute(const Start& start) {
    const Process application = start();
    return {application.id(), describeEnd(application.wait())};
}

RunReport launchAndJudge(const RunRequest& request, Tv& tv, const std::string& cloud, const CloudStore& store,
                         const FolderLock& lock, const Execute& execute) {
    const std::int64_t before = tv.runs().newest();
    ProcessOptions application;
    application.words = applicationWords(request);
    application.hasOwnGroup = request.hasOwnGroup;
    const std::unique_ptr<std::FILE, decltype(&std::fclose)> printed(
        request.isLogShown || request.isServedHere ? nullptr : std::tmpfile(), &std::fclose);
    std::optional<Wires> wires(std::in_place);
    application.environment = {{SOCKET_VARIABLE, std::to_string(wires->socket[1].get())}};
    application.handedDown = {wires->socket[1].get()};
    if (request.wrapper.empty()) {
        application.output = wires->output[1].get();
        application.errors = wires->errors[1].get();
    }
    keepBeforeIfAsked(request, tv, before + 1);
    ProcessOptions services = serviceOptions(request, tv, cloud, lock, *wires);
    services.errors = printed ? ::fileno(printed.get()) : services.errors;
    const EndedProcess end = request.isServedHere
                                 ? executeHere(request, application, tv, cloud, lock, std::move(*wires))
                                 : executeBeside(services, application, wires, execute);
    const std::optional<Run> run =
        tv.runs().close(before, request.wrapper.empty() ? std::optional(end.pid) : std::nullopt, end.how);
    if (!run) {
        throw Error(fmt::format("the application did not start on the TV at {}: {}{}{}", tv.home().string(), end.how,
                                printed ? "\n" : "", printed ? contentOf(printed.get()) : ""));
    }
    RunReport report = reportRun(tv, opened(store), *run);
    if (printed) {
        report.complaints = complaintsIn(contentOf(printed.get()));
    }
    if (report.verdict.outcome != Outcome::Unchecked) {
        try {
            tv.runs().record(run->id).add(report.verdict);
        } catch (const Error& error) {  // the run has its outcome all the same
            report.unrecorded = error.what();
        }
    }
    return report;
}

}  // namespace sim
