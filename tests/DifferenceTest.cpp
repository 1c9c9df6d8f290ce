#include "simulator/lineup/Difference.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

// Services of these identities, numbered from 1.
std::vector<sim::Service> services(const std::string& identities) {
    std::vector<sim::Service> list;
    for (const char identity : identities) {
        sim::Service service;
        service.identity = std::string(1, identity);
        service.name = "Name";
        service.number = static_cast<int>(list.size()) + 1;
        service.id = static_cast<std::uint64_t>(service.number);
        list.push_back(service);
    }
    return list;
}

std::string identities(const std::vector<sim::ServicePair>& pairs) {
    std::string text;
    for (const sim::ServicePair& pair : pairs) {
        text += pair.one.identity;
    }
    return text;
}

// "-a +b >c #d": removed, added, moved, renumbered.
std::string summary(const std::string& ones, const std::string& others) {
    const sim::ServiceDifference difference = sim::compareServices(services(ones), services(others));
    std::string text;
    for (const sim::Service& service : difference.removed) {
        text += "-" + service.identity;
    }
    for (const sim::Service& service : difference.added) {
        text += "+" + service.identity;
    }
    return text + ">" + identities(difference.moved) + "#" + identities(difference.renumbered);
}

TEST(Difference, PairsServicesByTheirIdentity) {
    EXPECT_EQ(summary("abcd", "abcd"), ">#");
    EXPECT_EQ(summary("abcd", "bcd"), "-a>#bcd") << "one less is not all different";
    EXPECT_EQ(summary("abcd", "abcde"), "+e>#");
    EXPECT_EQ(summary("abcd", "dabc"), ">d#abc") << "one has moved, not three";
    EXPECT_EQ(summary("abcd", "badc"), ">ac#bd");
    EXPECT_EQ(summary("", "ab"), "+a+b>#");
    EXPECT_EQ(summary("ab", "cd"), "-a-b+c+d>#");
    EXPECT_EQ(summary("aab", "ab"), "-a>#b") << "each is paired once";
}

TEST(Difference, NamesTheColumnsThatHaveChanged) {
    const std::vector<sim::Service> ones = services("ab");
    std::vector<sim::Service> others = ones;
    others[1].name = "Renamed";
    others[1].audioPids = "102=deu";
    const sim::ServiceDifference difference = sim::compareServices(ones, others);
    ASSERT_EQ(identities(difference.changed), "b");
    EXPECT_THAT(difference.changed[0].columns, ::testing::ElementsAre("audio pids"));
    EXPECT_EQ(identities(difference.renamed), "b");
    EXPECT_FALSE(difference.isSame());
}

}  // namespace
