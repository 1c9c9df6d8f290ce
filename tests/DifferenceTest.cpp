#include "simulator/lineup/Difference.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <random>

#include "tests/support/TestTv.h"

namespace {

using List = std::vector<sim::Service>;

// Services of these identities, numbered from 1.
List services(const std::string& identities) {
    List list;
    for (const char identity : identities) {
        sim::Service service;
        service.identity = std::string(1, identity);
        service.name = "Name";
        service.type = "tv";
        service.number = static_cast<int>(list.size()) + 1;
        service.id = static_cast<std::uint64_t>(service.number);
        list.push_back(service);
    }
    return list;
}

class Difference : public ::testing::Test {
protected:
    sim::ServiceDifference compare(const List& left, const List& right) {
        return sim::ServiceDifference(stored(left), stored(right));
    }

    // "-a +b >c #d": removed, added, moved, renumbered.
    std::string summary(const std::string& left, const std::string& right) {
        const sim::ServiceDifference difference = compare(services(left), services(right));
        return "-" + identities(difference, sim::Change::Removed) + " +" + identities(difference, sim::Change::Added) +
               " >" + identities(difference, sim::Change::Moved) + " #" +
               identities(difference, sim::Change::Renumbered);
    }

    static std::string identities(const sim::ServiceDifference& difference, sim::Change change) {
        std::string text;
        difference.forEach(change, [&](const sim::ServicePair& pair) {
            text += (pair.left != nullptr ? pair.left : pair.right)->identity;
        });
        EXPECT_EQ(text.size(), difference.count(change)) << sim::nameOf(change);
        return text;
    }

private:
    // In a channel database, which puts them into the order of their numbers.
    sim::Services stored(const List& list) {
        const std::filesystem::path place = m_folder / std::to_string(++m_lists);
        std::filesystem::create_directory(place);
        const auto copy = [&](sim::ChannelSink& sink) {
            for (const sim::Service& service : list) {
                sink.addService(service);
            }
        };
        sim::ServiceDb(place).create(copy, "");
        return sim::ServiceDb(place).services();
    }

    test::TempFolder m_folder;
    int m_lists = 0;
};

TEST_F(Difference, PairsServicesByTheirIdentity) {
    EXPECT_EQ(summary("abcd", "abcd"), "- + > #");
    EXPECT_EQ(summary("abcd", "bcd"), "-a + > #bcd") << "one less is not all different";
    EXPECT_EQ(summary("abcd", "abc"), "-d + > #");
    EXPECT_EQ(summary("abcd", "abcde"), "- +e > #");
    EXPECT_EQ(summary("abcd", "dabc"), "- + >d #abc") << "one has moved, not three";
    EXPECT_EQ(summary("abcd", "badc"), "- + >ac #bd");
    EXPECT_EQ(summary("abc", "cba"), "- + >ab #c") << "one that has kept its number can have moved";
    EXPECT_EQ(summary("", "ab"), "- +ab > #");
    EXPECT_EQ(summary("ab", ""), "-ab + > #");
    EXPECT_EQ(summary("ab", "cd"), "-ab +cd > #");
    EXPECT_EQ(summary("", ""), "- + > #");
}

TEST_F(Difference, NamesTheColumnsThatHaveChanged) {
    const List left = services("ab");
    List right = left;
    right[1].name = "Renamed";
    right[1].audioPids = "102=deu";
    const sim::ServiceDifference difference = compare(left, right);
    EXPECT_EQ(difference.summary(), "1 renamed, 1 changed");
    EXPECT_EQ(identities(difference, sim::Change::Renamed), "b");
    difference.forEach(sim::Change::Changed, [](const sim::ServicePair& pair) {
        EXPECT_EQ(pair.left->name, "Name");
        EXPECT_EQ(pair.right->name, "Renamed");
        ASSERT_EQ(pair.columns().size(), 2U);
        EXPECT_STREQ(pair.columns()[0]->label, "name");
        EXPECT_STREQ(pair.columns()[1]->label, "audio pids");
    });
    right = left;
    right[0].listFields = 12;
    EXPECT_TRUE(compare(left, right).isSame()) << "how a list was written is no difference";
}

TEST_F(Difference, IsNoneBetweenTwoWaysToWriteTheSame) {
    struct Case {
        std::string sim::Service::*column;
        const char* left;
        const char* right;
        bool isSame;
    };
    using S = sim::Service;
    const Case cases[] = {
        {&S::videoPid, "163", "163+163=2", true},
        {&S::videoPid, "163=27", "163", false},
        {&S::videoPid, "163+164", "163+165=2", false},
        {&S::videoPid, "0", "0=2", true},
        {&S::audioPids, "104=deu,105;106", "104=deu@4,105=@4;106=@106", true},
        {&S::audioPids, "104=deu", "104=eng@4", false},
        {&S::audioPids, "104", "104@3", false},
        {&S::audioPids, "104;105", "104,105@106", false},
        {&S::audioPids, "0;515=deu", "0;515=deu@106", true},
        {&S::audioPids, "104;105;1", "104;105;2", false},
        {&S::conditionalAccess, "98c,1", "98C,0001", true},
        {&S::conditionalAccess, "98C", "98C,1", false},
        {&S::groupName, " News", "News", true},
        {&S::name, " News", "News", false},
    };
    for (const auto& [column, left, right, isSame] : cases) {
        List one = services("a");
        List other = one;
        one[0].*column = left;
        other[0].*column = right;
        const auto isDifferent = [&](const sim::ServiceColumn& each) { return sim::differ(each, one[0], other[0]); };
        EXPECT_EQ(std::none_of(std::begin(sim::SERVICE_COLUMNS), std::end(sim::SERVICE_COLUMNS), isDifferent), isSame)
            << left << " and " << right;
    }
}

// The places of numbers 9 and 10 as texts are the other way round.
TEST_F(Difference, FollowsTheOrderOfTheNumbers) {
    List left = services("abcdefghijk");
    List right = left;
    std::swap(right[0].number, right[10].number);
    std::swap(right[0].id, right[10].id);
    EXPECT_EQ(identities(compare(left, right), sim::Change::Moved), "ak");
    std::reverse(right.begin(), right.end());  // as they were inserted
    EXPECT_EQ(identities(compare(left, right), sim::Change::Moved), "ak");
}

// A part of the services from 'a' to 'p', in any order, with gaps between their numbers and some changes.
List randomList(std::mt19937& random) {
    const auto below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    List list = services("abcdefghijklmnop");
    for (unsigned swaps = below(6); swaps > 0; --swaps) {
        std::swap(list[below(16)], list[below(16)]);
    }
    list.erase(std::remove_if(list.begin(), list.end(), [&](const auto&) { return below(6) == 0; }), list.end());
    int number = 0;
    for (sim::Service& service : list) {
        number += below(8) == 0 ? 7 : 1;
        service.number = number;
        service.id = below(8) == 0 ? service.id + 100 : service.id;
        service.name = below(8) == 0 ? "Other" : service.name;
        service.tid = below(8) == 0 ? 1 : 0;
    }
    return list;
}

// How many of the numbers, at most, can be kept so that they ascend.
std::size_t longestAscending(const std::vector<int>& numbers) {
    std::vector<std::size_t> lengths(numbers.size(), 1);
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        for (std::size_t before = 0; before < i; ++before) {
            lengths[i] = numbers[before] < numbers[i] ? std::max(lengths[i], lengths[before] + 1) : lengths[i];
        }
    }
    return lengths.empty() ? 0 : *std::max_element(lengths.begin(), lengths.end());
}

const sim::Service* find(const List& list, const std::string& identity) {
    const auto found =
        std::find_if(list.begin(), list.end(), [&](const sim::Service& each) { return each.identity == identity; });
    return found != list.end() ? &*found : nullptr;
}

// What a few lines make of two lists in memory.
struct Model {
    // `moved` has the identities of those that have changed their place.
    Model(const List& left, const List& right, const std::string& moved) {
        for (const sim::Service& service : left) {
            if (const sim::Service* partner = find(right, service.identity)) {
                pair(service, *partner, moved.find(service.identity) != std::string::npos);
            } else {
                identities[sim::Change::Removed] += service.identity;
            }
        }
        for (const sim::Service& service : right) {
            identities[sim::Change::Added] += find(left, service.identity) == nullptr ? service.identity : "";
        }
    }

    std::map<sim::Change, std::string> identities;  // but of those that have moved
    std::vector<int> paired;                        // the right numbers of all pairs, in the left order
    std::vector<int> kept;                          // of these, of those that have not moved

private:
    void pair(const sim::Service& service, const sim::Service& partner, bool hasMoved) {
        const bool isRenumbered = service.number != partner.number || service.id != partner.id;
        identities[sim::Change::Renamed] += service.name != partner.name ? service.identity : "";
        identities[sim::Change::Changed] += service.tid != partner.tid ? service.identity : "";
        identities[sim::Change::Renumbered] += isRenumbered && !hasMoved ? service.identity : "";
        paired.push_back(partner.number);
        if (!hasMoved) {
            kept.push_back(partner.number);
        }
    }
};

TEST_F(Difference, IsThatOfListsInMemory) {
    std::mt19937 random(1);
    for (int round = 0; round < 200; ++round) {
        SCOPED_TRACE(round);
        const List left = randomList(random);
        const List right = randomList(random);
        const sim::ServiceDifference difference = compare(left, right);
        Model model(left, right, identities(difference, sim::Change::Moved));
        for (const sim::Change change : {sim::Change::Removed, sim::Change::Added, sim::Change::Renamed,
                                         sim::Change::Changed, sim::Change::Renumbered}) {
            ASSERT_EQ(identities(difference, change), model.identities[change]) << sim::nameOf(change);
        }
        ASSERT_TRUE(std::is_sorted(model.kept.begin(), model.kept.end()));
        ASSERT_EQ(model.kept.size(), longestAscending(model.paired));
        ASSERT_EQ(difference.leftCount(), left.size());
        ASSERT_EQ(difference.rightCount(), right.size());
    }
}

}  // namespace
