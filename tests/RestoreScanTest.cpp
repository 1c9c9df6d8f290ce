// A restore while a channel scan is running.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fmt/format.h>

#include "tests/support/Restore.h"

namespace {

using Lines = test::Strings;
using test::joined;
using test::Restore;
using test::RunResult;
using ::testing::ElementsAre;

class RestoreWithScan : public Restore {
protected:
    RestoreWithScan() { b.open().setScanning(true); }

    RunResult restoreWithScan() { return b.launch({"operation=restore", "scan_activated=1", "--reply"}); }

    // The same with a new scan running and one call failing.
    RunResult restoreWithScanUnder(const std::string& call, const std::string& failure) {
        b.open().setScanning(true);
        return b.launchUnder(call, failure, {"operation=restore", "scan_activated=1", "--reply"});
    }

    // The rest of a run whose scan never stops: it ends without the viewing state.
    void expectNoViewing(const RunResult& run, const Lines& lines) {
        EXPECT_EQ(run.logBetween("5 bnr_deinit success", "5 response came. Finish app"),
                  joined({{"5 bnr_deinit success"}, lines, {"5 response came. Finish app"}}));
        EXPECT_EQ(run.ended, sim::RunEnd::Exit);
        EXPECT_EQ(run.reply, 0);
        EXPECT_EQ(run.count("app_control_reply_to_launch_request"), 1);
        EXPECT_EQ(run.count("IServiceNavigation::SetTvMode"), 0);
        expectRestored();
        EXPECT_TRUE(b.open().viewing() == freshViewing);
    }
};

TEST_F(RestoreWithScan, StopsItAndWaitsForTheSignal) {
    const RunResult run = restoreWithScan();
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
        const RunResult run = b.launch({"operation=restore", "scan_activated=" + value});
        EXPECT_TRUE(run.says(fmt::format("4 pScanActivated=[{}], m_bScanActivated=[{:d}]", value, activated))) << value;
        EXPECT_EQ(run.count("CTVSApiWrapper::CreateScanData"), activated ? 1 : 0) << value;
    }
}

TEST_F(RestoreWithScan, EndsWithoutTheViewingStateIfNoScanRuns) {
    b.open().setScanning(false);
    expectNoViewing(restoreWithScan(), {"4 FUNC BEGIN", "5 Scan is not activated"});
    expectNoViewing(restoreWithScanUnder("IScanData::IsScanActivated", "result=0"),
                    {"4 FUNC BEGIN", "5 Scan is not activated"});
}

TEST_F(RestoreWithScan, EndsWithoutTheViewingStateIfTheScanCannotBeStopped) {
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
        const RunResult run = restoreWithScanUnder(call, failure);
        expectNoViewing(run, lines);
        const bool isUndone = call == "IScanControl::StopAutoScan";
        EXPECT_EQ(run.count("ISignalSubscriber::Unsubscribe"), isUndone ? 1 : 0);
        EXPECT_EQ(run.count("TVServiceAPI::DestroySignalSubscriber"), isUndone ? 1 : 0);
    }
}

TEST_F(RestoreWithScan, EndsOnAnotherSignalWithoutTheViewingState) {
    for (const std::string type : {"result=17", "result=19"}) {
        const RunResult run = restoreWithScanUnder("tv_signal", type);
        EXPECT_THAT(run.logBetween("5 StopAutoScan success", "5 signal came. Finish app"),
                    ElementsAre("5 StopAutoScan success", "4 FUNC BEGIN", "5 signal came. Finish app"));
        EXPECT_EQ(run.ended, sim::RunEnd::Exit);
        EXPECT_TRUE(b.open().viewing() == freshViewing);
    }
}

TEST_F(RestoreWithScan, WaitsIfTheSignalDoesNotReachIt) {
    const RunResult nobody = restoreWithScanUnder("tv_signal", "null");
    EXPECT_TRUE(nobody.says(R"(6 Assertion failed: 0 && "pAppData")"));
    EXPECT_EQ(nobody.ended, sim::RunEnd::Waiting);
    EXPECT_EQ(nobody.detail, "for signal 18 of the TV service");
    EXPECT_EQ(restoreWithScanUnder("tv_signal", "lost").ended, sim::RunEnd::Waiting);

    const RunResult unanswered = restoreWithScanUnder("bnr_response", "lost");
    EXPECT_EQ(unanswered.ended, sim::RunEnd::Waiting);
    EXPECT_EQ(unanswered.detail, "for the cloud service (Qr7tLw2ZkA)");
    EXPECT_EQ(unanswered.reply, std::nullopt);
    EXPECT_TRUE(restoreWithScanUnder("tv_signal", "delay=86400000").succeeded()) << "a day later";
}

}  // namespace
