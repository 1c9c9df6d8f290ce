#include "simulator/base/JsonDocument.h"

#include <fmt/format.h>

namespace sim {

namespace {

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
        // Places are sorted: one search finds the list at this place, or else the first one below it.
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

void writeJson(const JsonDocument& document, std::FILE* file) {
    DocumentWriter(document, file).writeObject(document.object, "", "");
}

}  // namespace sim
