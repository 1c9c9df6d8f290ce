// Restores that end before the data arrive.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/Restore.h"

namespace fs = std::filesystem;

namespace {

using Lines = test::Strings;
using test::CLOSING;
using test::joined;
using test::Restore;
using test::RunResult;
using ::testing::ElementsAre;

TEST_F(Restore, EndsWithoutReplyIfTheRequestCannotBeKept) {
    for (const std::string status : {"-9", "9"}) {
        const RunResult run = b.restoreUnder("app_control_clone", "result=" + status);
        EXPECT_THAT(
            run.logBetween("5 Do restore", "4 Last line"),
            ElementsAre("5 Do restore", "6 app_control_clone fail[" + status + "]", "5 operation fail", "4 Last line"));
        EXPECT_EQ(run.reply, std::nullopt);
        EXPECT_EQ(run.count("bnr_init"), 0);
    }
}

TEST_F(Restore, RepliesFailureIfTheCloudCannotBeAsked) {
    const RunResult unopened = b.restoreUnder("bnr_init", "result=-1");
    EXPECT_THAT(unopened.logBetween("6 bnr_init fail[-1]", "4 Last line"),
                ElementsAre("6 bnr_init fail[-1]", "6 m_BnrInitialize() fail",
                            "5 app_control_reply_to_launch_request(-1) success", "5 operation fail", "4 Last line"));
    EXPECT_EQ(unopened.count("bnr_deinit"), 0);
    EXPECT_EQ(unopened.reply, -1);

    for (const std::string status : {"-4", "4"}) {
        const RunResult refused = b.restoreUnder("bnr_restore", "result=" + status);
        const std::string message = "6 bnr_restore(Qr7tLw2ZkA, {data}) error [" + status + "]";
        EXPECT_EQ(refused.logBetween(message, "4 Last line"),
                  joined({{message},
                          CLOSING,
                          {"5 app_control_reply_to_launch_request(-1) success", "5 operation fail", "4 Last line"}}));
        EXPECT_EQ(refused.reply, -1);
    }

    fs::remove_all(b.data);
    test::write(b.data.parent_path(), "in the place of the working folder");
    const RunResult homeless = b.restore();
    EXPECT_EQ(homeless.logBetween("6 create_directories({data}) fail [17][File exists]", "4 Last line"),
              joined({{"6 create_directories({data}) fail [17][File exists]", "6 m_CreateDirectories({data}) fail"},
                      CLOSING,
                      {"5 app_control_reply_to_launch_request(-1) success", "5 operation fail", "4 Last line"}}));
    EXPECT_EQ(homeless.count("bnr_restore"), 0);
    expectUntouched();
}

TEST_F(Restore, TellsTheCallerThatTheCloudHasNothing) {
    fs::remove_all(b.cloud);
    const RunResult run = b.restore();
    EXPECT_TRUE(run.says("6 Error happened"));
    EXPECT_EQ(run.reply, -1);
    expectUntouched();
}

TEST_F(Restore, TakesTheNewestBackupOrTheChosenOne) {
    a.open().settings().setFavouriteName(1, "Later");
    a.backUp();
    b.restore();
    EXPECT_EQ(b.setup().favourite(1), "Later");
    b.launch({"operation=restore", "--backup", "000001"});
    EXPECT_EQ(b.setup().favourite(1), "Für Oma");
    EXPECT_EQ(b.launch({"operation=restore", "--backup", "000003"}).response, sim::Response::Error);
}

}  // namespace
