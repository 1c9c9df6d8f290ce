#include "simulator/launch/Play.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <thread>
#include <utility>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Limits.h"
#include "simulator/cloud/OpenCloud.h"
#include "simulator/launch/Launch.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/ChannelList.h"
#include "simulator/lineup/Difference.h"
#include "simulator/reports/CloudReport.h"
#include "simulator/reports/Invariants.h"
#include "simulator/tv/Settable.h"
#include "simulator/tv/Snapshot.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

// A run that was expected to be something.
struct Seen {
    Run run;
    Verdict verdict;
    std::vector<CallRecord> calls;
    std::vector<LogRecord> log;
    std::size_t backups;                // in the store
    std::vector<Violation> violations;  // of promises, if they are expected to be kept
    std::string difference;             // to the set-up that is expected; empty: it is the same
};

// What a run was in one aspect, as an expectation has it; and more of it, in words.
struct Actual {
    std::string value;
    std::string detail = {};
};

Actual actualReply(const Seen& seen, const Expectation&) {
    return {seen.run.reply ? std::to_string(*seen.run.reply) : NONE};
}

Actual actualResponse(const Seen& seen, const Expectation&) {
    return {seen.run.response ? std::string(nameOf(*seen.run.response)) : NONE};
}

Actual actualItem(const Seen& seen, const Expectation& expected) {
    for (const ItemVerdict& item : seen.verdict.items) {
        if (nameOf(item.item) == expected.of) {
            return {std::string(nameOf(item.state)), item.detail};
        }
    }
    return {NONE, "nothing was handed over"};
}

Actual actualCalls(const Seen& seen, const Expectation& expected) {
    const auto count = std::count_if(seen.calls.begin(), seen.calls.end(),
                                     [&](const CallRecord& call) { return call.name == expected.of; });
    return {expected.value == SOME && count > 0 ? SOME : std::to_string(count)};
}

Actual actualLog(const Seen& seen, const Expectation& expected) {
    const bool isThere = std::any_of(seen.log.begin(), seen.log.end(), [&](const LogRecord& record) {
        return record.message.find(expected.of) != std::string::npos;
    });
    return {isThere ? SOME : NONE};
}

Actual actualFaults(const Seen& seen, const Expectation&) {
    std::set<std::int64_t> rules;
    for (const FiredFault& fault : seen.verdict.faults) {
        rules.insert(fault.rule);
    }
    return {rules.empty() ? NONE : fmt::format("{}", fmt::join(rules, ", "))};
}

Actual actualBroken(const Seen& seen, const Expectation&) {
    if (seen.violations.empty()) {
        return {NONE};
    }
    std::vector<std::string> names;
    for (const Violation& each : seen.violations) {
        names.push_back(each.invariant);
    }
    return {fmt::format("{}", fmt::join(names, ", ")), seen.violations.front().what};
}

Actual actual(const Seen& seen, const Expectation& expected) {
    switch (expected.aspect) {
        case Aspect::Outcome:
            return {std::string(nameOf(seen.verdict.outcome)), seen.verdict.why};
        case Aspect::Cause:
            return {std::string(nameOf(seen.verdict.cause)), seen.verdict.why};
        case Aspect::Reply:
            return actualReply(seen, expected);
        case Aspect::Response:
            return actualResponse(seen, expected);
        case Aspect::Ended:
            return {std::string(nameOf(seen.run.ended)), seen.run.detail};
        case Aspect::Items:
            return actualItem(seen, expected);
        case Aspect::Calls:
            return actualCalls(seen, expected);
        case Aspect::Log:
            return actualLog(seen, expected);
        case Aspect::Faults:
            return actualFaults(seen, expected);
        case Aspect::Store:
            return {std::to_string(seen.backups)};
        case Aspect::Broken:
            return actualBroken(seen, expected);
        case Aspect::SameAs:
            return {seen.difference.empty() ? expected.value : "different", seen.difference};
    }
    return {};
}

bool expects(const RunStep& step, Aspect aspect) {
    return std::any_of(step.expectations.begin(), step.expectations.end(),
                       [&](const Expectation& each) { return each.aspect == aspect; });
}

// Sets what a restore brings: the items that the backup has.
void takeOver(Setup& setup, const Bundle& bundle) {
    const Setup& stored = bundle.setup();
    if (stored.services) {
        setup.services = stored.services;
    }
    if (bundle.part(Item::Viewing).state == PartState::Whole) {
        setup.viewing = stored.viewing;
    }
    for (const auto& [item, entries] : stored.entries) {
        setup.entries[item] = entries;
    }
}

// What a run of the TV begins with, and what it comes to if nothing fails.
Baseline baselineOf(const Tv& tv, const CloudStore& store, const RunRequest& request) {
    Baseline baseline;
    baseline.before = tv.setup();
    baseline.after = baseline.before;
    baseline.ipServices = tv.serviceDb().ipServices();
    for (const std::string& extra : request.extras) {
        const std::string key = extra.substr(0, extra.find('='));
        const std::string value = extra.substr(std::min(key.size() + 1, extra.size()));
        baseline.isRestore = baseline.isRestore || (key == application::OPERATION && application::isRestore(value));
        baseline.isScanActivated = baseline.isScanActivated || (key == application::SCAN_ACTIVATED && value != "0");
    }
    const std::optional<BackupName> newest =
        store.newest({tv.account(), application::CLIENT_ID, application::CATEGORY});
    const std::string& wanted = request.backup.empty() && newest ? newest->id : request.backup;
    baseline.services.insert(baseline.before.services->counts().services);
    for (const StoredBackup& name : lookAt(store, store.content().backups)) {
        ++baseline.backups;
        if (!name.damage.empty()) {
            continue;
        }
        const Bundle bundle = fetchBundle(store, name).bundle;
        if (bundle.setup().services) {
            baseline.services.insert(bundle.setup().services->counts().services);
        }
        if (baseline.isRestore && name.account == tv.account() && name.id == wanted) {
            takeOver(baseline.after, bundle);
        }
    }
    return baseline;
}

// In words; empty if they are the same.
std::string differenceOf(const Setup& left, const Setup& right) {
    std::vector<std::string> items;
    for (const ItemDifference& each : compare(left, right).items) {
        if (!each.isSame) {
            items.push_back(fmt::format("{}{}{}", nameOf(each.item), each.detail.empty() ? "" : " ", each.detail));
        }
    }
    return fmt::format("{}", fmt::join(items, ", "));
}

// Plays one scenario in a folder.
class Player {
public:
    Player(const Scenario& scenario, const fs::path& folder, const std::string& program)
        : m_scenario(scenario), m_folder(folder), m_cloud(folder / "cloud"), m_program(program) {}

    Played play() {
        try {
            copyFolder(m_scenario.cloud.text, m_cloud);
            for (const ScenarioTv& tv : m_scenario.tvs) {
                make(tv);
            }
            for (const Step& step : m_scenario.steps) {
                std::visit([this](const auto& each) { play(each); }, step);
            }
        } catch (const Error& error) {
            m_played.state = PlayState::Broken;
            m_played.findings.push_back({m_at, error.what()});
        }
        return std::move(m_played);
    }

private:
    fs::path homeOf(const Word& tv) {
        m_at = tv.place;
        return m_folder / tv.text;
    }

    void make(const ScenarioTv& tv) {
        const fs::path home = homeOf(tv.name);
        if (tv.home.text.empty()) {
            m_at = tv.channels.place;
            Tv::create(
                home, [&](ChannelSink& sink) { readChannelList(tv.channels.text, sink); }, tv.serial);
        } else {
            m_at = tv.home.place;
            copyTv(tv.home.text, home);
        }
        set(home, tv.settings);
    }

    void set(const fs::path& home, const std::vector<ScenarioSetting>& settings) {
        Tv tv(home);
        for (const ScenarioSetting& setting : settings) {
            m_at = setting.value.place;
            setByName(tv, setting.name, setting.value.text);
        }
    }

    void play(const SetStep& step) { set(homeOf(step.tv), step.settings); }

    void play(const FaultStep& step) {
        Tv tv(homeOf(step.tv));
        FaultRule rule = step.rule;
        rule.run += rule.run == 0 ? 0 : tv.runs().newest();
        tv.faults().add(rule);
    }

    void play(const BundleStep& step) {
        const Tv tv(homeOf(step.tv), Database::Access::Look);
        m_at = step.file.place;
        const fs::path beside = step.file.text + application::METADATA_SUFFIX;
        const std::optional<std::string> metadata =
            isRegularFile(beside) ? std::optional(readFile(beside, limits::METADATA_BYTES)) : std::nullopt;
        const std::unique_ptr<CloudStore> store = openCloud(m_cloud);
        importBundle(*store, Bundle(step.file.text, metadata), step.file.text, tv.account(), &tv);
    }

    void play(const RunStep& step) {
        const fs::path home = homeOf(step.tv);
        // A process that another thread is about to start holds a copy of the last run's lock until its program begins.
        const FolderLock lock = lockTv(home, std::chrono::seconds(10));
        Tv tv(home);
        const std::unique_ptr<CloudStore> store = openCloud(m_cloud);
        RunRequest request;
        request.program = m_program;
        request.extras = step.extras;
        request.caller = step.caller;
        request.replyRequested = step.replyRequested;
        request.refuseDuplicates = step.refuseDuplicates;
        if (!step.backup.text.empty()) {
            m_at = step.backup.place;
            request.backup = chooseBackup(*store, step.backup.text, tv.account()).id;
            m_at = step.tv.place;
        }
        const std::optional<Baseline> baseline =
            expects(step, Aspect::Broken) ? std::optional(baselineOf(tv, *store, request)) : std::nullopt;
        const RunReport report = launchAndJudge(request, tv, m_cloud, *store, lock, &execute);
        const RunFile record = tv.runs().record(report.run.id);
        Seen seen{report.run, report.verdict, record.calls(), record.log(), store->content().backups.size(), {}, {}};
        if (baseline) {
            seen.violations = violationsOf(tv, *store, report, *baseline);
        }
        for (const Expectation& expectation : step.expectations) {
            if (expectation.aspect == Aspect::SameAs) {
                const Tv other(m_folder / expectation.value, Database::Access::Look);
                seen.difference = differenceOf(other.setup(), tv.setup());
            }
            check(seen, expectation);
        }
    }

    void check(const Seen& seen, const Expectation& expected) {
        const Actual came = actual(seen, expected);
        if (came.value == expected.value) {
            return;
        }
        m_played.state = PlayState::Failed;
        m_played.findings.push_back(
            {expected.place, fmt::format("{}{}{}: expected {}, and it was {}{}{}", nameOf(expected.aspect),
                                         expected.of.empty() ? "" : " ", expected.of, expected.value, came.value,
                                         came.detail.empty() ? "" : ": ", came.detail)});
    }

    const Scenario& m_scenario;
    fs::path m_folder;
    fs::path m_cloud;
    std::string m_program;
    Place m_at = {1, 1};  // what is being done, for what it throws
    Played m_played;
};

Played playIn(const fs::path& folder, const Scenario& scenario, const std::string& program) {
    const auto begin = std::chrono::steady_clock::now();
    Played played = Player(scenario, folder, program).play();
    played.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    return played;
}

// The scenarios, from which each thread takes the next.
class Queue {
public:
    Queue(const std::vector<Scenario>& scenarios, const PlayOptions& options,
          const std::function<void(std::size_t, const Played&)>& report)
        : m_scenarios(scenarios), m_options(options), m_report(report), m_played(scenarios.size()) {}

    // Plays one scenario after the other until none is left.
    void work() {
        for (std::size_t index = 0; (index = takeNext()) < m_scenarios.size();) {
            Played played = play(index);
            const std::lock_guard guard(m_mutex);
            m_played[index] = std::move(played);
            for (; m_reported < m_played.size() && m_played[m_reported]; ++m_reported) {
                m_report(m_reported, *m_played[m_reported]);
            }
        }
    }

private:
    std::size_t takeNext() {
        const std::lock_guard guard(m_mutex);
        return m_next++;
    }

    Played play(std::size_t index) const {
        try {
            if (m_options.keep.empty()) {
                const ScratchFolder scratch;
                return playIn(scratch.path(), m_scenarios[index], m_options.program);
            }
            return playIn(keptFolder(m_options, m_scenarios, index), m_scenarios[index], m_options.program);
        } catch (const std::exception& error) {  // one that leaves a thread would end the process
            return {PlayState::Broken, {{{1, 1}, error.what()}}, 0};
        }
    }

    const std::vector<Scenario>& m_scenarios;
    const PlayOptions& m_options;
    const std::function<void(std::size_t, const Played&)>& m_report;
    std::mutex m_mutex;  // guards the rest
    std::vector<std::optional<Played>> m_played;
    std::size_t m_next = 0;
    std::size_t m_reported = 0;
};

}  // namespace

fs::path keptFolder(const PlayOptions& options, const std::vector<Scenario>& scenarios, std::size_t index) {
    return options.keep / fmt::format("{:02}-{}", index + 1, scenarios[index].file.stem().string());
}

void playAll(const std::vector<Scenario>& scenarios, const PlayOptions& options,
             const std::function<void(std::size_t, const Played&)>& report) {
    for (std::size_t i = 0; i < scenarios.size() && !options.keep.empty(); ++i) {
        const fs::path folder = keptFolder(options, scenarios, i);
        if (pathExists(folder)) {
            throw Error(fmt::format("{} is there already; remove it, or keep this round elsewhere", folder.string()));
        }
        makePrivateFolder(folder);
    }
    Queue queue(scenarios, options, report);
    std::vector<std::thread> workers;
    for (std::size_t i = 1; i < std::min(options.jobs, scenarios.size()); ++i) {
        workers.emplace_back([&queue] { queue.work(); });
    }
    queue.work();
    for (std::thread& worker : workers) {
        worker.join();
    }
}

}  // namespace sim
