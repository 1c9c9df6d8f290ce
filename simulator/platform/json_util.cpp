#include "platform/json_util.h"

#include <iterator>

#include "simulator/tv/Device.h"
#include "simulator/tv/Json.h"

bool JsonUtil::StringToJson(const std::string& text, Json::Value& value) {
    value = Json::Value();
    return sim::platformCall("JsonUtil::StringToJson", text, [&] { return sim::parseJson(text, value); });
}

bool JsonUtil::StreamToJson(std::istream& stream, Json::Value& value) {
    const std::string text((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    value = Json::Value();
    return sim::platformCall("JsonUtil::StreamToJson", text, [&] { return sim::parseJson(text, value); });
}

std::string JsonUtil::JsonToString(const Json::Value& value) {
    std::string text = sim::writeJson(value);
    sim::platformNotice("JsonUtil::JsonToString", text);
    return text;
}
