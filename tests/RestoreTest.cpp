#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>

#include "simulator/base/Archive.h"
#include "tests/support/TestTv.h"

namespace fs = std::filesystem;

namespace {

using Lines = std::vector<std::string>;
using sim::SetUp;
using test::Outcome;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

const Lines CLOSING = {"5 bnr_callback_deregister success. Handler=[1]", "5 bnr_deinit success"};
const Lines ENDING = {"5 bnr_callback_deregister success. Handler=[1]", "5 bnr_deinit success",
                      "5 app_control_reply_to_launch_request(-1) success", "5 response came. Finish app"};

Lines operator+(Lines left, const Lines& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// TV A's backup is in the cloud; TV B is fresh.
class Restore : public test::TwoTvs {
protected:
    Restore() {
        EXPECT_TRUE(a.backUp().succeeded());
        fresh = b.setUp();
        freshViewing = b.open().viewing();
        ipServices = b.open().serviceDb().ipServices();
    }

    // All but the viewing state.
    void expectRestored() {
        sim::SetUp expected = a.setUp();
        expected.viewing = b.open().viewing();
        EXPECT_EQ(b.setUp(), expected);
        EXPECT_EQ(b.open().serviceDb().ipServices(), ipServices) << "the IP services are the set's own";
        EXPECT_THAT(b.dataFiles(), IsEmpty());
        EXPECT_THAT(b.failureFiles(), IsEmpty());
    }

    void expectUntouched() {
        EXPECT_EQ(b.setUp(), fresh);
        EXPECT_TRUE(b.open().viewing() == freshViewing);
    }

    // B was refused the backup before anything was changed, and keeps its archive.
    void expectRefused(const Outcome& run) {
        expectUntouched();
        EXPECT_EQ(run.reply, -1);
        EXPECT_EQ(run.count("app_control_reply_to_launch_request"), 1);
        EXPECT_EQ(run.reported, "failure");
        EXPECT_EQ(run.ended, sim::RunEnd::Exit);
        EXPECT_THAT(b.failureFiles(), SizeIs(1));
    }

    void setMetadata(const std::string& text) { test::write(storedBackup() / "metadata.json", text); }

    // Rebuilds the stored bundle after `change` had its way with its unpacked files.
    void changeBundle(const std::function<void(const fs::path&)>& change) {
        const fs::path work = folder / "bundle";
        fs::create_directories(work);
        const fs::path bundle = storedBackup() / "bundle.zip";
        std::vector<fs::path> files;
        for (const std::string name : {"ServiceDB.zip", "vconf.json", "issDB.zip"}) {
            ASSERT_TRUE(sim::extractEntry(bundle, name, work / name));
        }
        change(work);
        for (const fs::directory_entry& entry : fs::directory_iterator(work)) {
            files.push_back(entry.path());
        }
        sim::writeArchive(bundle, files);
    }

    // Runs a restore of a bundle with this settings file.
    Outcome restoreSettings(const std::string& text) {
        changeBundle([&](const fs::path& work) { test::write(work / "vconf.json", text); });
        return b.restore();
    }

    sim::SetUp fresh;
    sim::Viewing freshViewing;
    std::string ipServices;
};

TEST_F(Restore, BringsTheChannelSetUpBack) {
    const Outcome run = b.restore();
    EXPECT_TRUE(run.succeeded());
    EXPECT_EQ(run.reply, 0);
    EXPECT_EQ(run.reported, "success");
    EXPECT_EQ(run.ended, sim::RunEnd::Reclaimed) << "it does not end itself";
    EXPECT_EQ(run.exitStatus, 0);
    expectRestored();
    EXPECT_TRUE(b.open().viewing() == a.open().viewing());
}

// The healthy run whole: each message, and each call in its order; the reply comes before the remaining items.
TEST_F(Restore, LogsEachStep) {
    const Outcome run = b.restore();
    const std::string zip = "{data}{name}.zip";
    Lines log = run.logBetween("5 Do restore", "5 main function,ret=0");
    const auto isExtraction = [](const std::string& line) { return line.compare(0, 17, "5 extracted file ") == 0; };
    EXPECT_EQ(std::count_if(log.begin(), log.end(), isExtraction), 5);
    log.erase(std::remove_if(log.begin(), log.end(), isExtraction), log.end());
    const std::string path = "5 vconf_path: db/menu/broadcasting/channel_manager/favname";
    EXPECT_THAT(log, ::testing::ElementsAreArray(Lines{"5 Do restore",
                                                       "4 pScanActivated=[(null)], m_bScanActivated=[0]",
                                                       "4 bnr init success",
                                                       "4 bnr callback register success. Handler=[1]",
                                                       "5 create_directories({data}) success",
                                                       "5 Restore requested successfully.",
                                                       "4 Last line",
                                                       "5 BNR Callback called [102]",
                                                       "5 RestoreData download json schema[" +
                                                           test::readFile(storedBackup() / "metadata.json") +
                                                           "] filePath[" + zip + "]",
                                                       "4 FUNC BEGIN",
                                                       "4 FUNC BEGIN",
                                                       "5 [OUT]antennaStatus=[1]",
                                                       "5 opened zip file " + zip + " with (5) files for extracting",
                                                       "5 create_directories({data}temp/) success",
                                                       "5 create_directories({data}temp/ci) success",
                                                       "5 closed zip file " + zip,
                                                       "5 ReplaceServiceDb({data}temp/ServiceDB.zip) success",
                                                       "5 app_control_reply_to_launch_request(0) success",
                                                       path + "1",
                                                       path + "2",
                                                       path + "3",
                                                       path + "4",
                                                       path + "5",
                                                       "4 Succesfully restored iss database!",
                                                       "5 CIM::ICIGeneral::BackupFileDone success",
                                                       "5 remove_all({data}temp/) success",
                                                       "5 remove(" + zip + ") success",
                                                       "5 m_Restore success",
                                                       "5 bnr_callback_deregister success. Handler=[1]",
                                                       "5 bnr_deinit success",
                                                       "4 tvMode[2/1], service id[2], source[0], category[2/2/1]",
                                                       "5 SetTvMode[2/1] success",
                                                       "5 SetCurrentServiceInfo[2/1 2] success",
                                                       "5 SetSource(0, 2) success",
                                                       "5 SetCurrentCategory[2/2/1] success",
                                                       "4 FUNC BEGIN",
                                                       "5 main function,ret=0"}));
    EXPECT_THAT(
        run.callsBetween("app_control_clone", "app.terminate"),
        ElementsAre("app_control_clone", "app_control_get_extra_data", "bnr_init", "bnr_callback_register",
                    "bnr_restore", "bnr_response", "JsonUtil::StringToJson", "TVServiceAPI::CreateTunerControl",
                    "ITunerControl::GetAntennaConnectionStatus", "TVServiceAPI::CreateUtil", "IUtil::ReplaceServiceDb",
                    "app_control_is_reply_requested", "app_control_create", "app_control_reply_to_launch_request",
                    "app_control_destroy", "app_control_destroy", "JsonUtil::StreamToJson", "vconf_set_str",
                    "vconf_set_str", "vconf_set_str", "vconf_set_str", "vconf_set_str", "TVServiceAPI::CreateUtil",
                    "IUtil::RestoreIssDbArchive", "TVServiceAPI::Destroy", "CIM::TCCIService::CIGeneralInstance",
                    "CIM::ICIGeneral::BackupFileDone", "TVServiceAPI::Destroy", "bnr_report_success",
                    "bnr_callback_deregister", "bnr_deinit", "CTVSApiWrapper::CTVSApiWrapper",
                    "CTVSApiWrapper::CreateServiceNavigation", "IServiceNavigation::SetTvMode",
                    "IServiceNavigation::SetCurrentServiceInfo", "CTVSApiWrapper::CreateSourceControl",
                    "ISourceControl::SetSource", "CCCategoryUtil::GetInstance", "CCCategoryUtil::SetCurrentCategory",
                    "CTVSApiWrapper::~CTVSApiWrapper", "app.terminate"));
}

// --- what ends a restore before the data come ---

TEST_F(Restore, EndsWithoutReplyWhereTheRequestCannotBeKept) {
    b.fault("app_control_clone", "result=-9");
    const Outcome run = b.restore();
    EXPECT_THAT(run.logBetween("5 Do restore", "4 Last line"),
                ElementsAre("5 Do restore", "6 app_control_clone fail[-9]", "5 operation fail", "4 Last line"));
    EXPECT_EQ(run.reply, std::nullopt);
    EXPECT_EQ(run.count("bnr_init"), 0);
}

TEST_F(Restore, RepliesFailureWhereTheCloudCannotBeAsked) {
    b.fault("bnr_init", "result=-1");
    const Outcome unopened = b.restore();
    EXPECT_THAT(unopened.logBetween("6 bnr_init fail[-1]", "4 Last line"),
                ElementsAre("6 bnr_init fail[-1]", "6 m_BnrInitialize() fail",
                            "5 app_control_reply_to_launch_request(-1) success", "5 operation fail", "4 Last line"));
    EXPECT_EQ(unopened.count("bnr_deinit"), 0);
    EXPECT_EQ(unopened.reply, -1);

    b.clearFaults();
    b.fault("bnr_restore", "result=-4");
    const Outcome refused = b.restore();
    EXPECT_EQ(refused.logBetween("6 bnr_restore(Qr7tLw2ZkA, {data}) error [-4]", "4 Last line"),
              Lines{"6 bnr_restore(Qr7tLw2ZkA, {data}) error [-4]"} + CLOSING +
                  Lines({"5 app_control_reply_to_launch_request(-1) success", "5 operation fail", "4 Last line"}));
    EXPECT_EQ(refused.reply, -1);
    b.clearFaults();

    fs::remove_all(b.data);
    test::write(b.data.parent_path(), "in the place of the working folder");
    const Outcome homeless = b.restore();
    EXPECT_EQ(homeless.logBetween("6 create_directories({data}) fail [17][File exists]", "4 Last line"),
              Lines({"6 create_directories({data}) fail [17][File exists]", "6 m_CreateDirectories({data}) fail"}) +
                  CLOSING +
                  Lines({"5 app_control_reply_to_launch_request(-1) success", "5 operation fail", "4 Last line"}));
    EXPECT_EQ(homeless.count("bnr_restore"), 0);
    expectUntouched();
}

TEST_F(Restore, TellsTheCallerThatTheCloudHasNothing) {
    fs::remove_all(b.cloud);
    const Outcome run = b.restore();
    EXPECT_TRUE(run.says("6 Error happened"));
    EXPECT_EQ(run.reply, -1);
    expectUntouched();
}

TEST_F(Restore, TakesTheNewestBackupOrTheChosenOne) {
    a.open().settings().setFavouriteName(1, "Later");
    a.backUp();
    b.restore();
    EXPECT_EQ(b.setUp().favourites[0], "Later");
    b.launch({"operation=restore", "--backup", "000001"});
    EXPECT_EQ(b.setUp().favourites[0], "Für Oma");
    EXPECT_EQ(b.launch({"operation=restore", "--backup", "000003"}).response, sim::Response::Error);
}

// --- what refuses the data ---

TEST_F(Restore, RefusesAnotherAntennaBeforeAnythingIsTouched) {
    b.open().setAntenna({0, 2});
    const Outcome run = b.restore();
    expectRefused(run);
    const std::string message = "6 Current antenna status=[0x5] != Backup antenna status=[0x1]";
    EXPECT_EQ(run.logBetween(message, "5 response came. Finish app"),
              Lines({message, "6 m_CheckMetaData fail", "5 create_directories({tmp}) success",
                     "5 copy_file({data}{name}.zip, {tmp}{name}.zip) success", "5 remove({data}{name}.zip) success",
                     "6 m_Restore fail", "6 m_Restore fail"}) +
                  ENDING);
    EXPECT_THAT(b.dataFiles(), IsEmpty()) << "nothing was unpacked";
}

TEST_F(Restore, RefusesAnotherVersionAndWhatIsNoMetadata) {
    setMetadata(R"({"version":"0.2","setting":{"antenna":1}})");
    const Outcome older = b.restore();
    expectRefused(older);
    EXPECT_TRUE(older.says("6 json schema version mismatch [0.2]!=[0.3]"));

    setMetadata("<html>");
    const Outcome none = b.restore();
    EXPECT_TRUE(none.says("6 Json parse fail"));
    EXPECT_TRUE(none.says("6 json schema version mismatch []!=[0.3]"));
    EXPECT_THAT(none.callsBetween("JsonUtil::StringToJson", "bnr_report_failure"),
                ElementsAre("JsonUtil::StringToJson", "bnr_report_failure"))
        << "the antenna is not asked";
    EXPECT_EQ(none.reply, -1);
}

TEST_F(Restore, RefusesADamagedBundleAndLeavesTheUnpackFolder) {
    b.fault("bnr_response", "damage=corrupt");
    const Outcome run = b.restore();
    expectRefused(run);
    EXPECT_EQ(run.logBetween("6 Unzip file fail", "5 response came. Finish app"),
              Lines({"6 Unzip file fail", "5 create_directories({tmp}) success",
                     "5 copy_file({data}{name}.zip, {tmp}{name}.zip) success", "5 remove({data}{name}.zip) success",
                     "6 m_Restore fail", "6 m_Restore fail"}) +
                  ENDING);
    EXPECT_THAT(b.dataFiles(), Contains("temp/"));
}

TEST_F(Restore, HasNothingToKeepWithoutData) {
    b.fault("bnr_response", "no-data");
    const Outcome run = b.restore();
    EXPECT_EQ(run.logBetween("6 bnr_resp_data_s *respdata is nullptr", "5 response came. Finish app"),
              Lines({"6 bnr_resp_data_s *respdata is nullptr", "6 m_Restore fail"}) + ENDING);
    EXPECT_THAT(b.failureFiles(), IsEmpty());
    EXPECT_EQ(run.reply, -1);
    expectUntouched();
}

TEST_F(Restore, FailsWithoutTheTvServicesUtility) {
    for (const std::string failure : {"result=-1", "result=0"}) {
        b.clearFaults();
        b.fault("TVServiceAPI::CreateUtil", failure);
        const Outcome run = b.restore();
        expectRefused(run);
        EXPECT_THAT(run.logBetween("6 TVServiceAPI::CreateUtil fail", "5 response came. Finish app"),
                    ::testing::IsSupersetOf(Lines{"5 remove_all({data}temp/) success", "6 m_Restore fail"}));
        EXPECT_EQ(run.count("TVServiceAPI::Destroy"), 0);
        EXPECT_THAT(b.dataFiles(), IsEmpty());
    }
}

// Archives that the TV service refuses, each with the status that it then reports; the old database stays.
TEST_F(Restore, FailsWhereTheTvServiceRefusesTheDatabase) {
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
        const Outcome run = b.restore();
        expectRefused(run);
        EXPECT_TRUE(run.says(fmt::format("6 ReplaceServiceDb fail. status=[{}]", status)));
        EXPECT_EQ(run.count("TVServiceAPI::Destroy"), 1);
        EXPECT_EQ(run.count("vconf_set_str"), 0);
        EXPECT_THAT(b.dataFiles(), IsEmpty());
    }
    b.fault("IUtil::ReplaceServiceDb", "result=-1");
    EXPECT_TRUE(b.restore().says("6 ReplaceServiceDb fail. status=[0]")) << "the status is left as it was";
}

// --- the remaining items are best effort ---

TEST_F(Restore, SkipsWhatTheBundleDoesNotHold) {
    changeBundle([](const fs::path& work) {
        fs::remove(work / "vconf.json");
        fs::remove(work / "issDB.zip");
    });
    const Outcome run = b.restore();
    EXPECT_EQ(run.reply, 0);
    const sim::SetUp now = b.setUp();
    EXPECT_EQ(now.services, a.setUp().services);
    EXPECT_EQ(now.favourites, fresh.favourites);
    EXPECT_EQ(now.iss, fresh.iss);
    EXPECT_EQ(now.ci, fresh.ci);
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
    b.fault(GetParam().call, GetParam().failure, GetParam().nth);
    const Outcome run = b.restore();
    EXPECT_TRUE(run.succeeded());
    EXPECT_EQ(run.reply, 0);
    EXPECT_EQ(b.faultsFired(), 1);
    EXPECT_EQ(b.setUp().services, a.setUp().services);
    EXPECT_FALSE(b.setUp() == a.setUp());
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

TEST_F(Restore, HandsEveryMemberOfTheCiFolderOver) {
    changeBundle([](const fs::path&) {});  // the new bundle has no ci/
    fs::create_directories(b.data / "temp/ci");
    EXPECT_EQ(b.restore().count("CIM::TCCIService::CIGeneralInstance"), 0) << "an empty folder";

    fs::create_directories(b.data / "temp/ci/folder");
    const Outcome run = b.restore();
    EXPECT_THAT(run.calls, Contains(::testing::AllOf(
                               ::testing::Field(&sim::CallRecord::name, "CIM::ICIGeneral::BackupFileDone"),
                               ::testing::Field(&sim::CallRecord::arguments, R"(["{data}temp/ci/folder"])"))));
    EXPECT_TRUE(run.says("6 CIM::ICIGeneral::BackupFileDone fail")) << "the module takes files only";

    changeBundle([&](const fs::path& work) { test::write(work / "ci", "no folder"); });
    EXPECT_EQ(b.restore().count("CIM::TCCIService::CIGeneralInstance"), 0);
    EXPECT_EQ(b.setUp().ci, fresh.ci);
}

// --- the settings file ---

TEST_F(Restore, SetsEachTypeOfSetting) {
    const Outcome run = restoreSettings(R"({"dataSize":7,"data":[
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
    for (const std::string type : {"int", "str", "bool", "dbl"}) {
        b.fault("vconf_set_" + type, "result=-1");
    }
    const Outcome run = restoreSettings(R"({"dataSize":4,"data":[
        {"path":"i","type":0,"value":1},{"path":"s","type":1,"value":"x"},{"path":"b","type":2,"value":0},
        {"path":"d","type":3,"value":1}]})");
    EXPECT_THAT(run.logBetween("5 vconf_path: i", "5 vconf_set_dbl of d failed!"),
                ElementsAre("5 vconf_path: i", "5 vconf_set_int of i failed!", "5 vconf_path: s",
                            "5 vconf_set_str of s failed!", "5 vconf_path: b", "5 vconf_set_bool of b failed!",
                            "5 vconf_path: d", "5 vconf_set_dbl of d failed!"));
    EXPECT_TRUE(run.succeeded());
}

TEST_F(Restore, SetsNothingWhereTheSettingsFileCountsNone) {
    for (const std::string text : {R"({"dataSize":0,"data":[{"path":"p","type":0,"value":1}]})", R"({"dataSize":-1})",
                                   R"({"data":[]})", "{}", "no JSON", ""}) {
        const Outcome run = restoreSettings(text);
        EXPECT_TRUE(run.succeeded()) << text;
        EXPECT_THAT(run.log, Not(Contains(StartsWith("5 vconf_path")))) << text;
        fs::remove_all(folder / "bundle");
    }
}

TEST_F(Restore, LogsASettingsFileThatCannotBeOpened) {
    changeBundle([](const fs::path& work) { fs::remove(work / "vconf.json"); });
    // A socket in the file's place is there, but nobody can open it.
    fs::create_directories(b.data / "temp");
    ASSERT_EQ(::mknod((b.data / "temp/vconf.json").c_str(), S_IFSOCK | 0600, 0), 0);
    const Outcome run = b.restore();
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
        const Outcome run = restoreSettings(text);
        EXPECT_EQ(run.ended, sim::RunEnd::Crashed) << text;
        EXPECT_THAT(run.detail, StartsWith("Json::LogicError")) << text;
        EXPECT_EQ(run.reply, 0) << text;
        EXPECT_EQ(b.setUp().services, a.setUp().services) << text;
        fs::remove_all(folder / "bundle");
    }
}

// --- the viewing state ---

class RestoreViewing : public Restore {
protected:
    // What is logged of the viewing state, and the calls for it.
    static Lines viewingLog(const Outcome& run) {
        Lines lines = run.logBetween("5 bnr_deinit success", "5 main function,ret=0");
        return {lines.begin() + 1, lines.end() - 2};
    }
    static std::string metadata(const std::string& setting) {
        return R"({"version":"0.3","setting":{"antenna":1,)" + setting + "}}";
    }
};

TEST_F(RestoreViewing, StaysWhereTheModeIsUnknown) {
    for (const std::string setting :
         {R"("source":0)", R"("tvmode":{"antenna_mode":2})", R"("tvmode":{"service_mode":0})"}) {
        setMetadata(metadata(setting));
        const Outcome run = b.restore();
        EXPECT_THAT(viewingLog(run), ElementsAre(StartsWith("4 tvMode[")));
        EXPECT_EQ(run.ended, sim::RunEnd::Reclaimed);
        EXPECT_EQ(run.count("IServiceNavigation::SetTvMode"), 0);
    }
    EXPECT_TRUE(b.open().viewing() == freshViewing);
}

TEST_F(RestoreViewing, EndsWithAModeThatCannotBeSet) {
    const Lines expected = {"4 tvMode[2/1], service id[2], source[0], category[2/2/1]", "6 SetTvMode[2/1] fail"};
    // The first navigation control is that of the process's start.
    b.fault("CTVSApiWrapper::CreateServiceNavigation", "null", 2);
    EXPECT_EQ(viewingLog(b.restore()), expected);
    b.clearFaults();
    b.fault("IServiceNavigation::SetTvMode", "result=0");
    EXPECT_EQ(viewingLog(b.restore()), expected);
    EXPECT_TRUE(b.open().viewing() == freshViewing);
}

TEST_F(RestoreViewing, EndsAfterTheModeForAnExternalSource) {
    setMetadata(metadata(R"("tvmode":{"antenna_mode":1,"service_mode":2},"source":2,"service_id":"3")"));
    const Outcome run = b.restore();
    EXPECT_THAT(viewingLog(run), ElementsAre("4 tvMode[1/2], service id[3], source[2], category[-1/0/-1]",
                                             "5 Cannot set non-TV type source [2]"));
    EXPECT_THAT(run.callsBetween("IServiceNavigation::SetTvMode", "app.terminate"),
                ElementsAre("IServiceNavigation::SetTvMode", "CTVSApiWrapper::~CTVSApiWrapper", "app.terminate"));
    EXPECT_EQ(b.open().viewing().mode.antenna, sim::AntennaMode::Cable);
}

TEST_F(RestoreViewing, FallsBackWhereTheServiceCannotBeSet) {
    setMetadata(metadata(R"("tvmode":{"antenna_mode":2,"service_mode":0},"source":0,"service_id":"99",)"
                         R"("category":{"mode":0,"param":"0","sort":0})"));
    const Lines head = {"4 tvMode[2/0], service id[99], source[0], category[0/0/0]", "5 SetTvMode[2/0] success",
                        "6 SetCurrentServiceInfo[2/0 99] fail"};
    const Lines tail = {"6 SetSource(0, 99) fail", "5 SetCurrentCategory[0/0/0] success"};
    EXPECT_EQ(viewingLog(b.restore()), head + Lines{"6 ResetCurrentServiceInfo success"} + tail);
    EXPECT_EQ(b.open().viewing().serviceId, 1U) << "the first one";
    b.fault("IServiceNavigation::ResetCurrentServiceInfo", "result=0");
    const Outcome run = b.restore();
    EXPECT_EQ(viewingLog(run), head + Lines{"6 ResetCurrentServiceInfo fail"} + tail);
    EXPECT_EQ(run.count("IServiceNavigation::ResetCurrentServiceInfo"), 1);
}

TEST_F(RestoreViewing, GoesOnAfterTheSource) {
    const Lines head = {"4 tvMode[2/1], service id[2], source[0], category[2/2/1]", "5 SetTvMode[2/1] success",
                        "5 SetCurrentServiceInfo[2/1 2] success"};
    const Lines tail = {"6 SetSource(0, 2) fail", "5 SetCurrentCategory[2/2/1] success"};
    b.fault("CTVSApiWrapper::CreateSourceControl", "null", 2);
    EXPECT_EQ(viewingLog(b.restore()), head + tail);
    b.clearFaults();
    b.fault("ISourceControl::SetSource", "result=0");
    EXPECT_EQ(viewingLog(b.restore()), head + tail);
}

TEST_F(RestoreViewing, EndsWithTheCategory) {
    const std::string message = "6 SetCurrentCategory[2/2/1] fail";
    b.fault("CCCategoryUtil::GetInstance", "null", 2);
    EXPECT_EQ(viewingLog(b.restore()).back(), message);
    b.clearFaults();
    b.fault("CCCategoryUtil::SetCurrentCategory", "result=0");
    EXPECT_EQ(viewingLog(b.restore()).back(), message);
    b.clearFaults();
    setMetadata(metadata(R"("tvmode":{"antenna_mode":2,"service_mode":0},"source":0,"service_id":"3")"));
    const Outcome without = b.restore();
    EXPECT_EQ(viewingLog(without).back(), "5 SetSource(0, 3) success") << "an unknown category is not set";
    EXPECT_EQ(without.count("CCCategoryUtil::GetInstance"), 1) << "at the start";
}

// --- a running scan ---

class RestoreWithScan : public Restore {
protected:
    RestoreWithScan() { b.open().setScanning(true); }

    Outcome restoreWithScan() { return b.launch({"operation=restore", "scan_activated=1", "--reply"}); }

    // The run after the channels are back, whose scan does not come to its stop: it ends without the viewing state.
    void expectNoViewing(const Outcome& run, const Lines& lines) {
        EXPECT_EQ(run.logBetween("5 bnr_deinit success", "5 response came. Finish app"),
                  Lines{"5 bnr_deinit success"} + lines + Lines{"5 response came. Finish app"});
        EXPECT_EQ(run.ended, sim::RunEnd::Exit);
        EXPECT_EQ(run.reply, 0);
        EXPECT_EQ(run.count("app_control_reply_to_launch_request"), 1);
        EXPECT_EQ(run.count("IServiceNavigation::SetTvMode"), 0);
        expectRestored();
        EXPECT_TRUE(b.open().viewing() == freshViewing);
    }
};

TEST_F(RestoreWithScan, StopsItAndWaitsForTheSignal) {
    const Outcome run = restoreWithScan();
    EXPECT_TRUE(run.says("4 pScanActivated=[1], m_bScanActivated=[1]"));
    EXPECT_THAT(run.logBetween("5 bnr_deinit success", "5 main function,ret=0"),
                ElementsAre("5 bnr_deinit success", "4 FUNC BEGIN", "5 StopAutoScan success", "4 FUNC BEGIN",
                            "4 tvMode[2/1], service id[2], source[0], category[2/2/1]", "5 SetTvMode[2/1] success",
                            "5 SetCurrentServiceInfo[2/1 2] success", "5 SetSource(0, 2) success",
                            "5 SetCurrentCategory[2/2/1] success", "5 signal came. Finish app", "4 FUNC BEGIN",
                            "5 main function,ret=0"));
    EXPECT_THAT(run.callsBetween("bnr_deinit", "tv_signal"),
                ElementsAre("bnr_deinit", "CTVSApiWrapper::CTVSApiWrapper", "CTVSApiWrapper::CreateScanData",
                            "IScanData::IsScanActivated", "TVServiceAPI::CreateSignalSubscriber",
                            "ISignalSubscriber::Subscribe", "CTVSApiWrapper::CreateScanControl",
                            "IScanControl::StopAutoScan", "CTVSApiWrapper::~CTVSApiWrapper", "tv_signal"));
    for (const sim::CallRecord& call : run.calls) {
        if (call.name == "ISignalSubscriber::Subscribe") {
            EXPECT_EQ(call.arguments, "18, 1, 0");
        }
    }
    EXPECT_EQ(run.count("ISignalSubscriber::Unsubscribe"), 0);
    EXPECT_EQ(run.ended, sim::RunEnd::Exit);
    expectRestored();
    EXPECT_TRUE(b.open().viewing() == a.open().viewing());
    EXPECT_FALSE(b.open().isScanning());
}

TEST_F(RestoreWithScan, ReadsTheExtraAsItStands) {
    for (const auto& [value, activated] :
         std::vector<std::pair<std::string, bool>>{{"0", false}, {"00", true}, {"", true}, {"false", true}}) {
        const Outcome run = b.launch({"operation=restore", "scan_activated=" + value});
        EXPECT_TRUE(run.says(fmt::format("4 pScanActivated=[{}], m_bScanActivated=[{:d}]", value, activated))) << value;
        EXPECT_EQ(run.count("CTVSApiWrapper::CreateScanData"), activated ? 1 : 0) << value;
    }
}

TEST_F(RestoreWithScan, EndsWithoutTheViewingStateWhereNoScanRuns) {
    b.open().setScanning(false);
    expectNoViewing(restoreWithScan(), {"4 FUNC BEGIN", "5 Scan is not activated"});
    b.open().setScanning(true);
    b.fault("IScanData::IsScanActivated", "result=0");
    expectNoViewing(restoreWithScan(), {"4 FUNC BEGIN", "5 Scan is not activated"});
}

TEST_F(RestoreWithScan, EndsWithoutTheViewingStateWhereTheScanCannotBeStopped) {
    const std::vector<std::tuple<std::string, std::string, Lines>> failures = {
        {"CTVSApiWrapper::CreateScanData", "null", {"4 FUNC BEGIN", R"(6 Assertion failed: 0 && "pScanData")"}},
        {"TVServiceAPI::CreateSignalSubscriber",
         "result=0",
         {"4 FUNC BEGIN", R"(6 Assertion failed: 0 && "m_pSubscriber")"}},
        {"ISignalSubscriber::Subscribe", "result=0", {"4 FUNC BEGIN"}},
        {"CTVSApiWrapper::CreateScanControl", "null", {"4 FUNC BEGIN", R"(6 Assertion failed: 0 && "pScanControl")"}},
        {"IScanControl::StopAutoScan", "result=0", {"4 FUNC BEGIN", "4 FUNC BEGIN", "6 StopAutoScan fail"}},
    };
    for (const auto& [call, failure, lines] : failures) {
        SCOPED_TRACE(call);
        b.clearFaults();
        b.fault(call, failure);
        const Outcome run = restoreWithScan();
        expectNoViewing(run, lines);
        const bool isUndone = call == "IScanControl::StopAutoScan";
        EXPECT_EQ(run.count("ISignalSubscriber::Unsubscribe"), isUndone ? 1 : 0);
        EXPECT_EQ(run.count("TVServiceAPI::DestroySignalSubscriber"), isUndone ? 1 : 0);
    }
}

TEST_F(RestoreWithScan, EndsOnAnotherSignalWithoutTheViewingState) {
    b.fault("tv_signal", "result=17");
    const Outcome run = restoreWithScan();
    EXPECT_THAT(run.logBetween("5 StopAutoScan success", "5 signal came. Finish app"),
                ElementsAre("5 StopAutoScan success", "4 FUNC BEGIN", "5 signal came. Finish app"));
    EXPECT_EQ(run.ended, sim::RunEnd::Exit);
    EXPECT_TRUE(b.open().viewing() == freshViewing);
}

TEST_F(RestoreWithScan, WaitsWhereTheSignalDoesNotReachIt) {
    b.fault("tv_signal", "null");
    const Outcome nobody = restoreWithScan();
    EXPECT_TRUE(nobody.says(R"(6 Assertion failed: 0 && "pAppData")"));
    EXPECT_EQ(nobody.ended, sim::RunEnd::Waiting);
    EXPECT_EQ(nobody.detail, "for signal 18 of the TV service");

    b.clearFaults();
    b.open().setScanning(true);
    b.fault("tv_signal", "lost");
    EXPECT_EQ(restoreWithScan().ended, sim::RunEnd::Waiting);

    b.clearFaults();
    b.open().setScanning(true);
    b.fault("bnr_response", "lost");
    const Outcome unanswered = restoreWithScan();
    EXPECT_EQ(unanswered.ended, sim::RunEnd::Waiting);
    EXPECT_EQ(unanswered.detail, "for the cloud service (Qr7tLw2ZkA)");
    EXPECT_EQ(unanswered.reply, std::nullopt);

    b.clearFaults();
    b.fault("tv_signal", "delay=86400000");
    EXPECT_TRUE(restoreWithScan().succeeded()) << "a day later";
}

}  // namespace
