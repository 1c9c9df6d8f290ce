// The command that runs the application on many TVs.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <map>
#include <memory>
#include <optional>
#include <thread>

#include "simulator/base/Environment.h"
#include "simulator/base/Files.h"
#include "simulator/cli/Command.h"
#include "simulator/cli/Print.h"
#include "simulator/launch/Fleet.h"
#include "simulator/lineup/Application.h"
#include "simulator/tv/Tv.h"

namespace cli {

namespace {

constexpr std::size_t MOST_TVS = 99'999;
constexpr std::size_t MOST_JOBS = 1024;

struct Options {
    sim::FleetRequest request;
    std::string lab;
    std::string channels;
};

using Seconds = std::chrono::duration<double>;

// The value that a share of all values does not exceed.
double percentile(const std::vector<double>& sorted, double share) {
    const auto count = static_cast<double>(sorted.size());
    const auto rank = static_cast<std::size_t>(std::max(1.0, std::ceil(share * count)));
    return sorted.empty() ? 0 : sorted[rank - 1];
}

struct Summary {
    std::size_t tvs = 0;
    std::size_t now = 0;  // runs of this command; others were done before it was interrupted
    double seconds = 0;
    std::vector<sim::FleetRun> runs;
    std::map<std::string, std::size_t> outcomes;
    std::map<std::string, std::vector<std::string>> failures;  // TVs by what they say
    std::vector<double> times;                                 // sorted
};

Summary summaryOf(std::vector<sim::FleetRun> runs, std::size_t tvs, std::size_t now, double seconds) {
    Summary summary;
    summary.tvs = tvs;
    summary.now = now;
    summary.seconds = seconds;
    summary.runs = std::move(runs);
    for (const sim::FleetRun& run : summary.runs) {
        ++summary.outcomes[std::string(sim::nameOf(run.outcome))];
        summary.times.push_back(run.seconds);
        if (run.outcome != sim::Outcome::Done) {
            std::string why = run.why;  // each TV has its own name in it
            for (std::size_t at = why.find(run.tv); at != std::string::npos; at = why.find(run.tv, at)) {
                why.replace(at, run.tv.size(), "TV");
            }
            summary.failures[why].push_back(run.tv);
        }
    }
    std::sort(summary.times.begin(), summary.times.end());
    return summary;
}

Json::Value toJson(const Summary& summary) {
    Json::Value value;
    value["tvs"] = Json::Value::UInt64(summary.tvs);
    value["runs"] = Json::Value::UInt64(summary.runs.size());
    value["runsNow"] = Json::Value::UInt64(summary.now);
    value["seconds"] = summary.seconds;
    value["outcomes"] = Json::Value(Json::objectValue);
    for (const auto& [outcome, count] : summary.outcomes) {
        value["outcomes"][outcome] = Json::Value::UInt64(count);
    }
    value["secondsOfARun"]["p50"] = percentile(summary.times, 0.5);
    value["secondsOfARun"]["p90"] = percentile(summary.times, 0.9);
    value["secondsOfARun"]["p99"] = percentile(summary.times, 0.99);
    value["secondsOfARun"]["longest"] = percentile(summary.times, 1);
    value["failures"] = Json::Value(Json::arrayValue);
    for (const sim::FleetRun& run : summary.runs) {
        if (run.outcome != sim::Outcome::Done) {
            Json::Value failure;
            failure["tv"] = run.tv;
            failure["outcome"] = std::string(sim::nameOf(run.outcome));
            failure["why"] = sim::toUtf8(run.why);
            value["failures"].append(failure);
        }
    }
    return value;
}

void printSummary(const Summary& summary) {
    print("{} of {} TVs have run, {} of them now in {:.1f} s: {:.1f} a second\n", summary.runs.size(), summary.tvs,
          summary.now, summary.seconds, static_cast<double>(summary.now) / std::max(summary.seconds, 0.001));
    for (const auto& [outcome, count] : summary.outcomes) {
        print("  {:<13} {:>6}\n", outcome, count);
    }
    print("seconds of a run: half of them {:.3f} at most, 90 % {:.3f}, 99 % {:.3f}, the longest {:.3f}\n",
          percentile(summary.times, 0.5), percentile(summary.times, 0.9), percentile(summary.times, 0.99),
          percentile(summary.times, 1));
    constexpr std::size_t NAMED = 5;
    for (const auto& [why, tvs] : summary.failures) {
        const std::size_t named = std::min(tvs.size(), NAMED);
        std::string names;
        for (std::size_t i = 0; i < named; ++i) {
            names += (i == 0 ? "" : ", ") + tvs[i];
        }
        print("{} TVs: {}\n  {}{}\n", tvs.size(), why, names, tvs.size() > named ? " and others" : "");
    }
}

// A list's file may be a pipe, and there are many TVs to make.
sim::ServiceDb channelsFor(const Session& session, const std::string& file,
                           std::optional<sim::ScratchFolder>& scratch) {
    if (file.empty()) {
        return sim::Tv(session.home, sim::Database::Access::Look).serviceDb();
    }
    scratch.emplace(sim::temporaryFolder());
    sim::ServiceDb made(scratch->path());
    made.create([&](sim::ChannelSink& sink) { sim::readChannelList(file, sink); }, "");
    return made;
}

int run(const Session& session, Options options) {
    std::optional<sim::ScratchFolder> scratch;
    options.request.folder = options.lab.empty() ? session.home.parent_path() / "fleet" : sim::normalised(options.lab);
    options.request.channels = [&] { return channelsFor(session, options.channels, scratch); };
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        std::signal(signal, [](int) { sim::stopFleet(); });
    }
    const bool isWatched = ::isatty(STDERR_FILENO) != 0 && !session.isQuiet;
    const auto begin = std::chrono::steady_clock::now();
    std::size_t now = 0;
    const auto progress = [&](std::size_t done, std::size_t all) {
        ++now;
        if (isWatched) {
            const Seconds seconds = std::chrono::steady_clock::now() - begin;
            print(stderr, "\r{} of {} TVs have run, {:.1f} a second \x1b[K", done, all,
                  static_cast<double>(now) / seconds.count());
        }
    };
    std::vector<sim::FleetRun> runs = sim::runFleet(options.request, session.cloud, progress);
    if (isWatched) {
        print(stderr, "\r\x1b[K");
    }
    const Seconds seconds = std::chrono::steady_clock::now() - begin;
    const Summary summary = summaryOf(std::move(runs), options.request.tvs, now, seconds.count());
    if (session.isJson) {
        printJson(toJson(summary));
    } else {
        printSummary(summary);
    }
    if (summary.runs.size() < summary.tvs) {
        print(stderr, "Interrupted; the same command goes on.\n");
    }
    return summary.runs.size() == summary.tvs && summary.failures.empty() ? DONE : FAILED;
}

}  // namespace

void addFleetCommand(CLI::App& app, Action& chosen) {
    const auto options = std::make_shared<Options>();
    options->request.jobs = std::max(1U, std::thread::hardware_concurrency());
    CLI::App* group = addGroup(app, "fleet", "Run the application on many TVs");
    CLI::App* running =
        addCommand(*group, "run",
                   "Launch the application once on each of many TVs, each with an account of its own, and count what "
                   "became of it",
                   "halcyon-tv fleet run --tvs 100 --jobs 8 operation=restore", chosen,
                   [options](const Session& session) { return run(session, *options); });
    running->add_option("extra", options->request.extras, "extra values of each launch request, key=value")
        ->check(&sim::application::checkExtra);
    running->add_option("--tvs", options->request.tvs, "how many TVs; those that are missing are made")
        ->required()
        ->check(CLI::Range(std::size_t{1}, MOST_TVS));
    running->add_option("--jobs", options->request.jobs, "how many runs at a time (default: one a processor)")
        ->check(CLI::Range(std::size_t{1}, MOST_JOBS));
    running->add_option("--lab", options->lab, "folder of the TVs (default: fleet/ beside the TV)");
    running->add_option("--channels", options->channels, "channel list for TVs to be made (default: this TV's)");
}

}  // namespace cli
