#include "simulator/base/Json.h"

#include <json/reader.h>
#include <json/writer.h>

#include <memory>
#include <nlohmann/json.hpp>

namespace sim {

namespace {

// jsoncpp accepts some texts that are not JSON ("-01", a line break inside a string). This parser does not, but takes a
// NUL for the end of the text.
bool isJson(const std::string& text) {
    return text.find('\0') == std::string::npos && nlohmann::json::accept(text);
}

}  // namespace

bool parseJson(const std::string& text, Json::Value& value) {
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    value = Json::Value();
    try {
        if (isJson(text) && reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) {
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
