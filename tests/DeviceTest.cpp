// What the simulated device promises by itself: its loop, its platform, its faults.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>

#include <chrono>
#include <sstream>

#include "platform/json_util.h"
#include "platform/settings_store.h"
#include "simulator/base/Error.h"
#include "simulator/device/EventLoop.h"
#include "tests/support/TestTv.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

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

class Platform : public test::InProcess {};

TEST_F(Platform, TellsJsonFromOtherTexts) {
    for (const std::string text : {"{}", "[1]", "7", "\"x\"", "null", " {\"a\" : [true, 1e3] }\n"}) {
        Json::Value value;
        EXPECT_TRUE(JsonUtil::StringToJson(text, value)) << text;
    }
    const std::string deep = std::string(1200, '[') + std::string(1200, ']');
    for (const std::string& text : test::Strings{"", " ", "{} x", "{", "[1,]", "[-01]", "[2.]", "['a']", "[\"a\nb\"]",
                                                 "[1]//x", std::string("1\0", 2), deep}) {
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

class Faults : public test::TwoTvs {};

TEST_F(Faults, AreOnlyOfWhatCanHappen) {
    EXPECT_THAT([&] { a.fault("no_such_call", "throw"); }, ThrowsMessage<sim::Error>(HasSubstr("no call")));
    EXPECT_THAT([&] { a.fault("bnr_init", "damage=empty"); }, ThrowsMessage<sim::Error>(HasSubstr("cannot fail with")));
    EXPECT_THAT([&] { a.fault("bnr_init", "result=x"); }, ThrowsMessage<sim::Error>(HasSubstr("not a number")));
    EXPECT_THAT([&] { a.fault("bnr_init", "sulk"); }, ThrowsMessage<sim::Error>(HasSubstr("no failure")));
    EXPECT_THAT([&] { a.fault("bnr_response", "delay=-1"); }, ThrowsMessage<sim::Error>(HasSubstr("before its time")));
    EXPECT_THAT([&] { a.fault("bnr_init", "result=1", 0); }, ThrowsMessage<sim::Error>(HasSubstr("from 1")));
    EXPECT_EQ(a.faultsFired(), 0);
}

TEST_F(Faults, FireForEverIfTheRuleSaysSo) {
    a.fault("vconf_get_str", "throw", 1, 0);
    for (int run = 1; run <= 2; ++run) {
        EXPECT_EQ(a.backUp().ended, sim::RunEnd::Crashed);
        EXPECT_EQ(a.faultsFired(), run);
    }
}

}  // namespace
