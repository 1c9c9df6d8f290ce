// Runs side by side: the lock, a signal, and the remains of an earlier run.
#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <future>

#include "simulator/base/Descriptor.h"
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
        const std::int64_t first = sim::Tv(home()).runs().begin(::getpid(), "now").id;
        const std::string names = fmt::format("run {} (process {}) is under way", first, ::getpid());
        const Answer refused = tv("run -q");
        EXPECT_EQ(refused.code, 8);
        EXPECT_THAT(refused.text, AllOf(HasSubstr(names), HasSubstr("--wait SECONDS")));
        const Answer alone = test::shell(environment() + test::APPLICATION);
        EXPECT_EQ(alone.code, 8);
        EXPECT_THAT(alone.text, HasSubstr(names));
        EXPECT_EQ(tv("status").code, 0) << "readers are not blocked";
    }
    sim::FolderLock held = sim::lockTv(home(), std::chrono::seconds(0));
    std::future<Answer> waiting = std::async(std::launch::async, [&] { return tv("run -q --wait 60"); });
    held = {};
    EXPECT_EQ(waiting.get().code, 0);
}

TEST_F(Run, ASignalToTheToolEndsTheApplication) {
    init();
    std::array<int, 2> ends = {};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    const sim::Descriptor reader(ends[0]);
    sim::Descriptor writer(ends[1]);
    sim::ProcessOptions launch;
    launch.words = {HALCYON_TV, "--home", home(), "-v", "run", "--realtime"};
    launch.output = launch.errors = writer.get();
    const sim::Process tool(launch);
    writer.reset();
    pollfd firstLine = {reader.get(), POLLIN, 0};  // of the application's log: its run has begun
    ASSERT_EQ(::poll(&firstLine, 1, 60'000), 1) << "the run doesn't begin";
    ::kill(tool.id(), SIGTERM);
    EXPECT_EQ(WEXITSTATUS(tool.wait()), 1);
    const std::optional<sim::Run> run = sim::Tv(home()).runs().find(1);
    ASSERT_TRUE(run);
    EXPECT_EQ(run->ended, sim::RunEnd::Crashed);
    EXPECT_EQ(run->detail, "killed by signal 15 (Terminated)");
}

TEST_F(Run, NeedsNoStandardStreams) {
    init();
    EXPECT_EQ(test::shell(environment() + test::APPLICATION + " <&- >&- 2>&-").code, 0);
    EXPECT_EQ(tv("run operation=restore <&- >&- 2>&-").code, 3) << "its verdict cannot be printed";
    const sim::Tv tv(home());
    for (const sim::Run& run : tv.runs().list()) {
        EXPECT_TRUE(succeeded(run)) << run.id;
    }
    EXPECT_EQ(tv.runs().newest(), 2);
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
