// For every platform call of a run, and each failure that it can have: the run with that one call failing; and the
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
#include "simulator/launch/Play.h"
#include "simulator/launch/Sweep.h"
#include "simulator/launch/Workers.h"
#include "tests/support/Invariants.h"

namespace {

using sim::RunEnd;
using sim::SweptOperation;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;

// A restore without a scan is swept by the command's story.
const SweptOperation OPERATIONS[] = {SweptOperation::Backup, SweptOperation::RestoreWithScan};

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
    EXPECT_GE(result.cuts, 5U);
    std::cout << "swept " << result.singles << " runs under a fault each, and " << result.cuts << " power cuts\n";
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

// The careless application breaks a promise under a fault. The scenario of that says so, and passes with the sound one.
TEST(SweepWorld, WritesWhatIsBrokenAsAScenario) {
    const test::TempFolder place;
    const test::TempFolder folder;
    sim::SweepWorld world(place.path(), CARELESS_LINEUP, std::chrono::minutes(1));
    const sim::SweptRun run = world.run(SweptOperation::Restore, {{"IUtil::ReplaceServiceDb", 1, "result=0"}});
    std::string broken;
    for (const sim::Violation& each : run.violations) {
        broken += (broken.empty() ? "" : ", ") + each.invariant;
    }
    EXPECT_THAT(broken, HasSubstr("report"));
    world.copyTo(folder / "case");
    test::write(folder / "case/case.yaml", sim::toScenario(SweptOperation::Restore, run));
    const std::vector<sim::Scenario> scenarios = {sim::readScenario(folder / "case/case.yaml")};
    for (const char* program : {CARELESS_LINEUP, HALCYON_LINEUP}) {
        sim::PlayOptions options;
        options.program = program;
        sim::playAll(scenarios, options, [&](std::size_t, const sim::Played& played) {
            if (program == std::string(HALCYON_LINEUP)) {
                EXPECT_EQ(played.state, sim::PlayState::Passed) << played.findings.front().text;
            } else {
                ASSERT_EQ(played.state, sim::PlayState::Failed);
                EXPECT_EQ(played.findings.front().text,
                          "broken: expected none, and it was " + broken + ": " + run.violations[0].what);
            }
        });
    }
}

TEST(SweepWorld, EndsAnApplicationThatHangs) {
    const test::TempFolder folder;
    sim::SweepWorld world(folder.path(), CARELESS_LINEUP, std::chrono::seconds(2));
    const sim::SweptRun run = world.run(SweptOperation::Backup, {{"bnr_deinit", 1, "result=-1"}});
    EXPECT_EQ(run.outcome, sim::Outcome::Crashed);
    ASSERT_FALSE(run.violations.empty());
    EXPECT_EQ(run.violations[0].invariant, "end");
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
        sim::RunReport report = sim::reportRun(tv, sim::opened(*store), *tv.runs().find(tv.runs().newest()));
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

}  // namespace
