// A TV's home and its cloud as folders on a shared disk.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <tuple>

#include "simulator/base/Archive.h"
#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/cloud/OpenCloud.h"
#include "simulator/reports/TvReport.h"
#include "tests/support/CommandLine.h"
#include "tests/support/WithoutPrivileges.h"

namespace fs = std::filesystem;

namespace {

using test::Answer;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;
using ::testing::ThrowsMessage;

TEST(Environment, SaysWhereHomesAndCloudsAre) {
    const std::vector<std::tuple<const char*, const char*, const char*, std::string>> environments = {
        {"/given/tv/", "/state", "/user", "/given/tv"},
        {"", "/state", "/user", "/state/halcyon-tv/tv"},
        {"", "relative", "/user", "/user/.local/state/halcyon-tv/tv"},
        {"", "", "/user", "/user/.local/state/halcyon-tv/tv"},
    };
    const std::string user = sim::environment("HOME");
    for (const auto& [home, state, userHome, expected] : environments) {
        ::setenv("HALCYON_TV_HOME", home, 1);
        ::setenv("XDG_STATE_HOME", state, 1);
        ::setenv("HOME", userHome, 1);
        EXPECT_EQ(sim::defaultHome(), expected);
    }
    const test::TempFolder old;
    ::setenv("XDG_STATE_HOME", old.path().c_str(), 1);
    test::write(old / "halcyon-tv/tv.db", "");
    EXPECT_THAT([] { sim::defaultHome(); }, ThrowsMessage<sim::Error>(HasSubstr("is a TV of an earlier version")));
    ::setenv("XDG_STATE_HOME", "", 1);
    ::setenv("HOME", "", 1);
    EXPECT_THAT([] { sim::defaultHome(); }, ThrowsMessage<sim::Error>(HasSubstr("set HALCYON_TV_HOME or HOME")));
    ::setenv("HOME", user.c_str(), 1);
    ::unsetenv("XDG_STATE_HOME");
    ::unsetenv("HALCYON_TV_HOME");
    ::unsetenv("HALCYON_CLOUD");
    EXPECT_EQ(sim::cloudOf("/some/tv"), "/some/cloud");
}

class Home : public test::CommandLine {};

// As a reset does it while another process has the TV open.
TEST_F(Home, AnOpenTvThatIsReplacedIsNotWrittenTo) {
    init();
    sim::Tv opened(home());
    fs::rename(home(), folder / "old");
    fs::copy(folder / "old", home(), fs::copy_options::recursive);
    EXPECT_THAT([&] { opened.setScanning(true); }, ThrowsMessage<sim::Error>(HasSubstr("taken its place just now")));
    EXPECT_FALSE(sim::Tv(home()).isScanning());
}

TEST_F(Home, TheCloudAndTheTvAreNotInOneAnother) {
    init();
    fs::create_directory_symlink(home(), folder / "link");
    for (const fs::path& cloud : {home() / "cloud", folder / "link/cloud", home(), home().parent_path()}) {
        for (const std::string program : {test::APPLICATION, test::TOOL}) {
            const test::Answer answer =
                test::shell(fmt::format("HALCYON_TV_HOME='{}' HALCYON_CLOUD='{}' '{}'{}", home().string(),
                                        cloud.string(), program, program == test::TOOL ? " run -q" : ""));
            EXPECT_EQ(answer.code, 3) << cloud;
            EXPECT_THAT(answer.text, HasSubstr("must not be in one another; choose another folder with --cloud"));
        }
    }
    EXPECT_EQ(tv("run -q").code, 0);
}

TEST_F(Home, ACloudIsNoFile) {
    init();
    for (const std::string place : {"/dev/null", "/dev/null/below"}) {
        for (const std::string words : {"cloud list", "run -q"}) {
            const Answer answer = test::shell(fmt::format("HALCYON_TV_HOME='{}' HALCYON_CLOUD={} '{}' {}",
                                                          home().string(), place, test::TOOL, words));
            EXPECT_EQ(answer.code, 3) << place << ": " << words;
            EXPECT_THAT(answer.text, HasSubstr("/dev/null is no folder"));
        }
    }
}

TEST_F(Home, SnapshotsShareNoFileWithTheTv) {
    init();
    tv("run -q");
    tv("snapshot kept");
    tv("reset kept");
    int files = 0;
    for (const fs::directory_entry& each : fs::recursive_directory_iterator(home())) {
        files += each.is_regular_file() ? 1 : 0;
        EXPECT_TRUE(!each.is_regular_file() || each.hard_link_count() == 1) << each.path();
    }
    EXPECT_GT(files, 10);
}

TEST_F(Home, HomesAndCloudsArePrivate) {
    init();
    tv("run -q");
    EXPECT_EQ(fs::status(home()).permissions(), fs::perms::owner_all);
    EXPECT_EQ(fs::status(folder / "cloud").permissions(), fs::perms::owner_all);
    ASSERT_EQ(::chmod(home().c_str(), 0770), 0);
    for (const std::string command : {"status", "run -q"}) {
        const Answer refused = tv(command);
        EXPECT_EQ(refused.code, 3);
        EXPECT_THAT(refused.text, HasSubstr(fmt::format("close it with: chmod go-w '{}'", home().string())));
    }
}

TEST_F(Home, OnlyItsOwnScratchFoldersAreCleanedUp) {
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

TEST_F(Home, AHomeThatSqliteCouldNotOpenIsNotMade) {
    const std::string deep = std::string(150, 'a') + "/" + std::string(150, 'b') + "/" + std::string(150, 'c');
    const Answer refused = init(deep);
    EXPECT_EQ(refused.code, 3);
    EXPECT_THAT(refused.text, HasSubstr("the path of a TV home has at most 400 bytes"));
    EXPECT_FALSE(fs::exists(folder / std::string(150, 'a')));
}

TEST_F(Home, ATvThatCannotBeWrittenToCanBeShown) {
    init();
    for (const fs::path& part : {home() / "service-db", home()}) {
        ASSERT_EQ(::chmod(part.c_str(), 0500), 0);
    }
    {
        const test::WithoutPrivileges unprivileged;
        EXPECT_EQ(sim::reportTv(sim::Tv(home(), sim::Database::Access::Look)).counts.services, 2U);
    }
    ASSERT_EQ(::chmod(home().c_str(), 0700), 0);
    ASSERT_EQ(::chmod((home() / "service-db").c_str(), 0700), 0);
}

TEST_F(Home, WhatIsHeldWithoutARunIsNotCalledARun) {
    init();
    tv("run -q");
    const sim::FolderLock lock = sim::lockTv(home(), std::chrono::seconds(0));
    const Answer answer = tv("run -q");
    EXPECT_EQ(answer.code, 8);
    EXPECT_THAT(answer.text, HasSubstr("the verdict on a run, a snapshot or a reset is under way"));
}

TEST_F(Home, OfAnotherUserIsNotSaidToBeMissing) {
    init();
    ASSERT_EQ(::chmod(home().c_str(), 0), 0);
    {
        const test::WithoutPrivileges unprivileged;
        EXPECT_THAT([&] { sim::Tv(home(), sim::Database::Access::Look); },
                    ThrowsMessage<sim::Error>(HasSubstr("cannot look for a TV there: Permission denied")));
    }
    ASSERT_EQ(::chmod(home().c_str(), 0700), 0);
    EXPECT_EQ(tv("snapshot", "nowhere").code, 3);
    EXPECT_THAT(tv("snapshot", "nowhere").text, HasSubstr("no TV at"));
}

test::Strings idsIn(const sim::CloudStore& store) {
    test::Strings ids;
    for (const sim::StoredBackup& backup : sim::lookAt(store, store.content().backups)) {
        ids.push_back(backup.id + (backup.damage.empty() ? "" : " damaged"));
    }
    return ids;
}

TEST_F(Home, TheStoreHasOneOrderAndHidesNothing) {
    init();
    tv("run -q");
    const fs::path category = folder / "cloud/Qr7tLw2ZkA/OOBERFChannelList";
    for (const std::string id : {"999999", "1000000"}) {
        fs::copy(category / "000001", category / id, fs::copy_options::recursive);
    }
    fs::create_directory(category / "000abc");
    const std::unique_ptr<sim::CloudStore> store = sim::openCloud(folder / "cloud");
    EXPECT_THAT(idsIn(*store), ElementsAre("000001", "999999", "1000000"));
    EXPECT_EQ(store->newest({"default", "Qr7tLw2ZkA", "OOBERFChannelList"})->id, "1000000") << "the newest";
    EXPECT_EQ(tv("run -q").code, 0);
    fs::remove(category / "999999/bundle.zip");
    EXPECT_THAT(idsIn(*store), ElementsAre("000001", "999999 damaged", "1000000", "1000001"));
    EXPECT_THAT(tv("cloud list").text, AllOf(HasSubstr("1000001"), HasSubstr("DAMAGED"), HasSubstr("000001 ")));
    EXPECT_THAT(tv("bundle show").text, HasSubstr("backup 1000001"));
}

class Services : public test::TwoTvs {};

// No name in an archive decides where something is written.
TEST_F(Services, AreTakenFromTheirOwnEntryOnly) {
    const fs::path planted = folder / "plain/ipsrv";
    test::write(planted, "another set's");
    a.open().serviceDb().snapshot(folder / "a.zip");
    ASSERT_TRUE(sim::extractEntry(folder / "a.zip", "services.db", folder / "services.db"));
    sim::writeArchive(folder / "more.zip", {folder / "services.db", planted});
    const std::string own = b.open().serviceDb().ipServices();
    EXPECT_EQ(b.open().serviceDb().replace(folder / "more.zip"), std::nullopt);
    EXPECT_EQ(b.open().serviceDb().ipServices(), own);
    EXPECT_EQ(test::tree(b.home / "service-db"), (std::vector<std::string>{"ipsrv", "services.db"}));
}

TEST_F(Services, OfTheCiModuleAreTakenOverAllOrNone) {
    const sim::CiFiles module = b.open().ciFiles();
    const auto before = module.digests();
    test::write(folder / "ci_profile.bin", "new");
    fs::create_directories(folder / "folder");
    EXPECT_FALSE(module.takeOver({folder / "ci_profile.bin", folder / "folder"}));
    EXPECT_FALSE(module.takeOver({folder / "ci_profile.bin", folder / "missing"}));
    EXPECT_EQ(module.digests(), before);
    EXPECT_TRUE(module.takeOver({folder / "ci_profile.bin"}));
    EXPECT_EQ(test::readFile(b.home / "ci/ci_profile.bin"), "new");
    EXPECT_EQ(module.digests().at("ci_operator.xml"), before.at("ci_operator.xml"));
}

// If a TV's own files are missing, its calls fail; the application survives.
TEST_F(Services, ThatAreGoneFailTheCalls) {
    fs::remove(b.home / "service-db/services.db");
    fs::remove_all(b.home / "ci");
    const test::RunResult run = b.backUp();
    EXPECT_EQ(run.ended, sim::RunEnd::Exit);
    EXPECT_TRUE(run.says("6 IUtil::GetServiceDb({data}{name}/ServiceDB.zip) fail"));
}

TEST_F(Services, AreNotTakenFromAStoredBackupThatLiesOrCannotBeRead) {
    a.backUp();
    fs::remove(storedBackup() / "metadata.json");
    EXPECT_EQ(a.restore().response, sim::Response::Error) << "a backup that the cloud cannot read";
    test::write(storedBackup("000002") / "info.json", R"({"time":"","name":"../../../iss.db"})");
    test::write(storedBackup("000002") / "metadata.json", "{}");
    test::write(storedBackup("000002") / "bundle.zip", "");
    EXPECT_EQ(a.restore().response, sim::Response::RestoreData);
    EXPECT_THAT(a.setup().of(sim::Item::Iss), SizeIs(3)) << "a name in the store does not lead out of the folder";
    const auto cloud = sim::openCloud(a.cloud);
    EXPECT_THAT(cloud->look(cloud->content().backups.at(0)).damage, HasSubstr("000001/metadata.json: cannot read"));
    for (const char* name : {"", ".", "x/.."}) {
        test::write(storedBackup("000002") / "info.json", fmt::format(R"({{"time":"","name":"{}"}})", name));
        EXPECT_THAT(cloud->look(cloud->content().backups.at(1)).damage, HasSubstr("cannot be the file name")) << name;
    }
}

}  // namespace
