// Restores whose data are refused.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fmt/format.h>

#include "tests/support/Restore.h"

namespace fs = std::filesystem;

namespace {

using Lines = test::Strings;
using test::ENDING;
using test::joined;
using test::Restore;
using test::RunResult;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(Restore, RefusesAnotherAntennaBeforeAnythingIsTouched) {
    b.open().setAntenna({0, 2});
    const RunResult run = b.restore();
    expectRefused(run);
    const std::string message = "6 Current antenna status=[0x5] != Backup antenna status=[0x1]";
    EXPECT_EQ(run.logBetween(message, "5 response came. Finish app"),
              joined({{message, "6 m_CheckMetaData fail", "5 create_directories({tmp}) success",
                       "5 copy_file({data}{name}.zip, {tmp}{name}.zip) success", "5 remove({data}{name}.zip) success",
                       "6 m_Restore fail", "6 m_Restore fail"},
                      ENDING}));
    EXPECT_THAT(b.dataFiles(), IsEmpty()) << "nothing was unpacked";
    // Both the operation and the callback say so, in this order.
    EXPECT_THAT(run.timeline, ::testing::IsSupersetOf(Lines{"log  HalcyonLineup m_Restore 6 m_Restore fail",
                                                            "log  HalcyonLineup sm_BnrCallback 6 m_Restore fail"}));
}

TEST_F(Restore, LeavesARefusedBundleIfThereIsNoFailureFolder) {
    setMetadata("<html>");
    test::write(b.failures.parent_path(), "in the place of the failure folder");
    const RunResult run = b.restore();
    EXPECT_TRUE(run.says("6 create_directories({tmp}) fail [17][File exists]"));
    EXPECT_EQ(run.reported, sim::Reported::Failure);
    ASSERT_EQ(b.dataFiles().size(), 1U);
    EXPECT_EQ(test::servicesIn(b.data / b.dataFiles()[0]), 3U);
}

TEST_F(Restore, RefusesAnotherVersionAndWhatIsNoMetadata) {
    setMetadata(R"({"version":"0.2","setting":{"antenna":1}})");
    const RunResult older = b.restore();
    expectRefused(older);
    EXPECT_TRUE(older.says("6 json schema version mismatch [0.2]!=[0.3]"));

    setMetadata("<html>");
    const RunResult none = b.restore();
    EXPECT_TRUE(none.says("6 Json parse fail"));
    EXPECT_TRUE(none.says("6 json schema version mismatch []!=[0.3]"));
    EXPECT_THAT(none.callsBetween("JsonUtil::StringToJson", "bnr_report_failure"),
                ElementsAre("JsonUtil::StringToJson", "bnr_report_failure"))
        << "the antenna is not asked";
    EXPECT_EQ(none.reply, -1);
}

TEST_F(Restore, RefusesADamagedBundleAndLeavesTheUnpackFolder) {
    const RunResult run = b.restoreUnder("bnr_response", "damage=corrupt");
    expectRefused(run);
    EXPECT_EQ(run.logBetween("6 Unzip file fail", "5 response came. Finish app"),
              joined({{"6 Unzip file fail", "5 create_directories({tmp}) success",
                       "5 copy_file({data}{name}.zip, {tmp}{name}.zip) success", "5 remove({data}{name}.zip) success",
                       "6 m_Restore fail", "6 m_Restore fail"},
                      ENDING}));
    EXPECT_THAT(b.dataFiles(), Contains("temp/"));
}

TEST_F(Restore, HasNothingToKeepWithoutData) {
    const RunResult run = b.restoreUnder("bnr_response", "no-data");
    EXPECT_EQ(run.logBetween("6 bnr_resp_data_s *respdata is nullptr", "5 response came. Finish app"),
              joined({{"6 bnr_resp_data_s *respdata is nullptr", "6 m_Restore fail"}, ENDING}));
    EXPECT_THAT(b.failureFiles(), IsEmpty());
    EXPECT_EQ(run.reply, -1);
    expectUntouched();
}

TEST_F(Restore, FailsWithoutTheTvServicesUtility) {
    for (const std::string failure : {"result=-1", "result=0"}) {
        const RunResult run = b.restoreUnder("TVServiceAPI::CreateUtil", failure);
        expectRefused(run);
        EXPECT_THAT(run.logBetween("6 TVServiceAPI::CreateUtil fail", "5 response came. Finish app"),
                    ::testing::IsSupersetOf(Lines{"5 remove_all({data}temp/) success", "6 m_Restore fail"}));
        EXPECT_EQ(run.count("TVServiceAPI::Destroy"), 0);
        EXPECT_THAT(b.dataFiles(), IsEmpty());
    }
}

// Archives that the TV service refuses, each with the status that it then reports; the old database stays.
TEST_F(Restore, FailsIfTheTvServiceRefusesTheDatabase) {
    const auto corruptDatabase = [](const fs::path& work) {
        ASSERT_TRUE(sim::extractEntry(work / "ServiceDB.zip", "services.db", work / "services.db"));
        std::string bytes = test::readFile(work / "services.db");
        bytes.replace(bytes.size() / 2, bytes.size() / 2, std::string(bytes.size() / 2, '\xff'));
        test::write(work / "services.db", bytes);
        sim::writeArchive(work / "ServiceDB.zip", {work / "services.db"});
        fs::remove(work / "services.db");
    };
    const auto without = [](const fs::path& work) { sim::writeArchive(work / "ServiceDB.zip", {work / "vconf.json"}); };
    const auto missing = [](const fs::path& work) { fs::remove(work / "ServiceDB.zip"); };
    const auto noArchive = [](const fs::path& work) { test::write(work / "ServiceDB.zip", "text"); };
    const std::string pristine = test::readFile(storedBackup() / "bundle.zip");
    const std::vector<std::pair<std::function<void(const fs::path&)>, int>> changes = {
        {missing, 1}, {noArchive, 1}, {without, 2}, {corruptDatabase, 3}};
    for (const auto& [change, status] : changes) {
        test::write(storedBackup() / "bundle.zip", pristine);
        changeBundle(change);
        const RunResult run = b.restore();
        expectRefused(run);
        EXPECT_TRUE(run.says(fmt::format("6 ReplaceServiceDb fail. status=[{}]", status)));
        EXPECT_EQ(run.count("TVServiceAPI::Destroy"), 1);
        EXPECT_EQ(run.count("vconf_set_str"), 0);
        EXPECT_THAT(b.dataFiles(), IsEmpty());
    }
    b.fault("IUtil::ReplaceServiceDb", "result=-1");
    EXPECT_TRUE(b.restore().says("6 ReplaceServiceDb fail. status=[0]")) << "the status is left as it was";
}

}  // namespace
