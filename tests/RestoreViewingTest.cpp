// The viewing state that a restore puts back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/Restore.h"

namespace {

using Lines = test::Strings;
using test::joined;
using test::Restore;
using test::RunResult;
using ::testing::ElementsAre;
using ::testing::StartsWith;

class RestoreViewing : public Restore {
protected:
    // What is logged of the viewing state, and the calls for it.
    static Lines viewingLog(const RunResult& run) {
        Lines lines = run.logBetween("5 bnr_deinit success", "5 main function,ret=0");
        return {lines.begin() + 1, lines.end() - 2};
    }
    static std::string metadata(const std::string& setting) {
        return R"({"version":"0.3","setting":{"antenna":1,)" + setting + "}}";
    }
};

TEST_F(RestoreViewing, StaysIfTheModeIsUnknown) {
    for (const std::string setting :
         {R"("source":0)", R"("tvmode":{"antenna_mode":2})", R"("tvmode":{"service_mode":0})"}) {
        setMetadata(metadata(setting));
        const RunResult run = b.restore();
        EXPECT_THAT(viewingLog(run), ElementsAre(StartsWith("4 tvMode[")));
        EXPECT_EQ(run.ended, sim::RunEnd::Reclaimed);
        EXPECT_EQ(run.count("IServiceNavigation::SetTvMode"), 0);
    }
    EXPECT_TRUE(b.open().viewing() == freshViewing);
}

TEST_F(RestoreViewing, EndsWithAModeThatCannotBeSet) {
    const Lines expected = {"4 tvMode[2/1], service id[2], source[0], category[2/2/1]", "6 SetTvMode[2/1] fail"};
    // The first navigation control is that of the process's start.
    EXPECT_EQ(viewingLog(b.restoreUnder("CTVSApiWrapper::CreateServiceNavigation", "null", 2)), expected);
    EXPECT_EQ(viewingLog(b.restoreUnder("IServiceNavigation::SetTvMode", "result=0")), expected);
    EXPECT_TRUE(b.open().viewing() == freshViewing);
}

TEST_F(RestoreViewing, EndsAfterTheModeForAnExternalSource) {
    setMetadata(metadata(R"("tvmode":{"antenna_mode":1,"service_mode":2},"source":2,"service_id":"3")"));
    const RunResult run = b.restore();
    EXPECT_THAT(viewingLog(run), ElementsAre("4 tvMode[1/2], service id[3], source[2], category[-1/0/-1]",
                                             "5 Cannot set non-TV type source [2]"));
    EXPECT_THAT(run.callsBetween("IServiceNavigation::SetTvMode", "app.terminate"),
                ElementsAre("IServiceNavigation::SetTvMode", "CTVSApiWrapper::~CTVSApiWrapper", "app.terminate"));
    EXPECT_EQ(b.open().viewing().mode.antenna, sim::AntennaMode::Cable);
}

TEST_F(RestoreViewing, FallsBackIfTheServiceCannotBeSet) {
    setMetadata(metadata(R"("tvmode":{"antenna_mode":2,"service_mode":0},"source":0,"service_id":"99",)"
                         R"("category":{"mode":0,"param":"0","sort":0})"));
    const Lines head = {"4 tvMode[2/0], service id[99], source[0], category[0/0/0]", "5 SetTvMode[2/0] success",
                        "6 SetCurrentServiceInfo[2/0 99] fail"};
    const Lines tail = {"6 SetSource(0, 99) fail", "5 SetCurrentCategory[0/0/0] success"};
    EXPECT_EQ(viewingLog(b.restore()), joined({head, {"6 ResetCurrentServiceInfo success"}, tail}));
    EXPECT_EQ(b.open().viewing().serviceId, 1U) << "the first one";
    const RunResult run = b.restoreUnder("IServiceNavigation::ResetCurrentServiceInfo", "result=0");
    EXPECT_EQ(viewingLog(run), joined({head, {"6 ResetCurrentServiceInfo fail"}, tail}));
    EXPECT_EQ(run.count("IServiceNavigation::ResetCurrentServiceInfo"), 1);
}

TEST_F(RestoreViewing, GoesOnAfterTheSource) {
    const Lines head = {"4 tvMode[2/1], service id[2], source[0], category[2/2/1]", "5 SetTvMode[2/1] success",
                        "5 SetCurrentServiceInfo[2/1 2] success"};
    const Lines tail = {"6 SetSource(0, 2) fail", "5 SetCurrentCategory[2/2/1] success"};
    EXPECT_EQ(viewingLog(b.restoreUnder("CTVSApiWrapper::CreateSourceControl", "null", 2)), joined({head, tail}));
    EXPECT_EQ(viewingLog(b.restoreUnder("ISourceControl::SetSource", "result=0")), joined({head, tail}));
}

TEST_F(RestoreViewing, EndsWithTheCategory) {
    const std::string message = "6 SetCurrentCategory[2/2/1] fail";
    EXPECT_EQ(viewingLog(b.restoreUnder("CCCategoryUtil::GetInstance", "null", 2)).back(), message);
    EXPECT_EQ(viewingLog(b.restoreUnder("CCCategoryUtil::SetCurrentCategory", "result=0")).back(), message);
    setMetadata(metadata(R"("tvmode":{"antenna_mode":2,"service_mode":0},"source":0,"service_id":"3")"));
    const RunResult without = b.restore();
    EXPECT_EQ(viewingLog(without).back(), "5 SetSource(0, 3) success") << "an unknown category is not set";
    EXPECT_EQ(without.count("CCCategoryUtil::GetInstance"), 1) << "at the start";
}

// On another source than the tuner, only the mode is applied, and the verdict does not call the rest equal.
TEST_F(RestoreViewing, SaysWhatIsNotApplied) {
    setMetadata(metadata(R"("source":4,"service_id":"2","tvmode":{"antenna_mode":2,"service_mode":0},)"
                         R"("category":{"mode":1,"param":"2","sort":0})"));
    ASSERT_TRUE(b.restore().succeeded());
    const sim::Verdict verdict = b.verdict();
    EXPECT_EQ(verdict.outcome, sim::Outcome::Done);
    const auto viewing = std::find_if(verdict.items.begin(), verdict.items.end(),
                                      [](const auto& each) { return each.item == sim::Item::Viewing; });
    ASSERT_NE(viewing, verdict.items.end());
    EXPECT_EQ(viewing->state, sim::ItemState::Kept);
    EXPECT_EQ(viewing->detail, "not applied: service 2, source 4, category 1/2/0 in the backup");
}

}  // namespace
