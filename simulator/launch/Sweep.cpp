#include "simulator/launch/Sweep.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <json/value.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <utility>

#include "simulator/base/Descriptor.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Json.h"
#include "simulator/base/Sandbox.h"
#include "simulator/launch/Workers.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

using Faults = std::vector<Fault>;

// What a worker tells, in the order of the members of SweptRun.
std::string inOneLine(const SweptRun& run) {
    Json::Value value(Json::arrayValue);
    const auto list = [](const auto& elements, auto toJson) {
        Json::Value array(Json::arrayValue);
        for (const auto& each : elements) {
            array.append(toJson(each));
        }
        return array;
    };
    const auto pair = [](const auto& first, const auto& second) {
        Json::Value array(Json::arrayValue);
        array.append(first);
        array.append(second);
        return array;
    };
    value.append(list(run.faults, [&](const Fault& fault) {
        Json::Value array = pair(fault.call, fault.nth);
        array.append(fault.failure);
        return array;
    }));
    value.append(Json::Value::UInt64(run.fired));
    value.append(codeOf(run.outcome));
    value.append(run.told);
    value.append(run.truth);
    value.append(list(run.lost, [](const std::string& item) { return Json::Value(item); }));
    value.append(list(run.violations, [&](const Violation& each) { return pair(each.invariant, each.what); }));
    value.append(list(run.calls, [&](const MadeCall& each) { return pair(each.call, each.nth); }));
    return writeJson(value);
}

SweptRun fromLine(const std::string& line) {
    Json::Value value;
    if (!parseJson(line, value) || !value.isArray()) {
        throw Error("a worker's result cannot be read");
    }
    SweptRun run;
    for (const Json::Value& fault : value[0]) {
        run.faults.push_back({fault[0].asString(), fault[1].asInt(), fault[2].asString()});
    }
    run.fired = static_cast<std::size_t>(value[1].asUInt64());
    run.outcome = static_cast<Outcome>(value[2].asInt());
    run.told = value[3].asString();
    run.truth = value[4].asString();
    for (const Json::Value& item : value[5]) {
        run.lost.push_back(item.asString());
    }
    for (const Json::Value& violation : value[6]) {
        run.violations.push_back({violation[0].asString(), violation[1].asString()});
    }
    for (const Json::Value& call : value[7]) {
        run.calls.push_back({call[0].asString(), call[1].asInt()});
    }
    return run;
}

// Every failure that these calls can have.
Faults failuresOf(const std::vector<MadeCall>& calls) {
    Faults faults;
    for (const MadeCall& call : calls) {
        for (std::string& failure : findPlatformCall(call.call)->failureList()) {
            faults.push_back({call.call, call.nth, std::move(failure)});
        }
    }
    return faults;
}

bool isSameCall(const Fault& left, const Fault& right) {
    return left.call == right.call && left.nth == right.nth;
}

// A process that only sweeps: what the application logs is not shown, and it writes nowhere else.
void prepareWorker(const fs::path& folder, const std::vector<fs::path>& alsoWritten) {
    const Descriptor nowhere = openFile("/dev/null", O_WRONLY);
    ::dup2(nowhere.get(), STDOUT_FILENO);
    ::dup2(nowhere.get(), STDERR_FILENO);
    std::signal(SIGPIPE, SIG_IGN);
    ::setenv("TMPDIR", folder.c_str(), 1);
    std::vector<fs::path> written = alsoWritten;
    written.push_back(folder);
    confineWritingTo(written);
}

bool breaks(const SweptRun& run, const std::string& invariant) {
    return std::any_of(run.violations.begin(), run.violations.end(),
                       [&](const Violation& each) { return each.invariant == invariant; });
}

// The same promise is broken by fewer faults, if there are any that do.
SweptRun shrunk(SweepWorld& world, SweptOperation operation, SweptRun run) {
    for (std::size_t i = 0; i < run.faults.size() && run.faults.size() > 1;) {
        Faults fewer = run.faults;
        fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(i));
        SweptRun again = world.run(operation, fewer);
        if (breaks(again, run.violations.front().invariant)) {
            run = std::move(again);
            i = 0;
        } else {
            ++i;
        }
    }
    return run;
}

class Sweep {
public:
    Sweep(const SweepRequest& request, const SweepProgress& progress) : m_request(request), m_progress(progress) {}

    SweepResult run() {
        const auto begin = std::chrono::steady_clock::now();
        if (!m_request.scenarios.empty() && pathExists(m_request.scenarios)) {
            throw Error(fmt::format("{} is there already; name another folder", m_request.scenarios.string()));
        }
        m_result.healthy = runAll({Faults()}).front();
        if (m_result.healthy.outcome != Outcome::Done || !m_result.healthy.violations.empty()) {
            const std::vector<Violation>& violations = m_result.healthy.violations;
            throw Error(fmt::format("a {} without a fault is {}{}", nameOf(m_request.operation),
                                    nameOf(m_result.healthy.outcome),
                                    violations.empty() ? "" : fmt::format(": {}", violations.front().what)));
        }
        std::vector<Faults> singles;
        for (const Fault& fault : failuresOf(m_result.healthy.calls)) {
            singles.push_back({fault});
        }
        m_result.runs = runAll(singles);
        m_result.singles = m_result.runs.size();
        addCuts();
        if (m_request.withPairs) {
            add(runAll(pairs()));
        }
        add(runAll(sequences(singles)));
        writeScenarios();
        m_result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        return std::move(m_result);
    }

private:
    void add(std::vector<SweptRun> runs) { std::move(runs.begin(), runs.end(), std::back_inserter(m_result.runs)); }

    std::shared_ptr<SweepWorld> makeWorld(std::size_t worker, const std::vector<fs::path>& alsoWritten = {}) const {
        const fs::path folder = m_scratch / std::to_string(worker);
        removeTree(folder);
        makePrivateFolder(folder);
        prepareWorker(folder, alsoWritten);
        return std::make_shared<SweepWorld>(folder, m_request.program, m_request.limit);
    }

    // In the order of `all`.
    std::vector<SweptRun> runAll(const std::vector<Faults>& all) {
        std::vector<SweptRun> runs(all.size());
        const auto begin = [&](std::size_t worker) -> Piece {
            const std::shared_ptr<SweepWorld> world = makeWorld(worker);
            return [this, world, &all](std::size_t piece) {
                SweptRun run = world->run(m_request.operation, all[piece]);
                return inOneLine(run.violations.empty() ? run : shrunk(*world, m_request.operation, std::move(run)));
            };
        };
        std::size_t done = 0;
        shareOut(m_request.jobs, all.size(), begin, [&](std::size_t piece, const std::string& result) {
            runs[piece] = fromLine(result);
            m_progress(++done, all.size());
        });
        return runs;
    }

    // The power is cut at each step that changes the disk, until there is no such step any more. A run costs a process
    // more than others.
    void addCuts() {
        constexpr int AT_ONCE = 24;
        for (int nth = 1;;) {
            std::vector<Faults> cuts;
            for (const int end = nth + AT_ONCE; nth < end; ++nth) {
                cuts.push_back({{std::string(calls::disk.name), nth, "cut"}});
            }
            std::vector<SweptRun> runs = runAll(cuts);
            const auto past =
                std::find_if(runs.begin(), runs.end(), [](const SweptRun& run) { return run.fired == 0; });
            m_result.cuts += static_cast<std::size_t>(past - runs.begin());
            const bool isLast = past != runs.end();
            runs.erase(past, runs.end());
            add(std::move(runs));
            if (isLast) {
                return;
            }
        }
    }

    // In one folder, beside the TVs that they all begin with.
    void writeScenarios() {
        const fs::path& folder = m_request.scenarios;
        if (folder.empty() || m_result.violated() == 0) {
            return;
        }
        makeFolders(folder);
        const auto begin = [&](std::size_t worker) -> Piece {
            const std::shared_ptr<SweepWorld> world = makeWorld(worker, {folder});
            return [world, folder](std::size_t /*piece*/) {
                world->copyTo(folder);
                return std::string();
            };
        };
        shareOut(1, 1, begin, [](std::size_t, const std::string&) {});
        int number = 0;
        for (const SweptRun& run : m_result.runs) {
            if (!run.violations.empty()) {
                writeFile(folder / fmt::format("{:03}.yaml", ++number), toScenario(m_request.operation, run));
            }
        }
    }

    // The fault that comes first in a run leads to one record up to the second: what is called there is all that can
    // fail besides. Of the healthy run's calls, the others are never made.
    std::vector<Faults> pairs() {
        std::vector<Faults> pairs;
        const Faults healthy = failuresOf(m_result.healthy.calls);
        for (std::size_t i = 0; i < m_result.singles; ++i) {
            const Fault& first = m_result.runs[i].faults.front();
            const Faults seconds = failuresOf(m_result.runs[i].calls);
            for (const Fault& second : seconds) {
                pairs.push_back({first, second});
            }
            for (std::size_t j = i + 1; j < healthy.size(); ++j) {
                const bool isCalled = std::any_of(seconds.begin(), seconds.end(),
                                                  [&](const Fault& each) { return isSameCall(each, healthy[j]); });
                m_result.impossible += static_cast<std::size_t>(!isCalled && !isSameCall(first, healthy[j]));
            }
        }
        return pairs;
    }

    std::vector<Faults> sequences(const std::vector<Faults>& singles) const {
        std::mt19937 random(m_request.seed);
        std::vector<Faults> all;
        while (all.size() < m_request.sequences) {
            Faults faults;
            for (const std::size_t wanted = 3 + random() % 3; faults.size() < wanted;) {
                const Fault& next = singles[random() % singles.size()].front();
                if (std::none_of(faults.begin(), faults.end(),
                                 [&](const Fault& each) { return isSameCall(each, next); })) {
                    faults.push_back(next);
                }
            }
            all.push_back(std::move(faults));
        }
        return all;
    }

    const SweepRequest& m_request;
    const SweepProgress& m_progress;
    const ScratchFolder m_scratch;
    SweepResult m_result;
};

}  // namespace

std::size_t SweepResult::violated() const {
    return static_cast<std::size_t>(
        std::count_if(runs.begin(), runs.end(), [](const SweptRun& run) { return !run.violations.empty(); }));
}

SweepResult sweep(const SweepRequest& request, const SweepProgress& progress) {
    return Sweep(request, progress).run();
}

}  // namespace sim
