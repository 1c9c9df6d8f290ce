#include "platform/json_util.h"

#include <sstream>

#include "simulator/base/Json.h"
#include "simulator/client/Connection.h"

namespace {

using wire::CallId;

// Parses here: the services are told, and may say that it has failed.
template <CallId id>
bool parse(const std::string& text, Json::Value& value) {
    const bool isJson = sim::parseJson(text, value);
    const bool result = client::call<id>({text, {isJson}}).result;
    if (!result) {
        value = Json::Value();
    }
    return result;
}

}  // namespace

bool JsonUtil::StringToJson(const std::string& text, Json::Value& value) {
    return parse<CallId::string_to_json>(text, value);
}

bool JsonUtil::StreamToJson(std::istream& stream, Json::Value& value) {
    std::ostringstream text;
    text << stream.rdbuf();  // unlike the stream's iterators, never throws
    return parse<CallId::stream_to_json>(text.str(), value);
}

std::string JsonUtil::JsonToString(const Json::Value& value) {
    std::string text = sim::writeJson(value);
    client::notify<CallId::json_to_string>({text});
    return text;
}
