// What a hostile bundle, a crowd, a kill and a full disk can do to a TV and to who runs it.
#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <csignal>
#include <fstream>
#include <set>

#include "simulator/base/Archive.h"
#include "simulator/base/Error.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Process.h"
#include "simulator/base/Text.h"
#include "simulator/cloud/CloudStore.h"
#include "simulator/lineup/ChannelList.h"
#include "simulator/reports/TvReport.h"
#include "simulator/tv/PendingRecords.h"
#include "tests/support/Archives.h"
#include "tests/support/CommandLine.h"
#include "tests/support/Restore.h"
#include "tests/support/WithoutPrivileges.h"

namespace fs = std::filesystem;

namespace {

using test::Answer;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::Gt;
using ::testing::HasSubstr;
using ::testing::Lt;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;
using ::testing::ThrowsMessage;

unsigned int modeOf(const fs::path& path) {
    struct stat status = {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
}

// --- a bundle whose names lead out of the TV ---

class Escape : public test::Restore, public ::testing::WithParamInterface<const char*> {
protected:
    Escape() {
        if (::syscall(SYS_landlock_create_ruleset, nullptr, 0, 1) < 2) {
            return;
        }
        isConfinable = true;
        const std::string name = GetParam();
        test::makeArchive(storedBackup() / "bundle.zip",
                          {{name.front() == '/' ? (folder / "escaped").string() : name, "x"}});
    }
    bool isConfinable = false;
};

TEST_P(Escape, EndsAtTheTvsDoor) {
    if (!isConfinable) {
        GTEST_SKIP() << "this kernel cannot confine a process";
    }
    const test::Outcome run = b.restore();
    expectRefused(run);
    EXPECT_THAT(run.log, Contains(AllOf(StartsWith("6 cannot extract "), HasSubstr("escaped"))));
    EXPECT_FALSE(fs::exists(folder / "escaped"));

    ::setenv("HALCYON_TV_SANDBOX", "off", 1);
    b.restore();
    ::unsetenv("HALCYON_TV_SANDBOX");
    EXPECT_TRUE(fs::exists(folder / "escaped")) << "unconfined, it leads out";
}

INSTANTIATE_TEST_SUITE_P(Names, Escape, ::testing::Values("/", "../../../../../escaped"));

// --- who else is on the machine ---

class Containment : public test::CommandLine {};

TEST_F(Containment, HomesAndCloudsArePrivate) {
    init();
    tv("run -q");
    EXPECT_EQ(modeOf(home()), 0700U);
    EXPECT_EQ(modeOf(folder / "cloud"), 0700U);
    ASSERT_EQ(::chmod(home().c_str(), 0770), 0);
    for (const std::string command : {"status", "run -q"}) {
        const Answer refused = tv(command);
        EXPECT_EQ(refused.code, 3);
        EXPECT_THAT(refused.text, HasSubstr(fmt::format("close it with: chmod go-w '{}'", home().string())));
    }
}

TEST_F(Containment, OnlyItsOwnScratchFoldersAreCleanedUp) {
    const auto make = [&](const std::string& name, mode_t mode) {
        test::write(folder / name / "precious", "");
        ASSERT_EQ(::chmod((folder / name).c_str(), mode), 0);
    };
    make("halcyon-building-abcdef", 0700);
    make("halcyon-building-plans", 01700);
    make("halcyon-building-abc123", 01700);
    init();
    EXPECT_TRUE(fs::exists(folder / "halcyon-building-abcdef")) << "without the mark";
    EXPECT_TRUE(fs::exists(folder / "halcyon-building-plans")) << "with another name";
    EXPECT_FALSE(fs::exists(folder / "halcyon-building-abc123")) << "a killed process's";
}

TEST(Shown, LetsNothingControlTheTerminal) {
    const std::vector<std::pair<std::string, std::string>> texts = {
        {"Grüße, 日本 😀", "Grüße, 日本 😀"},
        {"\x1b[31mred", "\\x1b[31mred"},
        {"a\nb\tc\r", "a\\nb\\tc\\x0d"},
        {"\xc2\x9b"
         "31m",
         "\\xc2\\x9b31m"},
        {"abc\u202etxt.exe", "abc\\u{202e}txt.exe"},
        {"\xff\xc3", "\\xff\\xc3"},
        {std::string("a\0b", 3), "a\\x00b"},
    };
    for (const auto& [text, shown] : texts) {
        EXPECT_EQ(sim::shown(text), shown);
    }
    EXPECT_EQ(sim::inColumns("日本語", 5), "日本…");
    EXPECT_EQ(sim::inColumns("ab", 4), "ab  ");
}

TEST_F(Containment, NamesFromOutsideAreShownSafely) {
    test::write(folder / "list.conf", ":\x1b[2JGroup\n\x1b]0;gone\x07\u202e:410:M64:C:6900:1:2:3:0:1:1:1:0\n");
    init();
    EXPECT_EQ(tv("set favname1 $(printf '\\033[8mhidden')").code, 0);
    for (const std::string command : {"status --services", "run", "record --log --calls",
                                      "fault add $(printf '\\033[1m') throw", "run $(printf '\\033[1m')"}) {
        const Answer answer = tv(command);
        EXPECT_THAT(answer.text, AllOf(HasSubstr("\\x1b"), Not(HasSubstr("\x1b")))) << command;
    }
}

// --- limits ---

TEST_F(Containment, WhatIsReadHasLimits) {
    EXPECT_THAT(
        [] {
            sim::ChannelList list;
            sim::readChannelList("/dev/zero", list);
        },
        ThrowsMessage<sim::Error>(AllOf(HasSubstr("bytes of a line"), HasSubstr("the limit is 16384"))));
    test::makeArchive(folder / "x.zip", {{"entry", "text"}});
    std::string bytes = test::readFile(folder / "x.zip");
    test::setNumber(bytes, test::centralRecord(bytes, 0) + 24, 4, 0x7fffffff);
    test::write(folder / "x.zip", bytes);
    EXPECT_THAT([&] { sim::extractEntry(folder / "x.zip", "entry", folder / "entry"); },
                ThrowsMessage<sim::Error>(HasSubstr("entry 'entry': bytes: 2147483647, and the limit is 1073741824")));
    EXPECT_THAT(sim::limits::cut(std::string(20'000, 'x')), EndsWith("x... (20000 bytes)"));
}

class LargeRestore : public test::Restore {};

TEST_F(LargeRestore, IsRefusedAndCutInTheRecord) {
    const test::Outcome run = restoreSettings(R"({"dataSize":1,"data":[{"path":"p","type":1,"value":")" +
                                              std::string(2'000'000, 'x') + R"("}]})");
    EXPECT_TRUE(run.says("5 vconf_set_str of p failed!"));
    EXPECT_THAT(run.timeline, Contains(HasSubstr("bytes of a setting and its key: 2000001, and the limit is 65536")));
    EXPECT_TRUE(run.succeeded());
    for (const sim::CallRecord& call : run.calls) {
        EXPECT_LT(call.arguments.size(), 17'000U) << call.name;
    }
    EXPECT_LT(fs::file_size(b.home / "tv.db"), 1'000'000U);
}

// --- a kill and a full disk ---

class Records : public Containment {
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

// --- one run at a time ---

TEST_F(Containment, ASecondRunIsRefusedOrWaits) {
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

// --- signals, and what else may happen to a run ---

TEST_F(Containment, ASignalToTheToolEndsTheApplication) {
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

TEST_F(Containment, ARunWhoseProcessIsGoneIsClosedLater) {
    init();
    const sim::Process gone({{"/bin/true"}, {}, -1, -1});
    gone.wait();
    sim::Tv(home()).runs().begin(gone.id(), "now");
    EXPECT_THAT(tv("record").text, HasSubstr("ended      crashed: its process is gone"));
}

TEST_F(Containment, OldRunsAreForgotten) {
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

TEST_F(Containment, WhatAnEarlierRunLeftIsSaid) {
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

TEST_F(Containment, ATvThatCannotBeWrittenToCanBeShown) {
    init();
    for (const fs::path& part : {home() / "service-db", home()}) {
        ASSERT_EQ(::chmod(part.c_str(), 0500), 0);
    }
    {
        const test::WithoutPrivileges unprivileged;
        EXPECT_EQ(sim::reportOn(sim::Tv(home(), sim::Database::Access::Look)).counts.services, 2U);
    }
    ASSERT_EQ(::chmod(home().c_str(), 0700), 0);
    ASSERT_EQ(::chmod((home() / "service-db").c_str(), 0700), 0);
}

TEST_F(Containment, AHomeThatSqliteCouldNotOpenIsNotMade) {
    const std::string deep = std::string(150, 'a') + "/" + std::string(150, 'b') + "/" + std::string(150, 'c');
    const Answer refused = init(deep);
    EXPECT_EQ(refused.code, 3);
    EXPECT_THAT(refused.text, HasSubstr("the path of a TV home has at most 400 bytes"));
    EXPECT_FALSE(fs::exists(folder / std::string(150, 'a')));
}

TEST_F(Containment, TheSerialNumberIsEscaped) {
    EXPECT_EQ(tv("init --channels " + (folder / "list.conf").string() + " --serial '\"/><x a=\"&'").code, 0);
    EXPECT_EQ(test::readFile(home() / "ci/ci_operator.xml"), "<operator set=\"&quot;/>&lt;x a=&quot;&amp;\"/>\n");
}

// --- the store ---

TEST_F(Containment, TheStoreHasOneOrderAndHidesNothing) {
    init();
    tv("run -q");
    const fs::path category = folder / "cloud/Qr7tLw2ZkA/OOBERFChannelList";
    for (const std::string id : {"999999", "1000000"}) {
        fs::copy(category / "000001", category / id, fs::copy_options::recursive);
    }
    fs::create_directory(category / "000abc");
    const std::unique_ptr<sim::CloudStore> store = sim::openCloud(folder / "cloud");
    const auto ids = [&] {
        test::Strings list;
        for (const sim::StoredBackup& backup : sim::listBackups(*store)) {
            list.push_back(backup.id + (backup.damage.empty() ? "" : " damaged"));
        }
        return list;
    };
    EXPECT_THAT(ids(), ElementsAre("000001", "999999", "1000000"));
    EXPECT_EQ(store->newest({"default", "Qr7tLw2ZkA", "OOBERFChannelList"})->id, "1000000") << "the newest";
    EXPECT_EQ(tv("run -q").code, 0);
    fs::remove(category / "999999/bundle.zip");
    EXPECT_THAT(ids(), ElementsAre("000001", "999999 damaged", "1000000", "1000001"));
    EXPECT_THAT(tv("cloud list").text, AllOf(HasSubstr("1000001"), HasSubstr("DAMAGED"), HasSubstr("000001 ")));
    EXPECT_THAT(tv("bundle show").text, HasSubstr("backup 1000001"));
}

}  // namespace
