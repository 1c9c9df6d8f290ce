#include "simulator/base/FileKind.h"

#include <algorithm>
#include <string_view>

#include "simulator/base/Files.h"
#include "simulator/base/Text.h"

namespace sim {

namespace {

struct Magic {
    std::size_t offset;
    std::string_view bytes;
    const char* words;
};

// The first that fits counts.
constexpr Magic MAGICS[] = {
    {0, "PK\x03\x04", "a zip archive"},
    {0, "PK\x05\x06", "an empty zip archive"},
    {0, "\x1f\x8b", "a gzip archive"},
    {0, "BZh", "a bzip2 archive"},
    {0,
     "\xfd"
     "7zXZ",
     "an xz archive"},
    {0, "7z\xbc\xaf", "a 7-Zip archive"},
    {0, "Rar!", "a RAR archive"},
    {257, "ustar", "a tar archive"},
    {0, "SQLite format 3", "an SQLite database"},
    {0,
     "\x7f"
     "ELF",
     "a program"},
    {0, "%PDF", "a PDF document"},
    {0, "\xff\xd8\xff", "a picture"},
    {0, "\x89PNG", "a picture"},
    {0, "#EXTM3U", "a playlist (M3U)"},
    {0, "eDVB services", "a channel list of Enigma2 (lamedb)"},
    {0, "#NAME ", "a bouquet of Enigma2"},
    {0, "<!DOCTYPE html", "a web page (HTML)"},
    {0, "<html", "a web page (HTML)"},
    {0, "<?xml", "XML"},
    {0, "{", "JSON, as Tvheadend writes it"},
};

// How many lines, of those that are not empty, `test` is true of.
template <typename Test>
std::size_t countLines(const std::vector<std::string>& lines, Test test) {
    return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), test));
}

std::string textKind(std::string_view head) {
    std::vector<std::string> lines = split(head, '\n');
    lines.pop_back();  // may be cut
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const std::string& line) { return line.find_first_not_of(" \t\r") == line.npos; }),
                lines.end());
    const auto isMost = [&](auto test) { return !lines.empty() && countLines(lines, test) * 2 > lines.size(); };
    const auto begins = [&](std::string_view with) {
        return countLines(lines, [&](const std::string& line) {
            const std::size_t at = line.find_first_not_of(" \t");
            return line.compare(at, with.size(), with) == 0;
        });
    };
    if (begins("DELIVERY_SYSTEM = ") > 0 || begins("SERVICE_ID = ") > 0) {
        return "a channel list of the DVB tools (dvbv5)";
    }
    if (isMost([](const std::string& line) { return line.find(":INVERSION_") != line.npos; })) {
        return "a channel list of the zap tools";
    }
    // Lines of a channels.conf have commas and semicolons, too, but between colons.
    for (const char separator : {';', '\t', ','}) {
        if (isMost([&](const std::string& line) { return std::count(line.begin(), line.end(), separator) >= 3; }) &&
            !isMost([](const std::string& line) { return std::count(line.begin(), line.end(), ':') >= 3; })) {
            return "a table of values (CSV)";
        }
    }
    return "";
}

}  // namespace

std::string fileKind(const std::filesystem::path& file) {
    constexpr std::size_t HEAD_BYTES = 16U << 10;
    std::string head;
    bool isZero = true;
    forEachBlock(file, [&](std::string_view block) {
        head += block.substr(0, HEAD_BYTES - std::min(HEAD_BYTES, head.size()));
        isZero = isZero && block.find_first_not_of('\0') == std::string_view::npos;
    });
    if (isZero) {
        return head.empty() ? "empty" : "nothing but zeros";
    }
    for (const Magic& magic : MAGICS) {
        if (head.compare(std::min(magic.offset, head.size()), magic.bytes.size(), magic.bytes) == 0) {
            return magic.words;
        }
    }
    return textKind(head);
}

}  // namespace sim
