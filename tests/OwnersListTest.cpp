// A channel list that its owner has made his own: favourite lists, locked, hidden, renamed and moved channels.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "simulator/base/Error.h"
#include "simulator/lineup/ChannelList.h"
#include "simulator/lineup/Difference.h"
#include "simulator/lineup/Words.h"
#include "simulator/tv/Settable.h"
#include "tests/support/TestTv.h"

namespace {

constexpr char LIST[] =
    ":Local\n"
    "One:11000:HC23M5S1:S19.2E:22000:1:2:0:0:101:1:10:0\n"
    "Two:11000:HC23M5S1:S19.2E:22000:1:2:0:0:102:1:10:0\n"
    "Three:11000:HC23M5S1:S19.2E:22000:1:2:0:0:103:1:10:0\n"
    ":@20 World\n"
    "Four:11000:HC23M5S1:S19.2E:22000:1:2:0:0:104:1:10:0\n"
    "Two:11000:HC23M5S1:S19.2E:22000:1:2:0:0:105:1:10:0\n";

// "1 One, 2 Two (locked)": numbers, names and what the owner has set.
std::string textOf(const sim::Services& services) {
    std::string text;
    services.forEach([&](const sim::Service& service) {
        const std::string choices = sim::choiceWords(service);
        text += fmt::format("{}{} {}{}", text.empty() ? "" : ", ", service.number, service.name,
                            choices.empty() ? "" : " (" + choices + ")");
    });
    return text;
}

class OwnersList : public ::testing::Test {
protected:
    // Sets what the text says, as "lock 2 on"; returns the error, or what the list has become.
    std::string set(const std::string& text) const {
        const std::size_t blank = text.find(' ');
        sim::Tv opened = tv.open();
        try {
            sim::setByName(opened, text.substr(0, blank), text.substr(blank + 1));
        } catch (const sim::Error& error) {
            return error.what();
        }
        return textOf(opened.services());
    }

    test::TempFolder folder;
    test::TestTv tv{folder.path(), "a", LIST};
};

TEST_F(OwnersList, IsSetStepByStep) {
    const std::pair<const char*, const char*> steps[] = {
        {"favourite 2 add 20 1 Three",
         "1 One (favourite 2:2), 2 Two, 3 Three (favourite 2:3), 20 Four (favourite 2:1), 21 Two"},
        {"favourite 2 add 1 2",
         "1 One (favourite 2:2), 2 Two (favourite 2:4), 3 Three (favourite 2:3), 20 Four (favourite 2:1), 21 Two"},
        {"favourite 2 remove 20 Three", "1 One (favourite 2:1), 2 Two (favourite 2:2), 3 Three, 20 Four, 21 Two"},
        {"favourite 5 add 2", "1 One (favourite 2:1), 2 Two (favourite 2:2 5:1), 3 Three, 20 Four, 21 Two"},
        {"favourite 2 clear", "1 One, 2 Two (favourite 5:1), 3 Three, 20 Four, 21 Two"},
        {"lock 2 ON", "1 One, 2 Two (favourite 5:1, locked), 3 Three, 20 Four, 21 Two"},
        {"hide Three on", "1 One, 2 Two (favourite 5:1, locked), 3 Three (hidden), 20 Four, 21 Two"},
        {"lock 2 off", "1 One, 2 Two (favourite 5:1), 3 Three (hidden), 20 Four, 21 Two"},
        {"rename 1 Das Erste",
         "1 Das Erste (renamed from 'One'), 2 Two (favourite 5:1), 3 Three (hidden), 20 Four, 21 Two"},
        {"rename 1 ARD", "1 ARD (renamed from 'One'), 2 Two (favourite 5:1), 3 Three (hidden), 20 Four, 21 Two"},
        {"rename 1", "1 One, 2 Two (favourite 5:1), 3 Three (hidden), 20 Four, 21 Two"},
        {"move 20 2", "1 One, 2 Four, 3 Two (favourite 5:1), 4 Three (hidden), 21 Two"},
        {"move 1 4", "1 Four, 2 Two (favourite 5:1), 3 Three (hidden), 4 One, 21 Two"},
        {"move One 30", "1 Four, 2 Two (favourite 5:1), 3 Three (hidden), 20 Two, 30 One"},
    };
    for (const auto& [text, expected] : steps) {
        EXPECT_EQ(set(text), expected) << text;
    }
    const std::string last = textOf(tv.open().services());
    const std::pair<const char*, const char*> refusals[] = {
        {"favourite 6 clear", "the favourite lists are 1 to 5, not '6'"},
        {"favourite 2 ad 1", "'2 ad 1' is not of the form LIST add CHANNEL..., LIST remove CHANNEL... or LIST clear"},
        {"favourite 5 add 1 99", "the TV has no channel '99'; see: halcyon-tv status --services"},
        {"favourite 5 remove 2 1", "favourite list 5 does not have 1 'Four'"},
        {"lock Thre on", "the TV has no channel 'Thre' (did you mean 'Three'?); see: halcyon-tv status --services"},
        {"hide Two on", "2 channels are called 'Two'; give the number of one: 2, 20"},
        {"lock 2 maybe", "'2 maybe' is not of the form CHANNEL on, or CHANNEL off"},
        {"move 2 0", "'2 0' is not of the form CHANNEL NUMBER, with a number from 1 to 999999"},
    };
    for (const auto& [text, expected] : refusals) {
        EXPECT_EQ(set(text), expected) << text;
    }
    EXPECT_EQ(textOf(tv.open().services()), last) << "what is refused changes nothing";
}

// What another program keeps would have its own numbers again after the next run.
TEST_F(OwnersList, IsNumberedByWhoKeepsIt) {
    const std::string made = folder / "kept";
    test::write(folder / "list.conf", LIST);
    sim::Tv::create(made, [&](sim::ChannelSink& sink) { sim::readChannelList(folder / "list.conf", sink); }, "kept", {},
                    "default", false, {"vdr", {}});
    sim::Tv kept(made);
    EXPECT_THAT([&] { sim::setByName(kept, "move", "2 1"); },
                ::testing::ThrowsMessage<sim::Error>(::testing::HasSubstr("are those of vdr; move them with that")));
    EXPECT_THROW(kept.rescan([](sim::ChannelSink&) { ADD_FAILURE() << "the list is read"; }), sim::Error);
    sim::setByName(kept, "lock", "2 on");
    EXPECT_TRUE(kept.services().find(2)->locked);
}

TEST_F(OwnersList, BeginsWithTheGroupsAsFavourites) {
    const std::filesystem::path home = folder / "groups";
    const auto read = [&](sim::ChannelSink& sink) { sim::readChannelList(folder / "a.conf", sink); };
    sim::Tv::create(home, read, "serial", {}, "default", true);
    const sim::Tv made(home);
    EXPECT_EQ(textOf(made.services()),
              "1 One (favourite 1:1), 2 Two (favourite 1:2), 3 Three (favourite 1:3), 20 Four (favourite 2:1), "
              "21 Two (favourite 2:2)");
    EXPECT_EQ(made.settings().favouriteName(2), "World");
    EXPECT_EQ(made.settings().favouriteName(3), "Favourites 3") << "there is no third group";
}

// What the run reported does not matter: it is read back.
TEST_F(OwnersList, IsComparedByWhatItsOwnerSet) {
    for (const char* text : {"favourite 2 add 1 2 3 20 21", "lock 3 on", "rename 20 ARTE"}) {
        set(text);
    }
    const std::string full = textOf(tv.open().services());
    tv.backUp();
    EXPECT_EQ(tv.verdict().outcome, sim::Outcome::Done);
    const std::pair<std::vector<const char*>, const char*> changes[] = {
        {{"favourite 2 remove 1"}, "1 customised: favourite list 2: 'One' is gone"},
        {{"favourite 2 remove 1", "favourite 2 add 1"},
         "1 customised: favourite list 2: 'One' is moved from place 1 to 5"},
        {{"favourite 4 add 2", "lock 3 off", "hide 2 on"},
         "2 customised: favourite list 4: 'Two' is new; 'Two' is hidden; 'Three' is no longer locked"},
        {{"rename 20", "rename 1 ARD"},
         "2 renamed: 'One' is renamed to 'ARD' by its owner; 'ARTE' is renamed to 'Four'"},
        {{"favourite 2 clear"},
         "5 customised: favourite list 2: 'One' is gone; favourite list 2: 'Two' is gone; favourite list 2: 'Three' "
         "is gone; and 2 more"},
    };
    for (const auto& [texts, expected] : changes) {
        for (const char* text : texts) {
            set(text);
        }
        EXPECT_EQ(tv.verdict().items.front().detail, expected);
        const std::string why = tv.verdict().why;
        EXPECT_THAT(why, ::testing::HasSubstr(fmt::format("channels differs ({})", expected)));
        tv.restore();
        EXPECT_EQ(textOf(tv.open().services()), full);
        EXPECT_EQ(tv.verdict().outcome, sim::Outcome::Done);
    }
}

// How a service of a backup is received after the change.
enum class Received { AsBefore, Elsewhere, Not, New };

// What a broadcaster does to a service: its line on the air before and after it, and what the owner has of it.
struct Change {
    const char* kind;
    const char* before;  // empty: it is not there
    const char* after;
    const char* ownersBefore;
    const char* ownersAfter;
    Received received;
};

constexpr Change CHANGES[] = {
    {"renamed", "Renames:11000:H:S19.2E:22000:1:2:0:0:101:1:10:0", "Renames HD:11000:H:S19.2E:22000:1:2:0:0:101:1:10:0",
     "1 Renames (favourite 1:1)", "1 Renames HD (favourite 1:1)", Received::AsBefore},
    {"gone", "Goes:11000:H:S19.2E:22000:1:2:0:0:102:1:10:0", "", "2 Goes (favourite 1:2)", "", Received::Not},
    {"another frequency", "Retunes:11000:H:S19.2E:22000:1:2:0:0:103:1:10:0",
     "Retunes:11500:H:S19.2E:22000:1:2:0:0:103:1:10:0", "3 Retunes (favourite 1:3, locked)",
     "3 Retunes (favourite 1:2, locked)", Received::Elsewhere},
    {"another transport stream", "Moves:11000:H:S19.2E:22000:1:2:0:0:104:1:10:0",
     "Moves:11000:H:S19.2E:22000:1:2:0:0:104:1:11:0", "4 Moves (favourite 1:4, hidden)",
     "4 Moves (favourite 1:3, hidden)", Received::Elsewhere},
    {"other data", "Changes:11000:H:S19.2E:22000:1:2:0:0:105:1:10:0",
     "Changes;P:11000:H:S19.2E:22000:1:3:0:0:105:1:10:0", "5 Changes (favourite 1:5)", "5 Changes (favourite 1:4)",
     Received::AsBefore},
    {"another order", "Stays:11000:H:S19.2E:22000:1:2:0:0:106:1:10:0", "Stays:11000:H:S19.2E:22000:1:2:0:0:106:1:10:0",
     "6 Stays (favourite 1:6)", "6 Stays (favourite 1:5)", Received::AsBefore},
    {"renamed, and by its owner", "Owned:11000:H:S19.2E:22000:1:2:0:0:107:1:10:0",
     "Owned HD:11000:H:S19.2E:22000:1:2:0:0:107:1:10:0", "7 Mine (favourite 1:7, renamed from 'Owned')",
     "7 Mine (favourite 1:6, renamed from 'Owned HD')", Received::AsBefore},
    {"another transport stream, and renamed by its owner", "Both:11000:H:S19.2E:22000:1:2:0:0:108:1:10:0",
     "Both:11000:H:S19.2E:22000:1:2:0:0:108:1:11:0", "8 Mine too (favourite 1:8, renamed from 'Both')",
     "8 Mine too (favourite 1:7, renamed from 'Both')", Received::Elsewhere},
    {"one of two of a name, and nobody knows which", "Twin:11000:H:S19.2E:22000:1:2:0:0:109:1:10:0", "",
     "9 Twin (favourite 1:9)", "", Received::Not},
    {"the other of them", "Twin:11000:H:S19.2E:22000:1:2:0:0:109:1:11:0", "", "10 Twin (favourite 1:10)", "",
     Received::Not},
    {"it comes back elsewhere", "", "Twin:11000:H:S19.2E:22000:1:2:0:0:109:1:12:0", "", "11 Twin", Received::New},
    {"new", "", "New:11000:H:S19.2E:22000:1:2:0:0:110:1:10:0", "", "12 New", Received::New},
};

// A member of all changes, but for empty ones.
std::string joined(const char* Change::*member, const char* separator) {
    std::string text;
    for (const Change& change : CHANGES) {
        const std::string part = change.*member;
        text += (text.empty() || part.empty() ? "" : separator) + part;
    }
    return text;
}

std::size_t count(Received received) {
    return static_cast<std::size_t>(std::count_if(std::begin(CHANGES), std::end(CHANGES),
                                                  [&](const Change& change) { return change.received == received; }));
}

// A TV of each order; 'b' backs up, 'c' changes what is on the air and scans, 'r' restores.
class Rescan : public ::testing::TestWithParam<const char*> {
protected:
    Rescan() {
        sim::Tv made = tv.open();
        const std::pair<const char*, std::string> settings[] = {{"favourite", "1 add 1 2 3 4 5 6 7 8 9 10"},
                                                                {"lock", "3 on"},
                                                                {"hide", "4 on"},
                                                                {"rename", "7 Mine"},
                                                                {"rename", "8 Mine too"},
                                                                {"service", "2"}};
        for (const auto& [name, text] : settings) {
            sim::setByName(made, name, text);
        }
    }

    sim::ScanResult rescan() {
        // "Stays" comes first on the air.
        const std::string air = joined(&Change::after, "\n");
        const std::size_t stays = air.find("Stays");
        const std::string list = air.substr(stays, air.find('\n', stays) + 1 - stays) + air;
        test::write(folder / "air.conf", list);
        return tv.open().rescan([&](sim::ChannelSink& sink) { sim::readChannelList(folder / "air.conf", sink); });
    }

    test::TempFolder folder;
    test::TestTv tv{folder.path(), "a", joined(&Change::before, "\n") + "\n"};
};

TEST_P(Rescan, KeepsWhatIsTheOwners) {
    const std::string order = GetParam();
    ASSERT_EQ(textOf(tv.open().services()), joined(&Change::ownersBefore, ", "));
    std::optional<sim::Reception> reception;
    for (const char step : order) {
        if (step == 'b') {
            EXPECT_TRUE(tv.backUp().succeeded());
        } else if (step == 'c') {
            EXPECT_THROW(tv.open().rescan([](sim::ChannelSink&) { throw sim::Error("no list"); }), sim::Error);
            EXPECT_FALSE(tv.open().onAir()) << "a scan that failed has found nothing";
            const sim::ScanResult result = rescan();
            EXPECT_EQ(sim::words(result),
                      "3 gone, 2 new, 2 renamed by their broadcasters (1 keeping the owner's name), 2 moved to another "
                      "transport stream, 1 moved to another frequency, 1 changed otherwise");
            EXPECT_EQ(textOf(tv.open().services()), joined(&Change::ownersAfter, ", "));
            EXPECT_EQ(tv.open().services().find(4)->name, "Moves") << "ids stay";
            EXPECT_EQ(tv.open().viewing().serviceId, 1) << "what was on is gone";
            EXPECT_EQ(sim::words(rescan()), "nothing has changed");
        } else {
            EXPECT_TRUE(tv.restore().succeeded());
            EXPECT_EQ(tv.verdict().outcome, sim::Outcome::Done);
            reception = tv.verdict().reception;
        }
    }
    const bool isOldBack = order == "bcr";
    EXPECT_EQ(textOf(tv.open().services()), joined(isOldBack ? &Change::ownersBefore : &Change::ownersAfter, ", "));
    ASSERT_EQ(reception.has_value(), order != "brc") << "a TV that has never scanned knows nothing of the air";
    if (reception) {
        const std::uint64_t all = tv.open().services().counts().services;
        EXPECT_EQ(reception->onAir, isOldBack ? count(Received::AsBefore) : all);
        EXPECT_EQ(reception->moved, isOldBack ? count(Received::Elsewhere) : 0);
        EXPECT_EQ(reception->gone, isOldBack ? count(Received::Not) : 0);
        EXPECT_EQ(reception->missing, isOldBack ? count(Received::New) : 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Orders, Rescan, ::testing::Values("bcr", "cbr", "brc"),
                         [](const auto& each) { return std::string(each.param); });

}  // namespace
