#include "simulator/lineup/Diagnosis.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "simulator/base/Archive.h"
#include "simulator/base/Error.h"
#include "simulator/base/FileKind.h"
#include "simulator/base/Files.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/Application.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr std::size_t SHOWN = 10;

// Of a zip's headers: the lowest byte comes first.
std::uint32_t number(const std::string& bytes, std::size_t offset, std::size_t size) {
    std::uint32_t value = 0;
    for (std::size_t i = size; i-- > 0;) {
        value = value << 8 | static_cast<unsigned char>(bytes[offset + i]);
    }
    return value;
}

// The entries that are there to their last byte, by their local headers, as the directory at the end is missing.
std::vector<std::string> wholeEntries(const std::string& bytes) {
    constexpr std::size_t HEADER = 30;
    constexpr std::uint32_t SIGNATURE = 0x04034b50;
    constexpr std::uint32_t SIZES_FOLLOW = 8;
    std::vector<std::string> names;
    for (std::size_t at = 0; at + HEADER <= bytes.size() && number(bytes, at, 4) == SIGNATURE;) {
        const std::size_t nameSize = number(bytes, at + 26, 2);
        const std::size_t end = at + HEADER + nameSize + number(bytes, at + 28, 2) + number(bytes, at + 18, 4);
        // With this flag, the sizes stand behind the data, and nothing tells where these end.
        if ((number(bytes, at + 6, 2) & SIZES_FOLLOW) != 0 || end > bytes.size()) {
            break;
        }
        names.push_back(inQuotes(bytes.substr(at + HEADER, nameSize)));
        at = end;
    }
    return names;
}

bool endsWith(const std::string& text, std::string_view end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

std::string whyNoArchive(const fs::path& file) {
    const std::string kind = fileKind(file);
    if (kind != "a zip archive") {
        return kind.empty() ? "no zip archive" : "no zip archive, but " + kind;
    }
    // Not read into memory, only to say a little more.
    if (sizeOf(file) > limits::ENTRY_BYTES) {
        return "a zip archive that is cut off: the directory at its end is missing";
    }
    std::vector<std::string> names = wholeEntries(readFile(file));
    const std::size_t count = names.size();
    names.resize(std::min(count, SHOWN));
    return fmt::format("a zip archive that is cut off: the directory at its end is missing; still whole in it: {}{}",
                       names.empty() ? "nothing" : fmt::format("{}", fmt::join(names, ", ")),
                       count > SHOWN ? fmt::format(" and {} more", count - SHOWN) : "");
}

std::string whyNoBundle(const fs::path& archive) {
    std::vector<ArchiveEntry> entries;
    try {
        entries = listArchive(archive);
    } catch (const Error&) {
        return "";
    }
    const std::string inFolder = std::string("/") + application::SERVICE_DB_ENTRY;
    std::string other;
    for (const ArchiveEntry& entry : entries) {
        if (endsWith(entry.name, inFolder)) {
            const std::string folder = entry.name.substr(0, entry.name.size() - inFolder.size());
            return fmt::format("it was packed with its folder {}; pack what is in that: zip -D -r fixed.zip .",
                               inQuotes(folder));
        }
        if (endsWith(entry.name, ".zip") && !endsWith(entry.name, application::ISS_DB_ENTRY)) {
            other = entry.name;
        }
    }
    if (!other.empty()) {
        return fmt::format("it holds the archive {}, which may be the bundle; unpack that first", inQuotes(other));
    }
    const bool hasPart = std::any_of(entries.begin(), entries.end(), [](const ArchiveEntry& entry) {
        return entry.name == application::SETTINGS_ENTRY || entry.name == application::ISS_DB_ENTRY ||
               entry.name.find(application::CI_PREFIX) == 0;
    });
    return hasPart ? "" : "it is a zip archive with nothing of a bundle in it";
}

}  // namespace sim
