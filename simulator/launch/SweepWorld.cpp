#include "simulator/launch/SweepWorld.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/cloud/OpenCloud.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/ChannelList.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr char PRISTINE[] = "pristine";

// Names that need more than ASCII, a name with a comma, two groups, a radio, a scrambled service.
constexpr char OLD_CHANNELS[] =
    ":First\n"
    "Eins,1;P:11361:HC23:S19.2E:22000:101=27:102=deu@3:0:0:1001:1:1:0\n"
    "Zwei;P:11361:HC23:S19.2E:22000:201=27:202=deu@3:0:9C4:1002:1:1:0\n"
    ":Second\n"
    "Radio Drei;P:12266:VC34:S19.2E:27500:0:301=deu@3:0:0:1003:1:2:0\n";
constexpr char FACTORY_CHANNELS[] = "Welcome:11361:HC23:S19.2E:22000:501=27:502:0:0:5001:1:5:0\n";

// Files of another time than the TV's would let two equal backups differ.
constexpr std::chrono::hours MOMENT{24 * 365 * 56};

std::string toldBy(const Run& run) {
    if (run.operation != Operation::Restore) {
        return !run.response ? "nothing" : run.response == Response::BackupCompleted ? "done" : "failed";
    }
    if (!run.reply && run.reported == Reported::Nothing) {
        return "nothing";
    }
    return run.reply == 0 || run.reported == Reported::Success ? "done" : "failed";
}

// Those that can fail, after the last of the faults that fired.
std::vector<MadeCall> callsAfter(const std::vector<CallRecord>& calls) {
    std::vector<MadeCall> made;
    std::map<std::string, int> counts;
    for (const CallRecord& call : calls) {
        const int nth = ++counts[call.name];
        if (call.fault) {
            made.clear();
            continue;
        }
        if (const PlatformCall* known = findPlatformCall(call.name); known != nullptr && !known->failures.empty()) {
            made.push_back({call.name, nth});
        }
    }
    return made;
}

}  // namespace

std::string toText(const std::vector<Fault>& faults) {
    std::vector<std::string> texts;
    texts.reserve(faults.size());
    for (const Fault& fault : faults) {
        texts.push_back(fmt::format("{} {}{}", fault.call, fault.failure,
                                    fault.nth == 1 ? "" : fmt::format(" at call {}", fault.nth)));
    }
    return fmt::format("{}", fmt::join(texts, " and "));
}

std::string toScenario(SweptOperation operation, const SweptRun& run) {
    const bool isBackup = operation == SweptOperation::Backup;
    const char* const tv = isBackup ? "old" : "new";
    YAML::Emitter yaml;
    const auto pair = [&](const char* key, const auto& value) { yaml << YAML::Key << key << YAML::Value << value; };
    for (const Violation& violation : run.violations) {
        yaml << YAML::Comment(fmt::format("{}: {}", violation.invariant, violation.what)) << YAML::Newline;
    }
    yaml << YAML::BeginMap;
    pair("name", fmt::format("{} under {}", nameOf(operation), toText(run.faults)));
    pair("cloud", "cloud");
    pair("tvs", YAML::BeginMap);
    for (const char* const each : {"old", "new"}) {
        yaml << YAML::Key << each << YAML::Value << YAML::Flow << YAML::BeginMap;
        pair("home", each);
        yaml << YAML::EndMap;
    }
    yaml << YAML::EndMap;
    pair("steps", YAML::BeginSeq);
    for (const Fault& fault : run.faults) {
        yaml << YAML::BeginMap;
        pair("fault", tv);
        pair("call", fault.call);
        pair("failure", fault.failure);
        pair("nth", fault.nth);
        yaml << YAML::EndMap;
    }
    yaml << YAML::BeginMap;
    pair("run", tv);
    if (!isBackup) {
        pair("operation", "restore");
        pair("scan_activated", operation == SweptOperation::RestoreWithScan ? "1" : "0");
    }
    pair("expect", YAML::BeginMap);
    pair("broken", YAML::Flow);
    yaml << YAML::BeginSeq << YAML::EndSeq << YAML::EndMap << YAML::EndMap << YAML::EndSeq << YAML::EndMap;
    return std::string(yaml.c_str()) + "\n";
}

SweepWorld::SweepWorld(fs::path folder, fs::path program, std::chrono::milliseconds limit)
    : m_folder(std::move(folder)),
      m_program(std::move(program)),
      m_limit(limit),
      m_cloud(m_folder / "cloud"),
      m_old(make("old", OLD_CHANNELS)),
      m_new(make("new", FACTORY_CHANNELS)) {
    {
        Tv tv(m_old.home);
        tv.changeViewing([](Viewing& viewing) {
            viewing.mode.service = ServiceMode::Television;
            viewing.serviceId = 2;
            viewing.category = {CategoryKind::Group, 2, SortMode::Name};
        });
        tv.settings().setFavouriteName(1, "Für Oma");
        tv.settings().setFavouriteName(application::FAVOURITE_LISTS, "");
        m_old.setup = tv.setup();
        const RunReport backup = launch(tv, SweptOperation::Backup, true);
        if (backup.verdict.outcome != Outcome::Done) {
            throw Error(
                fmt::format("a backup without a fault is {}: {}", nameOf(backup.verdict.outcome), backup.verdict.why));
        }
    }
    makePrivateFolder(m_folder / PRISTINE);
    for (const fs::path& part : {m_old.home, m_new.home, fs::path(m_cloud)}) {
        removeTree(part / "snapshots");  // runs do not need them
        copyFolder(part, m_folder / PRISTINE / part.filename(), &copyQuickly);
    }
}

SweepWorld::Place SweepWorld::make(const std::string& name, const char* channels) const {
    const fs::path list = m_folder / (name + ".conf");
    writeFile(list, channels);
    Place place{m_folder / name, {}, {}};
    TvClock clock;
    clock.time = MOMENT;
    clock.isStill = true;
    Tv::create(
        place.home, [&](ChannelSink& sink) { readChannelList(list, sink); }, name, clock);
    const Tv tv(place.home);
    place.setup = tv.setup();
    place.ipServices = tv.serviceDb().ipServices();
    return place;
}

void SweepWorld::putBack(const fs::path& part) const {
    removeTree(part);
    copyFolder(m_folder / PRISTINE / part.filename(), part, &copyQuickly);
}

Baseline SweepWorld::baselineOf(SweptOperation operation) const {
    const bool isRestore = operation != SweptOperation::Backup;
    Baseline baseline;
    baseline.before = isRestore ? m_new.setup : m_old.setup;
    baseline.after = m_old.setup;
    baseline.ipServices = isRestore ? m_new.ipServices : m_old.ipServices;
    baseline.backups = 1;
    for (const Place* place : {&m_old, &m_new}) {
        baseline.services.insert(place->setup.services->counts().services);
    }
    baseline.isRestore = isRestore;
    baseline.isScanActivated = operation == SweptOperation::RestoreWithScan;
    return baseline;
}

void SweepWorld::copyTo(const fs::path& folder) const {
    copyFolder(m_folder / PRISTINE, folder, &copyQuickly);
}

RunReport SweepWorld::launch(Tv& tv, SweptOperation operation, bool isServedHere, const std::string& backup) const {
    RunRequest request;
    request.program = m_program;
    request.isServedHere = isServedHere;
    request.limit = m_limit;
    request.backup = backup;
    if (operation != SweptOperation::Backup) {
        request.extras = {"operation=restore",
                          operation == SweptOperation::RestoreWithScan ? "scan_activated=1" : "scan_activated=0"};
    }
    const std::unique_ptr<CloudStore> store = openCloud(m_cloud);
    const FolderLock lock = lockTv(tv.home(), std::chrono::milliseconds(0));
    return launchAndJudge(request, tv, m_cloud, *store, lock, &execute);
}

SweptRun SweepWorld::run(SweptOperation operation, const std::vector<Fault>& faults) {
    const Place& place = operation == SweptOperation::Backup ? m_old : m_new;
    putBack(place.home);
    putBack(m_cloud);
    Tv tv(place.home);
    tv.setScanning(operation == SweptOperation::RestoreWithScan);
    for (const Fault& fault : faults) {
        FaultRule rule = makeRule(fault.call, fault.failure);
        rule.nth = fault.nth;
        tv.faults().add(rule);
    }
    // A power cut kills the TV's services: they cannot be this process.
    const bool isCut =
        std::any_of(faults.begin(), faults.end(), [](const Fault& fault) { return fault.call == calls::disk.name; });
    const RunReport report = launch(tv, operation, !isCut);
    SweptRun swept;
    swept.faults = faults;
    swept.fired = report.verdict.faults.size();
    swept.outcome = report.verdict.outcome;
    swept.told = toldBy(report.run);
    const std::unique_ptr<CloudStore> store = openCloud(m_cloud);
    const Baseline baseline = baselineOf(operation);
    const bool isStored = report.run.operation == Operation::Backup && !report.run.backup.empty();
    if (baseline.isRestore) {
        swept.truth = tv.setup().services == baseline.after.services ? "new" : "old";
    } else {
        swept.truth = isStored ? "stored" : "not stored";
    }
    for (const ItemVerdict& item : report.verdict.items) {
        if (!isWell(item.state)) {
            swept.lost.emplace_back(nameOf(item.item));
        }
    }
    swept.calls = callsAfter(tv.runs().record(report.run.id).calls());
    swept.violations = violationsOf(tv, *store, report, baseline);
    if (isCut) {
        checkNext(tv, operation, baseline, swept.violations);
    } else if (isStored && !baseline.isRestore) {
        checkStored(report, swept.violations);
    }
    return swept;
}

// The TV's next run, with the power on, does what the one before should have done.
void SweepWorld::checkNext(Tv& tv, SweptOperation operation, Baseline baseline,
                           std::vector<Violation>& violations) const {
    tv.faults().clear();
    const std::unique_ptr<CloudStore> store = openCloud(m_cloud);
    baseline.backups = store->content().backups.size();
    const RunReport next = launch(tv, operation, true);
    if (next.verdict.outcome != Outcome::Done) {
        violations.push_back({"old or new", fmt::format("the next run is {}", nameOf(next.verdict.outcome))});
    }
    for (Violation& violation : violationsOf(tv, *store, next, baseline)) {
        violations.push_back({std::move(violation.invariant), "in the next run: " + violation.what});
    }
}

// The verdict on a backup calls it whole exactly if a restore of it brings everything back.
void SweepWorld::checkStored(const RunReport& report, std::vector<Violation>& violations) {
    putBack(m_new.home);
    Tv tv(m_new.home);
    launch(tv, SweptOperation::Restore, true, report.run.backup);
    const bool isBack = tv.setup() == m_old.setup;
    const bool isWell = std::all_of(report.verdict.items.begin(), report.verdict.items.end(),
                                    [](const ItemVerdict& item) { return sim::isWell(item.state); });
    if (isBack != isWell) {
        violations.push_back({"verdict", fmt::format("it calls the backup {}, and a restore of it brings {} back",
                                                     isWell ? "whole" : "incomplete", isBack ? "everything" : "less")});
    }
}

}  // namespace sim
