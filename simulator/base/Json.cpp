#include "simulator/base/Json.h"

#include <fmt/format.h>
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

// In the style of writeJson().
class DocumentWriter {
public:
    DocumentWriter(const JsonDocument& document, std::FILE* file) : m_lists(document.lists), m_file(file) {}

    // `place` is that of the object, with a dot behind it; `indent` starts its lines.
    void writeObject(const Json::Value& object, const std::string& place, const std::string& indent) {
        const char* before = "{";
        for (const std::string& name : object.getMemberNames()) {
            write(fmt::format("{}\n{}  {} : ", before, indent, writeJson(name)));
            writeMember(object[name], place + name, indent + "  ");
            before = ",";
        }
        write(fmt::format("\n{}}}", indent));
    }

private:
    void writeMember(const Json::Value& value, const std::string& place, const std::string& indent) {
        const auto list = m_lists.lower_bound(place);
        if (list != m_lists.end() && list->first == place) {
            writeList(list->second, indent);
        } else if (list != m_lists.end() && list->first.compare(0, place.size() + 1, place + ".") == 0) {
            write("\n" + indent);
            writeObject(value, place + ".", indent);
        } else {
            const std::string text = indented(value, indent);
            write(text.find('\n') == std::string::npos ? text : fmt::format("\n{}{}", indent, text));
        }
    }

    void writeList(const JsonList& list, const std::string& indent) {
        bool isEmpty = true;
        list([&](const Json::Value& element) {
            write(fmt::format("{}\n{}  {}", isEmpty ? fmt::format("\n{}[", indent) : ",", indent,
                              indented(element, indent + "  ")));
            isEmpty = false;
        });
        write(isEmpty ? "[]" : fmt::format("\n{}]", indent));
    }

    static std::string indented(const Json::Value& value, const std::string& indent) {
        std::string text = writeJson(value, JsonStyle::Indented);
        for (std::size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 1)) {
            text.insert(at + 1, indent);
        }
        return text;
    }

    void write(const std::string& text) { std::fwrite(text.data(), 1, text.size(), m_file); }

    const std::map<std::string, JsonList>& m_lists;
    std::FILE* m_file;
};

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

void writeJson(const JsonDocument& document, std::FILE* file) {
    DocumentWriter(document, file).writeObject(document.object, "", "");
}

}  // namespace sim
