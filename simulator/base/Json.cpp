#include "simulator/base/Json.h"

#include <json/reader.h>
#include <json/writer.h>

#include <exception>
#include <memory>
#include <nlohmann/json.hpp>

namespace sim {

namespace {

class TooManyValues : public std::exception {};

// jsoncpp accepts some texts that are not JSON ("-01", a line break inside a string). This parser does not, but takes a
// NUL for the end of the text.
bool isJson(const std::string& text) {
    return text.find('\0') == std::string::npos && nlohmann::json::accept(text);
}

bool hasFewValues(const std::string& text) {
    using Event = nlohmann::json::parse_event_t;
    std::size_t count = 0;
    const auto discard = [&](int /*depth*/, Event event, nlohmann::json& /*value*/) {
        const bool isValue = event == Event::value || event == Event::object_start || event == Event::array_start;
        if (isValue && ++count > JSON_VALUES) {
            throw TooManyValues();
        }
        return false;
    };
    try {
        const nlohmann::json discarded = nlohmann::json::parse(text, discard, false);
        return true;
    } catch (const TooManyValues&) {
        return false;
    }
}

}  // namespace

bool parseJson(const std::string& text, Json::Value& value) {
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    value = Json::Value();
    try {
        if (isJson(text) && hasFewValues(text) &&
            reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) {
            return true;
        }
    } catch (const Json::Exception&) {  // nested too deep
    }
    value = Json::Value();
    return false;
}

std::string writeJson(const Json::Value& value, JsonStyle style) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = style == JsonStyle::Indented ? "  " : "";
    builder["emitUTF8"] = true;
    return Json::writeString(builder, value);
}

}  // namespace sim
