#include "simulator/lineup/Bundle.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <json/value.h>

#include <algorithm>
#include <set>

#include "simulator/base/Error.h"
#include "simulator/base/Json.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/Words.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr char IP_SERVICES_ENTRY[] = "ipsrv";

// A problem of what was received, and not of this machine.
[[noreturn]] void damaged(const std::string& problem) {
    throw Error(Error::Kind::Damaged, problem);
}

// A message as it reads to who does not know where the bundle was unpacked.
std::string withoutFolder(std::string message, const fs::path& folder) {
    const std::string prefix = folder.string() + "/";
    for (std::size_t at = message.find(prefix); at != std::string::npos; at = message.find(prefix)) {
        message.erase(at, prefix.size());
    }
    return message;
}

bool isOfBundle(const Error& error) {
    return error.kind() == Error::Kind::Damaged || error.kind() == Error::Kind::Missing;
}

std::vector<Item> favouriteItems() {
    std::vector<Item> items;
    for (int list = 1; list <= application::FAVOURITE_LISTS; ++list) {
        items.push_back(favouriteItem(list));
    }
    return items;
}

// The elements of a settings file that a restore applies. Throws Error where it would fail at them.
std::vector<Json::Value> settingsOf(const std::string& text) {
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
    std::vector<Json::Value> elements;
    for (int i = 0; i < count; ++i) {
        const Json::Value& element = root["data"][i];
        if (!element.isObject() || !element["path"].isString() || !element["type"].isInt()) {
            damaged(fmt::format("{}: setting {} has no path or no type", application::SETTINGS_ENTRY, i + 1));
        }
        elements.push_back(element);
    }
    return elements;
}

}  // namespace

Bundle::Bundle(const fs::path& file, std::optional<std::string> metadata)
    : m_scratch(std::make_unique<ScratchFolder>(temporaryFolder())),
      m_metadataText(std::move(metadata)),
      m_favourites(application::FAVOURITE_LISTS) {
    for (const Name<Item>& item : NAMES<Item>) {
        m_parts[item.value] = {PartState::Absent, "not in the backup"};
    }
    if (m_metadataText) {
        m_metadata = readMetadata(*m_metadataText);
        const bool isWhole = m_metadata.problems.empty();
        m_parts[Item::Viewing] = {isWhole ? PartState::Whole : PartState::Damaged,
                                  fmt::format("{}", fmt::join(m_metadata.problems, ", "))};
    } else {
        m_parts[Item::Viewing].problem = "the backup's metadata is not known";
    }
    try {
        m_entries = checkArchive(file);
    } catch (const Error& error) {
        if (error.kind() != Error::Kind::Damaged) {
            throw;
        }
        m_problem = error.what();
        return;
    }
    for (ArchiveEntry& entry : m_entries) {
        if (entry.problem.empty() && entry.name.back() == '/') {
            entry.problem = "the application cannot unpack a folder's own entry; pack the files alone, as zip -D does";
        }
    }
    readServices(file);
    readSettings(file);
    readIss(file);
    readCi();
}

bool Bundle::isDamaged() const {
    return !problems().empty();
}

std::vector<std::string> Bundle::fatalProblems() const {
    std::vector<std::string> problems;
    if (!m_problem.empty()) {
        return {m_problem};
    }
    for (const ArchiveEntry& entry : m_entries) {
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

const ArchiveEntry* Bundle::entry(const std::string& name) const {
    const auto found =
        std::find_if(m_entries.begin(), m_entries.end(), [&](const ArchiveEntry& each) { return each.name == name; });
    return found == m_entries.end() ? nullptr : &*found;
}

// Notes what becomes of the reading of an item.
template <typename Read>
void Bundle::read(Item item, Read read) {
    try {
        m_parts[item] = {PartState::Whole, ""};
        read();
    } catch (const Error& error) {
        if (!isOfBundle(error)) {
            throw;
        }
        m_parts[item] = {PartState::Damaged, withoutFolder(error.what(), m_scratch->path())};
    }
}

void Bundle::readServices(const fs::path& file) {
    if (entry(application::SERVICE_DB_ENTRY) == nullptr) {
        return;
    }
    const fs::path archive = *m_scratch / application::SERVICE_DB_ENTRY;
    read(Item::Channels, [&] {
        extractEntry(file, application::SERVICE_DB_ENTRY, archive);
        if (const std::optional<ReplaceStatus> status = adoptServices(archive, *m_scratch / "services.db")) {
            damaged(words(*status));
        }
        for (const ArchiveEntry& inner : listArchive(archive)) {
            if (inner.name == IP_SERVICES_ENTRY) {
                m_parts[Item::IpServices] = {PartState::Whole, ""};
            }
        }
    });
}

void Bundle::readSettings(const fs::path& file) {
    if (entry(application::SETTINGS_ENTRY) == nullptr) {
        return;
    }
    const fs::path settings = *m_scratch / application::SETTINGS_ENTRY;
    std::vector<Json::Value> elements;
    for (const Item item : favouriteItems()) {
        read(item, [&] {
            extractEntry(file, application::SETTINGS_ENTRY, settings);
            elements = settingsOf(readFile(settings));
        });
    }
    for (int list = 1; list <= application::FAVOURITE_LISTS; ++list) {
        BundlePart& part = m_parts[favouriteItem(list)];
        const auto found = std::find_if(elements.begin(), elements.end(), [&](const Json::Value& element) {
            return element["path"].asString() == application::favouriteKey(list);
        });
        if (part.state == PartState::Whole && found == elements.end()) {
            part = {PartState::Absent, "not in the backup"};
        } else if (part.state == PartState::Whole && !(*found)["value"].isString()) {
            part = {PartState::Damaged, fmt::format("{}: its value is no text", application::SETTINGS_ENTRY)};
        } else if (part.state == PartState::Whole) {
            m_favourites[static_cast<std::size_t>(list - 1)] = (*found)["value"].asString();
        }
    }
}

void Bundle::readIss(const fs::path& file) {
    if (entry(application::ISS_DB_ENTRY) == nullptr) {
        return;
    }
    read(Item::Iss, [&] {
        const fs::path folder = *m_scratch / "iss";
        makePrivateFolder(folder);
        extractEntry(file, application::ISS_DB_ENTRY, folder / application::ISS_DB_ENTRY);
        adoptIss(folder / application::ISS_DB_ENTRY, folder / "iss.db");
        m_iss = IssDb(folder / "iss.db").entries();
    });
}

void Bundle::readCi() {
    const std::string prefix = application::CI_PREFIX;
    for (const ArchiveEntry& entry : m_entries) {
        if (entry.name.compare(0, prefix.size(), prefix) != 0 || entry.name == prefix) {
            continue;
        }
        const std::string name = entry.name.substr(prefix.size());
        if (m_parts[Item::Ci].state == PartState::Damaged) {
            return;
        }
        read(Item::Ci, [&] {
            if (name.find('/') != std::string::npos) {
                damaged(fmt::format("{} is no file directly in {}", inQuotes(entry.name), prefix));
            }
            if (entry.digest.empty()) {
                damaged(fmt::format("entry {}: {}", inQuotes(entry.name), entry.problem));
            }
            m_ci[name] = entry.digest;
        });
    }
}

Setup Bundle::setup() const {
    Setup setup{{}, m_favourites, m_iss, m_ci, m_metadata.viewing, {}, {}};
    for (const auto& [item, part] : m_parts) {
        if (part.state != PartState::Whole) {
            setup.lacking[item] = part.problem.empty() ? std::string(nameOf(part.state)) : part.problem;
        }
    }
    if (part(Item::Channels).state == PartState::Whole) {
        setup.services = services().services();
        setup.headers = services().headers();
    }
    return setup;
}

}  // namespace sim
