// What the simulator promises by itself.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>

#include <chrono>
#include <cstdlib>
#include <sstream>
#include <tuple>

#include "platform/json_util.h"
#include "platform/settings_store.h"
#include "simulator/base/Archive.h"
#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/base/Json.h"
#include "simulator/cloud/CloudStore.h"
#include "simulator/device/EventLoop.h"
#include "simulator/lineup/ChannelList.h"
#include "tests/support/TestTv.h"

namespace fs = std::filesystem;

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
        {"eleven:410:M64:C:6900:1:2:3:0:1:1", "11 fields where a service has 13"},
        {good + ":x", "14 fields where a service has 13"},
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
    EXPECT_THAT([&] { parse("nothing\n"); }, ThrowsMessage<sim::Error>(HasSubstr("not one service")));
    EXPECT_THAT(
        [&] {
            sim::ChannelList list;
            sim::readChannelList(folder / "missing", list);
        },
        ThrowsMessage<sim::Error>(HasSubstr("No such file or directory")));
}

TEST(EventLoop, JumpsFromOneDueTimeToTheNext) {
    using std::chrono_literals::operator""ms;
    sim::EventLoop loop;
    std::vector<std::pair<int, sim::EventLoop::Milliseconds>> order;
    const auto note = [&](int what) { order.emplace_back(what, loop.now()); };
    loop.post(500ms, [&] { note(3); });
    loop.post(100ms, [&] {
        note(1);
        loop.post(50ms, [&] { note(2); });
    });
    loop.post(500ms, [&] { note(4); });
    loop.post(86'400'000ms, [&] { loop.quit(); });
    loop.post(86'400'001ms, [&] { note(5); });
    EXPECT_TRUE(loop.run());
    EXPECT_THAT(order, ElementsAre(std::pair(1, 100ms), std::pair(2, 150ms), std::pair(3, 500ms), std::pair(4, 500ms)));
    EXPECT_FALSE(sim::EventLoop().run()) << "nothing to wait for";
}

TEST(EventLoop, WaitsInThePersonsTimeWhereItIsAskedTo) {
    using std::chrono_literals::operator""ms;
    sim::EventLoop loop;
    loop.setRealtime(true);
    loop.post(2ms, [&] { loop.quit(); });
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(loop.run());
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 2ms);
}

TEST(Places, ComeFromTheEnvironment) {
    const std::vector<std::tuple<const char*, const char*, const char*, std::string>> environments = {
        {"/given/tv/", "/state", "/user", "/given/tv"},
        {"", "/state", "/user", "/state/halcyon-tv"},
        {"", "relative", "/user", "/user/.local/state/halcyon-tv"},
        {"", "", "/user", "/user/.local/state/halcyon-tv"},
    };
    const std::string user = sim::environment("HOME");
    for (const auto& [home, state, userHome, expected] : environments) {
        ::setenv("HALCYON_TV_HOME", home, 1);
        ::setenv("XDG_STATE_HOME", state, 1);
        ::setenv("HOME", userHome, 1);
        EXPECT_EQ(sim::defaultHome(), expected);
    }
    ::setenv("HOME", "", 1);
    EXPECT_THAT([] { sim::defaultHome(); }, ThrowsMessage<sim::Error>(HasSubstr("set HALCYON_TV_HOME or HOME")));
    ::setenv("HOME", user.c_str(), 1);
    ::unsetenv("XDG_STATE_HOME");
    ::unsetenv("HALCYON_TV_HOME");
    ::unsetenv("HALCYON_CLOUD");
    EXPECT_EQ(sim::defaultCloud("/some/tv"), "/some/cloud");
}

class Platform : public test::InProcess {};

TEST_F(Platform, TellsJsonFromOtherTexts) {
    for (const std::string text : {"{}", "[1]", "7", "\"x\"", "null", " {\"a\" : [true, 1e3] }\n"}) {
        Json::Value value;
        EXPECT_TRUE(JsonUtil::StringToJson(text, value)) << text;
    }
    const std::string deep = std::string(1200, '[') + std::string(1200, ']');
    for (const std::string& text :
         {std::string(), std::string(" "), std::string("{} x"), std::string("{"), std::string("[1,]"),
          std::string("[-01]"), std::string("[2.]"), std::string("['a']"), std::string("[\"a\nb\"]"),
          std::string("[1]//x"), std::string("1\0", 2), deep}) {
        Json::Value value(1);
        EXPECT_FALSE(JsonUtil::StringToJson(text, value)) << text.substr(0, 20);
        EXPECT_TRUE(value.isNull()) << text.substr(0, 20);
        std::istringstream stream(text);
        EXPECT_FALSE(JsonUtil::StreamToJson(stream, value)) << text.substr(0, 20);
    }
    Json::Value value;
    ASSERT_TRUE(JsonUtil::StringToJson(R"({"a":["ü",-1,18446744073709551615]})", value));
    EXPECT_EQ(JsonUtil::JsonToString(value), R"({"a":["ü",-1,18446744073709551615]})");
}

TEST_F(Platform, KeepsSettingsByType) {
    int number = 7;
    double real = 7;
    EXPECT_NE(vconf_get_int("k", &number), 0);
    EXPECT_EQ(number, 7) << "left as it was";
    EXPECT_EQ(vconf_set_int("k", -3), 0);
    EXPECT_EQ(vconf_get_int("k", &number), 0);
    EXPECT_EQ(number, -3);
    EXPECT_NE(vconf_set_str("k", "text"), 0) << "another type";
    EXPECT_NE(vconf_get_bool("k", &number), 0);
    EXPECT_EQ(vconf_get_str("k"), nullptr);
    EXPECT_EQ(vconf_set_bool("b", 5), 0);
    EXPECT_EQ(vconf_get_bool("b", &number), 0);
    EXPECT_EQ(number, 1);
    EXPECT_EQ(vconf_set_dbl("d", 0.1), 0);
    EXPECT_EQ(vconf_get_dbl("d", &real), 0);
    EXPECT_EQ(real, 0.1);
}

class Services : public test::TwoTvs {};

// No name in an archive decides where something is written.
TEST_F(Services, AreTakenFromTheirOwnEntryOnly) {
    const fs::path planted = folder / "plain/ipsrv";
    test::write(planted, "another set's");
    a.open().serviceDb().snapshot(folder / "a.zip");
    ASSERT_TRUE(sim::extractEntry(folder / "a.zip", "services.db", folder / "services.db"));
    sim::writeArchive(folder / "more.zip", {folder / "services.db", planted});
    const std::string own = b.open().serviceDb().ipServices();
    EXPECT_EQ(b.open().serviceDb().replace(folder / "more.zip"), std::nullopt);
    EXPECT_EQ(b.open().serviceDb().ipServices(), own);
    EXPECT_EQ(test::tree(b.home / "service-db"), (std::vector<std::string>{"ipsrv", "services.db"}));
}

TEST_F(Services, OfTheCiModuleAreTakenOverAllOrNone) {
    const sim::CiFiles module = b.open().ciFiles();
    const sim::CiFiles::Contents before = module.contents();
    test::write(folder / "ci_profile.bin", "new");
    fs::create_directories(folder / "folder");
    EXPECT_FALSE(module.takeOver({folder / "ci_profile.bin", folder / "folder"}));
    EXPECT_FALSE(module.takeOver({folder / "ci_profile.bin", folder / "missing"}));
    EXPECT_EQ(module.contents(), before);
    EXPECT_TRUE(module.takeOver({folder / "ci_profile.bin"}));
    EXPECT_EQ(module.contents().at("ci_profile.bin"), "new");
    EXPECT_EQ(module.contents().at("ci_operator.xml"), before.at("ci_operator.xml"));
}

// A TV whose own files are gone fails its calls; it does not take the application with it.
TEST_F(Services, ThatAreGoneFailTheCalls) {
    fs::remove(b.home / "service-db/services.db");
    fs::remove_all(b.home / "ci");
    const test::Outcome run = b.backUp();
    EXPECT_EQ(run.ended, sim::RunEnd::Exit);
    EXPECT_TRUE(run.says("6 IUtil::GetServiceDb({data}{name}/ServiceDB.zip) fail"));
    a.backUp();
    fs::remove(storedBackup() / "metadata.json");
    EXPECT_EQ(a.restore().response, sim::Response::Error) << "a backup that the cloud cannot read";
    test::write(storedBackup("000002") / "info.json", R"({"time":"","name":"../../../iss.db"})");
    test::write(storedBackup("000002") / "metadata.json", "{}");
    test::write(storedBackup("000002") / "bundle.zip", "");
    EXPECT_EQ(a.restore().response, sim::Response::RestoreData);
    EXPECT_THAT(a.setup().of(sim::Item::Iss), SizeIs(3)) << "a name in the store does not lead out of the folder";
    EXPECT_THAT(sim::listBackups(*sim::openCloud(a.cloud)).at(0).damage,
                HasSubstr("000001/metadata.json: cannot read"));
}

TEST_F(Services, MakeAFaultRuleOnlyOfWhatCanHappen) {
    EXPECT_THAT([&] { a.fault("no_such_call", "throw"); }, ThrowsMessage<sim::Error>(HasSubstr("no call")));
    EXPECT_THAT([&] { a.fault("bnr_init", "damage=empty"); }, ThrowsMessage<sim::Error>(HasSubstr("cannot fail with")));
    EXPECT_THAT([&] { a.fault("bnr_init", "result=x"); }, ThrowsMessage<sim::Error>(HasSubstr("not a number")));
    EXPECT_THAT([&] { a.fault("bnr_init", "sulk"); }, ThrowsMessage<sim::Error>(HasSubstr("no failure")));
    EXPECT_THAT([&] { a.fault("bnr_response", "delay=-1"); }, ThrowsMessage<sim::Error>(HasSubstr("before its time")));
    EXPECT_THAT([&] { a.fault("bnr_init", "result=1", 0); }, ThrowsMessage<sim::Error>(HasSubstr("from 1")));
    EXPECT_EQ(a.faultsFired(), 0);
}

TEST_F(Services, FailForEverWhereARuleSaysSo) {
    sim::Tv(a.home).faults().add({0, "vconf_get_str", "throw", 1, 0, 0});
    for (int run = 1; run <= 2; ++run) {
        EXPECT_EQ(a.backUp().ended, sim::RunEnd::Crashed);
        EXPECT_EQ(a.faultsFired(), run);
    }
}

}  // namespace
