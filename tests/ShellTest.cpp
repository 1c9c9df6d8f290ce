// Start, dispatch, the cloud session and its responses, the reply.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "tests/support/TestTv.h"

namespace {

using Lines = std::vector<std::string>;
using test::RunResult;
using ::testing::Contains;
using ::testing::ElementsAre;

class Shell : public test::TwoTvs {};

TEST_F(Shell, ResolvesTheFoldersThenCapturesTheTvBeforeMain) {
    const RunResult run = a.backUp();
    const Lines before = run.callsBetween("platform_path_resolve", "ui_app_main");
    EXPECT_THAT(before,
                ElementsAre("platform_path_resolve", "platform_path_resolve", "TVServiceAPI::CreateTunerControl",
                            "ITunerControl::GetAntennaConnectionStatus", "CTVSApiWrapper::CTVSApiWrapper",
                            "CTVSApiWrapper::CreateServiceNavigation", "IServiceNavigation::GetTvMode",
                            "IServiceNavigation::GetCurrentServiceInfo", "CCCategoryUtil::GetInstance",
                            "CCCategoryUtil::GetCurrentCategory", "CTVSApiWrapper::CreateSourceControl",
                            "ISourceControl::GetCurrentSourceInfo", "CTVSApiWrapper::~CTVSApiWrapper", "ui_app_main"));
    EXPECT_EQ(run.calls[0].arguments, "61, \"com.kestrel.tv.halcyon-lineup/data/\"");
    EXPECT_EQ(run.calls[1].arguments, "78, \"halcyon-lineup/\"");
    EXPECT_THAT(Lines(run.log.begin(), run.log.begin() + 8),
                ElementsAre("4 FUNC BEGIN", "5 [OUT]antennaStatus=[1]", "5 halcyon-lineup main start", "4 FUNC BEGIN",
                            "4 FUNC BEGIN", "4 app_control_get_caller success. callerID=[command-line]", "5 Do backup",
                            "4 bnr init success"));
    EXPECT_EQ(run.log.back(), "5 main function,ret=0");
    EXPECT_EQ(run.exitStatus, 0);
}

TEST_F(Shell, RestoresOnlyWhenAskedToTheLetter) {
    a.backUp();
    for (const std::string operation : {"restore", "RESTORE"}) {
        EXPECT_TRUE(b.launch({"operation=" + operation}).says("5 Do restore")) << operation;
    }
    for (const std::string operation : {"Restore", "restore ", "", "backup"}) {
        EXPECT_TRUE(b.launch({"operation=" + operation}).says("5 Do backup")) << operation;
    }
    EXPECT_TRUE(b.launch({}).says("5 Do backup"));
    for (const std::string failure : {"result=-1", "result=0"}) {
        b.clearFaults();
        b.fault("app_control_get_extra_data", failure);
        EXPECT_TRUE(b.launch({"operation=restore"}).says("5 Do backup")) << failure;
    }
}

TEST_F(Shell, DoesWithoutTheCallersId) {
    const RunResult run = a.backUpUnder("app_control_get_caller", "result=-1");
    EXPECT_TRUE(run.succeeded());
    EXPECT_THAT(run.log, ::testing::Not(Contains(::testing::StartsWith("4 app_control_get_caller"))));
}

TEST_F(Shell, PassesThroughItsLifecycle) {
    const RunResult run = a.launch({"--pause"});
    EXPECT_THAT(run.logBetween("4 Last line", "5 BNR Callback called [101]"),
                ElementsAre("4 Last line", "4 FUNC BEGIN", "4 FUNC BEGIN", "5 BNR Callback called [101]"));
    EXPECT_THAT(run.logBetween("5 response came. Finish app", "5 main function,ret=0"),
                ElementsAre("5 response came. Finish app", "4 FUNC BEGIN", "5 main function,ret=0"));
}

TEST_F(Shell, EndsWithTheMainLoopsResult) {
    const RunResult run = a.backUpUnder("ui_app_main", "result=5");
    EXPECT_THAT(
        run.logBetween("5 halcyon-lineup main start", "5 main function,ret=5"),
        ElementsAre("5 halcyon-lineup main start", "6 ui_app_main() is failed. err=5", "5 main function,ret=5"));
    EXPECT_EQ(WEXITSTATUS(run.exitStatus), 5);
}

// The session: a failure to open it ends the run; a failure to close it is only logged.
TEST_F(Shell, EndsWhenTheCloudSessionCannotBeOpened) {
    for (const std::string status : {"-7", "7"}) {
        const RunResult refused = a.backUpUnder("bnr_init", "result=" + status);
        EXPECT_THAT(refused.logBetween("5 Do backup", "4 Last line"),
                    ElementsAre("5 Do backup", "6 bnr_init fail[" + status + "]", "6 m_BnrInitialize() fail",
                                "5 operation fail", "4 Last line"));
        EXPECT_THAT(refused.callsBetween("bnr_init", "app.terminate"),
                    ElementsAre("bnr_init", "ui_app_exit", "app.terminate"));
        const RunResult unregistered = a.backUpUnder("bnr_callback_register", "result=" + status);
        EXPECT_THAT(unregistered.logBetween("5 Do backup", "4 Last line"),
                    ElementsAre("5 Do backup", "4 bnr init success", "6 Failed to set bnr callback [" + status + "]",
                                "6 m_BnrInitialize() fail", "5 operation fail", "4 Last line"));
        EXPECT_THAT(unregistered.callsBetween("bnr_init", "app.terminate"),
                    ElementsAre("bnr_init", "bnr_callback_register", "bnr_deinit", "ui_app_exit", "app.terminate"));
    }
    EXPECT_THAT(a.dataFiles(), ElementsAre());
}

TEST_F(Shell, GoesOnWhenTheCloudSessionCannotBeClosed) {
    for (const std::string status : {"-3", "3"}) {
        a.clearFaults();
        a.fault("bnr_callback_deregister", "result=" + status);
        a.fault("bnr_deinit", "result=" + status);
        const RunResult run = a.backUp();
        EXPECT_THAT(
            run.logBetween("5 BNR Callback called [101]", "5 response came. Finish app"),
            ElementsAre("5 BNR Callback called [101]", "5 Backup is completed (nil)",
                        "6 Failed to unset bnr callback [" + status + "]", "6 Failed bnr_deinit [" + status + "]",
                        "6 m_appCaller == nullptr", "5 response came. Finish app"));
        EXPECT_TRUE(run.succeeded());
    }
}

// Every code except the one that brings restore data: a message, the session closed, a failure reply, the end.
TEST_F(Shell, EndsOnEachResponseCode) {
    const std::vector<std::pair<int, std::string>> codes = {
        {0, "6 Unhandled response"},
        {1, "6 INVALID value[1]"},
        {101, "5 Backup is completed (nil)"},
        {103, "5 ListDevices is completed"},
        {500, "6 Error happened"},
        {501, "6 INVALID value[501]"},
        {502, "6 Backup Schema error"},
        {503, "6 Server is not responding. Try again later."},
        {504, "6 Duplicated data error"},
        {505, "6 INVALID value[505]"},
        {-1, "6 INVALID value[-1]"},
    };
    for (const auto& [code, message] : codes) {
        const RunResult run = b.restoreUnder("bnr_response", "result=" + std::to_string(code));
        const std::string called = "5 BNR Callback called [" + std::to_string(code) + "]";
        EXPECT_THAT(
            run.logBetween(called, "5 response came. Finish app"),
            ElementsAre(called, message, "5 bnr_callback_deregister success. Handler=[1]", "5 bnr_deinit success",
                        "5 app_control_reply_to_launch_request(-1) success", "5 response came. Finish app"));
        EXPECT_THAT(
            run.callsBetween("bnr_response", "ui_app_exit"),
            ElementsAre("bnr_response", "bnr_callback_deregister", "bnr_deinit", "app_control_is_reply_requested",
                        "app_control_create", "app_control_reply_to_launch_request", "app_control_destroy",
                        "app_control_destroy", "ui_app_exit"));
        EXPECT_EQ(run.reply, -1) << code;
    }
}

TEST_F(Shell, NeitherClosesNorRepliesWithoutItsInstance) {
    a.backUp();
    const RunResult run = b.restoreUnder("bnr_response", "null");
    EXPECT_THAT(run.logBetween("5 BNR Callback called [102]", "5 response came. Finish app"),
                ElementsAre("5 BNR Callback called [102]", "6 pThis==nullptr", "5 response came. Finish app"));
    EXPECT_THAT(run.callsBetween("bnr_response", "ui_app_exit"),
                ElementsAre("bnr_response", "bnr_report_failure", "ui_app_exit"));
    EXPECT_EQ(run.reply, std::nullopt);
    EXPECT_EQ(run.reported, sim::Reported::Failure);
}

TEST_F(Shell, RestoreDataInABackupRunIsAFailureWithoutReply) {
    const RunResult run = a.backUpUnder("bnr_response", "result=102");
    EXPECT_THAT(run.logBetween("5 BNR Callback called [102]", "5 response came. Finish app"),
                ElementsAre("5 BNR Callback called [102]", "6 bnr_resp_data_s *respdata is nullptr", "6 m_Restore fail",
                            "5 bnr_callback_deregister success. Handler=[1]", "5 bnr_deinit success",
                            "6 m_appCaller == nullptr", "5 response came. Finish app"));
    EXPECT_EQ(run.reported, sim::Reported::Failure);
    EXPECT_FALSE(run.succeeded());
}

// The reply: each failure is logged, and the kept request is always released.
TEST_F(Shell, ReleasesTheRequestWhateverBecomesOfTheReply) {
    const auto fail = [&](const std::string& call, const std::string& failure) {
        b.clearFaults();
        b.fault("bnr_response", "result=500");
        b.fault(call, failure);
        return b.restore();
    };
    for (const std::string status : {"-5", "5"}) {
        const RunResult unasked = fail("app_control_is_reply_requested", "result=" + status);
        EXPECT_TRUE(unasked.says("6 app_control_is_reply_requested fail[" + status + "]"));
        EXPECT_EQ(unasked.count("app_control_destroy"), 1);
        EXPECT_EQ(unasked.reply, std::nullopt);

        const RunResult unsent = fail("app_control_reply_to_launch_request", "result=" + status);
        EXPECT_TRUE(unsent.says("6 app_control_reply_to_launch_request(-1) fail[" + status + "]"));
        EXPECT_EQ(unsent.count("app_control_destroy"), 2);
    }

    const RunResult unmade = fail("app_control_create", "result=-1");
    EXPECT_TRUE(unmade.says("6 app_control_reply_to_launch_request(-1) fail[-1]"));
    EXPECT_EQ(unmade.count("app_control_destroy"), 2);

    b.clearFaults();
    b.fault("bnr_response", "result=500");
    const RunResult unwanted = b.launch({"operation=restore"});
    EXPECT_TRUE(unwanted.says("5 Caller app did not request a reply"));
    EXPECT_THAT(unwanted.callsBetween("app_control_is_reply_requested", "ui_app_exit"),
                ElementsAre("app_control_is_reply_requested", "app_control_destroy", "ui_app_exit"));
}

}  // namespace
