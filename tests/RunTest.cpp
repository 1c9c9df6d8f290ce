// A run beside others: the lock, a signal, and what an earlier one left.
#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "simulator/base/Process.h"
#include "tests/support/CommandLine.h"

namespace fs = std::filesystem;

namespace {

using test::Answer;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class Run : public test::CommandLine {};

TEST_F(Run, ASecondRunIsRefusedOrWaits) {
    init();
    {
        const sim::FolderLock held = sim::lockTv(home(), std::chrono::seconds(0));
        const std::int64_t first = sim::Tv(home()).runs().begin(4711, "now");
        const std::string names = fmt::format("run {} (process 4711) is under way", first);
        const Answer refused = tv("run -q");
        EXPECT_EQ(refused.code, 8);
        EXPECT_THAT(refused.text, AllOf(HasSubstr(names), HasSubstr("--wait SECONDS")));
        const Answer alone = test::shell(environment() + test::APPLICATION);
        EXPECT_EQ(alone.code, 8);
        EXPECT_THAT(alone.text, HasSubstr(names));
        EXPECT_EQ(tv("status").code, 0) << "readers are not blocked";
    }
    sim::FolderLock held = sim::lockTv(home(), std::chrono::seconds(0));
    const sim::Process waiting({{HALCYON_TV, "--home", home(), "run", "-q", "--wait", "60"}, {}, -1, -1});
    held = {};
    EXPECT_EQ(WEXITSTATUS(waiting.wait()), 0);
}

TEST_F(Run, ASignalToTheToolEndsTheApplication) {
    init();
    const int output = ::open((folder / "output").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const sim::Process tool({{HALCYON_TV, "--home", home(), "run", "--realtime"}, {}, output, output});
    ::close(output);
    while (sim::Tv(home(), sim::Database::Access::Look).runs().newest() == 0) {
    }
    ::kill(tool.id(), SIGTERM);
    EXPECT_EQ(WEXITSTATUS(tool.wait()), 1);
    const std::optional<sim::Run> run = sim::Tv(home()).runs().find(1);
    ASSERT_TRUE(run);
    EXPECT_EQ(run->ended, sim::RunEnd::Crashed);
    EXPECT_EQ(run->detail, "killed by signal 15 (Terminated)");
}

TEST_F(Run, WhatAnEarlierRunLeftIsSaid) {
    init();
    EXPECT_THAT(tv("run -q").text, Not(HasSubstr("An earlier run")));
    const fs::path temp = home() / "apps/com.kestrel.tv.halcyon-lineup/data/temp";
    test::write(temp / "ci/left", "x");
    EXPECT_THAT(
        tv("run -q").text,
        HasSubstr(fmt::format("An earlier run left ci/left in {0}; a restore applies what its bundle does not have "
                              "itself. To be rid of it: rm -r '{0}'",
                              temp.string())));
}

}  // namespace
