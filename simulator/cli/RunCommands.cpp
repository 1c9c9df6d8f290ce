// The commands that launch the application and show what became of it.
#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "simulator/base/Error.h"
#include "simulator/cli/Commands.h"
#include "simulator/cli/Names.h"
#include "simulator/cloud/CloudStore.h"
#include "simulator/tv/RunRecord.h"
#include "simulator/tv/Tv.h"

namespace fs = std::filesystem;

namespace cli {

namespace {

// The application beside this program.
fs::path applicationPath() {
    fs::path path = fs::read_symlink("/proc/self/exe").parent_path() / "halcyon-lineup";
    if (!fs::exists(path)) {
        throw sim::Error(
            fmt::format("{} is not there; build or install the application beside halcyon-tv", path.string()));
    }
    return path;
}

std::vector<std::string> commandLine(const RunOptions& options) {
    std::vector<std::string> words = {applicationPath(), "--caller", "halcyon-tv"};
    if (options.reply) {
        words.emplace_back("--reply");
    }
    if (options.realtime) {
        words.emplace_back("--realtime");
    }
    if (!options.backup.empty()) {
        words.insert(words.end(), {"--backup", options.backup});
    }
    words.emplace_back("--");  // what follows is extra values, whatever it looks like
    words.insert(words.end(), options.extras.begin(), options.extras.end());
    return words;
}

// Starts a command with its standard error going to `errors`, and waits for its end.
struct Ending {
    int pid;
    int status;
};
Ending execute(std::vector<std::string> words, FILE* errors) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    std::fflush(nullptr);
    // A key that interrupts the application must not keep its end from being recorded.
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGQUIT, SIG_IGN);
    const int pid = ::fork();
    if (pid == 0) {
        std::signal(SIGINT, SIG_DFL);
        std::signal(SIGQUIT, SIG_DFL);
        ::dup2(::fileno(errors), STDERR_FILENO);
        ::execv(arguments.front(), arguments.data());
        ::_exit(UNUSABLE);
    }
    int status = 0;
    if (pid < 0 || ::waitpid(pid, &status, 0) != pid) {
        throw sim::Error(fmt::format("cannot launch {}: {}", words.front(), std::strerror(errno)));
    }
    return {pid, status};
}

std::string content(FILE* file) {
    std::rewind(file);
    std::string text;
    for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file)) {
        text += static_cast<char>(c);
    }
    return text;
}

std::string describe(int status) {
    return WIFSIGNALED(status)
               ? fmt::format("killed by signal {} ({})", WTERMSIG(status), ::strsignal(WTERMSIG(status)))
               : fmt::format("ended with code {}", WEXITSTATUS(status));
}

std::string describeReply(const sim::Run& run) {
    if (run.reply) {
        return fmt::format("{} ({})", *run.reply, *run.reply == 0 ? "success" : "failure");
    }
    if (!run.replyRequested) {
        return "none requested";
    }
    return run.operation == "backup" ? "none: a backup never replies" : "none, though one was requested";
}

std::string describeEnd(const sim::Run& run) {
    std::string text = run.ended;
    if (run.ended == sim::Ended::EXIT) {
        text = "own exit";
    } else if (run.ended == sim::Ended::RECLAIMED) {
        text = "reclaimed by the framework: nothing left to wait for";
    } else if (run.ended == sim::Ended::WAITING) {
        text = "still waiting for what will never come";
    }
    return run.detail.empty() ? text : fmt::format("{}: {}", text, run.detail);
}

std::string outcome(const sim::Run& run) {
    if (run.ended == sim::Ended::RUNNING) {
        return "open";
    }
    return run.succeeded() ? "succeeded" : "failed";
}

void print(const sim::Run& run) {
    fmt::print("run {} of {}\n", run.id, run.started);
    fmt::print("  operation  {}\n", run.operation.empty() ? "none" : run.operation);
    fmt::print("  response   {}\n",
               run.response ? fmt::format("{} ({})", *run.response, nameOfResponse(*run.response)) : "none");
    fmt::print("  reported   {}\n", run.reported.empty() ? "nothing" : run.reported);
    fmt::print("  reply      {}\n", describeReply(run));
    fmt::print("  ended      {}\n", describeEnd(run));
    fmt::print("  outcome    {}\n", outcome(run));
}

// The text on one line.
std::string flat(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\n' || c == '\t'; }, ' ');
    return text;
}

void print(const sim::CallRecord& call) {
    const std::string fault = call.fault ? fmt::format("   [fault rule {}]", *call.fault) : "";
    const std::string result = call.result.empty() ? "" : fmt::format(" = {}", call.result);
    fmt::print("{:>5}  {}({}){}{}\n", call.seq, call.name, flat(call.arguments), result, fault);
}

void print(const sim::LogRecord& log) {
    const std::string message = log.message.substr(0, log.message.find_last_not_of(" \n") + 1);
    if (log.sink == "system") {
        fmt::print("{:>5}  system {} {}: {}\n", log.seq, log.priority, log.tag, message);
    } else {
        fmt::print("{:>5}  logger {}: {}({}): {}\n", log.seq, log.file, log.function, log.line, message);
    }
}

void checkBackup(const Place& place, const std::string& id) {
    for (const sim::StoredBackup& backup : sim::CloudStore(place.cloud).list().backups) {
        if (backup.id == id) {
            return;
        }
    }
    throw sim::Error(fmt::format("{} holds no backup {}; see: halcyon-tv cloud list", place.cloud.string(), id));
}

}  // namespace

int run(const Place& place, const RunOptions& options) {
    sim::Tv tv(place.home);
    if (!options.backup.empty()) {
        checkBackup(place, options.backup);
    }
    ::setenv("HALCYON_TV_HOME", place.home.c_str(), 1);
    ::setenv("HALCYON_CLOUD", place.cloud.c_str(), 1);
    const std::int64_t before = sim::newestRun(tv.database());
    const std::unique_ptr<FILE, decltype(&std::fclose)> log(options.quiet ? std::tmpfile() : nullptr, &std::fclose);
    const Ending ending = execute(commandLine(options), log ? log.get() : stderr);
    const std::optional<sim::Run> run = sim::closeRun(tv.database(), before, ending.pid, describe(ending.status));
    if (!run) {
        throw sim::Error(fmt::format("the application did not start on the TV at {}: {}{}", place.home.string(),
                                     describe(ending.status), log ? "\n" + content(log.get()) : ""));
    }
    print(*run);
    return run->succeeded() ? DONE : FAILED;
}

int record(const Place& place, std::optional<std::int64_t> id, bool withCalls, bool withLog) {
    sim::Tv tv(place.home);
    sim::closeAbandonedRuns(tv.database());
    const std::int64_t chosen = id ? *id : sim::newestRun(tv.database());
    const std::optional<sim::Run> run = sim::findRun(tv.database(), chosen);
    if (!run) {
        throw sim::Error(id ? fmt::format("no run {}; see: halcyon-tv record --all", *id)
                            : std::string("no run yet; launch one with: halcyon-tv run"));
    }
    print(*run);
    if (withCalls) {
        fmt::print("platform calls:\n");
        for (const sim::CallRecord& call : sim::listCalls(tv.database(), run->id)) {
            print(call);
        }
    }
    if (withLog) {
        fmt::print("log:\n");
        for (const sim::LogRecord& log : sim::listLog(tv.database(), run->id)) {
            print(log);
        }
    }
    return DONE;
}

int listRecords(const Place& place) {
    sim::Tv tv(place.home);
    sim::closeAbandonedRuns(tv.database());
    for (const sim::Run& run : sim::listRuns(tv.database())) {
        fmt::print("{:>4}  {}  {:<8} {:<10} {}\n", run.id, run.started, run.operation, outcome(run), describeEnd(run));
    }
    return DONE;
}

}  // namespace cli
