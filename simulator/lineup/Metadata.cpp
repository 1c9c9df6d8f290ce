#include "simulator/lineup/Metadata.h"

#include <fmt/format.h>
#include <json/value.h>

#include <cstdlib>

#include "simulator/base/Json.h"

namespace sim {

namespace {

// Reads members as the application does, and notes those that it would write otherwise.
class MemberReader {
public:
    explicit MemberReader(std::vector<std::string>& problems) : m_problems(problems) {}

    const Json::Value& object(const Json::Value& parent, const char* key) {
        static const Json::Value none;
        if (!parent.isObject() || !parent[key].isObject()) {
            m_problems.push_back(fmt::format("{} is no object", key));
            return none;
        }
        return parent[key];
    }

    int number(const Json::Value& parent, const char* key) {
        if (!parent.isObject() || !parent[key].isInt()) {
            m_problems.push_back(fmt::format("{} is no number", key));
        }
        const bool isThere = parent.isObject() && parent.isMember(key) && parent[key].isConvertibleTo(Json::intValue);
        return isThere ? parent[key].asInt() : -1;
    }

    std::uint64_t digits(const Json::Value& parent, const char* key, std::uint64_t absent) {
        if (!parent.isObject() || !parent[key].isString()) {
            m_problems.push_back(fmt::format("{} is no text", key));
            return absent;
        }
        // As the application does: digits count up to the first other character.
        return std::strtoull(parent[key].asCString(), nullptr, 10);
    }

private:
    std::vector<std::string>& m_problems;
};

}  // namespace

Metadata readMetadata(const std::string& text) {
    Metadata metadata;
    metadata.viewing = {
        {AntennaMode{-1}, ServiceMode{-1}}, UINT64_MAX, Source{-1}, {CategoryKind{-1}, 0, SortMode{-1}}};
    Json::Value parsed;
    if (!parseJson(text.substr(0, text.find('\0')), parsed)) {  // the application gets it as a C string
        metadata.problems.push_back(fmt::format("it is no JSON text of at most {} values", JSON_VALUES));
        return metadata;
    }
    // Constant: a look-up by operator[] adds no members.
    const Json::Value& root = parsed;
    MemberReader reader(metadata.problems);
    if (root.isObject() && root["version"].isConvertibleTo(Json::stringValue)) {
        metadata.version = root["version"].asString();
    }
    const Json::Value& setting = reader.object(root, "setting");
    // The application reads no further either.
    if (!setting.isObject()) {
        return metadata;
    }
    metadata.antenna = reader.number(setting, "antenna");
    const Json::Value& mode = reader.object(setting, "tvmode");
    metadata.viewing.mode.antenna = static_cast<AntennaMode>(reader.number(mode, "antenna_mode"));
    metadata.viewing.mode.service = static_cast<ServiceMode>(reader.number(mode, "service_mode"));
    metadata.viewing.serviceId = reader.digits(setting, "service_id", UINT64_MAX);
    metadata.viewing.source = static_cast<Source>(reader.number(setting, "source"));
    const Json::Value& category = reader.object(setting, "category");
    metadata.viewing.category.kind = static_cast<CategoryKind>(reader.number(category, "mode"));
    metadata.viewing.category.param = reader.digits(category, "param", 0);
    metadata.viewing.category.sort = static_cast<SortMode>(reader.number(category, "sort"));
    return metadata;
}

Viewing Metadata::appliedTo(const Viewing& before) const {
    Viewing after = before;
    if (viewing.mode.antenna == AntennaMode{-1} || viewing.mode.service == ServiceMode{-1}) {
        return after;
    }
    after.mode = viewing.mode;
    // Of a TV that showed another source than the tuner, the application restores the mode alone.
    if (viewing.source != Source::Tuner) {
        return after;
    }
    after.serviceId = viewing.serviceId;
    after.source = viewing.source;
    if (viewing.category.kind != CategoryKind{-1}) {
        after.category = viewing.category;
    }
    return after;
}

}  // namespace sim
