#include "simulator/lineup/M3uList.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <map>
#include <optional>
#include <string_view>

#include "simulator/base/Error.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/Tuning.h"

namespace sim {

namespace {

constexpr std::string_view ENTRY = "#EXTINF:";
constexpr std::string_view GROUP = "#EXTGRP:";

bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

std::string lower(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](unsigned char c) { return std::tolower(c); });
    return result;
}

// What stands before an entry's URI.
struct Heading {
    int line = 0;  // 0: there is none
    std::string name;
    std::string group;
    int number = 0;
    bool isRadio = false;
};

// "-1 tvg-chno="1" group-title="News",Name": attributes may hold commas, and the name may, too.
Heading headingOf(std::string_view text) {
    Heading heading;
    std::size_t at = 0;
    while (at < text.size() && text[at] != ',') {
        const std::size_t end = std::min(text.find_first_of("\",", at), text.size());
        if (end == text.size() || text[end] == ',') {
            at = end;
            break;
        }
        std::string_view key = text.substr(at, end - at);
        key.remove_suffix(!key.empty() && key.back() == '=' ? 1 : 0);
        key.remove_prefix(key.find_last_of(" \t") + 1);
        const std::size_t close = std::min(text.find('"', end + 1), text.size());
        const std::string_view value = text.substr(end + 1, close - end - 1);
        if (key == "tvg-chno" || key == "ch-number") {
            heading.number = toNumber<int>(value).value_or(0);
        } else if (key == "group-title") {
            heading.group = value;
        } else if (key == "radio") {
            heading.isRadio = value == "true" || value == "1";
        }
        at = std::min(close + 1, text.size());
    }
    heading.name = trimmed(text.substr(std::min(at + 1, text.size())));
    return heading;
}

// Playlists of SAT>IP count in the names: "12. Das Erste".
void takeNumberFromName(Heading& heading) {
    const std::size_t dot = heading.name.find(". ");
    const std::optional<int> number = toNumber<int>(std::string_view(heading.name).substr(0, dot));
    if (heading.number == 0 && dot != std::string::npos && number) {
        heading.number = *number;
        heading.name.erase(0, dot + 2);
    }
}

int hexadecimal(std::string_view text, std::string_view uri) {
    const std::optional<std::uint16_t> id = text.empty() ? std::uint16_t{0} : toNumber<std::uint16_t>(text, 16);
    if (!id) {
        throw Error(fmt::format("{} is no URI such as dvb://1.3f3.2b5c", inQuotes(uri)));
    }
    return *id;
}

// "dvb://network.stream.service"; components and events may follow.
Service serviceOfDvb(std::string_view uri) {
    const std::string_view ids = uri.substr(std::string_view("dvb://").size());
    const std::vector<std::string> parts = split(ids.substr(0, ids.find_first_of(";/?#&")), '.');
    if (parts.size() < 3) {
        throw Error(fmt::format("{} is no URI such as dvb://1.3f3.2b5c", inQuotes(uri)));
    }
    Service service;
    service.nid = hexadecimal(parts[0], uri);
    service.tid = hexadecimal(parts[1], uri);
    service.sid = hexadecimal(parts[2], uri);
    return service;
}

// The values of a request by their names.
using Query = std::map<std::string, std::string>;

Query queryOf(std::string_view uri) {
    Query query;
    for (const std::string& part : split(uri.substr(std::min(uri.find('?'), uri.size() - 1) + 1), '&')) {
        const std::size_t sign = std::min(part.find('='), part.size());
        query[lower(part.substr(0, sign))] = lower(std::string_view(part).substr(std::min(sign + 1, part.size())));
    }
    return query;
}

constexpr Words MODULATIONS = " 2=qpsk 5=8psk 6=16apsk 7=32apsk 16=16qam 32=32qam 64=64qam 128=128qam 256=256qam ";
constexpr Words TRANSMISSIONS = " 1=1k 2=2k 4=4k 8=8k 16=16k 32=32k ";
constexpr Words GUARDS = " 4=14 8=18 16=116 32=132 128=1128 19128=19128 19256=19256 ";
constexpr Words ROLLOFFS = " 20=0.20 25=0.25 35=0.35 ";
constexpr Words PILOTS = " 0=off 1=on ";
constexpr Words BANDWIDTHS = " 1712=1.712 5=5 6=6 7=7 8=8 10=10 ";
constexpr Words SOURCES = " S=dvbs S=dvbs2 T=dvbt T=dvbt2 C=dvbc ";
constexpr Words GENERATIONS = " 0=dvbs 1=dvbs2 0=dvbt 1=dvbt2 ";

double numberOf(Query& query, const char* key, double max) {
    const std::optional<double> number = query[key].empty() ? 0.0 : toNumber<double>(query[key]);
    if (!number || !(*number >= 0 && *number <= max)) {
        throw Error(fmt::format("{} {} is not a number from 0 to {}", key, inQuotes(query[key]), max));
    }
    return *number;
}

Parameters parametersOf(Query& query) {
    Parameters parameters;
    const std::string polarization = query["pol"];
    const auto set = [&](char letter, Words words, const char* key) {
        parameters.set(letter, valueOf(words, query[key]));
    };
    if (polarization.size() == 1 && std::string_view("hvlr").find(polarization) != std::string_view::npos) {
        parameters.setPolarization(static_cast<char>(std::toupper(static_cast<unsigned char>(polarization.front()))));
    }
    // The same digits as in a list of VDR.
    parameters.set('C', toNumber<int>(query["fec"]) ? query["fec"] : "");
    parameters.set('P', toNumber<int>(query["plp"]) ? query["plp"] : "");
    set('B', BANDWIDTHS, "bw");
    set('G', GUARDS, "gi");
    set('M', MODULATIONS, "mtype");
    set('N', PILOTS, "plts");
    set('O', ROLLOFFS, "ro");
    set('S', GENERATIONS, "msys");
    set('T', TRANSMISSIONS, "tmode");
    return parameters;
}

// The pids of a request, without those of tables that all services of a transport stream share.
std::vector<int> pidsOf(Query& query) {
    constexpr int FIRST_OF_SERVICES = 0x20;
    constexpr int MAX_PID = 0x1FFF;
    std::vector<int> pids;
    for (const std::string& part : split(query["pids"], ',')) {
        const int pid = toNumber<int>(part).value_or(0);
        if (pid >= FIRST_OF_SERVICES && pid < MAX_PID) {
            pids.push_back(pid);
        }
    }
    std::sort(pids.begin(), pids.end());
    return pids;
}

// A request of SAT>IP. It has no ids: the lowest pid tells the services of a transport stream apart.
Service serviceOfRequest(Query query) {
    constexpr double MHZ = 1e6;
    const std::string_view source = valueOf(SOURCES, query["msys"]);
    if (source.empty()) {
        throw Error(fmt::format("msys {} is none of dvbs, dvbs2, dvbt, dvbt2 and dvbc", inQuotes(query["msys"])));
    }
    Service service;
    service.source = source;
    service.frequency = static_cast<std::uint64_t>(std::llround(numberOf(query, "freq", 100'000) * MHZ));
    if (service.frequency == 0) {
        throw Error("it has no frequency");
    }
    service.symbolRate = static_cast<int>(numberOf(query, "sr", 100'000));
    service.parameters = parametersOf(query).text();
    const std::vector<int> pids = pidsOf(query);
    service.sid = static_cast<int>(numberOf(query, "sid", 0xFFFF));
    if (service.sid == 0 && pids.empty()) {
        throw Error("it has no pid that tells it apart from others on its frequency");
    }
    service.rid = service.sid == 0 ? pids.front() : 0;
    return service;
}

Service serviceOf(const std::string& uri) {
    if (startsWith(lower(uri.substr(0, 6)), "dvb://")) {
        return serviceOfDvb(uri);
    }
    Query query = queryOf(uri);
    if (query.count("freq") == 0 || query.count("msys") == 0) {
        throw Error(fmt::format("{} names no service on the air", inQuotes(uri)));
    }
    return serviceOfRequest(std::move(query));
}

class M3uReader final : public ListReader {
public:
    explicit M3uReader(ListIntake& intake) : m_intake(intake) {}

    void take(const std::string& line) override {
        const std::string_view text = trimmed(line);
        if (startsWith(text, ENTRY)) {
            m_heading = headingOf(text.substr(ENTRY.size()));
            m_heading.line = m_intake.line();
            takeNumberFromName(m_heading);
        } else if (startsWith(text, GROUP)) {
            m_heading.group = trimmed(text.substr(GROUP.size()));
        } else if (!text.empty() && text.front() != '#') {
            takeEntry(std::string(text));
            m_heading = Heading();
        }
    }

private:
    void takeEntry(const std::string& uri) {
        const int line = m_intake.line();
        try {
            Service service = serviceOf(uri);
            m_intake.setPlace(m_heading.line == 0 ? line : m_heading.line);
            service.frequencyUnit = 0;
            service.name = m_heading.name.empty() ? uri : m_heading.name;
            service.number = m_heading.number;
            service.type = m_heading.isRadio ? "radio" : "tv";
            service.group = m_intake.groupOf(m_heading.group);
            m_intake.addService(std::move(service));
        } catch (const Error& error) {
            m_intake.skip(error.what());
        }
        m_intake.setPlace(line);
    }

    ListIntake& m_intake;
    Heading m_heading;
};

// An attribute ends at the next quote: the format has nothing to escape it with.
std::string entryOf(const Service& s) {
    return fmt::format("#EXTINF:-1 tvg-chno=\"{}\" group-title=\"{}\"{},{}\ndvb://{:x}.{:x}.{:x}\n", s.number,
                       inALine(without("\"", s.groupName, '\'')), s.type == "radio" ? " radio=\"true\"" : "",
                       inALine(s.name), s.nid, s.tid, s.sid);
}

}  // namespace

bool isM3u(const std::vector<std::string>& head) {
    return startsWith(head.front(), "#EXTM3U") ||
           std::any_of(head.begin(), head.end(), [](const std::string& line) { return startsWith(line, ENTRY); });
}

std::unique_ptr<ListReader> readM3u(const ListFile& /*file*/, ListIntake& intake) {
    return std::make_unique<M3uReader>(intake);
}

void writeM3u(const Services& services, const ListOutput& output) {
    output.write("#EXTM3U\n");
    services.forEach([&](const Service& service) {
        output.see(service);
        output.write(entryOf(service));
    });
}

}  // namespace sim
