// What becomes of VDR's list by a restore, line by line. VDR refuses a list whole for one line that it cannot read.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "simulator/device/VdrChannels.h"
#include "tests/support/TestTv.h"

namespace {

using sim::StayingChannel;
using test::Strings;
using ::testing::HasSubstr;

std::string line(const std::string& name, int sid, const std::string& source = "S19.2E",
                 const std::string& frequency = "11361") {
    return fmt::format("{}:{}:HC23M5O35S1:{}:22000:101=27:102=deu@3:0:0:{}:1:1:0", name, frequency, source, sid);
}

const std::string ONE = line("One", 1) + "\n";
const std::string TWO = line("Two", 2) + "\n";
const std::string CAMERA = "Camera:10:S=1|P=IPTV|F=UDP|U=127.0.0.1|A=3000:I:0:11:12=deu:0:0:9:1:1:0";
const StayingChannel FIRST{1, CAMERA, ""};
const StayingChannel SECOND{2, CAMERA, "Mine"};

struct Merged {
    const char* name;
    std::string restored;
    std::vector<StayingChannel> staying;
    std::string expected;
    Strings said;  // a part of each line
};

class Merge : public ::testing::TestWithParam<Merged> {};

TEST_P(Merge, KeepsWhatStaysAndWritesNothingThatVdrCannotRead) {
    const test::TempFolder folder;
    const sim::ServiceDb db(folder / "db");
    const sim::ChannelList list = sim::parseVdrLines(GetParam().restored);
    db.create(
        [&](sim::ChannelSink& sink) {
            for (const std::string& group : list.groups) {
                sink.addGroup(group);
            }
            for (const sim::Service& service : list.services) {
                sink.addService(service);
            }
            for (const sim::ListHeader& header : list.headers) {
                sink.addHeader(header);
            }
        },
        "");
    Strings said;
    const auto say = [&](const std::string& text) { said.push_back(text); };
    EXPECT_EQ(sim::mergedVdrChannels(db.services(), GetParam().staying, say), GetParam().expected);
    ASSERT_EQ(said.size(), GetParam().said.size()) << ::testing::PrintToString(said);
    for (std::size_t i = 0; i < said.size(); ++i) {
        EXPECT_THAT(said[i], HasSubstr(GetParam().said[i]));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Vdr, Merge,
    ::testing::Values(
        Merged{"TheListAlone", ":News\n" + ONE + ":@5\n" + TWO, {}, ":News\n" + ONE + ":@5\n" + TWO, {}},
        Merged{"ANumberThatIsFree", ":@2\n" + ONE + TWO, {FIRST}, CAMERA + "\n" + ONE + TWO, {}},
        Merged{
            "ANumberBetween", ONE + ":@3 Films\n" + TWO, {{2, CAMERA, ""}}, ONE + CAMERA + "\n:@3 Films\n" + TWO, {}},
        Merged{"ANumberThatIsTaken", ONE + TWO, {SECOND}, ONE + TWO + ":Mine\n" + CAMERA + "\n", {}},
        Merged{"ANumberBehindAll", ONE, {{9, CAMERA, ""}}, ONE + ":@9\n" + CAMERA + "\n", {}},
        Merged{"TwoOfAGroup", ONE + TWO, {SECOND, FIRST}, ONE + TWO + CAMERA + "\n:Mine\n" + CAMERA + "\n", {}},
        Merged{"IpTelevisionOfAnotherSet",
               ONE + CAMERA + "\n" + TWO,
               {},
               ONE + ":@3\n" + TWO,
               {"IP television is each set's own"}},
        Merged{"AFrequencyThatVdrCannotCount",
               ONE + line("High", 3, "C", "2147483648") + "\n",
               {},
               ONE,
               {"a frequency that it can count"}}),
    [](const auto& each) { return std::string(each.param.name); });

TEST(VdrChannels, AreComparedByWhatTheyMean) {
    const sim::ChannelList both = sim::parseVdrLines(":News\n" + ONE + TWO);
    const auto difference = [&](const std::string& text) {
        return sim::firstDifference(both, sim::parseVdrLines(text));
    };
    EXPECT_EQ(difference(":News\n" + ONE + TWO), "");
    EXPECT_EQ(difference(":News\n" + ONE + ":@3\n" + TWO), "channel 2, number '2' and '3'");
    EXPECT_EQ(difference(":News\n" + ONE), "2 channels and 1");
    EXPECT_EQ(difference(":News\n" + ONE + TWO + ":More\n"), "1 group and 2");

    const auto misplaced = [&](const std::string& text) { return sim::firstMisplaced(both, sim::parseVdrLines(text)); };
    EXPECT_EQ(misplaced(ONE + line("Zwei", 2) + "\n" + line("Found", 3) + "\n"), "") << "VDR updates its list";
    EXPECT_EQ(misplaced(TWO + ONE), "channel 1, 'One'");
    EXPECT_EQ(misplaced(ONE), "channel 2, 'Two'");
}

}  // namespace
