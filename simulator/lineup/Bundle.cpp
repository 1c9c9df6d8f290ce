#include "simulator/lineup/Bundle.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <json/value.h>

#include <set>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Json.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/ReceivedDatabase.h"
#include "simulator/lineup/Words.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr char IP_SERVICES_ENTRY[] = "ipsrv";
constexpr char ENTRIES[] = "entries";  // where a bundle is unpacked, apart from the databases made of it

[[noreturn]] void damaged(const std::string& problem) {
    throw Error(Error::Kind::Damaged, problem);
}

// A message without the folder that the bundle was unpacked in, which is gone when it is read.
std::string withoutFolder(std::string message, const fs::path& folder) {
    for (const std::string& prefix : {(folder / ENTRIES).string() + "/", folder.string() + "/"}) {
        for (std::size_t at = message.find(prefix); at != std::string::npos; at = message.find(prefix)) {
            message.erase(at, prefix.size());
        }
    }
    return message;
}

// The settings by key that a restore applies. Throws Error if it would fail at them.
std::map<std::string, Json::Value> settingsOf(const std::string& text) {
    Json::Value root;
    if (!parseJson(text, root)) {
        damaged(fmt::format("{} is no JSON text", application::SETTINGS_ENTRY));
    }
    if (!root.isObject() || !root["dataSize"].isInt() || !root["data"].isArray()) {
        damaged(
            fmt::format("{} is no settings file: dataSize is no number, or data no list", application::SETTINGS_ENTRY));
    }
    const int count = root["dataSize"].asInt();
    if (count > static_cast<int>(root["data"].size())) {
        damaged(fmt::format("{} says that it holds {} settings, and holds {}", application::SETTINGS_ENTRY, count,
                            root["data"].size()));
    }
    std::map<std::string, Json::Value> settings;
    for (int i = 0; i < count; ++i) {
        const Json::Value& element = root["data"][i];
        if (!element.isObject() || !element["path"].isString() || !element["type"].isInt()) {
            damaged(fmt::format("{}: setting {} has no path or no type", application::SETTINGS_ENTRY, i + 1));
        }
        settings[element["path"].asString()] = element["value"];
    }
    return settings;
}

}  // namespace

Bundle::Bundle(const fs::path& file, std::optional<std::string> metadata) : m_metadataText(std::move(metadata)) {
    for (const Name<Item>& item : NAMES<Item>) {
        m_parts[item.value] = {PartState::Absent, "not in the backup"};
    }
    if (m_metadataText) {
        m_metadata = readMetadata(*m_metadataText);
        m_setup.viewing = m_metadata.viewing;
        const bool isWhole = m_metadata.problems.empty();
        m_parts[Item::Viewing] = {isWhole ? PartState::Whole : PartState::Damaged,
                                  fmt::format("{}", fmt::join(m_metadata.problems, ", "))};
    } else {
        m_parts[Item::Viewing].problem = "the backup's metadata is not known";
    }
    const ScratchFolder scratch;  // what is opened there stays readable when it is gone
    readArchive(file, scratch.path());
    for (const auto& [item, part] : m_parts) {
        if (part.state != PartState::Whole) {
            m_setup.lacking[item] = part.problem;
        }
    }
}

void Bundle::readArchive(const fs::path& file, const fs::path& folder) {
    const std::set<std::string> wanted = {application::SERVICE_DB_ENTRY, application::SETTINGS_ENTRY,
                                          application::ISS_DB_ENTRY};
    m_unpacking = unpackBundle(file, folder / ENTRIES, [&](const std::string& path) { return wanted.count(path) > 0; });
    if (!m_unpacking.problem.empty()) {
        m_problem = fmt::format("{}: no usable zip archive: {}", file.string(), m_unpacking.problem);
        return;
    }
    m_ambiguities = ambiguitiesOf(file, m_unpacking);
    readServices(folder);
    readSettings(folder);
    readIss(folder);
    readCi(folder);
}

std::vector<std::string> Bundle::fatalProblems() const {
    std::vector<std::string> problems;
    if (!m_problem.empty()) {
        return {m_problem};
    }
    for (const UnpackedEntry& entry : m_unpacking.entries) {
        if (!entry.problem.empty()) {
            problems.push_back(fmt::format("entry {}: {}", inQuotes(entry.name), entry.problem));
        }
    }
    if (part(Item::Channels).state != PartState::Whole) {
        problems.push_back(fmt::format("{}: {}", nameOf(Item::Channels), part(Item::Channels).problem));
    }
    return problems;
}

std::vector<std::string> Bundle::problems() const {
    std::vector<std::string> problems = fatalProblems();
    for (const auto& [item, part] : m_parts) {
        if (part.state == PartState::Damaged && item != Item::Channels) {
            problems.push_back(fmt::format("{}: {}", nameOf(item), part.problem));
        }
    }
    return problems;
}

bool Bundle::isUnpacked(const std::string& path) const {
    for (const UnpackedEntry& entry : m_unpacking.entries) {
        if (!entry.problem.empty() && entry.name == path) {
            damaged(fmt::format("entry {}: {}", inQuotes(entry.name), entry.problem));
        }
    }
    return m_unpacking.files.count(path) > 0;
}

// Reads an item, and notes how that went. `read` returns false if the bundle does not have it.
template <typename Read>
void Bundle::read(Item item, const fs::path& folder, Read read) {
    try {
        if (read()) {
            m_parts[item] = {PartState::Whole, ""};
        }
    } catch (const Error& error) {
        if (!isOfReceived(error)) {
            throw;
        }
        m_parts[item] = {PartState::Damaged, withoutFolder(error.what(), folder)};
    }
}

void Bundle::readServices(const fs::path& folder) {
    const fs::path archive = folder / ENTRIES / application::SERVICE_DB_ENTRY;
    const fs::path database = folder / "services.db";
    read(Item::Channels, folder, [&] {
        if (!isUnpacked(application::SERVICE_DB_ENTRY)) {
            return false;
        }
        if (const std::optional<ReplaceStatus> status = adoptServices(archive, database)) {
            damaged(words(*status));
        }
        m_setup.services.emplace(database);
        for (const ArchiveEntry& inner : listArchive(archive)) {
            if (inner.name == IP_SERVICES_ENTRY) {
                m_parts[Item::IpServices] = {PartState::Whole, ""};
            }
        }
        return true;
    });
}

// A restore applies the last of several settings under the same key.
void Bundle::readSettings(const fs::path& folder) {
    std::map<std::string, Json::Value> values;
    std::string problem;
    try {
        if (!isUnpacked(application::SETTINGS_ENTRY)) {
            return;
        }
        values = settingsOf(readReceived(folder / ENTRIES / application::SETTINGS_ENTRY, limits::SETTINGS_FILE_BYTES));
    } catch (const Error& error) {
        if (!isOfReceived(error)) {
            throw;
        }
        problem = withoutFolder(error.what(), folder);
    }
    for (int list = 1; list <= application::FAVOURITE_LISTS; ++list) {
        BundlePart& part = m_parts[favouriteItem(list)];
        const auto value = values.find(application::favouriteKey(list));
        if (!problem.empty()) {
            part = {PartState::Damaged, problem};
        } else if (value != values.end() && value->second.isString()) {
            part = {PartState::Whole, ""};
            m_setup.entries[favouriteItem(list)] = {{"name", value->second.asString()}};
        } else if (value != values.end()) {
            part = {PartState::Damaged, fmt::format("{}: its value is no text", application::SETTINGS_ENTRY)};
        }
    }
}

void Bundle::readIss(const fs::path& folder) {
    read(Item::Iss, folder, [&] {
        if (!isUnpacked(application::ISS_DB_ENTRY)) {
            return false;
        }
        adoptIss(folder / ENTRIES / application::ISS_DB_ENTRY, folder / "iss.db");
        m_setup.entries[Item::Iss] = IssDb(folder / "iss.db").entries();
        return true;
    });
}

void Bundle::readCi(const fs::path& folder) {
    const std::string prefix = application::CI_PREFIX;
    read(Item::Ci, folder, [&] {
        Entries files;
        for (const UnpackedEntry& entry : m_unpacking.entries) {
            const std::string path = fs::path(entry.name).lexically_normal();
            if (path.compare(0, prefix.size(), prefix) != 0 || !isUnpacked(path)) {
                continue;
            }
            if (path.find('/', prefix.size()) != std::string::npos) {
                damaged(fmt::format("{} is no file directly in {}", inQuotes(path), prefix));
            }
            files[path.substr(prefix.size())] = m_unpacking.files.at(path);
        }
        if (!files.empty()) {
            m_setup.entries[Item::Ci] = files;
        }
        return !files.empty();
    });
}

}  // namespace sim
