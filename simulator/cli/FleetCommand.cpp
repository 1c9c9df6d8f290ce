// The command that runs the application on many TVs.
#include <fmt/ranges.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <map>
#include <memory>
#include <optional>
#include <regex>
#include <thread>

#include "simulator/base/Environment.h"
#include "simulator/base/Files.h"
#include "simulator/cli/Command.h"
#include "simulator/launch/Fleet.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/ChannelList.h"
#include "simulator/reports/ToJson.h"
#include "simulator/tv/Tv.h"

namespace cli {

namespace {

constexpr std::size_t MAX_TVS = 99'999;
constexpr std::size_t MAX_JOBS = 1024;

struct Options {
    sim::FleetRequest request;
    std::string lab;
    std::string channels;
    bool asIs = false;
};

// The value that a share of all values does not exceed.
double percentile(const std::vector<double>& sorted, double share) {
    const auto count = static_cast<double>(sorted.size());
    const auto rank = static_cast<std::size_t>(std::max(1.0, std::ceil(share * count)));
    return sorted.empty() ? 0 : sorted[rank - 1];
}

struct Summary {
    Summary(sim::FleetRuns all, std::size_t wanted, std::size_t begun, double duration)
        : tvs(wanted), now(begun), seconds(duration), runs(std::move(all)) {
        for (const auto& [tv, run] : runs) {
            ++outcomes[std::string(sim::nameOf(run.outcome))];
            times.push_back(run.seconds);
        }
        std::sort(times.begin(), times.end());
    }

    std::size_t tvs;
    std::size_t now;  // runs of this command; the others were done before it was interrupted
    double seconds;
    sim::FleetRuns runs;
    std::map<std::string, std::size_t> outcomes;
    std::vector<double> times;  // sorted
};

Json::Value toJson(const Summary& summary) {
    Json::Value failures(Json::arrayValue);
    for (const auto& [tv, run] : summary.runs) {
        if (run.outcome != sim::Outcome::Done) {
            failures.append(sim::object({{"tv", tv}, {"outcome", sim::nameOf(run.outcome)}, {"why", run.why}}));
        }
    }
    return sim::object({{"tvs", summary.tvs},
                        {"runs", summary.runs.size()},
                        {"runsNow", summary.now},
                        {"seconds", summary.seconds},
                        {"outcomes", summary.outcomes},
                        {"secondsOfARun", sim::object({{"p50", percentile(summary.times, 0.5)},
                                                       {"p90", percentile(summary.times, 0.9)},
                                                       {"p99", percentile(summary.times, 0.99)},
                                                       {"longest", percentile(summary.times, 1)}})},
                        {"failures", std::move(failures)}});
}

// A TV's own name, and the random ids of its backups, would tell equal reasons apart.
std::string sharedReason(const std::string& why, const std::string& tv) {
    static const std::regex ID("[0-9]{8}-[0-9a-f]{8}");
    return std::regex_replace(std::regex_replace(why, std::regex(tv), "TV"), ID, "ID");
}

// The TVs that failed, by the reason.
std::map<std::string, std::vector<std::string>> failuresOf(const sim::FleetRuns& runs) {
    std::map<std::string, std::vector<std::string>> failures;
    for (const auto& [tv, run] : runs) {
        if (run.outcome != sim::Outcome::Done) {
            failures[sharedReason(run.why, tv)].push_back(tv);
        }
    }
    return failures;
}

void printSummary(const Summary& summary) {
    print("{} of {} have run, {} of them now in {:.1f} s: {:.1f} a second\n", summary.runs.size(),
          sim::plural(summary.tvs, "TV"), summary.now, summary.seconds,
          static_cast<double>(summary.now) / std::max(summary.seconds, 0.001));
    for (const auto& [outcome, count] : summary.outcomes) {
        print("  {:<13} {:>6}\n", outcome, count);
    }
    print("seconds of a run: half of them {:.3f} at most, 90 % {:.3f}, 99 % {:.3f}, the longest {:.3f}\n",
          percentile(summary.times, 0.5), percentile(summary.times, 0.9), percentile(summary.times, 0.99),
          percentile(summary.times, 1));
    constexpr std::ptrdiff_t MAX_NAMED = 5;
    for (const auto& [why, tvs] : failuresOf(summary.runs)) {
        const bool isLong = tvs.size() > MAX_NAMED;
        const std::string names =
            fmt::format("{}", fmt::join(tvs.begin(), isLong ? tvs.begin() + MAX_NAMED : tvs.end(), ", "));
        print("{}: {}\n  {}{}\n", sim::plural(tvs.size(), "TV"), why, names, isLong ? " and others" : "");
    }
}

// A list is read once, as its file may be a pipe.
sim::ServiceDb channelsFor(const Session& session, const std::string& file,
                           std::optional<sim::ScratchFolder>& scratch) {
    if (file.empty()) {
        return session.look().serviceDb();
    }
    scratch.emplace();
    sim::ServiceDb made(scratch->path());
    made.create([&](sim::ChannelSink& sink) { sim::readChannelList(file, sink); }, "");
    return made;
}

int run(const Session& session, Options options) {
    if (!options.asIs) {
        checkExtras(options.request.extras);
    }
    std::optional<sim::ScratchFolder> scratch;
    options.request.folder = options.lab.empty() ? session.home.parent_path() / "fleet" : sim::normalised(options.lab);
    options.request.list = options.channels.empty() ? fmt::format("the channels of {}", session.home.string())
                                                    : fmt::format("the list {}", options.channels);
    options.request.channels = [&] { return channelsFor(session, options.channels, scratch); };
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        std::signal(signal, [](int again) {  // once more ends at once
            sim::stopFleet();
            std::signal(again, SIG_DFL);
        });
    }
    const bool isWatched = ::isatty(STDERR_FILENO) != 0 && !session.isQuiet;
    const auto begin = std::chrono::steady_clock::now();
    const auto elapsed = [&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    };
    std::size_t now = 0;
    const auto progress = [&](std::size_t done, std::size_t all) {
        ++now;
        if (isWatched) {
            print(stderr, "\r{} of {} have run, {:.1f} a second \x1b[K", done, sim::plural(all, "TV"),
                  static_cast<double>(now) / elapsed());
        }
    };
    const auto warn = [](const std::string& message) { print(stderr, "{}\n", message); };
    sim::FleetRuns runs = sim::runFleet(options.request, session.cloud, progress, warn);
    if (isWatched) {
        print(stderr, "\r\x1b[K");
    }
    const Summary summary(std::move(runs), options.request.tvs, now, elapsed());
    answer(session, toJson(summary), [&] { printSummary(summary); });
    if (summary.runs.size() < summary.tvs && !options.request.onlyFailed) {
        print(stderr, "Interrupted; the same command continues.\n");
    }
    const auto done = summary.outcomes.find("done");
    return done != summary.outcomes.end() && done->second >= summary.tvs ? DONE : FAILED;
}

}  // namespace

void addFleetCommand(CLI::App& app, Action& chosen) {
    const auto options = std::make_shared<Options>();
    options->request.jobs = std::max(1U, std::thread::hardware_concurrency());
    CLI::App* group = addGroup(app, "fleet", "Run the application on many TVs");
    CLI::App* running =
        addCommand(*group, "run",
                   "Launch the application once on each of many TVs, each with its own account, and count the "
                   "outcomes",
                   "halcyon-tv fleet run --tvs 100 --jobs 8 operation=restore", chosen,
                   [options](const Session& session) { return run(session, *options); });
    running->add_option("extra", options->request.extras, "extra values of each launch request, key=value")
        ->check(&sim::application::checkExtra);
    running->add_option("--tvs", options->request.tvs, "number of TVs; those that are missing are made")
        ->required()
        ->check(CLI::Range(std::size_t{1}, MAX_TVS));
    running->add_option("--jobs", options->request.jobs, "number of runs at a time (default: one per processor)")
        ->check(CLI::Range(std::size_t{1}, MAX_JOBS));
    running->add_flag("--failed", options->request.onlyFailed, "run those again that were not done, and no others");
    running->add_flag("--as-is", options->asIs, "launch it even if something looks like a typing error");
    running->add_option("--lab", options->lab, "folder of the TVs (default: fleet/ beside the TV)");
    running->add_option("--channels", options->channels, "channel list for TVs to be made (default: this TV's)");
}

}  // namespace cli
