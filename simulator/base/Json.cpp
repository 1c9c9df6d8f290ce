#include "simulator/base/Json.h"

#include <json/reader.h>
#include <json/writer.h>

#include <memory>
#include <nlohmann/json.hpp>

namespace sim {

namespace {

// Stops at what is no JSON, or at one value too many.
class Limited : public nlohmann::json_sax<nlohmann::json> {
public:
    explicit Limited(std::size_t maxValues) : m_maxValues(maxValues) {}

    bool null() override { return count(); }
    bool boolean(bool /*value*/) override { return count(); }
    bool number_integer(number_integer_t /*value*/) override { return count(); }
    bool number_unsigned(number_unsigned_t /*value*/) override { return count(); }
    bool number_float(number_float_t /*value*/, const string_t& /*text*/) override { return count(); }
    bool string(string_t& /*value*/) override { return count(); }
    bool binary(binary_t& /*value*/) override { return count(); }
    bool start_object(std::size_t /*size*/) override { return count(); }
    bool key(string_t& /*name*/) override { return true; }
    bool end_object() override { return true; }
    bool start_array(std::size_t /*size*/) override { return count(); }
    bool end_array() override { return true; }
    bool parse_error(std::size_t /*at*/, const std::string& /*token*/,
                     const nlohmann::detail::exception& /*error*/) override {
        return false;
    }

private:
    bool count() { return ++m_count <= m_maxValues; }

    std::size_t m_maxValues;
    std::size_t m_count = 0;
};

// jsoncpp accepts some texts that are not JSON ("-01", a line break inside a string). This parser does not, but takes a
// NUL for the end of the text.
bool isJson(const std::string& text, std::size_t maxValues) {
    Limited limited(maxValues);
    return text.find('\0') == std::string::npos && nlohmann::json::sax_parse(text, &limited);
}

}  // namespace

bool parseJson(const std::string& text, Json::Value& value, std::size_t maxValues) {
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    value = Json::Value();
    try {
        if (isJson(text, maxValues) && reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) {
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
