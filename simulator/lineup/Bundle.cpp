#include "simulator/lineup/Bundle.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <json/value.h>

#include <algorithm>

#include "simulator/base/Digest.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Json.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/Diagnosis.h"
#include "simulator/lineup/ReceivedDatabase.h"
#include "simulator/lineup/Words.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr char IP_SERVICES_ENTRY[] = "ipsrv";

[[noreturn]] void damaged(const std::string& problem) {
    throw Error(Error::Kind::Damaged, problem);
}

// What a restore does with a settings file.
struct SettingsReading {
    std::map<std::string, std::string> texts;     // that it sets, by key
    std::map<std::string, std::string> problems;  // why it does not set one, by key
    std::string problem;                          // why it sets none, or none from here on; empty: it sets all
    bool isFatal = false;                         // the application ends there
};

// Takes the application's steps. Throws Json::Exception where it does.
void readSetting(const Json::Value& element, SettingsReading& reading) {
    // The types by the numbers that the application gives them.
    enum { Int, Text, Bool, Double, IntToo };
    const std::string key = element["path"].asCString();
    const Json::Value& value = element["value"];
    switch (element["type"].asInt()) {
        case Text: {
            const std::string text = value.asCString();
            if (key.size() + text.size() <= limits::SETTING_BYTES) {
                reading.texts[key] = text;
            } else {
                reading.problems[key] = fmt::format("a name of {} bytes, which the TV does not take", text.size());
            }
            return;
        }
        // Only the favourites' names count, which are texts. Other values are read because that may throw, as it does
        // in the application.
        case Int:
        case IntToo:
            value.asInt();
            break;
        case Bool:
            value.asBool();
            break;
        case Double:
            value.asDouble();
            break;
        default:
            break;
    }
    reading.problems[key] = "its value is no text";
}

// The last of several settings under one key counts.
SettingsReading readSettings(const std::string& text) {
    SettingsReading reading;
    Json::Value parsed;
    if (!parseJson(text, parsed)) {
        reading.problem = fmt::format("no JSON text of at most {} values; a restore sets none of it", JSON_VALUES);
        return reading;
    }
    const Json::Value& root = parsed;  // constant: a look-up adds no members
    int count = 0;
    int done = 0;
    try {
        count = root["dataSize"].asInt();
        for (; done < count; ++done) {
            readSetting(root["data"][done], reading);
        }
    } catch (const Json::Exception&) {
        reading.isFatal = true;
        const Json::ArrayIndex there = root.isObject() && root["data"].isArray() ? root["data"].size() : 0;
        const bool isShort = count > 0 && static_cast<Json::ArrayIndex>(done) >= there;
        reading.problem =
            isShort ? fmt::format("dataSize is {}, and it holds {}; the application ends there", count,
                                  plural(there, "setting"))
                    : fmt::format("setting {} has another type than the application reads, and ends it", done + 1);
        return reading;
    }
    if (count < 1 && !(root.isObject() && root["dataSize"].isInt())) {
        reading.problem = "dataSize is missing; a restore sets none of it";
    }
    return reading;
}

bool isCiFile(const std::string& path) {
    const std::string_view prefix = application::CI_PREFIX;
    return path.size() > prefix.size() && path.compare(0, prefix.size(), prefix) == 0;
}

// The digests of the CI module's files, by name.
Entries ciFilesOf(const Unpacking& unpacking) {
    const std::string prefix = application::CI_PREFIX;
    Entries files;
    for (const auto& [path, digest] : unpacking.files) {
        if (!isCiFile(path)) {
            continue;
        }
        // The CI module knows its files by name: two of one name in different folders would be one.
        if (path.find('/', prefix.size()) != std::string::npos) {
            damaged(fmt::format("{} is no file directly in {}", inQuotes(path), prefix));
        }
        files[path.substr(prefix.size())] = digest;
    }
    return files;
}

}  // namespace

// Where a bundle is unpacked, and where databases are made of it.
struct Bundle::Folders {
    fs::path entries;
    fs::path scratch;

    // A message without these folders, which are gone when it is read.
    std::string strip(std::string message) const {
        for (const std::string& prefix : {entries.string() + "/", scratch.string() + "/"}) {
            for (std::size_t at = message.find(prefix); at != std::string::npos; at = message.find(prefix)) {
                message.erase(at, prefix.size());
            }
        }
        return message;
    }
};

Bundle::Bundle() {
    for (const Name<Item>& item : NAMES<Item>) {
        m_parts[item.value] = {PartState::Absent, "not in the backup"};
    }
}

Bundle::Bundle(const fs::path& file, std::optional<std::string> metadata) : Bundle() {
    m_metadataText = std::move(metadata);
    if (m_metadataText) {
        m_metadata = readMetadata(*m_metadataText);
        m_setup.viewing = m_metadata.viewing;
        const bool isWhole = m_metadata.problems.empty();
        m_parts[Item::Viewing] = {isWhole ? PartState::Whole : PartState::Damaged,
                                  fmt::format("{}", fmt::join(m_metadata.problems, ", "))};
    } else {
        m_parts[Item::Viewing].problem = "the backup's metadata is not known";
    }
    const ScratchFolder scratch;                   // what is opened there stays readable when it is gone
    const fs::path entries = scratch / "entries";  // apart from the databases that are made of them
    // Only these are read again and go to the disk. Of all other entries, the digest is enough.
    const std::map<std::string, std::uint64_t> wanted = {{application::SERVICE_DB_ENTRY, limits::ENTRY_BYTES},
                                                         {application::SETTINGS_ENTRY, limits::SETTINGS_FILE_BYTES},
                                                         {application::ISS_DB_ENTRY, limits::ENTRY_BYTES}};
    // Opened once, so that a file that is replaced meanwhile is not read in two states.
    const Descriptor archive = openFile(file, O_RDONLY);
    m_unpacking = unpackBundle(archive, entries, [&](const std::string& path) {
        const auto found = wanted.find(path);
        return found == wanted.end() ? 0 : found->second;
    });
    if (m_unpacking.problem.empty()) {
        m_ambiguities = ambiguitiesOf(archive, m_unpacking);
        readItems({entries, scratch.path()});
    } else {
        m_problem = fmt::format("{}: {}", file.string(), m_unpacking.problem);
    }
    BundlePart& channels = m_parts[Item::Channels];
    if (const std::string why = channels.state == PartState::Absent ? whyNoBundle(file) : ""; !why.empty()) {
        channels.problem += ": " + why;
    }
    noteLacking();
}

Bundle Bundle::ofUnpacked(const fs::path& folder) {
    Bundle bundle;
    std::error_code error;
    for (auto member = fs::recursive_directory_iterator(folder, error);
         !error && member != fs::recursive_directory_iterator(); member.increment(error)) {
        // A folder has a slash at its end, as in an archive, so that it is never taken for a file.
        const std::string path = member->path().lexically_relative(folder);
        const bool isFile = isRegularFile(member->path());
        bundle.m_unpacking.files[isFile ? path : path + "/"] = isFile ? digestOf(member->path()) : "";
    }
    const ScratchFolder scratch;
    bundle.readItems({folder, scratch.path()});
    bundle.noteLacking();
    return bundle;
}

void Bundle::readItems(const Folders& folders) {
    readServices(folders);
    readSettings(folders);
    readIss(folders);
    readCi(folders);
}

void Bundle::noteLacking() {
    for (const auto& [item, part] : m_parts) {
        if (part.state != PartState::Whole) {
            m_setup.lacking[item] = part.problem;
        }
        if (part.state == PartState::Damaged) {
            m_setup.unreadable.insert(item);
        }
    }
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

// An entry that cannot be unpacked is why items are damaged; it is named once.
std::vector<std::string> Bundle::problems() const {
    std::vector<std::string> problems = fatalProblems();
    const auto add = [&](std::string_view item, const std::string& problem) {
        const bool isSaid = std::any_of(problems.begin(), problems.end(), [&](const std::string& said) {
            return said.find(problem) != std::string::npos;
        });
        if (!isSaid) {
            problems.push_back(item.empty() ? problem : fmt::format("{}: {}", item, problem));
        }
    };
    if (!m_settingsProblem.empty()) {
        add("", m_settingsProblem);
    }
    for (const auto& [item, part] : m_parts) {
        if (part.state == PartState::Damaged) {
            add(item == Item::Viewing ? "metadata" : nameOf(item), part.problem);
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
void Bundle::read(Item item, const Folders& folders, Read read) {
    try {
        if (read()) {
            m_parts[item] = {PartState::Whole, ""};
        }
    } catch (const Error& error) {
        // A full disk, say, tells nothing of the bundle.
        if (!isOfReceived(error)) {
            throw;
        }
        m_parts[item] = {PartState::Damaged, folders.strip(error.what())};
    }
}

void Bundle::readServices(const Folders& folders) {
    const fs::path archive = folders.entries / application::SERVICE_DB_ENTRY;
    const fs::path database = folders.scratch / "services.db";
    read(Item::Channels, folders, [&] {
        if (!isUnpacked(application::SERVICE_DB_ENTRY)) {
            return false;
        }
        std::string why;
        if (const std::optional<ReplaceStatus> status = adoptServices(archive, database, &why)) {
            damaged(fmt::format("{}{}{}", words(*status), why.empty() ? "" : ": ", why));
        }
        m_setup.services.emplace(database);
        // The IP services are of another set: it is enough to know that they are there.
        for (const ArchiveEntry& inner : listArchive(archive)) {
            if (inner.name == IP_SERVICES_ENTRY) {
                m_parts[Item::IpServices] = {PartState::Whole, ""};
            }
        }
        return true;
    });
}

void Bundle::readSettings(const Folders& folders) {
    SettingsReading reading;
    try {
        if (!isUnpacked(application::SETTINGS_ENTRY)) {
            return;
        }
        reading =
            sim::readSettings(readFile(folders.entries / application::SETTINGS_ENTRY, limits::SETTINGS_FILE_BYTES));
    } catch (const Error& error) {
        if (!isOfReceived(error)) {
            throw;
        }
        m_settingsProblem = folders.strip(error.what());
    }
    if (!reading.problem.empty()) {
        m_settingsProblem = fmt::format("{}: {}", application::SETTINGS_ENTRY, reading.problem);
    }
    m_endsAtSettings = reading.isFatal;
    for (int list = 1; list <= application::FAVOURITE_LISTS; ++list) {
        BundlePart& part = m_parts[favouriteItem(list)];
        const std::string key = application::favouriteKey(list);
        // Also if the application ends at a later setting: what stands before that has been set.
        if (const auto text = reading.texts.find(key); text != reading.texts.end()) {
            part = {PartState::Whole, ""};
            m_setup.entries[favouriteItem(list)] = {{"name", text->second}};
        } else if (const auto problem = reading.problems.find(key); problem != reading.problems.end()) {
            part = {PartState::Damaged, fmt::format("{}: {}", application::SETTINGS_ENTRY, problem->second)};
        } else if (!m_settingsProblem.empty()) {
            part = {PartState::Damaged, m_settingsProblem};
        }
    }
}

void Bundle::readIss(const Folders& folders) {
    read(Item::Iss, folders, [&] {
        if (!isUnpacked(application::ISS_DB_ENTRY)) {
            return false;
        }
        const fs::path database = folders.scratch / "iss.db";
        adoptIss(folders.entries / application::ISS_DB_ENTRY, database);
        m_setup.entries[Item::Iss] = IssDb(database).entries();
        return true;
    });
}

void Bundle::readCi(const Folders& folders) {
    read(Item::Ci, folders, [&] {
        for (const UnpackedEntry& entry : m_unpacking.entries) {
            // For its error: if a single file of the CI module cannot be unpacked, the item is damaged.
            if (isCiFile(fs::path(entry.name).lexically_normal())) {
                isUnpacked(entry.name);
            }
        }
        const Entries files = ciFilesOf(m_unpacking);
        if (!files.empty()) {
            m_setup.entries[Item::Ci] = files;
        }
        return !files.empty();
    });
}

}  // namespace sim
