#include "platform/json_util.h"

#include <sstream>

#include "simulator/base/Json.h"
#include "simulator/device/Journal.h"

bool JsonUtil::StringToJson(const std::string& text, Json::Value& value) {
    value = Json::Value();
    return sim::platformCall(sim::calls::string_to_json, std::tuple(text), [&] { return sim::parseJson(text, value); });
}

bool JsonUtil::StreamToJson(std::istream& stream, Json::Value& value) {
    std::ostringstream text;
    text << stream.rdbuf();  // unlike the stream's iterators, never throws
    value = Json::Value();
    return sim::platformCall(sim::calls::stream_to_json, std::tuple(text.str()),
                             [&] { return sim::parseJson(text.str(), value); });
}

std::string JsonUtil::JsonToString(const Json::Value& value) {
    std::string text = sim::writeJson(value);
    sim::platformNotice(sim::calls::json_to_string, text);
    return text;
}
