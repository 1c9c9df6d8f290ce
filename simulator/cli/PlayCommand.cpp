// The command that plays scenarios.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>

#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/cli/Command.h"
#include "simulator/cli/Junit.h"
#include "simulator/launch/Play.h"
#include "simulator/reports/ToJson.h"

namespace cli {

namespace {

constexpr std::size_t MAX_JOBS = 1024;

struct Options {
    std::vector<std::string> files;
    sim::PlayOptions play;
    std::string keep;
    std::string junit;
};

struct Entry {
    const sim::Scenario* scenario;
    sim::Played played;
    std::string folder;  // that its TVs are in; empty: it is gone

    std::vector<std::string> lines() const {
        std::vector<std::string> lines;
        for (const sim::Finding& finding : played.findings) {
            lines.push_back(fmt::format("{}: {}", sim::placeIn(scenario->file, finding.place), finding.text));
        }
        return lines;
    }
};

std::size_t count(const std::vector<Entry>& entries, sim::PlayState state) {
    return static_cast<std::size_t>(
        std::count_if(entries.begin(), entries.end(), [&](const Entry& each) { return each.played.state == state; }));
}

void printEntry(const Session& session, const Entry& entry) {
    if (!session.isQuiet || entry.played.state != sim::PlayState::Passed) {
        print("{}  {}: {}\n", sim::nameOf(entry.played.state), entry.scenario->file.string(), entry.scenario->name);
    }
    for (const std::string& line : entry.lines()) {
        print("  {}\n", line);
    }
    if (!entry.folder.empty() && entry.played.state != sim::PlayState::Passed) {
        print("  its TVs are in {}\n", entry.folder);
    }
}

Json::Value toJson(const Entry& entry) {
    Json::Value findings(Json::arrayValue);
    for (const sim::Finding& finding : entry.played.findings) {
        findings.append(
            sim::object({{"line", finding.place.line}, {"column", finding.place.column}, {"text", finding.text}}));
    }
    return sim::object({{"file", entry.scenario->file.string()},
                        {"name", entry.scenario->name},
                        {"state", sim::nameOf(entry.played.state)},
                        {"seconds", entry.played.seconds},
                        {"findings", std::move(findings)},
                        {"folder", entry.folder.empty() ? Json::Value() : sim::toJson(entry.folder)}});
}

std::vector<JunitCase> casesOf(const std::vector<Entry>& entries) {
    std::vector<JunitCase> cases;
    for (const Entry& entry : entries) {
        JunitCase each{entry.scenario->file.string(), entry.scenario->name, entry.played.seconds};
        if (const std::vector<std::string> lines = entry.lines(); !lines.empty()) {
            const bool isFailed = entry.played.state == sim::PlayState::Failed;
            each.problems.push_back({isFailed ? "failure" : "error", "", lines.front(), lines});
        }
        cases.push_back(std::move(each));
    }
    return cases;
}

// All of them: what is wrong with any file is said before anything runs.
std::vector<sim::Scenario> readAll(const std::vector<std::string>& files) {
    std::vector<sim::Scenario> scenarios;
    std::string problems;
    for (const std::string& file : files) {
        try {
            scenarios.push_back(sim::readScenario(file));
        } catch (const sim::Error& error) {
            problems += fmt::format("{}{}", problems.empty() ? "" : "\n", error.what());
        }
    }
    if (!problems.empty()) {
        throw UsageError(problems);
    }
    return scenarios;
}

// The entries themselves have been printed already, unless as JSON.
void printSummary(const Session& session, const std::vector<Entry>& entries) {
    const std::size_t passed = count(entries, sim::PlayState::Passed);
    if (session.isJson) {
        Json::Value list(Json::arrayValue);
        for (const Entry& entry : entries) {
            list.append(toJson(entry));
        }
        printJson(sim::object({{"passed", passed}, {"scenarios", std::move(list)}}));
    } else if (!session.isQuiet && entries.size() > 1) {
        print("{} of {} passed\n", passed, entries.size());
    }
}

int play(const Session& session, Options options) {
    options.play.keep = options.keep.empty() ? "" : sim::normalised(options.keep);
    options.play.program = options.play.program.empty() ? "" : sim::normalised(options.play.program).string();
    if (!options.play.program.empty() && !sim::isRegularFile(options.play.program)) {
        throw UsageError(fmt::format("there is no program {}", options.play.program));
    }
    const std::vector<sim::Scenario> scenarios = readAll(options.files);
    std::vector<Entry> entries;
    sim::playAll(scenarios, options.play, [&](std::size_t index, const sim::Played& played) {
        const bool isKept = !options.play.keep.empty();
        entries.push_back({&scenarios[index], played,
                           isKept ? sim::keptFolder(options.play, scenarios, index).string() : std::string()});
        if (!session.isJson) {
            printEntry(session, entries.back());
        }
    });
    if (!options.junit.empty()) {
        writeJunit(options.junit, {{"halcyon-tv play", std::nullopt, casesOf(entries)}});
    }
    printSummary(session, entries);
    if (count(entries, sim::PlayState::Broken) > 0) {
        return USAGE;
    }
    return count(entries, sim::PlayState::Passed) < entries.size() ? FAILED : DONE;
}

}  // namespace

void addPlayCommand(CLI::App& app, Action& chosen) {
    const auto options = std::make_shared<Options>();
    CLI::App* playing =
        addCommand(app, "play", "Play scenarios: make TVs, run the application, and check what is expected",
                   "halcyon-tv play scenarios/*.yaml --junit report.xml", chosen,
                   [options](const Session& session) { return play(session, *options); });
    playing->add_option("files", options->files, "scenarios, YAML files")->required();
    playing->add_option("--app", options->play.program, "the application to launch (default: halcyon-lineup beside)");
    playing->add_option("--jobs", options->play.jobs, "number of scenarios at a time")
        ->capture_default_str()
        ->check(CLI::Range(std::size_t{1}, MAX_JOBS));
    playing->add_option("--junit", options->junit, "write a JUnit report to this file");
    playing->add_option("--keep", options->keep, "keep the scenarios' TVs and clouds in folders below this one");
}

}  // namespace cli
