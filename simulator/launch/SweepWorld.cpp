#include "simulator/launch/SweepWorld.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

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
constexpr std::chrono::seconds LIMIT{20};  // a healthy run takes milliseconds

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

SweepWorld::SweepWorld(fs::path folder, fs::path program)
    : m_folder(std::move(folder)),
      m_program(std::move(program)),
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
        const RunReport backup = launch(tv, SweptOperation::Backup, "");
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

RunReport SweepWorld::launch(Tv& tv, SweptOperation operation, const std::string& backup) const {
    RunRequest request;
    request.program = m_program;
    request.isServedHere = true;
    request.limit = LIMIT;
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
    const RunReport report = launch(tv, operation, "");
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
    if (isStored && !baseline.isRestore) {
        checkStored(report, swept.violations);
    }
    return swept;
}

// The verdict on a backup calls it whole exactly if a restore of it brings everything back.
void SweepWorld::checkStored(const RunReport& report, std::vector<Violation>& violations) {
    putBack(m_new.home);
    Tv tv(m_new.home);
    launch(tv, SweptOperation::Restore, report.run.backup);
    const bool isBack = tv.setup() == m_old.setup;
    const bool isWell = std::all_of(report.verdict.items.begin(), report.verdict.items.end(),
                                    [](const ItemVerdict& item) { return sim::isWell(item.state); });
    if (isBack != isWell) {
        violations.push_back({"verdict", fmt::format("it calls the backup {}, and a restore of it brings {} back",
                                                     isWell ? "whole" : "incomplete", isBack ? "everything" : "less")});
    }
}

}  // namespace sim
