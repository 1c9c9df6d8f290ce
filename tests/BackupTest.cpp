#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <stdlib.h>

#include <algorithm>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <sstream>

#include "simulator/base/Archive.h"
#include "simulator/base/Json.h"
#include "simulator/lineup/Bundle.h"
#include "tests/support/TestTv.h"

namespace fs = std::filesystem;

namespace {

using Lines = std::vector<std::string>;
using test::RunResult;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

const char METADATA[] =
    R"({"setting":{"antenna":1,"category":{"mode":2,"param":"2","sort":1},"service_id":"2","source":0,)"
    R"("tvmode":{"antenna_mode":2,"service_mode":1}},"version":"0.3"})";

class Backup : public test::TwoTvs {
protected:
    Lines bundleEntries(const std::string& id = "000001") const {
        Lines names;
        for (const sim::ArchiveEntry& entry : sim::listArchive(storedBackup(id) / "bundle.zip")) {
            names.push_back(entry.name);
        }
        return names;
    }

    // An entry of the stored bundle, unpacked.
    fs::path bundleEntry(const std::string& name) const {
        fs::path target = folder / fs::path(name).filename();
        EXPECT_TRUE(sim::extractEntry(storedBackup() / "bundle.zip", name, target)) << name;
        return target;
    }

    // Runs a backup that must fail as given, and leave the session closed, the cloud empty and the TV as it was.
    RunResult failingBackup(const std::string& call, const std::string& failure, int nth = 1) {
        const sim::Setup before = a.setup();
        RunResult run = a.backUpUnder(call, failure, nth);
        EXPECT_THAT(run.logBetween("5 operation fail", "4 Last line"), ElementsAre("5 operation fail", "4 Last line"));
        EXPECT_EQ(run.count("bnr_deinit"), 1);
        EXPECT_EQ(run.ended, sim::RunEnd::Exit);
        EXPECT_FALSE(run.succeeded());
        EXPECT_FALSE(fs::exists(storedBackup()));
        EXPECT_EQ(a.setup(), before);
        return run;
    }

    // Makes a folder <unique name><suffix> in the working folder, whatever second the next backup is named after.
    void makeFolders(const std::string& suffix) const {
        const std::time_t now = std::time(nullptr);
        for (std::time_t second = now; second < now + 60; ++second) {
            std::ostringstream name;
            name << std::put_time(std::localtime(&second), "%d%m%Y_%H%M%S");
            fs::create_directories(a.data / (name.str() + suffix));
        }
    }

    // The log of a failed run from the failure on.
    Lines endOf(const RunResult& run, const std::string& from) { return run.logBetween(from, "4 Last line"); }

    const Lines closing = {"5 bnr_callback_deregister success. Handler=[1]", "5 bnr_deinit success", "5 operation fail",
                           "4 Last line"};
    Lines closingAfter(const std::string& message) const {
        Lines lines = {message};
        lines.insert(lines.end(), closing.begin(), closing.end());
        return lines;
    }
};

TEST_F(Backup, BringsEverythingIntoTheCloud) {
    const sim::Setup before = a.setup();
    const RunResult run = a.backUp();
    EXPECT_TRUE(run.succeeded());
    EXPECT_EQ(run.reply, std::nullopt) << "a backup never replies";
    EXPECT_THAT(bundleEntries(), UnorderedElementsAre("ServiceDB.zip", "vconf.json", "issDB.zip", "ci/ci_profile.bin",
                                                      "ci/ci_operator.xml"));
    EXPECT_EQ(test::readFile(storedBackup() / "metadata.json"), METADATA);
    EXPECT_EQ(test::servicesIn(storedBackup() / "bundle.zip"), 3U);
    EXPECT_EQ(test::readFile(bundleEntry("ci/ci_profile.bin")), test::readFile(a.home / "ci/ci_profile.bin"));
    EXPECT_EQ(a.setup(), before);
    EXPECT_THAT(a.dataFiles(), IsEmpty()) << "neither staging folder nor bundle stays";
}

TEST_F(Backup, FiltersTheIpServicesAndNothingElse) {
    a.backUp();
    const std::vector<sim::ArchiveEntry> entries = sim::listArchive(bundleEntry("ServiceDB.zip"));
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].name, "services.db");
    EXPECT_NE(a.open().serviceDb().ipServices(), "");
}

TEST_F(Backup, WritesTheSettingsInTheOrderOfTheList) {
    a.backUp();
    const std::string text = test::readFile(bundleEntry("vconf.json"));
    EXPECT_THAT(text, StartsWith("{\n\t\"data\" : \n\t[\n\t\t{\n\t\t\t\"path\" : "));
    Json::Value root;
    ASSERT_TRUE(sim::parseJson(text, root));
    EXPECT_EQ(root["encoding"], "UTF-8");
    EXPECT_EQ(root["version"], "0.1");
    EXPECT_EQ(root["module"], "VCONF");
    EXPECT_EQ(root["dataSize"], 5);
    const Lines values = {"Für Oma", "Favourites 2", "Favourites 3", "Favourites 4", ""};
    for (Json::ArrayIndex i = 0; i < 5; ++i) {
        EXPECT_EQ(root["data"][i]["path"], fmt::format("db/menu/broadcasting/channel_manager/favname{}", i + 1));
        EXPECT_EQ(root["data"][i]["type"], 1);
        EXPECT_EQ(root["data"][i]["value"], values[i]);
    }
}

TEST_F(Backup, IsNamedAfterTheLocalTime) {
    ::setenv("TZ", "XYZ-5:45", 1);
    ::tzset();
    const std::time_t before = std::time(nullptr);
    a.backUp();
    const std::time_t after = std::time(nullptr);
    Json::Value info;
    ASSERT_TRUE(sim::parseJson(test::readFile(storedBackup() / "info.json"), info));
    const std::string name = info["name"].asString();
    std::tm local = {};
    std::istringstream(name) >> std::get_time(&local, "%d%m%Y_%H%M%S");
    std::ostringstream again;
    again << std::put_time(&local, "%d%m%Y_%H%M%S.zip");
    ASSERT_EQ(name, again.str());
    local.tm_isdst = -1;
    const std::time_t named = std::mktime(&local);
    ::unsetenv("TZ");
    ::tzset();
    EXPECT_GE(named, before);
    EXPECT_LE(named, after);
}

TEST_F(Backup, EndsWithoutTheChannelDatabase) {
    for (const std::string failure : {"result=-1", "result=0"}) {
        const RunResult run = failingBackup("TVServiceAPI::CreateUtil", failure);
        EXPECT_EQ(endOf(run, "6 TVServiceAPI::CreateUtil fail"), closingAfter("6 TVServiceAPI::CreateUtil fail"));
        EXPECT_EQ(run.count("TVServiceAPI::Destroy"), 0);
    }
    for (const std::string failure : {"result=-1", "result=0"}) {
        const RunResult run = failingBackup("IUtil::GetServiceDb", failure);
        const std::string message = "6 IUtil::GetServiceDb({data}{name}/ServiceDB.zip) fail";
        EXPECT_EQ(endOf(run, message), closingAfter(message));
        EXPECT_EQ(run.count("TVServiceAPI::Destroy"), 1);
    }
    EXPECT_FALSE(a.dataFiles().empty()) << "the staging folder stays";
}

TEST_F(Backup, EndsIfTheChannelDatabaseCannotBeUnpacked) {
    const std::string message = "6 Unzip({data}{name}/ServiceDB.zip, {data}{name}/service-db/) Fail";
    const std::vector<std::pair<std::string, std::string>> damages = {
        {"damage=missing", "6 exists({data}{name}/ServiceDB.zip) fail [0][Success]"},
        {"damage=empty", "6 Cannot open {data}{name}/ServiceDB.zip."},
        {"damage=truncate", "6 Cannot open {data}{name}/ServiceDB.zip."},
    };
    for (const auto& [damage, reason] : damages) {
        const RunResult run = failingBackup("IUtil::GetServiceDb", damage);
        EXPECT_EQ(endOf(run, message), closingAfter(message));
        EXPECT_TRUE(run.says(reason)) << damage;
        fs::remove_all(a.data);
    }
    const RunResult run = failingBackup("IUtil::GetServiceDb", "damage=corrupt");
    EXPECT_EQ(endOf(run, message), closingAfter(message));
    EXPECT_THAT(a.dataFiles(), Contains(::testing::EndsWith("service-db/services.db"))) << "half unpacked, it stays";
}

TEST_F(Backup, EndsIfTheChannelDatabaseCannotBePackedAgain) {
    const RunResult run = failingBackup("IUtil::GetServiceDb", "damage=unwritable");
    const std::string message = "6 CreateZipFile({data}{name}/service-db/, {data}{name}/ServiceDB.zip)) fail";
    EXPECT_EQ(endOf(run, message), closingAfter(message));
    EXPECT_TRUE(run.says("6 zipOpen64 error"));
    EXPECT_THAT(a.dataFiles(), Contains(::testing::EndsWith("service-db/services.db"))) << "unpacked, it stays";
}

TEST_F(Backup, EndsIfTheBundleCannotBePacked) {
    const RunResult run = failingBackup("IUtil::GetIssDbArchive", "damage=dangling");
    const std::string message = "6 CreateZipFile({data}{name}/, {data}{name}.zip)) for update file fail";
    EXPECT_EQ(endOf(run, message), closingAfter(message));
    EXPECT_TRUE(run.says("6 Cannot open {data}{name}/issDB.zip for archiving."));
    EXPECT_THAT(a.dataFiles(), IsEmpty()) << "neither staging folder nor bundle stays";
}

TEST_F(Backup, KeepsTheStagingFolderIfTheBundleCannotBeOpened) {
    makeFolders(".zip");
    const RunResult run = a.backUp();
    EXPECT_THAT(
        run.logBetween("6 zipOpen64 error", "4 Last line"),
        ElementsAre("6 zipOpen64 error", "6 CreateZipFile({data}{name}/, {data}{name}.zip)) for update file fail",
                    closing[0], closing[1], closing[2], closing[3]));
    EXPECT_THAT(a.dataFiles(), Contains(::testing::EndsWith("/vconf.json")));
}

// The hand-over's three outcomes.
TEST_F(Backup, APostponedHandOverIsAFailureThatLeavesNothing) {
    const RunResult run = failingBackup("bnr_backup", "result=6");
    const std::string message = std::string("5 bnr_backup(") + METADATA + ", {data}{name}.zip) is postponded [6]";
    EXPECT_THAT(endOf(run, message), ElementsAre(message, "5 remove({data}{name}.zip) success", closing[0], closing[1],
                                                 closing[2], closing[3]));
    EXPECT_THAT(a.dataFiles(), IsEmpty());
    EXPECT_THAT(a.failureFiles(), IsEmpty());
}

// The service keeps what it took, whatever happens to the bundle here.
TEST_F(Backup, IsHandedOverThoughTheBundleCannotBeRemoved) {
    const RunResult run = a.backUpUnder("bnr_backup", "damage=missing");
    EXPECT_TRUE(run.says("6 remove({data}{name}.zip) fail [0][Success]"));
    EXPECT_FALSE(run.says("5 operation fail"));
    EXPECT_TRUE(run.succeeded());
}

TEST_F(Backup, ARefusedBundleIsKeptInTheFailureFolder) {
    for (const std::string status : {"-2", "2"}) {
        const RunResult run = failingBackup("bnr_backup", "result=" + status);
        const std::string message =
            std::string("6 bnr_backup(") + METADATA + ", {data}{name}.zip) fail [" + status + "]";
        EXPECT_THAT(endOf(run, message),
                    ElementsAre(message, "5 create_directories({tmp}) success",
                                "5 copy_file({data}{name}.zip, {tmp}{name}.zip) success",
                                "5 remove({data}{name}.zip) success", closing[0], closing[1], closing[2], closing[3]));
        EXPECT_THAT(a.dataFiles(), IsEmpty());
        ASSERT_EQ(a.failureFiles().size(), 1U);
        EXPECT_EQ(test::servicesIn(a.failures / a.failureFiles()[0]), 3U);
        fs::remove_all(a.failures);
    }
}

TEST_F(Backup, ARefusedBundleStaysIfThereIsNoFailureFolder) {
    test::write(a.failures.parent_path(), "in the place of the failure folder");
    failingBackup("bnr_backup", "result=-2");
    ASSERT_EQ(a.dataFiles().size(), 1U);
    EXPECT_EQ(test::servicesIn(a.data / a.dataFiles()[0]), 3U);
}

// The items are best effort: one that fails is left out, and the bundle is sent.
struct Item {
    const char* call;
    const char* failure;
    int nth;
    std::string message;  // empty: silent
    Lines entries;        // of the bundle, but for ServiceDB.zip and vconf.json
};

class BackupItem : public Backup, public ::testing::WithParamInterface<Item> {};

TEST_P(BackupItem, IsBestEffort) {
    const Item& item = GetParam();
    SCOPED_TRACE(std::string(item.call) + " " + item.failure);
    const RunResult run = a.backUpUnder(item.call, item.failure, item.nth);
    EXPECT_TRUE(run.succeeded());
    Lines entries = item.entries;
    entries.insert(entries.end(), {"ServiceDB.zip", "vconf.json"});
    EXPECT_THAT(bundleEntries(), ::testing::UnorderedElementsAreArray(entries));
    if (!item.message.empty()) {
        EXPECT_THAT(run.log, Contains(item.message));
    }
    EXPECT_EQ(run.count("TVServiceAPI::Destroy"),
              run.count("IUtil::GetServiceDb") + run.count("IUtil::GetIssDbArchive"));
}

const Lines NO_CI = {"issDB.zip"};
const Lines NO_ISS = {"ci/ci_operator.xml", "ci/ci_profile.bin"};
const Lines ALL = {"issDB.zip", "ci/ci_operator.xml", "ci/ci_profile.bin"};

INSTANTIATE_TEST_SUITE_P(
    Backup, BackupItem,
    ::testing::Values(
        Item{"CIM::TCCIService::CIGeneralInstance", "null", 1, "", NO_CI},
        Item{"CIM::ICIGeneral::GetBackupFilePaths", "result=0", 1, "6 CIM::ICIGeneral::GetBackupFilePaths fail", NO_CI},
        Item{"CIM::ICIGeneral::GetBackupFilePaths", "answer=2", 1, "6 CIM::ICIGeneral::GetBackupFilePaths fail", NO_CI},
        Item{"CIM::ICIGeneral::GetBackupFilePaths", "result=1", 1, "6 CIM::ICIGeneral::GetBackupFilePaths fail", NO_CI},
        // Files that were copied before the missing one stay.
        Item{"CIM::ICIGeneral::GetBackupFilePaths", "damage=missing", 1,
             "6 Copy file[{home}ci/missing.bin] to directory[{data}{name}/ci/] fail", ALL},
        Item{"TVServiceAPI::CreateUtil", "result=-1", 2, "6 CHalcyonLineup::m_BackupIssDB Failed to create pUtil!",
             NO_ISS},
        Item{"TVServiceAPI::CreateUtil", "result=0", 2, "6 CHalcyonLineup::m_BackupIssDB Failed to create pUtil!",
             NO_ISS},
        Item{"IUtil::GetIssDbArchive", "result=0", 1, "6 Failed to get zip archive with iss database!", NO_ISS},
        // Any non-zero result counts as success.
        Item{"IUtil::GetIssDbArchive", "result=-1", 1,
             "4 Succesfully get zip archive with iss database! Path={data}{name}/issDB.zip", NO_ISS}));

TEST_F(Backup, SendsTheBundleWithoutSettingsThatCannotBeWritten) {
    makeFolders("/vconf.json");
    const RunResult run = a.backUp();
    EXPECT_TRUE(run.says("5 CHalcyonLineup::m_BackupVconf problem with opening file \n"));
    EXPECT_TRUE(run.succeeded());
    EXPECT_THAT(bundleEntries(),
                UnorderedElementsAre("ServiceDB.zip", "issDB.zip", "ci/ci_profile.bin", "ci/ci_operator.xml"));
}

TEST_F(Backup, DiesOfASettingThatCannotBeRead) {
    const RunResult run = a.backUpUnder("vconf_get_str", "null", 3);
    EXPECT_EQ(run.ended, sim::RunEnd::Crashed);
    EXPECT_THAT(run.detail, StartsWith("Json::LogicError"));
    EXPECT_FALSE(fs::exists(storedBackup()));
}

TEST_F(Backup, EachBackupIsKeptBesideTheOthers) {
    a.backUp();
    b.backUp();
    EXPECT_EQ(test::servicesIn(storedBackup("000001") / "bundle.zip"), 3U);
    EXPECT_EQ(test::servicesIn(storedBackup("000002") / "bundle.zip"), 1U);
}

}  // namespace
