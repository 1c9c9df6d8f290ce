// The simulated device alone: main loop, platform calls, faults.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>

#include <chrono>
#include <optional>
#include <sstream>
#include <tuple>
#include <utility>

#include "platform/json_util.h"
#include "platform/settings_store.h"
#include "simulator/base/Clock.h"
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
    loop.post(500ms, [&] { loop.post(-1ms, [&] { note(6); }); });
    loop.post(86'400'000ms, [&] { loop.quit(); });
    loop.post(86'400'001ms, [&] { note(5); });
    EXPECT_TRUE(loop.run());
    EXPECT_THAT(order, ElementsAre(std::pair(1, 100ms), std::pair(2, 150ms), std::pair(3, 500ms), std::pair(4, 500ms),
                                   std::pair(6, 500ms)));
    EXPECT_FALSE(sim::EventLoop().run()) << "nothing to wait for";
}

TEST(EventLoop, WaitsUntilEachEventIsDueIfItIsAskedTo) {
    using std::chrono_literals::operator""ms;
    sim::EventLoop loop;
    std::vector<sim::EventLoop::Milliseconds> waits;
    loop.setWait([&](sim::EventLoop::Milliseconds duration) { waits.push_back(duration); });
    loop.post(2ms, [] {});
    loop.post(5ms, [&] { loop.quit(); });
    EXPECT_TRUE(loop.run());
    EXPECT_THAT(waits, ElementsAre(2ms, 3ms));
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

TEST(Clock, ReadsTimesDatesAndDurations) {
    using std::chrono::milliseconds;
    const milliseconds now(1'000'000);
    const std::pair<const char*, std::optional<std::int64_t>> times[] = {
        {"1970-01-01T00:00:01Z", 1000},
        {"1970-01-02", 86'400'000},
        {"+1500ms", 1'001'500},
        {"-10s", 990'000},
        {"+2min", 1'120'000},
        {"+1w", 605'800'000},
        {"2026-02-30", std::nullopt},  // no calendar has it
        {"2026-1-2", std::nullopt},
        {"1970-01-01T00:00:01", std::nullopt},
        {"+1", std::nullopt},
        {"+s", std::nullopt},
        {"+-1s", std::nullopt},
        {"+999999999999w", std::nullopt},  // longer than a thousand years
        {"", std::nullopt},
    };
    for (const auto& [text, expected] : times) {
        const std::optional<milliseconds> time = sim::fromUtc(text, now);
        EXPECT_EQ(time ? std::optional(time->count()) : std::nullopt, expected) << text;
    }
    EXPECT_EQ(sim::toUtc(milliseconds(-1)), "1969-12-31T23:59:59Z");
}

TEST(FaultRule, TakesTheLastFailureFromThenOn) {
    sim::FaultRule rule = sim::makeRule("GetServiceDb", "result=0 works");
    EXPECT_EQ(rule.call, "IUtil::GetServiceDb");
    EXPECT_EQ(rule.times, 2);
    rule.run = 5;
    rule.nth = 2;
    EXPECT_FALSE(rule.firesAt(4, 2));
    EXPECT_FALSE(rule.firesAt(5, 1));
    EXPECT_TRUE(rule.firesAt(5, 3));
    rule.fired = 2;
    EXPECT_FALSE(rule.firesAt(5, 3));
    rule.times = 0;
    EXPECT_TRUE(rule.firesAt(5, 3));
    EXPECT_EQ(sim::makeRule("bnr_response", "delay=5s").failures.front().number, 5000);
}

TEST(FaultRule, IsMadeOnlyOfACallAndAFailureThatItCanHave) {
    const std::tuple<const char*, const char*, const char*> refused[] = {
        {"no_such_call", "throw", "no call 'no_such_call' can fail"},
        {"bnr_int", "throw", "did you mean 'bnr_init'"},
        {"ui_app_exit", "throw", "no call 'ui_app_exit' can fail"},
        {"bnr_init", "damage=empty", "bnr_init cannot fail with 'damage=empty'"},
        {"bnr_init", "result=x", "'x' is not a number"},
        {"bnr_init", "result", "no failure 'result'"},
        {"bnr_init", "sulk", "no failure 'sulk'"},
        {"bnr_response", "delay=-1", "a delay cannot be negative"},
    };
    for (const auto& [call, failure, message] : refused) {
        const auto make = [c = call, f = failure] { sim::makeRule(c, f); };
        EXPECT_THAT(make, ThrowsMessage<sim::Error>(HasSubstr(message)));
    }
    for (const sim::PlatformCall* call : sim::platformCalls()) {
        for (const std::string& failure : call->failureList()) {
            EXPECT_EQ(sim::toText(sim::makeRule(std::string(call->name), failure).failures), failure) << call->name;
        }
    }
}

class Faults : public test::TwoTvs {};

TEST_F(Faults, CountCallsFromOne) {
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
