// A channel list that its owner has made his own: favourite lists, locked, hidden, renamed and moved channels.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

}  // namespace
