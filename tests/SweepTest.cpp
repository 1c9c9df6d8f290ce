// For every platform call of a run, and each failure that it can have: the run with that one call failing. And the
// power cut at each step that changes the disk.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <memory>

#include "simulator/base/Error.h"
#include "simulator/cloud/OpenCloud.h"
#include "simulator/launch/Sweep.h"
#include "simulator/launch/Workers.h"
#include "tests/support/Invariants.h"

namespace fs = std::filesystem;

namespace {

using sim::RunEnd;
using sim::SweptOperation;
using test::RunResult;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;

const SweptOperation OPERATIONS[] = {SweptOperation::Backup, SweptOperation::Restore, SweptOperation::RestoreWithScan};

class Sweep : public ::testing::TestWithParam<SweptOperation> {};

TEST_P(Sweep, BreaksNoPromise) {
    sim::SweepRequest request;
    request.operation = GetParam();
    request.program = HALCYON_LINEUP;
    request.sequences = 20;
    const sim::SweepResult result = sim::sweep(request, [](std::size_t, std::size_t) {});
    for (const sim::SweptRun& run : result.runs) {
        for (const sim::Violation& violation : run.violations) {
            ADD_FAILURE() << sim::toText(run.faults) << ": " << violation.invariant << ": " << violation.what;
        }
    }
    for (std::size_t i = 0; i < result.singles; ++i) {
        EXPECT_EQ(result.runs[i].fired, 1U) << sim::toText(result.runs[i].faults);
    }
    EXPECT_GT(result.singles, 100U);
    std::cout << "swept " << result.singles << " runs under a fault each\n";
}

TEST(Workers, DoEachPieceOnce) {
    std::map<std::size_t, std::string> taken;
    const auto begin = [](std::size_t worker) -> sim::Piece {
        return [worker](std::size_t piece) {
            return std::string(piece == 7 ? 200'000 : 1, static_cast<char>('a' + worker));
        };
    };
    sim::shareOut(3, 100, begin, [&](std::size_t piece, const std::string& result) {
        EXPECT_TRUE(taken.emplace(piece, result).second) << piece;
    });
    EXPECT_EQ(taken.size(), 100U);
    EXPECT_EQ(taken[7].size(), 200'000U);
    sim::shareOut(3, 0, begin, [](std::size_t, const std::string&) { FAIL() << "there is nothing to do"; });
}

TEST(Workers, SayWhyOneFails) {
    const auto take = [](std::size_t, const std::string&) {};
    const auto failing = [](std::size_t) -> sim::Piece {
        return [](std::size_t piece) -> std::string {
            return piece < 3 ? "done" : throw sim::Error("no room for piece " + std::to_string(piece));
        };
    };
    EXPECT_THAT([&] { sim::shareOut(2, 10, failing, take); }, ThrowsMessage<sim::Error>(HasSubstr("no room for")));
    const auto crashing = [](std::size_t) -> sim::Piece { std::_Exit(3); };
    EXPECT_THAT([&] { sim::shareOut(2, 10, crashing, take); }, ThrowsMessage<sim::Error>(HasSubstr("has crashed")));
}

class Promises : public test::TwoTvs {
protected:
    // Which promises a healthy restore has broken, once `spoil` has been there.
    std::vector<std::string> broken(const std::function<void(sim::RunReport&)>& spoil) {
        sim::Baseline baseline;
        baseline.before = b.setup();
        baseline.after = a.setup();
        baseline.ipServices = b.open().serviceDb().ipServices();
        baseline.services = {3};
        baseline.isRestore = true;
        EXPECT_TRUE(a.backUp().succeeded());
        EXPECT_TRUE(b.restore().succeeded());
        const sim::Tv tv = b.open();
        const std::unique_ptr<sim::CloudStore> store = sim::openCloud(b.cloud);
        baseline.backups = store->content().backups.size();
        sim::RunReport report = sim::reportRun(tv, *store, *tv.runs().find(tv.runs().newest()));
        spoil(report);
        std::vector<std::string> names;
        for (const sim::Violation& violation : sim::violationsOf(tv, *store, report, baseline)) {
            names.push_back(violation.invariant);
        }
        return names;
    }
};

TEST_F(Promises, AreKeptByARunThatIsWell) {
    EXPECT_THAT(broken([](sim::RunReport&) {}), IsEmpty());
}

TEST_F(Promises, AreBrokenByWhatIsLeft) {
    EXPECT_THAT(broken([&](sim::RunReport&) { b.open().settings().setFavouriteName(2, "between"); }),
                ElementsAre("old or new", "verdict"));
    EXPECT_THAT(broken([&](sim::RunReport&) { test::write(b.failures / "left.zip", "x"); }), Contains("archive"));
    EXPECT_THAT(broken([&](sim::RunReport&) { test::write(b.home / "service-db/half", "x"); }), Contains("tidy"));
    EXPECT_THAT(broken([&](sim::RunReport&) { test::write(storedBackup() / "bundle.zip", "x"); }), Contains("store"));
}

TEST_F(Promises, AreBrokenByWhatWasTold) {
    EXPECT_THAT(broken([](sim::RunReport& report) { report.run.reply = -1; }), Contains("reply"));
    EXPECT_THAT(broken([](sim::RunReport& report) { report.run.reported = sim::Reported::Failure; }),
                Contains("report"));
    EXPECT_THAT(broken([](sim::RunReport& report) { report.run.ended = RunEnd::Exit; }), Contains("end"));
    EXPECT_THAT(broken([](sim::RunReport& report) { report.verdict.outcome = sim::Outcome::DoneInPart; }),
                ElementsAre("verdict"));
}

INSTANTIATE_TEST_SUITE_P(Calls, Sweep, ::testing::ValuesIn(OPERATIONS),
                         [](const auto& each) { return std::to_string(each.index); });

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
    test::TestTv& reset(SweptOperation kind) {
        test::TestTv& tv = kind == SweptOperation::Backup ? a : b;
        putBack(tv.home);
        putBack(tv.cloud);
        if (kind == SweptOperation::RestoreWithScan) {
            sim::Tv(tv.home).setScanning(true);
        }
        return tv;
    }

    void putBack(const fs::path& part) const {
        fs::remove_all(part);
        fs::copy(pristine / part.filename(), part, fs::copy_options::recursive);
    }

    static RunResult run(test::TestTv& tv, SweptOperation kind) {
        if (kind == SweptOperation::Backup) {
            return tv.backUp();
        }
        const std::string scan = kind == SweptOperation::RestoreWithScan ? "scan_activated=1" : "scan_activated=0";
        return tv.launch({"operation=restore", scan, "--reply"});
    }

    const fs::path pristine = folder / "pristine";
    sim::Setup before;  // of B
    sim::Setup after;   // of A, and so of B after a restore
};

class PowerCut : public ::testing::TestWithParam<SweptOperation> {};

// After a power cut at any moment, each part is as before or as restored, and the next run works.
TEST_P(PowerCut, AtEachStep) {
    const SweptOperation kind = GetParam();
    World world;
    constexpr int MAX_CUTS = 1000;  // a run has dozens of steps; one that never ends without a cut is a fault
    int cuts = 0;
    for (;; ++cuts) {
        ASSERT_LT(cuts, MAX_CUTS);
        SCOPED_TRACE(cuts + 1);
        test::TestTv& tv = world.reset(kind);
        tv.fault("disk", "cut", cuts + 1);
        const RunResult run = World::run(tv, kind);
        if (tv.faultsFired() == 0) {
            EXPECT_TRUE(run.succeeded());
            break;
        }
        EXPECT_EQ(run.ended, RunEnd::Crashed);
        test::expectTruth(run, tv.setup().services == world.after.services);
        test::expectWholeTv(tv, kind == SweptOperation::Backup ? world.after : world.before, world.after);
        EXPECT_THAT(test::expectWholeCloud(world.a), Each(AnyOf(3U, 1U)));
        tv.clearFaults();
        EXPECT_TRUE(World::run(tv, kind).succeeded());
        EXPECT_TRUE(kind == SweptOperation::RestoreWithScan || tv.setup() == world.after);
        test::expectTidy(tv);
    }
    std::cout << "swept " << cuts << " power cuts\n";
    EXPECT_GE(cuts, 5);
}

INSTANTIATE_TEST_SUITE_P(Sweep, PowerCut, ::testing::ValuesIn(OPERATIONS));

}  // namespace
