// A first test of a build of one's own.
#include <gtest/gtest.h>
#include <halcyon_tv/Tv.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

class Restore : public ::testing::Test {
protected:
    Restore() { options.application = MY_LINEUP; }
    ~Restore() override { std::filesystem::remove_all(folder); }

    halcyon::Tv tv(const std::string& name) const { return {folder, name, options}; }

    char name[32] = "/tmp/my-lineup-XXXXXX";
    const std::filesystem::path folder = ::mkdtemp(name);
    halcyon::TvOptions options;
};

TEST_F(Restore, BringsTheChannelsOfTheOldTv) {
    const halcyon::Tv old = tv("old");
    const halcyon::Tv fresh = tv("new");
    old.set("favname1", "Family");
    EXPECT_EQ(old.run().outcome(), "done");
    const halcyon::Run restore = fresh.run({"operation=restore"});
    EXPECT_EQ(restore.outcome(), "done");
    EXPECT_EQ(restore.items().at("favname1"), "restored");
    EXPECT_EQ(fresh.differenceFrom(old), std::nullopt);
}

TEST_F(Restore, ThatFailsIsReported) {
    const halcyon::Tv fresh = tv("new");
    EXPECT_EQ(fresh.run().outcome(), "done");
    fresh.fault("IUtil::ReplaceServiceDb", {"result=0"});
    const halcyon::Run restore = fresh.run({"operation=restore"});
    EXPECT_EQ(restore.outcome(), "failed");
    const std::vector<std::string> calls = restore.calls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "bnr_report_failure"), 1);
    EXPECT_EQ(restore.json()["reply"], -1);
}

}  // namespace
