// All items except the channels are best effort.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/Restore.h"

namespace fs = std::filesystem;

namespace {

using Lines = test::Strings;
using test::Restore;
using test::RunResult;
using ::testing::Contains;
using ::testing::ElementsAre;

TEST_F(Restore, SkipsWhatTheBundleDoesNotHold) {
    changeBundle([](const fs::path& work) {
        fs::remove(work / "vconf.json");
        fs::remove(work / "issDB.zip");
    });
    const RunResult run = b.restore();
    EXPECT_EQ(run.reply, 0);
    const sim::Setup now = b.setup();
    EXPECT_EQ(now.services, a.setup().services);
    EXPECT_EQ(now.entries, fresh.entries);
    EXPECT_THAT(run.logBetween("5 app_control_reply_to_launch_request(0) success", "5 m_Restore success"),
                ElementsAre("5 app_control_reply_to_launch_request(0) success", "5 remove_all({data}temp/) success",
                            "5 remove({data}{name}.zip) success", "5 m_Restore success"));
}

struct Item {
    const char* call;
    const char* failure;
    int nth;
    const char* message;  // null: silent
};

class RestoreItem : public Restore, public ::testing::WithParamInterface<Item> {};

TEST_P(RestoreItem, IsBestEffort) {
    SCOPED_TRACE(std::string(GetParam().call) + " " + GetParam().failure);
    const RunResult run = b.restoreUnder(GetParam().call, GetParam().failure, GetParam().nth);
    EXPECT_TRUE(run.succeeded());
    EXPECT_EQ(run.reply, 0);
    EXPECT_EQ(b.setup().services, a.setup().services);
    EXPECT_FALSE(b.setup() == a.setup());
    if (GetParam().message != nullptr) {
        EXPECT_TRUE(run.says(GetParam().message));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Restore, RestoreItem,
    ::testing::Values(
        Item{"vconf_set_str", "result=-1", 1,
             "5 vconf_set_str of db/menu/broadcasting/channel_manager/favname1 failed!"},
        Item{"JsonUtil::StreamToJson", "result=0", 1, nullptr},
        Item{"TVServiceAPI::CreateUtil", "result=-1", 2, "6 CHalcyonLineup::m_RestoreIssDB Failed to create pUtil!"},
        Item{"TVServiceAPI::CreateUtil", "result=0", 2, "6 CHalcyonLineup::m_RestoreIssDB Failed to create pUtil!"},
        Item{"IUtil::RestoreIssDbArchive", "result=0", 1, "6 Failed to restore iss database!"},
        Item{"IUtil::RestoreIssDbArchive", "result=-1", 1, "6 Failed to restore iss database!"},
        Item{"CIM::TCCIService::CIGeneralInstance", "null", 1, nullptr},
        Item{"CIM::ICIGeneral::BackupFileDone", "result=0", 1, "6 CIM::ICIGeneral::BackupFileDone fail"},
        Item{"CIM::ICIGeneral::BackupFileDone", "result=2", 1, "6 CIM::ICIGeneral::BackupFileDone fail"}));

// What the TV service refuses stays out; by then the caller has been told.
TEST_F(Restore, KeepsItsIssDatabaseIfTheBundlesIsDamaged) {
    changeBundle([](const fs::path& work) { test::write(work / "issDB.zip", "no archive"); });
    const RunResult run = b.restore();
    EXPECT_TRUE(run.says("6 Failed to restore iss database!"));
    EXPECT_EQ(run.reply, 0);
    EXPECT_TRUE(run.succeeded());
    EXPECT_EQ(b.setup().of(sim::Item::Iss), fresh.of(sim::Item::Iss));
    EXPECT_EQ(b.setup().services, a.setup().services);
}

TEST_F(Restore, HandsEveryMemberOfTheCiFolderOver) {
    changeBundle([](const fs::path&) {});  // the new bundle has no ci/
    fs::create_directories(b.data / "temp/ci");
    EXPECT_EQ(b.restore().count("CIM::TCCIService::CIGeneralInstance"), 0) << "an empty folder";

    fs::create_directories(b.data / "temp/ci/folder");
    const RunResult run = b.restore();
    EXPECT_THAT(run.calls, Contains(::testing::AllOf(
                               ::testing::Field(&sim::CallRecord::name, "CIM::ICIGeneral::BackupFileDone"),
                               ::testing::Field(&sim::CallRecord::arguments, R"(["{data}temp/ci/folder"])"))));
    EXPECT_TRUE(run.says("6 CIM::ICIGeneral::BackupFileDone fail")) << "the module takes files only";

    changeBundle([&](const fs::path& work) { test::write(work / "ci", "no folder"); });
    EXPECT_EQ(b.restore().count("CIM::TCCIService::CIGeneralInstance"), 0);
    EXPECT_EQ(b.setup().of(sim::Item::Ci), fresh.of(sim::Item::Ci));
}

}  // namespace
