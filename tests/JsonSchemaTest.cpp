#include "src/JsonSchema.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>

#include "simulator/base/Json.h"
#include "tests/support/TestTv.h"

namespace {

using Lines = std::vector<std::string>;
using test::messages;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

constexpr char ALL_ONES[] = "18446744073709551615";

// A record as its text says: antenna, tvmode, source, service_id, category.
std::string summary(CJsonSchema& schema) {
    Json::Value root;
    EXPECT_TRUE(sim::parseJson(schema.StringJson(), root));
    EXPECT_EQ(root["version"], "0.3");
    const Json::Value& setting = root["setting"];
    return fmt::format("{} {}/{} {} {} {}/{}/{}", setting["antenna"].asInt(), setting["tvmode"]["antenna_mode"].asInt(),
                       setting["tvmode"]["service_mode"].asInt(), setting["source"].asInt(),
                       setting["service_id"].asCString(), setting["category"]["mode"].asInt(),
                       setting["category"]["param"].asCString(), setting["category"]["sort"].asInt());
}

const std::string UNKNOWN = std::string("-1 -1/-1 -1 ") + ALL_ONES + " -1/0/-1";

class JsonSchema : public test::InProcess {
protected:
    // A fault of this process, from its next run on.
    void fault(const std::string& call, const std::string& failure) {
        tv.fault(call, failure);
        reconnect();
    }
    void setAntenna(const std::set<int>& statuses) { tv.open().setAntenna(statuses); }
};

TEST_F(JsonSchema, CapturesTheTv) {
    tv.open().changeViewing([](sim::Viewing& viewing) {
        viewing.mode.service = sim::ServiceMode::Television;
        viewing.source = sim::Source::Input3;
        viewing.category = {sim::CategoryKind::FavouriteList, 5, sim::SortMode::Provider};
    });
    CJsonSchema schema;
    EXPECT_EQ(summary(schema), "1 2/1 3 1 1/5/2");
    EXPECT_THAT(messages(), ElementsAre("4 FUNC BEGIN", "5 [OUT]antennaStatus=[1]", "4 FUNC BEGIN",
                                        ::testing::StartsWith("5 {\"setting\":{\"antenna\":1,")));
}

struct Failing {
    const char* call;
    const char* failure;
    const char* summary;
    const char* message;  // empty: none is logged
};

class CaptureFailure : public JsonSchema, public ::testing::WithParamInterface<Failing> {};

TEST_P(CaptureFailure, LeavesTheRestKnown) {
    SCOPED_TRACE(std::string(GetParam().call) + " " + GetParam().failure);
    fault(GetParam().call, GetParam().failure);
    CJsonSchema schema;
    EXPECT_EQ(summary(schema), GetParam().summary);
    Lines failures = messages();
    failures.erase(std::remove_if(failures.begin(), failures.end(), [](const auto& line) { return line[0] != '6'; }),
                   failures.end());
    EXPECT_EQ(failures, *GetParam().message != '\0' ? Lines{GetParam().message} : Lines());
}

constexpr char NO_ANTENNA[] = "-1 2/0 0 1 0/0/0";
constexpr char NO_ANTENNA_MESSAGE[] = "6 pTunerControl==nullptr or ITunerControl::GetAntennaConnectionStatus error";
constexpr char NO_NAVIGATION[] = "1 -1/-1 0 18446744073709551615 -1/0/-1";
constexpr char NO_SERVICE[] = "1 2/0 0 18446744073709551615 0/0/0";
constexpr char NO_CATEGORY[] = "1 2/0 0 1 -1/0/-1";
constexpr char NO_SOURCE[] = "1 2/0 -1 1 0/0/0";

INSTANTIATE_TEST_SUITE_P(
    JsonSchema, CaptureFailure,
    ::testing::Values(
        Failing{"TVServiceAPI::CreateTunerControl", "result=-1", NO_ANTENNA, NO_ANTENNA_MESSAGE},
        Failing{"ITunerControl::GetAntennaConnectionStatus", "result=0", NO_ANTENNA, NO_ANTENNA_MESSAGE},
        Failing{"CTVSApiWrapper::CreateServiceNavigation", "null", NO_NAVIGATION, ""},
        Failing{"IServiceNavigation::GetTvMode", "result=0", NO_NAVIGATION, "6 GetTvMode fail"},
        Failing{"IServiceNavigation::GetCurrentServiceInfo", "result=-1", NO_SERVICE, "6 GetCurrentServiceInfo fail"},
        Failing{"IServiceNavigation::GetCurrentServiceInfo", "result=1", NO_SERVICE, ""},  // without the field
        Failing{"CCCategoryUtil::GetInstance", "null", NO_CATEGORY, ""},
        Failing{"CCCategoryUtil::GetCurrentCategory", "result=0", NO_CATEGORY, "6 GetCurrentCategory fail"},
        Failing{"CTVSApiWrapper::CreateSourceControl", "null", NO_SOURCE, ""},
        Failing{"ISourceControl::GetCurrentSourceInfo", "result=0", NO_SOURCE, "6 GetCurrentSourceInfo fail"}));

// One bit per code, except for code 4; unknown codes add nothing.
TEST_F(JsonSchema, CondensesTheAntennaStatusIntoAMask) {
    const std::vector<std::pair<std::set<int>, int>> masks = {{{}, 0},        {{0}, 0x01},    {{1}, 0x02},
                                                              {{2}, 0x04},    {{3}, 0x08},    {{4}, 0x99},
                                                              {{0, 3}, 0x09}, {{1, 4}, 0x9b}, {{1, 7}, 0x02}};
    for (const auto& [statuses, mask] : masks) {
        setAntenna(statuses);
        CJsonSchema schema;
        EXPECT_THAT(summary(schema), ::testing::StartsWith(std::to_string(mask) + " "));
        EXPECT_THAT(messages(), Contains(fmt::format("5 [OUT]antennaStatus=[{}]", mask)));
    }
    EXPECT_THAT(messages(), Contains("6 Wrong connection status[7]").Times(1));
}

TEST_F(JsonSchema, ReadsWhatItWrites) {
    const std::string text =
        R"({"version":"0.3","more":[],"setting":{"antenna":153,"tvmode":{"antenna_mode":1,"service_mode":2},"source":7,)"
        R"("service_id":"18446744073709551614","category":{"mode":2,"param":"4294967296","sort":-1},"unknown":{}}})";
    CJsonSchema read(text);
    EXPECT_EQ(summary(read), "153 1/2 7 18446744073709551614 2/4294967296/-1");
    CJsonSchema again(read.StringJson());
    EXPECT_EQ(summary(again), summary(read));
    CJsonSchema assigned;
    assigned = read;
    EXPECT_EQ(summary(assigned), summary(read));
    EXPECT_THAT(messages(), Not(Contains(::testing::StartsWith("6 "))));
}

// A member counts as the JSON library converts it; if it is absent or cannot be converted, it is unknown.
TEST_F(JsonSchema, TakesWhatCanBeConverted) {
    const auto setting = [](const std::string& members) { return R"({"version":"0.3","setting":{)" + members + "}}"; };
    const std::vector<std::pair<std::string, std::string>> documents = {
        {setting(""), UNKNOWN},
        {setting(R"("antenna":"1","source":[])"), UNKNOWN},
        {setting(R"("antenna":2147483648,"source":-2147483649)"), UNKNOWN},
        {setting(R"("antenna":1e300,"source":1.5)"), std::string("-1 -1/-1 1 ") + ALL_ONES + " -1/0/-1"},
        {setting(R"("antenna":true,"source":null)"), std::string("1 -1/-1 0 ") + ALL_ONES + " -1/0/-1"},
        {setting(R"("tvmode":{"antenna_mode":1.9,"service_mode":false},"category":{"mode":null,"sort":2.0})"),
         std::string("-1 1/0 -1 ") + ALL_ONES + " 0/0/2"},
        {setting(R"("antenna":{},"tvmode":{"antenna_mode":"2","service_mode":{}},"category":{"mode":[],"sort":"x"})"),
         UNKNOWN},
        {setting(R"("tvmode":3,"category":"x")"), UNKNOWN},
        {setting(R"("tvmode":[1],"category":[1])"), UNKNOWN},
        {setting(R"("service_id":7,"category":{"param":7})"), UNKNOWN},
        {setting(R"("service_id":null,"category":{"param":{}})"), UNKNOWN},
        {setting(R"("antenna":2147483647)"), std::string("2147483647 -1/-1 -1 ") + ALL_ONES + " -1/0/-1"},
        {setting(R"("tvmode":{"antenna_mode":2})"), std::string("-1 2/-1 -1 ") + ALL_ONES + " -1/0/-1"},
        {setting(R"("service_id":"007x")"), "-1 -1/-1 -1 7 -1/0/-1"},
        {setting(R"("service_id":"")"), "-1 -1/-1 -1 0 -1/0/-1"},
        {setting(R"("service_id":"-1")"), UNKNOWN},
        {setting(R"("service_id":"99999999999999999999")"), UNKNOWN},
        {setting(R"("category":{"mode":0,"param":"-1"})"),
         std::string("-1 -1/-1 -1 ") + ALL_ONES + " 0/" + ALL_ONES + "/-1"},
    };
    for (const auto& [text, expected] : documents) {
        CJsonSchema schema(text);
        EXPECT_EQ(summary(schema), expected) << text;
    }
    EXPECT_THAT(messages(), Not(Contains(::testing::StartsWith("6 "))));
}

TEST_F(JsonSchema, SaysWhatIsNoMetadata) {
    const std::string deep = std::string(1500, '[') + std::string(1500, ']');
    const std::string noSetting = "6 Check json schema from server";
    const std::vector<std::pair<std::string, std::string>> documents = {{"", "6 Json parse fail"},
                                                                        {"no JSON", "6 Json parse fail"},
                                                                        {"{} {}", "6 Json parse fail"},
                                                                        {R"({"version":"0.3")", "6 Json parse fail"},
                                                                        {deep, "6 Json parse fail"},
                                                                        {"{}", noSetting},
                                                                        {R"({"version":"0.3"})", noSetting},
                                                                        {R"({"setting":[]})", noSetting},
                                                                        {R"({"setting":null})", noSetting},
                                                                        {"[1]", noSetting},
                                                                        {"7", noSetting},
                                                                        {R"("text")", noSetting}};
    for (const auto& [text, message] : documents) {
        CJsonSchema schema(text);
        EXPECT_EQ(messages().back(), message) << text.substr(0, 40);
        EXPECT_EQ(summary(schema), UNKNOWN) << text.substr(0, 40);
    }
}

TEST_F(JsonSchema, FitsOnlyTheSameVersionAndAntenna) {
    const auto fits = [](const std::string& version, int antenna) {
        return CJsonSchema(fmt::format(R"({{{}"setting":{{"antenna":{}}}}})", version, antenna)).CheckMetaData();
    };
    EXPECT_TRUE(fits(R"("version":"0.3",)", 1));
    for (const std::string version : {"", "0.30", "0.3 ", "0.2", " 0.3"}) {
        EXPECT_FALSE(fits("\"version\":\"" + version + "\",", 1)) << version;
        EXPECT_EQ(messages().back(), "6 json schema version mismatch [" + version + "]!=[0.3]");
    }
    EXPECT_FALSE(fits("", 1));
    EXPECT_EQ(messages().back(), "6 json schema version mismatch []!=[0.3]");
    const std::vector<std::pair<std::string, std::string>> conversions = {
        {"3", "3"}, {"true", "true"}, {"null", ""}, {"[]", ""}, {R"({"0.3":1})", ""}};
    for (const auto& [version, converted] : conversions) {
        EXPECT_FALSE(fits("\"version\":" + version + ",", 1)) << version;
        EXPECT_EQ(messages().back(), "6 json schema version mismatch [" + converted + "]!=[0.3]");
    }

    setAntenna({1, 2, 3});
    EXPECT_FALSE(fits(R"("version":"0.3",)", 0x0f)) << "a subset is another set-up";
    EXPECT_EQ(messages().back(), "6 Current antenna status=[0xe] != Backup antenna status=[0xf]");
    EXPECT_FALSE(fits(R"("version":"0.3",)", -1));
    EXPECT_EQ(messages().back(), "6 Current antenna status=[0xe] != Backup antenna status=[0xffffffff]");
}

TEST_F(JsonSchema, FitsIfBothAntennasAreUnknown) {
    fault("ITunerControl::GetAntennaConnectionStatus", "result=0");
    EXPECT_TRUE(CJsonSchema(R"({"version":"0.3","setting":{}})").CheckMetaData());
}

}  // namespace
