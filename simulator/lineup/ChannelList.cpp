#include "simulator/lineup/ChannelList.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <string_view>

#include "simulator/base/Error.h"
#include "simulator/base/FileKind.h"
#include "simulator/base/Files.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Text.h"

namespace sim {

namespace {

constexpr int MAX_NUMBER = 999'999;
constexpr int MAX_ID = 0xFFFF;  // of pids too: real lists have some that no stream could

int numberField(const std::string& text, const char* field, int max) {
    const std::optional<int> number = toNumber<int>(text);
    if (!number || *number < 0 || *number > max) {
        throw Error(fmt::format("{} {} is not a number from 0 to {}", field, inQuotes(text), max));
    }
    return *number;
}

// The first pid of a field such as "163+164=2" or "104=deu@3,105;106".
int firstPid(const std::string& text, const char* field) {
    return numberField(text.substr(0, text.find_first_of("+=,;@")), field, MAX_ID);
}

std::string conditionalAccess(const std::string& text) {
    for (const std::string& part : split(text, ',')) {
        const std::optional<int> system = toNumber<int>(part, 16);
        if (!system || *system < 0 || *system > MAX_ID) {
            throw Error(
                fmt::format("conditional access {} is not a list of hexadecimal numbers to FFFF", inQuotes(text)));
        }
    }
    return text;
}

bool isSatellite(const std::string& source) {
    return source.front() == 'S';
}

std::string sourceField(const std::string& text) {
    const bool isKnown = !text.empty() && std::string_view("ACIPSTV").find(text.front()) != std::string_view::npos;
    const bool isPlaced = text.size() > 1 || (isKnown && !isSatellite(text));
    const bool isPlain = text.find_first_not_of("0123456789.EW", 1) == std::string::npos;
    if (!isKnown || !isPlaced || !isPlain) {
        throw Error(fmt::format("source {} is not one such as S19.2E, C or T", inQuotes(text)));
    }
    return text;
}

// Satellites are given in MHz; the others in MHz, kHz or Hz, told apart by size.
std::uint64_t unitOf(std::uint64_t given, const std::string& source) {
    constexpr std::uint64_t KHZ = 1'000;
    constexpr std::uint64_t MHZ = 1'000'000;
    if (isSatellite(source) || given <= MHZ / KHZ) {
        return MHZ;
    }
    return given <= MHZ ? KHZ : 1;
}

// The stand-in for the transport stream in the identity if network and transport stream are both 0.
std::uint64_t transponder(const Service& service) {
    std::uint64_t megahertz = service.frequency / 1'000'000;
    if (isSatellite(service.source)) {
        const std::size_t polarization = service.parameters.find_first_of("HVLRhvlr");
        if (polarization != std::string::npos) {
            // Above all frequencies, so that transponders that differ by polarization alone have different numbers.
            megahertz += (std::string_view("HVLRhvlr").find(service.parameters[polarization]) % 4 + 1) * 100'000;
        }
    }
    return megahertz;
}

std::string identity(const Service& service) {
    const bool hasIds = service.nid != 0 || service.tid != 0;
    return fmt::format("{}-{}-{}-{}-{}", service.source, service.nid,
                       hasIds ? static_cast<std::uint64_t>(service.tid) : transponder(service), service.sid,
                       service.rid);
}

// "Name,Short;Provider", with '|' for ':'.
void readNames(std::string text, Service& service) {
    std::replace(text.begin(), text.end(), '|', ':');
    const std::size_t semicolon = text.find(';');
    if (semicolon != std::string::npos) {
        service.provider = text.substr(semicolon + 1);
        text.erase(semicolon);
    }
    const std::size_t comma = text.rfind(',');  // a long name may hold commas of its own
    if (comma != std::string::npos) {
        service.shortName = text.substr(comma + 1);
        text.erase(comma);
    }
    if (text.empty()) {
        throw Error("the name is empty");
    }
    service.name = text;
}

Service parseService(const std::string& line) {
    const std::vector<std::string> fields = split(line, ':');
    if (fields.size() != 12 && fields.size() != 13) {
        throw Error(fmt::format("{}, but a service has 13", plural(fields.size(), "field")));
    }
    Service service;
    readNames(fields[0], service);
    service.parameters = fields[2];
    service.source = sourceField(fields[3]);
    const std::optional<std::uint32_t> frequency = toNumber<std::uint32_t>(fields[1]);
    if (!frequency || *frequency == 0) {
        throw Error(fmt::format("frequency {} is not a number above 0", inQuotes(fields[1])));
    }
    service.frequencyUnit = unitOf(*frequency, service.source);
    service.frequency = *frequency * service.frequencyUnit;
    service.symbolRate = numberField(fields[4], "symbol rate", 100'000);
    service.videoPid = fields[5];
    service.audioPids = fields[6];
    service.textPids = fields[7];
    service.type = firstPid(service.videoPid, "video pid") == 0 ? "radio" : "tv";
    // For their errors: of the pids, only the first of the video says what the service is.
    firstPid(service.audioPids, "audio pid");
    firstPid(service.textPids, "teletext pid");
    service.conditionalAccess = conditionalAccess(fields[8]);
    service.sid = numberField(fields[9], "service id", MAX_ID);
    service.nid = numberField(fields[10], "network id", MAX_ID);
    service.tid = numberField(fields[11], "transport stream id", MAX_ID);
    service.listFields = static_cast<int>(fields.size());
    service.rid = fields.size() == 13 ? numberField(fields[12], "radio id", MAX_ID) : 0;
    service.identity = identity(service);
    return service;
}

std::string adviceOn(const std::filesystem::path& file) {
    const std::string kind = isRegularFile(file) ? fileKind(file) : "";
    return fmt::format("{}give a channel list in the channels.conf format of VDR",
                       kind.empty() ? "" : fmt::format("it looks like this: {}; ", kind));
}

// A line for each of the first problems, and how many follow.
std::string some(const std::vector<std::string>& problems) {
    constexpr std::size_t SHOWN = 10;
    std::string lines;
    for (std::size_t i = 0; i < problems.size() && i < SHOWN; ++i) {
        lines += "\n" + problems[i];
    }
    return problems.size() > SHOWN ? fmt::format("{}\n... and {} more", lines, problems.size() - SHOWN) : lines;
}

}  // namespace

std::size_t ChannelList::addService(const Service& service) {
    const auto [known, isNew] = m_places.emplace(service.identity, services.size() + 1);
    if (!isNew) {
        return known->second;
    }
    services.push_back(service);
    return 0;
}

void ChannelListReader::take(const std::string& line) {
    ++m_line;
    if (line.empty()) {
        return;
    }
    try {
        if (line.front() == ':') {
            takeGroup(line.substr(1));
            m_sink.addHeader({static_cast<int>(m_lines.size()), line});
        } else {
            takeService(parseService(line));
        }
    } catch (const Error& error) {
        m_summary.problems.push_back(fmt::format("{}:{}: {}; line skipped", m_file, m_line, error.what()));
    }
}

ChannelSummary ChannelListReader::finish() {
    m_summary.services = m_lines.size();
    return std::move(m_summary);
}

// "text", "@number text" or "@number", which names no group but sets the next service's number.
void ChannelListReader::takeGroup(std::string text) {
    if (!text.empty() && text.front() == '@') {
        const std::size_t end = std::min(text.find_first_not_of("0123456789", 1), text.size());
        const std::optional<int> number = toNumber<int>(std::string_view(text).substr(1, end - 1));
        if (!number || *number > MAX_NUMBER) {
            throw Error(fmt::format("{} sets no number from 1 to {}", inQuotes(text), MAX_NUMBER));
        }
        // VDR never counts back either: a lower number is ignored.
        if (*number > m_number) {
            m_number = *number - 1;
        }
        text.erase(0, std::min(text.find_first_not_of(' ', end), text.size()));
    }
    if (!text.empty()) {
        m_sink.addGroup(text);
        m_group = text;
        ++m_summary.groups;
    }
}

void ChannelListReader::takeService(Service service) {
    service.number = m_number + 1;
    service.group = static_cast<int>(m_summary.groups);
    service.groupName = m_group;
    if (const std::size_t known = m_sink.addService(service); known != 0) {
        throw Error(fmt::format("the service {} stands in line {} already, and here as {}", service.identity,
                                m_lines[known - 1], inQuotes(service.name)));
    }
    ++m_number;
    m_lines.push_back(m_line);
}

ChannelSummary readChannelList(const std::filesystem::path& file, ChannelSink& sink) {
    ChannelListReader reader(file.string(), sink);
    constexpr std::string_view BYTE_ORDER_MARK = "\xef\xbb\xbf";
    std::uint64_t total = 0;
    std::size_t latin1Lines = 0;
    // The file may be a pipe, or a device without an end.
    const auto take = [&](std::string_view line) {
        // Editors of other systems put it first, where it would become a part of the first name.
        const bool hasMark = total == 0 && line.compare(0, BYTE_ORDER_MARK.size(), BYTE_ORDER_MARK) == 0;
        total += line.size() + 1;
        limits::require("its bytes", total, limits::CHANNEL_LIST_BYTES);
        line.remove_prefix(hasMark ? BYTE_ORDER_MARK.size() : 0);
        line = line.substr(0, line.find_last_not_of(" \t\r") + 1);
        // By the line: lists that were merged have lines in both encodings.
        const std::string text = toUtf8(line);
        latin1Lines += text == line ? 0U : 1U;
        reader.take(text);
    };
    try {
        forEachLine(file, take, limits::CHANNEL_LINE_BYTES);
    } catch (const Error& error) {
        throw Error(error.kind(), fmt::format("{}; {}", error.what(), adviceOn(file)));
    }
    ChannelSummary summary = reader.finish();
    summary.latin1Lines = latin1Lines;
    if (summary.services == 0) {
        throw Error(fmt::format("{}: no service in it; {}{}", file.string(), adviceOn(file), some(summary.problems)));
    }
    return summary;
}

}  // namespace sim
