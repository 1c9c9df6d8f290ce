// The record of a run, whatever becomes of the run, of its process and of the disk.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "simulator/base/Process.h"
#include "simulator/tv/PendingRecords.h"
#include "tests/support/CommandLine.h"

namespace fs = std::filesystem;

namespace {

using test::Answer;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Gt;
using ::testing::HasSubstr;
using ::testing::Lt;
using ::testing::Not;
using ::testing::SizeIs;

class Records : public test::CommandLine {
protected:
    // Launches the application by itself, where no file may grow beyond so many KiB.
    Answer runWithin(int kibibytes) {
        return test::shell(fmt::format("bash -c 'ulimit -f {}; {}{}'", kibibytes, environment(), test::APPLICATION));
    }

    // Each leaves some seven records of a backup.
    void addCiFiles(int count) {
        for (int i = 0; i < count; ++i) {
            std::ofstream(home() / fmt::format("ci/{}.bin", i)) << i;
        }
    }

    // How many records the newest run has; none of them may be missing.
    std::size_t recordsOfNewest() {
        const sim::Tv tv(home(), sim::Database::Access::Look);
        std::set<int> numbers;
        for (const sim::CallRecord& call : tv.runs().calls(tv.runs().newest())) {
            numbers.insert(call.seq);
        }
        for (const sim::LogRecord& log : tv.runs().log(tv.runs().newest())) {
            numbers.insert(log.seq);
        }
        EXPECT_EQ(numbers.size(), static_cast<std::size_t>(*numbers.rbegin()));
        return numbers.size();
    }

    std::int64_t storedRecords() const {
        return *sim::Database(home() / "tv.db", sim::Database::Access::Look)
                    .integer("SELECT (SELECT count(*) FROM calls) + (SELECT count(*) FROM log)");
    }
};

TEST_F(Records, OutliveAKill) {
    init();
    addCiFiles(400);
    tv("fault add disk cut --nth 5");
    EXPECT_EQ(test::shell(environment() + test::APPLICATION).code, 137);
    const std::size_t count = recordsOfNewest();
    EXPECT_THAT(storedRecords(), AllOf(Gt(1000), Lt(static_cast<std::int64_t>(count))))
        << "some wait where a kill leaves them";
    EXPECT_THAT(tv("record").text, AllOf(HasSubstr("ended      crashed: its process is gone"), HasSubstr("power cut")));

    tv("run -q");
    EXPECT_EQ(storedRecords(), static_cast<std::int64_t>(count + recordsOfNewest()));
    EXPECT_FALSE(fs::exists(home() / "tv.db-pending"));
}

TEST_F(Records, WaitWhereTheDatabaseCannotGrow) {
    init();
    EXPECT_EQ(runWithin(40).code, 0);
    const std::size_t count = recordsOfNewest();
    EXPECT_EQ(storedRecords(), 0);
    EXPECT_THAT(tv("record").text, HasSubstr("main function,ret=0"));
    tv("run -q");
    EXPECT_EQ(storedRecords(), static_cast<std::int64_t>(count + recordsOfNewest()));
}

TEST_F(Records, WaitBehindThoseOfAnEarlierRun) {
    for (int run = 1; run <= 2; ++run) {
        sim::PendingRecords(folder / "pending").add(run, sim::CallRecord{});
    }
    std::vector<std::int64_t> runs;
    sim::PendingRecords(folder / "pending")
        .forEach([&](std::int64_t run, const sim::CallRecord&) { runs.push_back(run); }, [](auto, const auto&) {});
    EXPECT_THAT(runs, ElementsAre(1, 2));
}

TEST_F(Records, AreLostOnAFullDiskAndNothingElseIs) {
    init();
    addCiFiles(300);  // more to record than there is room for, or than waits
    const sim::Setup before = sim::Tv(home()).setup();
    const Answer run = runWithin(40);
    EXPECT_EQ(run.code, 0) << run.text;
    EXPECT_THAT(run.text, AllOf(HasSubstr("records of this run could not be written: "),
                                HasSubstr("main function,ret=0"), Not(HasSubstr("crashed"))));
    EXPECT_EQ(sim::Tv(home()).setup(), before);
    EXPECT_EQ(tv("run -q").code, 0);
    EXPECT_GT(recordsOfNewest(), 2000U);
}

TEST_F(Records, ARunWhoseProcessIsGoneIsClosedLater) {
    init();
    const sim::Process gone({{"/bin/true"}, {}, -1, -1});
    gone.wait();
    sim::Tv(home()).runs().begin(gone.id(), "now");
    EXPECT_THAT(tv("record").text, HasSubstr("ended      crashed: its process is gone"));
}

TEST_F(Records, OldRunsAreForgotten) {
    init();
    for (int i = 0; i < 3; ++i) {
        tv("run -q --keep 2");
    }
    const sim::Tv kept(home());
    ASSERT_THAT(kept.runs().list(), SizeIs(2));
    EXPECT_EQ(kept.runs().newest(), 3);
    EXPECT_THAT(kept.runs().calls(1), SizeIs(0));
    EXPECT_THAT(kept.runs().log(2), Not(SizeIs(0)));
}

}  // namespace
