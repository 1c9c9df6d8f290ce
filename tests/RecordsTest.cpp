// The record of a run: crashes, kills, full disks, pruning.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "simulator/base/Error.h"
#include "simulator/base/Process.h"
#include "tests/support/CommandLine.h"
#include "tests/support/SmallDisk.h"

namespace fs = std::filesystem;

namespace {

using test::Answer;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;

class Records : public test::CommandLine {
protected:
    // Launches the application alone, or the tool, with file sizes limited to so many KiB.
    Answer runWithin(int kibibytes, const std::string& words = "") {
        const std::string command = words.empty() ? test::APPLICATION : fmt::format("{} {}", test::TOOL, words);
        return test::shell(fmt::format("bash -c 'ulimit -f {}; {}{}'", kibibytes, environment(), command));
    }

    // Each leaves about seven records of a backup.
    void addCiFiles(int count) {
        for (int i = 0; i < count; ++i) {
            std::ofstream(home() / fmt::format("ci/{}.bin", i)) << i;
        }
    }

    // The number of records of the newest run; none may be missing.
    std::size_t recordsOfNewest() {
        const sim::Tv tv(home(), sim::Database::Access::Look);
        std::set<int> numbers;
        for (const sim::CallRecord& call : tv.runs().record(tv.runs().newest()).calls()) {
            numbers.insert(call.seq);
        }
        for (const sim::LogRecord& log : tv.runs().record(tv.runs().newest()).log()) {
            numbers.insert(log.seq);
        }
        EXPECT_EQ(numbers.size(), static_cast<std::size_t>(*numbers.rbegin()));
        return numbers.size();
    }
};

TEST_F(Records, OutliveAKill) {
    init();
    addCiFiles(400);
    tv("fault add disk cut --nth 5");
    EXPECT_EQ(test::shell(environment() + test::APPLICATION).code, 137);
    EXPECT_GT(recordsOfNewest(), 1000U);
    EXPECT_THAT(tv("record").text, AllOf(HasSubstr("ended      crashed: its process is gone"), HasSubstr("power cut")));
}

TEST_F(Records, AreReadUpToALineThatIsCutOff) {
    init();
    tv("run -q");
    const fs::path file = home() / "runs/000001.jsonl";
    const std::size_t count = recordsOfNewest();
    std::ofstream(file, std::ios::app) << R"({"call":"half)";
    EXPECT_EQ(recordsOfNewest(), count);
    sim::CallRecord call;
    call.seq = static_cast<int>(count) + 1;
    call.name = "bad \xff";
    sim::Tv(home()).runs().record(1).add(call);
    EXPECT_EQ(recordsOfNewest(), count + 1) << "the next one begins a line of its own";
    EXPECT_EQ(sim::Tv(home()).runs().record(1).calls().back().name, "bad ÿ") << "a record is JSON whatever it holds";
    EXPECT_THAT(tv("record").text, HasSubstr("outcome    done"));
    fs::resize_file(file, 100);
    EXPECT_THAT(tv("record").text, HasSubstr("its record is damaged"));
}

TEST_F(Records, AreLostOnAFullDiskAndNothingElseIs) {
    init();
    addCiFiles(300);  // more to record than there is room for, or than waits
    const sim::Setup before = sim::Tv(home()).setup();
    const Answer run = runWithin(40);
    EXPECT_EQ(run.code, 0) << run.text;
    EXPECT_THAT(run.text, AllOf(HasSubstr("records of this run could not be written: "),
                                HasSubstr("main function,ret=0"), Not(HasSubstr("crashed"))));
    EXPECT_THAT(tv("record").text, AllOf(HasSubstr("outcome    done"), HasSubstr("ended      own exit")))
        << "how it ended needs no room";
    EXPECT_EQ(sim::Tv(home()).setup(), before);
    EXPECT_EQ(tv("run -q").code, 0);
    EXPECT_GT(recordsOfNewest(), 2000U);
}

TEST_F(Records, AVerdictThatCannotBeRecordedIsGivenAllTheSame) {
    init();
    addCiFiles(300);
    const Answer run = runWithin(40, "run -q");
    EXPECT_EQ(run.code, 0) << run.text;
    EXPECT_THAT(run.text, AllOf(HasSubstr("outcome    done\n"), HasSubstr("The verdict is not in the run's record: ")));
}

TEST_F(Records, WhatCannotBeCheckedIsNoFailureOfTheRun) {
    init();
    std::string noise;
    for (unsigned int i = 0, value = 1; i < 100'000; ++i, value = value * 1103515245 + 12345) {
        noise += static_cast<char>(value >> 16);
    }
    test::write(home() / "ci/noise.bin", noise);
    EXPECT_EQ(test::shell(environment() + test::APPLICATION).code, 0);
    const Answer record = runWithin(40, "record -q");
    EXPECT_EQ(record.code, 0);
    EXPECT_THAT(record.text, AllOf(HasSubstr("outcome    unchecked"), HasSubstr("cannot be checked: "),
                                   HasSubstr("response   101"), HasSubstr("ended      own exit")));
    EXPECT_THAT(tv("record -q").text, HasSubstr("outcome    done\n"));
}

TEST_F(Records, ThereIsNoHalfMadeOne) {
    const test::SmallDisk disk(1000);
    EXPECT_THROW(sim::RunFile(folder / "000001.jsonl").create({}), sim::Error);
    EXPECT_FALSE(fs::exists(folder / "000001.jsonl"));
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
    EXPECT_THAT(kept.runs().record(1).calls(), SizeIs(0));
    EXPECT_THAT(kept.runs().record(2).log(), Not(SizeIs(0)));
    EXPECT_FALSE(fs::exists(home() / "runs/000001.jsonl"));
}

}  // namespace
