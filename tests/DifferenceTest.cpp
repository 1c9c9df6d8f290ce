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
        text += pair.left.identity;
    }
    return text;
}

// "-a +b >c #d": removed, added, moved, renumbered.
std::string summary(const std::string& left, const std::string& right) {
    const sim::ServiceDifference difference = sim::compareServices(services(left), services(right));
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
    const std::vector<sim::Service> left = services("ab");
    std::vector<sim::Service> right = left;
    right[1].name = "Renamed";
    right[1].audioPids = "102=deu";
    const sim::ServiceDifference difference = sim::compareServices(left, right);
    ASSERT_EQ(identities(difference.changed), "b");
    const sim::ServicePair& changed = difference.changed[0];
    ASSERT_EQ(changed.columns.size(), 2U);
    EXPECT_STREQ(changed.columns[0]->label, "name");
    EXPECT_STREQ(changed.columns[1]->label, "audio pids");
    EXPECT_EQ(identities(difference.renamed), "b");
    EXPECT_FALSE(difference.isSame());
}

}  // namespace
