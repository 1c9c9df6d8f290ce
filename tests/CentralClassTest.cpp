// The central class in this process, for what no launch request leads to. It resolves its folders and captures the TV
// before main(), so it has an executable of its own, in which a TV is there before everything else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "src/HalcyonLineup.h"
#include "tests/support/TestTv.h"

namespace {

struct EarlyTv {
    EarlyTv() {
        ::setenv("HALCYON_TV_HOME", tv.home.c_str(), 1);
        ::setenv("HALCYON_CLOUD", tv.cloud.c_str(), 1);
    }
    test::TempFolder folder;
    test::TestTv tv{folder.path(), "tv", "Welcome:11361:HC23:S19.2E:22000:501=27:502:0:0:5001:1:5:0\n"};
};
__attribute__((init_priority(101))) EarlyTv early;

TEST(CentralClass, ResolvesItsFoldersOnceAndForAll) {
    EXPECT_EQ(CHANNEL_MAP_DIR_PATH, early.tv.data.string());
    EXPECT_EQ(CHANNEL_MAP_DIR_PATH_TMP, early.tv.failures.string());
}

TEST(CentralClass, RefusesARestoreWithoutRequest) {
    EXPECT_FALSE(CHalcyonLineup().Restore(nullptr));
    EXPECT_THAT(test::messages(),
                ::testing::ElementsAre("4 FUNC BEGIN", "5 [OUT]antennaStatus=[1]", "6 appCaller == nullptr"));
}

}  // namespace
