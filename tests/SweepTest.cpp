// For every platform call of a run, and each failure that it can have: the run with that one call failing. And the
// power cut at each step that changes the disk.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <tuple>

#include "simulator/lineup/Difference.h"
#include "tests/support/Invariants.h"

namespace fs = std::filesystem;

namespace {

using sim::RunEnd;
using test::RunResult;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::StartsWith;

enum class Kind { Backup, Restore, RestoreWithScan };

// TV A with a backup in the cloud, TV B fresh; what each has is known, and can be put back.
struct World : test::TvPair {
    World() {
        EXPECT_TRUE(a.backUp().succeeded());
        before = b.setup();
        after = a.setup();
        fs::create_directory(pristine);
        for (const fs::path& part : {a.home, b.home, a.cloud}) {
            fs::copy(part, pristine / part.filename(), fs::copy_options::recursive);
        }
    }

    // Puts the TV that is swept, and the cloud, back.
    test::TestTv& reset(Kind kind) {
        test::TestTv& tv = kind == Kind::Backup ? a : b;
        putBack(tv.home);
        putBack(tv.cloud);
        if (kind == Kind::RestoreWithScan) {
            sim::Tv(tv.home).setScanning(true);
        }
        return tv;
    }

    void putBack(const fs::path& part) const {
        fs::remove_all(part);
        fs::copy(pristine / part.filename(), part, fs::copy_options::recursive);
    }

    static RunResult run(test::TestTv& tv, Kind kind) {
        if (kind == Kind::Backup) {
            return tv.backUp();
        }
        const std::string scan = kind == Kind::RestoreWithScan ? "scan_activated=1" : "scan_activated=0";
        return tv.launch({"operation=restore", scan, "--reply"});
    }

    const fs::path pristine = folder / "pristine";
    sim::Setup before;  // of B
    sim::Setup after;   // of A, and so of B after a restore
};

// One world per process: each sweep resets what it has changed.
World& world() {
    static World only;
    return only;
}

// How often a healthy run makes each call.
int callsIn(Kind kind, const sim::PlatformCall& call) {
    static std::map<Kind, RunResult> healthy;
    if (healthy.count(kind) == 0) {
        healthy[kind] = World::run(world().reset(kind), kind);
    }
    return healthy[kind].count(std::string(call.name));
}

// How runs end under faults; the first row that fits counts. If none does, a backup, a restore that failed and one
// with a scan end themselves, and any other restore is reclaimed.
struct End {
    const char* call;  // "": any
    const char* failure;
    std::vector<Kind> kinds;
    RunEnd end;
};
const std::vector<Kind> ANY = {Kind::Backup, Kind::Restore, Kind::RestoreWithScan};
const std::vector<End> ENDS = {
    {"", "throw", ANY, RunEnd::Crashed},
    {"vconf_get_str", "", ANY, RunEnd::Crashed},
    {"ui_app_main", "", ANY, RunEnd::Refused},
    {"", "lost", ANY, RunEnd::Waiting},
    {"tv_signal", "null", ANY, RunEnd::Waiting},
    {"bnr_deinit", "", {Kind::Restore}, RunEnd::Waiting},  // a session that could not be closed is one to wait for
};

RunEnd expectedEnd(Kind kind, const std::string& call, const std::string& failure, const RunResult& run) {
    for (const End& rule : ENDS) {
        if ((*rule.call == '\0' || rule.call == call) && (*rule.failure == '\0' || rule.failure == failure) &&
            std::find(rule.kinds.begin(), rule.kinds.end(), kind) != rule.kinds.end()) {
            return rule.end;
        }
    }
    const bool restored = run.count("bnr_report_success") == 1;
    const bool readAsScan = kind == Kind::RestoreWithScan && call != "app_control_get_extra_data";
    return restored && !readAsScan ? RunEnd::Reclaimed : RunEnd::Exit;
}

// The caller got at most one reply, and it says what became of the channel database.
void expectTrueReply(const RunResult& run, bool isReplaced) {
    EXPECT_LE(run.count("app_control_reply_to_launch_request"), 1);
    test::expectTruth(run, isReplaced);
}

// Each part of the TV is as before or as after, including the CI module's files.
void expectWholeTv(const test::TestTv& tv, Kind kind) {
    const sim::Setup& before = kind == Kind::Backup ? world().after : world().before;
    test::expectWholeTv(tv, before, world().after);
    EXPECT_THAT(tv.setup().of(sim::Item::Ci), AnyOf(before.of(sim::Item::Ci), world().after.of(sim::Item::Ci)));
}

// The cloud has so many backups, each with the channel database of TV A or of the fresh TV B.
void expectWholeCloud(std::size_t fewest, std::size_t most) {
    const std::vector<std::uint64_t> services = test::expectWholeCloud(world().a);
    EXPECT_GE(services.size(), fewest);
    EXPECT_LE(services.size(), most);
    EXPECT_THAT(services, Each(AnyOf(3U, 1U)));
}

// The downloaded archive is removed on success, and kept in the failure folder otherwise, if it could be read.
void expectArchive(const test::TestTv& tv, const RunResult& run, const std::string& failure) {
    const bool downloaded = run.response == sim::Response::RestoreData && failure != "damage=missing" &&
                            failure != "damage=dangling" && failure != "no-data";
    if (!downloaded || run.ended == RunEnd::Crashed || failure == "null") {
        return;
    }
    const bool failed = run.reported != sim::Reported::Success && run.count("bnr_report_success") == 0;
    EXPECT_EQ(tv.failureFiles().size(), failed ? 1U : 0U);
    EXPECT_THAT(tv.dataFiles(), Each(StartsWith("temp/")));
}

// Whether a part of two set-ups is the same, by the set-ups alone; expectWholeTv() looks at the IP services.
bool isSame(sim::Item item, const sim::Setup& left, const sim::Setup& right) {
    return (item != sim::Item::Channels || left.services == right.services) &&
           (item != sim::Item::Viewing || left.viewing == right.viewing) && left.of(item) == right.of(item);
}

// The outcomes that fit what the caller was told, and whether each item is where it should be.
std::vector<sim::Outcome> fittingOutcomes(const RunResult& run, bool wasTold, bool isWhole) {
    if (run.ended == RunEnd::Crashed) {
        return {sim::Outcome::Crashed};
    }
    if (!wasTold) {
        return {sim::Outcome::Failed, sim::Outcome::Refused};
    }
    if (!isWhole) {
        return {sim::Outcome::DoneInPart};
    }
    const bool isReplyMissing = run.replyRequested && run.operation == sim::Operation::Restore && !run.reply;
    return {run.ended == RunEnd::Waiting || isReplyMissing ? sim::Outcome::Failed : sim::Outcome::Done};
}

void expectOutcome(const sim::Verdict& verdict, const RunResult& run, bool wasTold, bool isWhole) {
    EXPECT_THAT(fittingOutcomes(run, wasTold, isWhole), Contains(verdict.outcome));
    if (verdict.outcome == sim::Outcome::Done) {
        EXPECT_EQ(verdict.why, "");
    } else {
        EXPECT_THAT(verdict.why, HasSubstr("fault rule 1 fired"));
        EXPECT_NE(verdict.decisive, 0);
    }
}

// The verdict on a restore says of each item what a comparison of the set-ups says.
void expectVerdictOnRestore(const test::TestTv& tv, const RunResult& run) {
    const sim::Verdict verdict = tv.verdict();
    const sim::Setup now = tv.setup();
    bool isWhole = true;
    for (const sim::ItemVerdict& item : verdict.items) {
        const bool same = isSame(item.item, now, world().after);
        EXPECT_EQ(sim::isWell(item.state), same) << sim::nameOf(item.item) << ": " << item.detail;
        EXPECT_EQ(sim::compare(item.item, world().after, now).isSame, same) << sim::nameOf(item.item);
        isWhole = isWhole && same;
    }
    const bool wasHandedOut = !run.backup.empty() && run.count("bnr_backup") == 0;
    EXPECT_EQ(verdict.items.size(), wasHandedOut ? sim::NAMES<sim::Item>.size() : 0U);
    const bool wasTold = wasHandedOut && (run.reply == 0 || run.count("bnr_report_success") == 1);
    expectOutcome(verdict, run, wasTold, isWhole);
}

// The verdict on a backup says that it is whole exactly if a restore of it brings everything back.
void expectVerdictOnBackup(const test::TestTv& tv, const RunResult& run) {
    const sim::Verdict verdict = tv.verdict();
    bool isWhole = !verdict.items.empty();
    for (const sim::ItemVerdict& item : verdict.items) {
        isWhole = isWhole && sim::isWell(item.state);
    }
    expectOutcome(verdict, run, run.response == sim::Response::BackupCompleted, isWhole);
    if (!run.backup.empty()) {
        test::TestTv& fresh = world().b;
        world().putBack(fresh.home);
        fresh.launch({"operation=restore", "--backup", run.backup});
        EXPECT_EQ(fresh.setup() == world().after, isWhole) << verdict.why;
    }
}

using Swept = std::tuple<Kind, const sim::PlatformCall*>;

class Sweep : public ::testing::TestWithParam<Swept> {
protected:
    static void TearDownTestSuite() { std::cout << "swept " << s_runs << " runs under a fault each\n"; }

    // A run in which the nth such call fails.
    static void sweep(Kind kind, const std::string& call, const std::string& failure, int nth) {
        SCOPED_TRACE(fmt::format("{} {} at call {}", call, failure, nth));
        test::TestTv& tv = world().reset(kind);
        tv.fault(call, failure, nth);
        const RunResult run = World::run(tv, kind);
        EXPECT_EQ(tv.faultsFired(), 1);
        EXPECT_EQ(run.ended, expectedEnd(kind, call, failure, run));
        if (kind != Kind::Backup) {
            expectVerdictOnRestore(tv, run);
        } else if (run.operation == sim::Operation::Backup) {
            expectVerdictOnBackup(tv, run);
        }
        if (run.operation == sim::Operation::Restore) {
            expectTrueReply(run, tv.setup().services == world().after.services);
            expectArchive(tv, run, failure);
        } else {
            EXPECT_EQ(run.count("app_control_reply_to_launch_request"), 0);
        }
        expectWholeTv(tv, kind);
        test::expectTidy(tv);
        // A request that cannot be read is a backup, by design.
        const bool backsUp = kind == Kind::Backup || run.says("5 Do backup");
        expectWholeCloud(backsUp && run.succeeded() ? 2 : 1, backsUp ? 2 : 1);
        ++s_runs;
    }

    static int s_runs;
};
int Sweep::s_runs = 0;

TEST_P(Sweep, UnderEachFailureOfTheCall) {
    const auto& [kind, call] = GetParam();
    for (int nth = 1; nth <= callsIn(kind, *call); ++nth) {
        for (const std::string& failure : call->failureList()) {
            sweep(kind, std::string(call->name), failure, nth);
        }
    }
}

std::string nameOf(const ::testing::TestParamInfo<Swept>& each) {
    const char* const kinds[] = {"Backup", "Restore", "RestoreWithScan"};
    std::string name =
        fmt::format("{}_{}", kinds[static_cast<int>(std::get<0>(each.param))], std::get<1>(each.param)->name);
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Calls, Sweep,
                         ::testing::Combine(::testing::ValuesIn(ANY), ::testing::ValuesIn(sim::platformCalls())),
                         &nameOf);

class PowerCut : public ::testing::TestWithParam<Kind> {};

// After a power cut at any moment, each part is as before or as restored, and the next run works.
TEST_P(PowerCut, AtEachStep) {
    const Kind kind = GetParam();
    constexpr int MAX_CUTS = 1000;  // a run has dozens of steps; one that never ends without a cut is a fault
    int cuts = 0;
    for (;; ++cuts) {
        ASSERT_LT(cuts, MAX_CUTS);
        SCOPED_TRACE(cuts + 1);
        test::TestTv& tv = world().reset(kind);
        tv.fault("disk", "cut", cuts + 1);
        const RunResult run = World::run(tv, kind);
        if (tv.faultsFired() == 0) {
            EXPECT_TRUE(run.succeeded());
            break;
        }
        EXPECT_EQ(run.ended, RunEnd::Crashed);
        expectTrueReply(run, tv.setup().services == world().after.services);
        expectWholeTv(tv, kind);
        expectWholeCloud(1, 2);
        tv.clearFaults();
        EXPECT_TRUE(World::run(tv, kind).succeeded());
        EXPECT_TRUE(kind == Kind::RestoreWithScan || tv.setup() == world().after);
        test::expectTidy(tv);
    }
    std::cout << "swept " << cuts << " power cuts\n";
    EXPECT_GE(cuts, 5);
}

INSTANTIATE_TEST_SUITE_P(Sweep, PowerCut, ::testing::ValuesIn(ANY));

}  // namespace
