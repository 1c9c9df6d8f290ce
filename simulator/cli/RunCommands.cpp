// The commands that launch the application and show the records of its runs.
#include <fmt/ranges.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <memory>

#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/base/FolderLock.h"
#include "simulator/base/Process.h"
#include "simulator/cli/Command.h"
#include "simulator/cli/Side.h"
#include "simulator/launch/Launch.h"
#include "simulator/launch/RecordedScenario.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/Words.h"
#include "simulator/reports/RunReport.h"
#include "simulator/reports/ToJson.h"
#include "simulator/reports/TvReport.h"
#include "simulator/tv/Tv.h"

namespace cli {

namespace {

struct RunOptions {
    sim::RunRequest request;
    bool asIs = false;
    bool expectFaults = false;
    int wait = 0;  // seconds
};

void printVerdict(const sim::RunReport& report) {
    const sim::Verdict& verdict = report.verdict;
    if (!verdict.why.empty()) {
        print("{}: {}\n", sim::nameOf(verdict.outcome), verdict.why);
    }
    if (!verdict.warning.empty()) {
        print("warning: {}\n", verdict.warning);
    }
    print("run {} of {}\n", report.run.id, report.run.started);
    print("  operation  {}\n",
          report.run.operation == sim::Operation::None ? "none" : sim::nameOf(report.run.operation));
    print("  outcome    {}\n", sim::nameOf(verdict.outcome));
    print("  backup     {}\n", report.run.backup.empty() ? "none" : report.run.backup);
    print("  response   {}\n", report.response);
    print("  reported   {}\n",
          report.run.reported == sim::Reported::Nothing ? "nothing" : sim::nameOf(report.run.reported));
    print("  reply      {}\n", report.reply);
    print("  ended      {}\n", report.end);
    for (const sim::FiredFault& fault : verdict.faults) {
        print("  fault      rule {} fired {}, first at call {} of {}\n", fault.rule,
              sim::plural(static_cast<std::uint64_t>(fault.fired), "time"), fault.nth, fault.call);
    }
    if (!verdict.items.empty()) {
        print("read back from the TV and the store:\n");
    }
    for (const sim::ItemVerdict& item : verdict.items) {
        print("  {:<10} {:<13} {}\n", sim::nameOf(item.item), sim::nameOf(item.state), item.detail);
    }
    if (verdict.reception) {
        print("  on the air {}\n", sim::words(*verdict.reception));
    }
}

void printTimeline(const std::vector<sim::Moment>& timeline) {
    constexpr double MILLISECONDS = 1000;
    print("{:>5} {:>9}\n", "no.", "seconds");
    for (const sim::Moment& moment : timeline) {
        print("{:>5} {:>9.3f}  {}{}\n", moment.seq, static_cast<double>(moment.at) / MILLISECONDS, sim::textOf(moment),
              moment.isDecisive ? "   <=== this decided the outcome" : "");
    }
}

int printReport(const Session& session, const sim::RunReport& report,
                const std::optional<std::vector<sim::Moment>>& timeline) {
    Json::Value json = sim::toJson(report);
    if (timeline && session.isJson) {
        json["timeline"] = sim::toJson(*timeline);
    }
    return answer(session, json, [&] {
        printVerdict(report);
        if (timeline) {
            printTimeline(*timeline);
        }
    });
}

// What a person at a terminal waits for.
void announce(const Session& session, const RunOptions& options) {
    if (!session.isQuiet && ::isatty(STDERR_FILENO) != 0) {
        print(stderr, "{} runs on the TV at {} with the cloud at {}{}; its log is shown with -v.\n",
              sim::application::NAME, session.home.string(), session.cloud,
              options.request.realtime ? ", and takes as long as on a TV" : "");
    }
}

// The log is long, and some of its successes are logged as failures; it is looked at if something went wrong.
void printFailures(const Session& session, const sim::Tv& tv, const sim::RunReport& report) {
    const bool hasFailed =
        report.verdict.outcome != sim::Outcome::Done && report.verdict.outcome != sim::Outcome::Unchecked;
    if (!hasFailed || session.isQuiet || session.isVerbose || session.isJson) {
        return;
    }
    sim::TimelineFilter failures;
    failures.calls = false;
    failures.priority = 6;
    print(stderr, "failures in the application's log; all of it: halcyon-tv record {} --log\n", report.run.id);
    std::vector<std::string> lines;
    for (const sim::Moment& moment : sim::timelineOf(tv, report, failures)) {
        lines.push_back(sim::textOf(moment));
    }
    printLines(stderr, "  ", lines);
}

void checkRequest(const RunOptions& options) {
    if (!options.asIs && !checkExtras(options.request.extras) && !options.request.backup.empty()) {
        throw UsageError(
            "--backup means nothing for a backup; for a restore: halcyon-tv run operation=restore --backup ID");
    }
}

// A restore also applies the files that an earlier, refused one has left, if its own bundle has none of the name.
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

constexpr int FORWARDED[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP};
volatile std::sig_atomic_t launched = 0;
volatile std::sig_atomic_t forwarded = 0;  // the last signal

// Blocks the signals within the scope.
class Blocked {
public:
    Blocked() {
        sigset_t signals;
        sigemptyset(&signals);
        for (const int signal : FORWARDED) {
            sigaddset(&signals, signal);
        }
        ::sigprocmask(SIG_BLOCK, &signals, &m_before);
    }
    ~Blocked() { ::sigprocmask(SIG_SETMASK, &m_before, nullptr); }
    Blocked(const Blocked&) = delete;
    Blocked& operator=(const Blocked&) = delete;

private:
    sigset_t m_before = {};
};

// Like sim::execute(), but while the application runs, signals that would end this process go to it instead. One that
// did not end it came too late for it, and is raised here.
sim::EndedProcess executeForwarding(const sim::Start& start) {
    std::optional<sim::Process> application;
    std::array<struct sigaction, std::size(FORWARDED)> before = {};
    {
        const Blocked untilItHasStarted;
        application.emplace(start());
        launched = application->id();
        struct sigaction forward = {};
        forward.sa_handler = [](int signal) {
            forwarded = signal;
            ::kill(launched, signal);
        };
        for (std::size_t i = 0; i < before.size(); ++i) {
            ::sigaction(FORWARDED[i], &forward, &before[i]);
        }
    }
    siginfo_t end = {};  // until it is reaped, its number is nobody else's
    while (::waitid(P_PID, static_cast<id_t>(application->id()), &end, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
    {
        const Blocked untilAllAreAsBefore;
        for (std::size_t i = 0; i < before.size(); ++i) {
            ::sigaction(FORWARDED[i], &before[i], nullptr);
        }
    }
    const int status = application->wait();
    if (forwarded != 0 && !WIFSIGNALED(status)) {
        ::raise(forwarded);
    }
    return {application->id(), sim::describeEnd(status)};
}

// The rules that should have fired in the run, and have not since `before` was listed.
std::vector<std::string> silentRules(const sim::Tv& tv, const std::vector<sim::FaultRule>& before, std::int64_t run) {
    std::vector<std::string> silent;
    for (const sim::FaultRule& rule : tv.faults().list()) {
        for (const sim::FaultRule& was : before) {
            if (was.id == rule.id && was.fired == rule.fired && (rule.run == 0 || rule.run == run)) {
                silent.push_back(fmt::format("{} ({} {})", rule.id, rule.call, sim::toText(rule.failures)));
            }
        }
    }
    return silent;
}

int run(const Session& session, const RunOptions& options) {
    checkRequest(options);
    const sim::FolderLock lock = sim::lockTv(session.home, std::chrono::seconds(options.wait));
    sim::Tv tv(session.home);
    warnOfLeftovers(tv);
    const std::unique_ptr<sim::CloudStore> store = session.openStore();
    sim::RunRequest request = options.request;
    // Chosen before the launch: a wrong id is an error of the command, and no failed run.
    if (!request.backup.empty()) {
        request.backup = sim::chooseBackup(*store, request.backup, tv.account()).id;
    }
    request.isBeforeKept = true;
    request.isLogShown = session.isVerbose && !session.isQuiet;
    announce(session, options);
    const std::vector<sim::FaultRule> rules = tv.faults().list();
    const sim::RunReport report = sim::launchAndJudge(request, tv, session.cloud, *store, lock, &executeForwarding);
    printReport(session, report, session.isVerbose ? std::optional(sim::timelineOf(tv, report, {})) : std::nullopt);
    if (!session.isQuiet) {
        printLines(stderr, "", report.complaints);
    }
    if (!report.unrecorded.empty()) {
        print(stderr, "The verdict is not in the run's record: {}\n", report.unrecorded);
    }
    printFailures(session, tv, report);
    if (options.expectFaults) {
        if (const std::vector<std::string> silent = silentRules(tv, rules, report.run.id); !silent.empty()) {
            print(stderr, "Fault rules that did not fire: {}\n", fmt::format("{}", fmt::join(silent, ", ")));
            return sim::exit_code::SILENT_FAULT;
        }
    }
    return exitCodeOf(report.verdict.outcome, report.verdict.cause);
}

struct RecordOptions {
    std::int64_t id = 0;     // 0: the newest
    std::int64_t other = 0;  // to compare it with; 0: none
    bool calls = false;
    bool log = false;
    bool all = false;
    std::string scenario;  // folder to make
    sim::TimelineFilter filter;
};

int listRecords(const Session& session, const std::vector<sim::RunReport>& reports) {
    return answer(session, sim::object({{"runs", reports}}), [&] {
        for (const sim::RunReport& report : reports) {
            print("{:>4}  {}  {:<8} {:<12} {}\n", report.run.id, report.run.started, sim::nameOf(report.run.operation),
                  sim::nameOf(report.verdict.outcome), report.verdict.why);
        }
    });
}

sim::Run chooseRun(const sim::Tv& tv, std::int64_t id) {
    const std::optional<sim::Run> run = tv.runs().find(id != 0 ? id : tv.runs().newest());
    if (!run) {
        throw sim::Error(sim::Error::Kind::Missing, id != 0
                                                        ? fmt::format("no run {}; see: halcyon-tv record --all", id)
                                                        : std::string("no run yet; launch one with: halcyon-tv run"));
    }
    return *run;
}

// Stretches of moments that both have are folded to their number.
void printDifference(const sim::RunDifference& difference) {
    constexpr double MILLISECONDS = 1000;
    for (const sim::RunSide* side : {&difference.left, &difference.right}) {
        print("{} run {} of {}: {}, {}\n", side == &difference.left ? "-" : "+", side->report.run.id,
              side->report.run.started, sim::nameOf(side->report.run.operation),
              sim::nameOf(side->report.verdict.outcome));
    }
    for (const sim::VerdictDifference& part : difference.verdict) {
        print("{}\n- {}\n+ {}\n", part.what, part.left.empty() ? "none" : part.left,
              part.right.empty() ? "none" : part.right);
    }
    std::size_t same = 0;
    const auto fold = [&] {
        if (same > 0) {
            print("           {} in both\n", sim::plural(same, "moment"));
        }
        same = 0;
    };
    print("   seconds\n");
    for (const sim::MomentPair& pair : difference.timeline) {
        if (pair.isOfBoth()) {
            ++same;
            continue;
        }
        fold();
        const sim::Moment& moment = difference.momentOf(pair);
        print("{} {:>8.3f}  {}\n", pair.left ? "-" : "+", static_cast<double>(moment.at) / MILLISECONDS,
              sim::textOf(moment));
    }
    fold();
}

int compare(const Session& session, const sim::RunDifference& difference) {
    answer(session, sim::toJson(difference), [&] {
        if (!session.isQuiet) {
            printDifference(difference);
        }
    });
    return difference.isSame() ? DONE : FAILED;
}

int record(const Session& session, const RecordOptions& options) {
    const sim::PlatformCall* call = sim::findPlatformCall(options.filter.call);
    if (!options.filter.call.empty() && call == nullptr) {
        throw UsageError(fmt::format("the platform has no call {}{}", sim::inQuotes(options.filter.call),
                                     sim::nearCall(options.filter.call)));
    }
    const sim::Tv tv = session.look();
    // A run that has its verdict can be shown where there is no store.
    std::unique_ptr<sim::CloudStore> opened;
    const sim::StoreOpener store = [&]() -> const sim::CloudStore& {
        opened = opened ? std::move(opened) : session.openStore();
        return *opened;
    };
    if (options.all) {
        return listRecords(session, sim::reportRuns(tv, store));
    }
    sim::TimelineFilter filter = options.filter;
    filter.call = call != nullptr ? call->name : "";
    // A filter of one kind leaves the other kind out, unless that is asked for.
    filter.calls = options.calls || !(options.log || filter.priority > 0);
    filter.log = options.log || !(options.calls || !filter.call.empty());
    const sim::RunReport report = sim::reportRun(tv, store, chooseRun(tv, options.id));
    if (!options.scenario.empty()) {
        const std::string file = sim::recordScenario(tv, store(), report, sim::normalised(options.scenario));
        return answer(session, sim::object({{"scenario", file}}), [&] { print("halcyon-tv play {}\n", file); });
    }
    if (options.other != 0) {
        const sim::RunReport other = sim::reportRun(tv, store, chooseRun(tv, options.other));
        return compare(session, sim::compareRuns({report, sim::timelineOf(tv, report, filter), session.home},
                                                 {other, sim::timelineOf(tv, other, filter), session.home}));
    }
    const bool isBrief = session.isQuiet && !session.isJson;
    return printReport(session, report, isBrief ? std::nullopt : std::optional(sim::timelineOf(tv, report, filter)));
}

}  // namespace

bool checkExtras(const std::vector<std::string>& extras) {
    std::string operation = "backup";
    for (const std::string& extra : extras) {
        const std::string key = extra.substr(0, extra.find('='));
        if (key == sim::application::OPERATION) {
            operation = extra.substr(key.size() + 1);
        } else if (key != sim::application::SCAN_ACTIVATED) {
            const std::string near =
                sim::didYouMean(key, {sim::application::OPERATION, sim::application::SCAN_ACTIVATED});
            if (!near.empty()) {
                throw UsageError(
                    fmt::format("the application reads no {}{}; --as-is launches it anyway", sim::inQuotes(key), near));
            }
        }
    }
    const bool isRestore = sim::application::isRestore(operation);
    if (!isRestore && operation != "backup") {
        const std::string hint = operation.find(' ') == std::string::npos
                                     ? sim::didYouMean(operation, {"restore", "backup"})
                                     : " (give each extra value as a word of its own)";
        throw UsageError(fmt::format("operation {} would make a backup{}; --as-is launches it anyway",
                                     sim::inQuotes(operation), hint));
    }
    return isRestore;
}

void addRunCommands(CLI::App& app, Action& chosen) {
    const auto options = std::make_shared<RunOptions>();
    CLI::App* running = addCommand(app, "run",
                                   "Launch the application for a backup, or with operation=restore, then check "
                                   "the TV and the store",
                                   "halcyon-tv run operation=restore --backup 000001", chosen,
                                   [options](const Session& session) { return run(session, *options); });
    running->add_option("extra", options->request.extras, "extra values of the launch request, each key=value")
        ->check(&sim::application::checkExtra);
    running->add_option("--app", options->request.program, "another build of the application, linked with the client")
        ->check(CLI::ExistingFile);
    running->add_option_function<std::string>(
        "--wrap", [options](const std::string& words) { options->request.wrapper = CLI::detail::split_up(words); },
        "a program and its arguments that launch it, such as 'gdb --args', valgrind or strace; it is not confined "
        "then");
    running->add_flag("--refuse-duplicates", options->request.refuseDuplicates,
                      "let the cloud refuse a backup if its newest one has the same bundle");
    running->add_option("--backup", options->request.backup, "the backup to restore (default: the newest)");
    running->add_flag("--as-is", options->asIs, "launch it even if something looks like a typing error");
    running->add_flag("--expect-faults", options->expectFaults, "end with code 9 if a fault rule did not fire");
    running->add_flag_callback(
        "--no-reply", [options] { options->request.replyRequested = false; }, "do not request a reply");
    running->add_flag("--realtime", options->request.realtime, "wait for responses as long as on a TV");
    running->add_option("--wait", options->wait, "seconds to wait for another run on the TV to end")
        ->check(CLI::NonNegativeNumber);
    running->add_option("--keep", options->request.keep, "how many runs' records to keep, this one included")
        ->capture_default_str()
        ->check(CLI::PositiveNumber);
    running->add_flag_callback(
        "--no-sandbox", [options] { options->request.isConfined = false; },
        "let the application write outside the TV and the cloud");

    const auto which = std::make_shared<RecordOptions>();
    CLI::App* recording = addCommand(
        app, "record", "Show the result of a run, with its calls and log records in order; or how two runs differ",
        "halcyon-tv record --priority 6", chosen, [which](const Session& session) { return record(session, *which); });
    recording->add_option("run", which->id, "number of the run (default: the newest)")->check(CLI::PositiveNumber);
    recording->add_option("other", which->other, "number of a run to compare it with")->check(CLI::PositiveNumber);
    recording->add_flag("--calls", which->calls, "calls only");
    recording->add_flag("--log", which->log, "log records only");
    recording->add_flag("--sinks", which->filter.sinks, "show a log record once for each place that it was written to");
    recording->add_option("--priority", which->filter.priority, "log records of this priority and above only");
    recording->add_option("--call", which->filter.call, "calls of this name only");
    recording->add_option("--grep", which->filter.text, "only calls and log records with this text");
    recording->add_flag("--all", which->all, "list all runs, one per line");
    recording->add_option("--as-scenario", which->scenario,
                          "make this folder, with a scenario that repeats the run: for one of the newest ten");
}

}  // namespace cli
