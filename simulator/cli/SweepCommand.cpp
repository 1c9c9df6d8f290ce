// The command that runs the application under all faults.
#include <fmt/ranges.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <thread>

#include "simulator/base/Clock.h"
#include "simulator/cli/Command.h"
#include "simulator/cli/Junit.h"
#include "simulator/launch/Sweep.h"
#include "simulator/reports/ToJson.h"

namespace cli {

namespace {

using sim::SweptRun;

struct Options {
    sim::SweepRequest request;
    std::vector<std::string> operations;
    std::string junit;
    std::string scenarios;
    std::string limit;
};

struct Swept {
    sim::SweptOperation operation = sim::SweptOperation::Backup;
    sim::SweepResult result;
};

Json::Value toJson(const sim::Fault& fault) {
    return sim::object({{"call", fault.call}, {"nth", fault.nth}, {"failure", fault.failure}});
}

Json::Value toJson(const SweptRun& run) {
    Json::Value faults(Json::arrayValue);
    for (const sim::Fault& fault : run.faults) {
        faults.append(toJson(fault));
    }
    Json::Value violations(Json::arrayValue);
    for (const sim::Violation& each : run.violations) {
        violations.append(sim::object({{"invariant", each.invariant}, {"what", each.what}}));
    }
    return sim::object({{"faults", std::move(faults)},
                        {"fired", run.fired},
                        {"outcome", sim::nameOf(run.outcome)},
                        {"told", run.told},
                        {"truth", run.truth},
                        {"lost", run.lost},
                        {"violations", std::move(violations)}});
}

// How many of the runs from one number to another in which all faults happened.
std::size_t allFired(const sim::SweepResult& result, std::size_t begin, std::size_t end) {
    const auto at = [&](std::size_t index) { return result.runs.begin() + static_cast<std::ptrdiff_t>(index); };
    return static_cast<std::size_t>(
        std::count_if(at(begin), at(end), [](const SweptRun& run) { return run.fired == run.faults.size(); }));
}

Json::Value toJson(const Swept& swept) {
    Json::Value runs(Json::arrayValue);
    for (const SweptRun& run : swept.result.runs) {
        runs.append(toJson(run));
    }
    return sim::object({{"operation", sim::nameOf(swept.operation)},
                        {"seconds", swept.result.seconds},
                        {"singles", swept.result.singles},
                        {"powerCuts", swept.result.cuts},
                        {"more", swept.result.runs.size() - swept.result.singles - swept.result.cuts},
                        {"impossiblePairs", swept.result.impossible},
                        {"violated", swept.result.violated()},
                        {"runs", std::move(runs)}});
}

void printRun(const SweptRun& run) {
    print("  {:<64} {:<9} {:<11} {}\n", sim::toText(run.faults), run.told, run.truth,
          run.lost.empty() ? "-" : fmt::format("{}", fmt::join(run.lost, ", ")));
    for (const sim::Violation& violation : run.violations) {
        print("      BROKEN {}: {}\n", violation.invariant, violation.what);
    }
}

// The single faults are shown, and of more than one at a time those that break a promise; or all.
void printTable(const Swept& swept, bool isVerbose) {
    const sim::SweepResult& result = swept.result;
    print("{}\n  {:<64} {:<9} {:<11} {}\n", sim::nameOf(swept.operation), "call, failure", "told", "true", "lost");
    for (std::size_t i = 0; i < result.runs.size(); ++i) {
        if (i < result.singles + result.cuts || isVerbose || !result.runs[i].violations.empty()) {
            printRun(result.runs[i]);
        }
    }
    const std::size_t begin = result.singles + result.cuts;  // of those under more than one
    print(
        "{}: {} under one fault, {} of them reached; {}; {} under more, all of them reached in {}; {} cannot both "
        "happen; {} broke a promise; {:.1f} s\n\n",
        sim::nameOf(swept.operation), sim::plural(result.singles, "run"), allFired(result, 0, result.singles),
        sim::plural(result.cuts, "power cut"), result.runs.size() - begin, allFired(result, begin, result.runs.size()),
        sim::plural(result.impossible, "pair"), sim::plural(result.violated(), "run"), result.seconds);
}

JunitSuite suiteOf(const Swept& swept) {
    JunitSuite suite{fmt::format("sweep.{}", sim::nameOf(swept.operation)), swept.result.seconds};
    for (const SweptRun& run : swept.result.runs) {
        JunitCase each{suite.name, sim::toText(run.faults)};
        for (const sim::Violation& violation : run.violations) {
            each.problems.push_back({"failure", violation.invariant, violation.what});
        }
        suite.cases.push_back(std::move(each));
    }
    return suite;
}

std::vector<Swept> sweepAll(const Session& session, const Options& options) {
    const bool isWatched = ::isatty(STDERR_FILENO) != 0 && !session.isQuiet;
    const std::vector<std::string>& wanted = options.operations;
    std::vector<Swept> all;
    for (const sim::Name<sim::SweptOperation>& operation : sim::NAMES<sim::SweptOperation>) {
        if (!wanted.empty() && std::find(wanted.begin(), wanted.end(), operation.name) == wanted.end()) {
            continue;
        }
        sim::SweepRequest request = options.request;
        request.operation = operation.value;
        if (!options.scenarios.empty()) {
            request.scenarios = std::filesystem::path(options.scenarios) / operation.name;
        }
        const auto progress = [&](std::size_t done, std::size_t count) {
            if (isWatched) {
                print(stderr, "\r{}: {} of {} \x1b[K", operation.name, done, sim::plural(count, "run"));
            }
        };
        all.push_back({operation.value, sim::sweep(request, progress)});
        if (isWatched) {
            print(stderr, "\r\x1b[K");
        }
    }
    return all;
}

int run(const Session& session, Options options) {
    if (!options.limit.empty()) {
        const std::optional<std::chrono::milliseconds> limit = sim::toDuration(options.limit);
        if (!limit || limit->count() <= 0) {
            throw UsageError(fmt::format("--limit: {} is no duration such as 20s", sim::inQuotes(options.limit)));
        }
        options.request.limit = *limit;
    }
    const std::vector<Swept> all = sweepAll(session, options);
    if (!options.junit.empty()) {
        std::vector<JunitSuite> suites;
        std::transform(all.begin(), all.end(), std::back_inserter(suites), &suiteOf);
        writeJunit(options.junit, suites);
    }
    Json::Value operations(Json::arrayValue);
    std::size_t violated = 0;
    for (const Swept& swept : all) {
        operations.append(toJson(swept));
        violated += swept.result.violated();
    }
    answer(session, sim::object({{"operations", std::move(operations)}}), [&] {
        for (const Swept& swept : all) {
            printTable(swept, session.isVerbose);
        }
        for (const sim::Invariant& promise : sim::invariants()) {
            print("{:<11} {}\n", promise.name, promise.meaning);
        }
    });
    return violated == 0 ? DONE : FAILED;
}

}  // namespace

void addSweepCommand(CLI::App& app, Action& chosen) {
    const auto options = std::make_shared<Options>();
    options->request.jobs = std::max(1U, std::thread::hardware_concurrency());
    CLI::App* sweeping = addCommand(app, "sweep",
                                    "Run the application under every fault that a run can have, on TVs of its own, and "
                                    "look whether what it promises holds",
                                    "halcyon-tv sweep --pairs --app ./halcyon-lineup", chosen,
                                    [options](const Session& session) { return run(session, *options); });
    std::vector<std::string> names;
    names.reserve(std::size(sim::NAMES<sim::SweptOperation>));
    for (const auto& each : sim::NAMES<sim::SweptOperation>) {
        names.emplace_back(each.name);
    }
    sweeping->add_option("--operation", options->operations, "one of these only; may be given more than once")
        ->check(CLI::IsMember(names));
    sweeping->add_flag("--pairs", options->request.withPairs, "also each two faults that can happen in one run");
    sweeping->add_option("--sequences", options->request.sequences, "also so many runs under three to five faults");
    sweeping->add_option("--seed", options->request.seed, "chooses those")->capture_default_str();
    sweeping->add_option("--app", options->request.program, "another build of the application, linked with the client")
        ->check(CLI::ExistingFile);
    sweeping->add_option("--jobs", options->request.jobs, "processes at a time (default: one per processor)")
        ->check(CLI::PositiveNumber);
    sweeping->add_option("--limit", options->limit, "kill the application if a run takes longer (default: 20s)");
    sweeping->add_option("--scenarios", options->scenarios,
                         "write a scenario of each run that breaks a promise into a new folder");
    sweeping->add_option("--junit", options->junit, "write the result as JUnit XML to this file");
}

}  // namespace cli
