#include "simulator/base/Json.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <json/reader.h>
#include <json/writer.h>

#include <memory>

namespace sim {

namespace {

// jsoncpp takes some texts that are not JSON ("-01", a line break inside a string); SQLite does not, except that a text
// ends for both at its first NUL.
bool isJson(const std::string& text) {
    static SQLite::Database database(":memory:", SQLite::OPEN_READWRITE);
    SQLite::Statement query(database, "SELECT json_valid(?)");
    query.bind(1, text);
    query.executeStep();
    return text.find('\0') == std::string::npos && query.getColumn(0).getInt() != 0;
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

std::string writeJson(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    return Json::writeString(builder, value);
}

}  // namespace sim
