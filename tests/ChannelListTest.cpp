// Channel lists in the channels.conf format.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "simulator/base/Error.h"
#include "simulator/lineup/ChannelList.h"
#include "tests/support/TestTv.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::ThrowsMessage;

class ChannelListFile : public ::testing::Test {
protected:
    sim::ChannelList parse(const std::string& text) const {
        test::write(folder / "list.conf", text);
        sim::ChannelList list;
        list.problems = sim::readChannelList(folder / "list.conf", list).problems;
        return list;
    }
    // The one service of a list.
    sim::Service service(const std::string& line) const {
        const sim::ChannelList list = parse(line + "\n");
        EXPECT_EQ(list.services.size(), 1U) << line;
        EXPECT_THAT(list.problems, IsEmpty()) << line;
        return list.services.at(0);
    }

    test::TempFolder folder;
};

TEST_F(ChannelListFile, ReadsEveryField) {
    const sim::Service tv = service(
        "Vier|Fünf, und mehr,4|5;Anbieter|Nord:12187:hC34M2O0S0:S19.2E:27500:163+164=2:104=deu@3,105;106=deu:105:"
        "9C4,1702,a:12003:1:1089:2");
    EXPECT_EQ(tv.name, "Vier:Fünf, und mehr");
    EXPECT_EQ(tv.shortName, "4:5");
    EXPECT_EQ(tv.provider, "Anbieter:Nord");
    EXPECT_EQ(tv.frequency, 12'187'000'000U);
    EXPECT_EQ(tv.parameters, "hC34M2O0S0");
    EXPECT_EQ(tv.symbolRate, 27500);
    EXPECT_EQ(tv.videoPid, "163+164=2");
    EXPECT_EQ(tv.audioPids, "104=deu@3,105;106=deu");
    EXPECT_EQ(tv.textPids, "105");
    EXPECT_EQ(tv.conditionalAccess, "9C4,1702,a");
    EXPECT_EQ(tv.identity, "S19.2E-1-1089-12003-2");
    EXPECT_EQ(tv.type, "tv");
    EXPECT_EQ(tv.number, 1);

    const sim::Service radio = service("R:12187:h:S19.2E:27500:0:104:0:0:1:2:3");
    EXPECT_EQ(radio.type, "radio");
    EXPECT_EQ(radio.identity, "S19.2E-2-3-1-0") << "12 fields: no radio id";
}

TEST_F(ChannelListFile, ScalesFrequenciesToHz) {
    const auto hz = [&](const std::string& frequency, const std::string& source) {
        return service("N:" + frequency + ":M64:" + source + ":6900:1:2:3:0:1:1:1:0").frequency;
    };
    EXPECT_EQ(hz("12551", "S19.2E"), 12'551'000'000U);
    EXPECT_EQ(hz("410", "C"), 410'000'000U);
    EXPECT_EQ(hz("410000", "C"), 410'000'000U);
    EXPECT_EQ(hz("529833000", "T"), 529'833'000U);
    EXPECT_EQ(hz("1000000", "T"), 1'000'000'000U) << "kHz: only more than a million are Hz";
}

TEST_F(ChannelListFile, IdentifiesByTheFrequencyWhereTheNetworkIsUnknown) {
    EXPECT_EQ(service("N:529833:I0C34:T:0:1:2:3:0:7:0:0:0").identity, "T-0-529-7-0");
    EXPECT_EQ(service("N:12551:VC56:S19.2E:22000:1:2:3:0:7:0:0:0").identity, "S19.2E-0-212551-7-0");
}

TEST_F(ChannelListFile, NumbersServicesAndGroups) {
    const std::string tail = ":410:M64:C:6900:1:2:3:0:";
    const sim::ChannelList list = parse("A" + tail + "1:1:1:0\n:First\nB" + tail + "2:1:1:0\r\n:@20 Second\nC" + tail +
                                        "3:1:1:0\n:@5 Third\nD" + tail + "4:1:1:0\n:@100\n\nE" + tail + "5:1:1:0");
    EXPECT_THAT(list.groups, ElementsAre("First", "Second", "Third"));
    std::vector<std::pair<int, int>> numbers;
    for (const sim::Service& service : list.services) {
        numbers.emplace_back(service.number, service.group);
    }
    EXPECT_THAT(numbers,
                ElementsAre(std::pair(1, 0), std::pair(2, 1), std::pair(20, 2), std::pair(21, 3), std::pair(100, 3)))
        << "a number that is taken is ignored";
    EXPECT_THAT(list.problems, IsEmpty());
}

TEST_F(ChannelListFile, ReadsBothEncodings) {
    const std::string tail = ":410:M64:C:6900:1:2:3:0:1:1:1:0";
    EXPECT_EQ(service("M\xc3\xbchle" + tail).name, "Mühle");
    EXPECT_EQ(service("M\xfchle" + tail).name, "Mühle");
    EXPECT_THAT(parse("\xef\xbb\xbf:Group\nA" + tail + " \r\n").groups, ElementsAre("Group"));
}

TEST_F(ChannelListFile, ReportsBadLinesAndLoadsTheOthers) {
    const std::string good = "Good:410:M64:C:6900:1:2:3:0:1:1:1:0";
    const std::vector<std::pair<std::string, std::string>> lines = {
        {"eleven:410:M64:C:6900:1:2:3:0:1:1", "11 fields, but a service has 13"},
        {good + ":x", "14 fields, but a service has 13"},
        {";P:410:M64:C:6900:1:2:3:0:1:1:1:0", "the name is empty"},
        {"N:x:M64:C:6900:1:2:3:0:1:1:1:0", "frequency 'x'"},
        {"N:0:M64:C:6900:1:2:3:0:1:1:1:0", "frequency '0'"},
        {"N:410:M64:Z:6900:1:2:3:0:1:1:1:0", "source 'Z'"},
        {"N:12000:H:S:6900:1:2:3:0:1:1:1:0", "source 'S'"},
        {"N:410:M64:C:-1:1:2:3:0:1:1:1:0", "symbol rate '-1'"},
        {"N:410:M64:C:6900:65536:2:3:0:1:1:1:0", "video pid '65536'"},
        {"N:410:M64:C:6900:1:deu:3:0:1:1:1:0", "audio pid 'deu'"},
        {"N:410:M64:C:6900:1:2::0:1:1:1:0", "teletext pid ''"},
        {"N:410:M64:C:6900:1:2:3:9C4,G:1:1:1:0", "conditional access '9C4,G'"},
        {"N:410:M64:C:6900:1:2:3:0:65536:1:1:0", "service id '65536'"},
        {"N:410:M64:C:6900:1:2:3:0:1:1:1:", "radio id ''"},
        {":@2147483647 Far", "'@2147483647 Far' sets no number"},
        {"Again:474:M64:C:6900:1:2:3:0:1:1:1:0", "the service C-1-1-1-0 stands in line 1 already"},
    };
    for (const auto& [line, reason] : lines) {
        const sim::ChannelList list = parse(fmt::format("{}\n{}\nLast:410:M64:C:6900:1:2:3:0:2:1:1:0\n", good, line));
        EXPECT_THAT(list.services, SizeIs(2)) << line;
        ASSERT_THAT(list.problems, SizeIs(1)) << line;
        EXPECT_THAT(list.problems[0], HasSubstr("list.conf:2: " + reason)) << line;
    }
}

TEST_F(ChannelListFile, HasToHaveAService) {
    EXPECT_THAT([&] { parse("nothing\n"); }, ThrowsMessage<sim::Error>(HasSubstr("no service in it")));
    EXPECT_THAT(
        [&] {
            sim::ChannelList list;
            sim::readChannelList(folder / "missing", list);
        },
        ThrowsMessage<sim::Error>(HasSubstr("No such file or directory")));
}

}  // namespace
