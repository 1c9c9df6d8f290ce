// The command that runs the application under all faults.
#include <fmt/ranges.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <pugixml.hpp>
#include <sstream>
#include <thread>

#include "simulator/base/Files.h"
#include "simulator/cli/Command.h"
#include "simulator/launch/Sweep.h"
#include "simulator/reports/ToJson.h"

namespace cli {

namespace {

using sim::SweptRun;

struct Options {
    sim::SweepRequest request;
    std::vector<std::string> operations;
    std::string junit;
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

std::size_t allFired(const sim::SweepResult& result, bool ofSingles) {
    const auto middle = result.runs.begin() + static_cast<std::ptrdiff_t>(result.singles);
    return static_cast<std::size_t>(std::count_if(ofSingles ? result.runs.begin() : middle,
                                                  ofSingles ? middle : result.runs.end(),
                                                  [](const SweptRun& run) { return run.fired == run.faults.size(); }));
}

Json::Value toJson(const Swept& swept) {
    Json::Value runs(Json::arrayValue);
    for (const SweptRun& run : swept.result.runs) {
        runs.append(toJson(run));
    }
    return sim::object({{"operation", sim::nameOf(swept.operation)},
                        {"seconds", swept.result.seconds},
                        {"singles", swept.result.singles},
                        {"more", swept.result.runs.size() - swept.result.singles},
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
        if (i < result.singles || isVerbose || !result.runs[i].violations.empty()) {
            printRun(result.runs[i]);
        }
    }
    print(
        "{}: {} under one fault, {} of them reached; {} under more, all of them reached in {}; {} cannot both "
        "happen; {} broke a promise; {:.1f} s\n\n",
        sim::nameOf(swept.operation), sim::plural(result.singles, "run"), allFired(result, true),
        result.runs.size() - result.singles, allFired(result, false), sim::plural(result.impossible, "pair"),
        sim::plural(result.violated(), "run"), result.seconds);
}

std::string toJunit(const std::vector<Swept>& all) {
    pugi::xml_document document;
    pugi::xml_node suites = document.append_child("testsuites");
    for (const Swept& swept : all) {
        pugi::xml_node suite = suites.append_child("testsuite");
        suite.append_attribute("name") = fmt::format("sweep.{}", sim::nameOf(swept.operation)).c_str();
        suite.append_attribute("tests") = swept.result.runs.size();
        suite.append_attribute("failures") = swept.result.violated();
        suite.append_attribute("time") = swept.result.seconds;
        for (const SweptRun& run : swept.result.runs) {
            pugi::xml_node test = suite.append_child("testcase");
            test.append_attribute("classname") = suite.attribute("name").value();
            test.append_attribute("name") = sim::toText(run.faults).c_str();
            for (const sim::Violation& violation : run.violations) {
                pugi::xml_node failure = test.append_child("failure");
                failure.append_attribute("type") = violation.invariant.c_str();
                failure.append_attribute("message") = violation.what.c_str();
            }
        }
    }
    std::ostringstream text;
    document.save(text, "  ");
    return text.str();
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

int run(const Session& session, const Options& options) {
    const std::vector<Swept> all = sweepAll(session, options);
    if (!options.junit.empty()) {
        sim::writeFile(options.junit, toJunit(all));
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
    sweeping->add_option("--junit", options->junit, "write the result as JUnit XML to this file");
}

}  // namespace cli
