// The commands that launch the application and show what became of it.
#include <fmt/ranges.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <memory>

#include "simulator/base/Error.h"
#include "simulator/base/FolderLock.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Places.h"
#include "simulator/base/Process.h"
#include "simulator/cli/Command.h"
#include "simulator/cli/Print.h"
#include "simulator/cloud/CloudStore.h"
#include "simulator/reports/RunReport.h"
#include "simulator/reports/TvReport.h"
#include "simulator/tv/Application.h"
#include "simulator/tv/Tv.h"

namespace fs = std::filesystem;

namespace cli {

namespace {

struct RunOptions {
    std::vector<std::string> extras;  // key=value each
    std::string backup;
    bool noReply = false;
    bool realtime = false;
    bool quiet = false;
    bool noSandbox = false;
    int wait = 0;  // seconds
    int keep = sim::limits::RUNS_KEPT;
};

// The application beside this program.
fs::path applicationPath() {
    fs::path path = fs::read_symlink("/proc/self/exe").parent_path() / sim::application::NAME;
    if (!fs::exists(path)) {
        throw sim::Error(
            sim::Error::Kind::Missing,
            fmt::format("{} is not there; build or install the application beside halcyon-tv", path.string()));
    }
    return path;
}

sim::Launch launchOf(const Place& place, const RunOptions& options, const sim::FolderLock& lock) {
    sim::Launch launch;
    launch.words = {applicationPath(), "--caller", "halcyon-tv"};
    if (!options.noReply) {
        launch.words.emplace_back("--reply");
    }
    if (options.realtime) {
        launch.words.emplace_back("--realtime");
    }
    if (!options.backup.empty()) {
        launch.words.insert(launch.words.end(), {"--backup", options.backup});
    }
    launch.words.emplace_back("--");  // what follows is extra values, whatever it looks like
    launch.words.insert(launch.words.end(), options.extras.begin(), options.extras.end());
    launch.handedDown = {lock.descriptor()};
    launch.environment = {{sim::HOME_VARIABLE, place.home},
                          {sim::CLOUD_VARIABLE, place.cloud},
                          {sim::LOCK_VARIABLE, std::to_string(lock.descriptor())},
                          {sim::KEEP_VARIABLE, std::to_string(options.keep)},
                          {sim::SANDBOX_VARIABLE, options.noSandbox ? "off" : "on"}};
    return launch;
}

using File = std::unique_ptr<std::FILE, decltype(&std::fclose)>;

std::string content(std::FILE* file) {
    std::rewind(file);
    std::string text;
    for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file)) {
        text += static_cast<char>(c);
    }
    return text;
}

void printRun(const sim::RunReport& report) {
    print("run {} of {}\n", report.run.id, report.run.started);
    print("  operation  {}\n", report.run.operation.empty() ? "none" : report.run.operation);
    print("  response   {}\n", report.response);
    print("  reported   {}\n", report.run.reported.empty() ? "nothing" : report.run.reported);
    print("  reply      {}\n", report.reply);
    print("  ended      {}\n", report.end);
    print("  outcome    {}\n", sim::nameOf(report.outcome));
}

void printCall(const sim::CallRecord& call) {
    const std::string fault = call.fault ? fmt::format("   [fault rule {}]", *call.fault) : "";
    const std::string result = call.result.empty() ? "" : fmt::format(" = {}", call.result);
    print("{:>5}  {}({}){}{}\n", call.seq, call.name, call.arguments, result, fault);
}

void printLog(const sim::LogRecord& log) {
    const std::string message = log.message.substr(0, log.message.find_last_not_of(" \n") + 1);
    if (log.sink == "system") {
        print("{:>5}  system {} {}: {}\n", log.seq, log.priority, log.tag, message);
    } else {
        print("{:>5}  logger {}: {}({}): {}\n", log.seq, log.file, log.function, log.line, message);
    }
}

void requireBackup(const Place& place, const std::string& id) {
    for (const sim::StoredBackup& backup : sim::openCloud(place.cloud)->list()) {
        if (backup.id == id) {
            return;
        }
    }
    throw sim::Error(sim::Error::Kind::Missing,
                     fmt::format("{} holds no backup {}; see: halcyon-tv cloud list", place.cloud, id));
}

// Files that a refused restore has left, and that a later one applies where its bundle has none of the name.
void warnOfLeftovers(const sim::Tv& tv) {
    const std::vector<std::string> leftovers = sim::leftoversOf(tv);
    if (!leftovers.empty()) {
        const std::string folder = sim::unpackFolderOf(tv);
        print(stderr,
              "An earlier run left {} in {}; a restore applies what its bundle does not have itself. To be rid of it: "
              "rm -r '{}'\n",
              fmt::format("{}", fmt::join(leftovers, ", ")), folder, folder);
    }
}

volatile std::sig_atomic_t launched = 0;

// Launches the application and waits for its end. Signals that would end this process go to the application instead,
// from its start on.
struct Ended {
    int pid;
    std::string how;
};
Ended execute(const sim::Launch& launch) {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP}) {
        sigaddset(&signals, signal);
    }
    ::sigprocmask(SIG_BLOCK, &signals, nullptr);
    const sim::Process application(launch);
    launched = application.id();
    struct sigaction forward = {};
    forward.sa_handler = [](int signal) { ::kill(launched, signal); };
    for (const int signal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP}) {
        ::sigaction(signal, &forward, nullptr);
    }
    ::sigprocmask(SIG_UNBLOCK, &signals, nullptr);
    return {application.id(), sim::describeEnd(application.wait())};
}

int run(const Place& place, const RunOptions& options) {
    const sim::FolderLock lock = sim::lockTv(place.home, std::chrono::seconds(options.wait));
    sim::Tv tv(place.home);
    warnOfLeftovers(tv);
    if (!options.backup.empty()) {
        requireBackup(place, options.backup);
    }
    const std::int64_t before = tv.runs().newest();
    const File log(options.quiet ? std::tmpfile() : nullptr, &std::fclose);
    sim::Launch launch = launchOf(place, options, lock);
    launch.errors = log ? ::fileno(log.get()) : -1;
    const Ended end = execute(launch);
    const std::optional<sim::Run> ended = tv.runs().close(before, end.pid, end.how);
    if (!ended) {
        throw sim::Error(fmt::format("the application did not start on the TV at {}: {}{}", place.home.string(),
                                     end.how, log ? "\n" + content(log.get()) : ""));
    }
    const sim::RunReport report = sim::reportOn(*ended);
    printRun(report);
    return report.outcome == sim::Outcome::Succeeded ? DONE : FAILED;
}

struct RecordOptions {
    std::int64_t id = 0;  // 0: the newest
    bool withCalls = false;
    bool withLog = false;
    bool all = false;
};

int listRecords(const sim::Tv& tv) {
    for (const sim::Run& run : tv.runs().list()) {
        const sim::RunReport report = sim::reportOn(run);
        print("{:>4}  {}  {:<8} {:<10} {}\n", run.id, run.started, run.operation, sim::nameOf(report.outcome),
              report.end);
    }
    return DONE;
}

int record(const Place& place, const RecordOptions& options) {
    sim::Tv tv(place.home);
    tv.runs().closeAbandoned();
    if (options.all) {
        return listRecords(tv);
    }
    const std::optional<sim::Run> run = tv.runs().find(options.id != 0 ? options.id : tv.runs().newest());
    if (!run) {
        throw sim::Error(sim::Error::Kind::Missing,
                         options.id != 0 ? fmt::format("no run {}; see: halcyon-tv record --all", options.id)
                                         : std::string("no run yet; launch one with: halcyon-tv run"));
    }
    printRun(sim::reportOn(*run));
    if (options.withCalls) {
        print("platform calls:\n");
        for (const sim::CallRecord& call : tv.runs().calls(run->id)) {
            printCall(call);
        }
    }
    if (options.withLog) {
        print("log:\n");
        for (const sim::LogRecord& log : tv.runs().log(run->id)) {
            printLog(log);
        }
    }
    return DONE;
}

std::string checkExtra(const std::string& extra) {
    const std::size_t equals = extra.find('=');
    return equals == std::string::npos || equals == 0
               ? sim::inQuotes(extra) + " is not of the form key=value, such as operation=restore"
               : std::string();
}

}  // namespace

void addRunCommands(CLI::App& app, Action& chosen) {
    const auto options = std::make_shared<RunOptions>();
    CLI::App* running = addCommand(app, "run", "Launch the application: a backup, or operation=restore", chosen,
                                   [options](const Place& place) { return run(place, *options); });
    running->add_option("extra", options->extras, "extra values of the launch request, each key=value")
        ->check(&checkExtra);
    running->add_option("--backup", options->backup, "the backup to restore (default: the newest)");
    running->add_flag("--no-reply", options->noReply, "do not request a reply");
    running->add_flag("--realtime", options->realtime, "wait for responses as long as on a TV");
    running->add_flag("--quiet,-q", options->quiet, "without the log");
    running->add_option("--wait", options->wait, "seconds to wait for a run that is under way on the TV")
        ->check(CLI::NonNegativeNumber);
    running->add_option("--keep", options->keep, "how many runs' records to keep, this one included")
        ->capture_default_str()
        ->check(CLI::PositiveNumber);
    running->add_flag("--no-sandbox", options->noSandbox, "let the application write outside the TV and the cloud");

    const auto which = std::make_shared<RecordOptions>();
    CLI::App* recording = addCommand(app, "record", "Show the record of a run", chosen,
                                     [which](const Place& place) { return record(place, *which); });
    recording->add_option("run", which->id, "number of the run (default: the newest)")->check(CLI::PositiveNumber);
    recording->add_flag("--calls", which->withCalls, "with each platform call and its result");
    recording->add_flag("--log", which->withLog, "with each log record");
    recording->add_flag("--all", which->all, "list all runs, a line each");
}

}  // namespace cli
