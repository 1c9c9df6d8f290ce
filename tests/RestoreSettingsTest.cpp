// The settings file of a restore.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include "tests/support/Restore.h"

namespace fs = std::filesystem;

namespace {

using Lines = test::Strings;
using test::Restore;
using test::RunResult;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;
using ::testing::StartsWith;

TEST_F(Restore, SetsEachTypeOfSetting) {
    const RunResult run = restoreSettings(R"({"dataSize":7,"data":[
        {"path":"i","type":0,"value":-5},{"path":"s","type":1,"value":"text"},{"path":"b","type":2,"value":1},
        {"path":"d","type":3,"value":2.5},{"path":"j","type":4,"value":6},{"path":"x","type":7,"value":0},
        {"path":"t","type":2,"value":true}]})");
    EXPECT_TRUE(run.succeeded());
    EXPECT_THAT(run.logBetween("5 vconf_path: i", "5 vconf_path: t"),
                ElementsAre("5 vconf_path: i", "5 vconf_path: s", "5 vconf_path: b", "5 vconf_path: d",
                            "5 vconf_path: j", "5 vconf_path: x", "6 unrecognized type\n", "5 vconf_path: t"));
    sim::Tv tv(b.home);
    EXPECT_EQ(tv.settings().get("i", sim::SettingType::Int), "-5");
    EXPECT_EQ(tv.settings().get("s", sim::SettingType::String), "text");
    EXPECT_EQ(tv.settings().get("b", sim::SettingType::Bool), "1");
    EXPECT_EQ(tv.settings().get("d", sim::SettingType::Double), "2.5");
    EXPECT_EQ(tv.settings().get("j", sim::SettingType::Int), "6");
    EXPECT_EQ(tv.settings().get("t", sim::SettingType::Bool), "1");
}

TEST_F(Restore, LogsEachSettingThatCannotBeSet) {
    for (const std::string failure : {"result=-1", "result=1"}) {
        for (const std::string type : {"int", "str", "bool", "dbl"}) {
            b.fault("vconf_set_" + type, failure);
        }
        const RunResult run = restoreSettings(R"({"dataSize":4,"data":[
            {"path":"i","type":0,"value":1},{"path":"s","type":1,"value":"x"},{"path":"b","type":2,"value":0},
            {"path":"d","type":3,"value":1}]})");
        EXPECT_THAT(run.logBetween("5 vconf_path: i", "5 vconf_set_dbl of d failed!"),
                    ElementsAre("5 vconf_path: i", "5 vconf_set_int of i failed!", "5 vconf_path: s",
                                "5 vconf_set_str of s failed!", "5 vconf_path: b", "5 vconf_set_bool of b failed!",
                                "5 vconf_path: d", "5 vconf_set_dbl of d failed!"));
        EXPECT_TRUE(run.succeeded());
        b.clearFaults();
        fs::remove_all(folder / "bundle");
    }
}

TEST_F(Restore, SetsNothingIfTheSettingsFileCountsNone) {
    for (const std::string text : {R"({"dataSize":0,"data":[{"path":"p","type":0,"value":1}]})", R"({"dataSize":-1})",
                                   R"({"data":[]})", "{}", "no JSON", ""}) {
        const RunResult run = restoreSettings(text);
        EXPECT_TRUE(run.succeeded()) << text;
        EXPECT_THAT(run.log, Not(Contains(StartsWith("5 vconf_path")))) << text;
        fs::remove_all(folder / "bundle");
    }
}

TEST_F(Restore, LogsASettingsFileThatCannotBeOpened) {
    changeBundle([](const fs::path& work) { fs::remove(work / "vconf.json"); });
    // A socket exists, but cannot be opened as a file.
    fs::create_directories(b.data / "temp");
    ASSERT_EQ(::mknod((b.data / "temp/vconf.json").c_str(), S_IFSOCK | 0600, 0), 0);
    const RunResult run = b.restore();
    EXPECT_TRUE(run.says("6 ChannelListCloudUtil::m_RestoreVconf(): ERROR with opening file.\n"));
    EXPECT_TRUE(run.succeeded());
}

// What the JSON library raises is not caught: the run dies, after the caller has learnt that the channels are back.
TEST_F(Restore, DiesOfASettingsFileThatDoesNotHoldWhatItCounts) {
    for (const std::string text :
         {R"({"dataSize":2,"data":[{"path":"p","type":0,"value":1}]})", R"({"dataSize":1})", R"({"dataSize":"1"})",
          R"({"dataSize":4294967296})", R"([1])", R"({"dataSize":1,"data":{}})", R"({"dataSize":1,"data":[7]})",
          R"({"dataSize":1,"data":[{"path":7,"type":0,"value":1}]})",
          R"({"dataSize":1,"data":[{"path":"p","type":0,"value":18446744073709551615}]})",
          R"({"dataSize":1,"data":[{"path":"p","type":1,"value":5}]})",
          R"({"dataSize":1,"data":[{"path":"p","type":1}]})"}) {
        const RunResult run = restoreSettings(text);
        EXPECT_EQ(run.ended, sim::RunEnd::Crashed) << text;
        EXPECT_THAT(run.detail, StartsWith("Json::LogicError")) << text;
        EXPECT_EQ(run.reply, 0) << text;
        EXPECT_EQ(b.setup().services, a.setup().services) << text;
        fs::remove_all(folder / "bundle");
    }
}

}  // namespace
