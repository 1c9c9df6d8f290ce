#include "simulator/lineup/ChannelExport.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <optional>

#include "simulator/base/Text.h"
#include "simulator/lineup/ChannelList.h"

namespace sim {

namespace {

// A text with another character in the place of some.
std::string without(std::string_view characters, std::string text, char instead) {
    std::replace_if(
        text.begin(), text.end(), [&](char c) { return characters.find(c) != std::string_view::npos; }, instead);
    return text;
}

// A text that must not end its line.
std::string inALine(std::string text) {
    return without("\n\r", std::move(text), ' ');
}

// A colon would end the field: the format has '|' for it.
std::string vdrNames(const Service& service) {
    std::string names = service.name;
    // What stands behind the last comma is the short name, even if there is none.
    if (!service.shortName.empty() || names.find(',') != std::string::npos) {
        names += "," + service.shortName;
    }
    if (!service.provider.empty()) {
        names += ";" + service.provider;
    }
    return inALine(without(":", names, '|'));
}

std::string vdrLine(const Service& s) {
    // Old lists have no such field: a line is written as it was read. So is the frequency, in the unit that it came in.
    const std::string rid = s.listFields == 12 && s.rid == 0 ? "" : fmt::format(":{}", s.rid);
    return inALine(fmt::format("{}:{}:{}:{}:{}:{}:{}:{}:{}:{}:{}:{}{}", vdrNames(s),
                               s.frequency / std::max<std::uint64_t>(s.frequencyUnit, 1), s.parameters, s.source,
                               s.symbolRate, s.videoPid, s.audioPids, s.textPids, s.conditionalAccess, s.sid, s.nid,
                               s.tid, rid));
}

// VDR refuses a list whole for a service without an id.
bool isForVdr(const Service& service) {
    return service.sid != 0;
}

// Takes a line without its end, and the service that it stands for; null if it is a header.
using TakeLine = std::function<void(const std::string&, const Service*)>;

// With the headers that the list had.
void withHeaders(const Services& services, const TakeLine& take) {
    const std::vector<ListHeader> headers = services.headers();
    auto header = headers.begin();
    const auto takeHeadersTo = [&](int place) {
        for (; header != headers.end() && header->before <= place; ++header) {
            take(inALine(header->text), nullptr);
        }
    };
    int place = 0;
    services.forEach([&](const Service& service) {
        takeHeadersTo(place++);
        if (isForVdr(service)) {
            take(vdrLine(service), &service);
        }
    });
    takeHeadersTo(place);
}

// With headers made from the numbers and groups of the services.
void withMadeHeaders(const Services& services, const TakeLine& take) {
    int group = 0;
    int next = 1;
    services.forEach([&](const Service& service) {
        if (!isForVdr(service)) {
            return;
        }
        const bool isNewGroup = service.group != group && service.group != 0;
        const std::string number = service.number == next ? "" : fmt::format("@{}", service.number);
        if (isNewGroup || !number.empty()) {
            const std::string name = isNewGroup ? inALine(service.groupName) : "";
            take(fmt::format(":{}{}{}", number, number.empty() || name.empty() ? "" : " ", name), nullptr);
        }
        take(vdrLine(service), &service);
        group = service.group;
        next = service.number + 1;
    });
}

// Whether a list of these lines gives each service its identity, number and group back.
class ReadBack final : private ChannelSink {
public:
    void take(const std::string& line, const Service* service) {
        if (m_isTrue) {
            m_expected = service;
            m_reader.take(line);
            m_isTrue = m_expected == nullptr;
        }
    }
    bool isTrue() const { return m_isTrue; }

private:
    void addGroup(const std::string& /*name*/) override {}
    void addHeader(const ListHeader& /*header*/) override {}
    std::size_t addService(const Service& service) override {
        if (m_expected != nullptr && service.identity == m_expected->identity && service.number == m_expected->number &&
            service.groupName == m_expected->groupName) {
            m_expected = nullptr;
        } else {
            m_isTrue = false;
        }
        return 0;
    }

    ChannelListReader m_reader{"", *this};
    const Service* m_expected = nullptr;  // until it is read
    bool m_isTrue = true;
};

// The list as it was read, if that still gives the services their numbers and groups.
void vdr(const Services& services, const std::function<void(std::string_view)>& write,
         const std::function<void(const std::string&)>& problem) {
    services.forEach([&](const Service& service) {
        if (!isForVdr(service)) {
            problem(fmt::format("{} {}: left out: VDR takes no service id 0", service.number, service.name));
        }
    });
    // Lines go out one by one and cannot be taken back, so the list is read back before the first one is written.
    ReadBack readBack;
    withHeaders(services, [&](const std::string& line, const Service* service) { readBack.take(line, service); });
    const auto writeLine = [&](const std::string& line, const Service* /*service*/) { write(line + "\n"); };
    if (readBack.isTrue()) {
        withHeaders(services, writeLine);
    } else {
        withMadeHeaders(services, writeLine);
    }
}

// An attribute ends at the next quote: the format has nothing to escape it with.
std::string m3uEntry(const Service& s) {
    return fmt::format("#EXTINF:-1 tvg-chno=\"{}\" group-title=\"{}\"{},{}\ndvb://{:x}.{:x}.{:x}\n", s.number,
                       inALine(without("\"", s.groupName, '\'')), s.type == "radio" ? " radio=\"true\"" : "",
                       inALine(s.name), s.nid, s.tid, s.sid);
}

// The letters of a channel list's parameters, with what follows each: "HC23M5" is H, C 23, M 5.
using Parameters = std::map<char, std::string>;

Parameters parametersOf(const std::string& text) {
    Parameters parameters;
    char letter = 0;
    for (const char c : text) {
        if (std::isdigit(static_cast<unsigned char>(c)) == 0) {
            letter = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
            parameters[letter];
        } else if (letter != 0) {
            parameters[letter] += c;
        }
    }
    return parameters;
}

std::string valueOf(const Parameters& parameters, char letter) {
    return parameters.count(letter) == 1 ? parameters.at(letter) : "";
}

// S1 is DVB-S2 or DVB-T2.
bool isSecondGeneration(const Parameters& parameters) {
    return valueOf(parameters, 'S') == "1";
}

// What the format calls the values of a parameter.
// A blank at both ends of each, so that " 1=" is not found in " 11=".
constexpr char RATES[] = " 0=NONE 12=1/2 23=2/3 34=3/4 35=3/5 45=4/5 56=5/6 67=6/7 78=7/8 89=8/9 910=9/10 ";
constexpr char MODULATIONS[] =
    " 2=QPSK 5=PSK/8 6=APSK/16 7=APSK/32 10=VSB/8 11=VSB/16 12=DQPSK 16=QAM/16 32=QAM/32 64=QAM/64 128=QAM/128"
    " 256=QAM/256 ";
constexpr char TRANSMISSIONS[] = " 1=1K 2=2K 4=4K 8=8K 16=16K 32=32K ";
constexpr char GUARDS[] = " 4=1/4 8=1/8 16=1/16 32=1/32 128=1/128 19128=19/128 19256=19/256 ";
constexpr char HIERARCHIES[] = " 0=NONE 1=1 2=2 4=4 ";
constexpr char ROLLOFFS[] = " 20=20 25=25 35=35 ";

// "AUTO" if the list leaves it open.
std::string_view wordOf(std::string_view words, const Parameters& parameters, char letter) {
    const std::string key = fmt::format(" {}=", valueOf(parameters, letter));
    const std::size_t at = words.find(key);
    if (at == std::string_view::npos) {
        return "AUTO";
    }
    words.remove_prefix(at + key.size());
    return words.substr(0, words.find(' '));
}

std::string_view polarizationOf(const Parameters& parameters) {
    for (const auto& [letter, word] :
         {std::pair('R', "RIGHT"), std::pair('L', "LEFT"), std::pair('V', "VERTICAL"), std::pair('H', "HORIZONTAL")}) {
        if (parameters.count(letter) != 0) {
            return word;
        }
    }
    return "OFF";
}

// The pids of a field such as "104=deu@3,105;106", decimal numbers.
std::vector<std::string> pidsOf(const std::string& field) {
    std::vector<std::string> pids;
    for (const std::string& part : split(field, ';')) {
        for (const std::string& pid : split(part, ',')) {
            const std::string digits = pid.substr(0, pid.find_first_of("=+@"));
            // 0 stands for no such stream.
            if (toNumber<int>(digits).value_or(0) > 0) {
                pids.push_back(digits);
            }
        }
    }
    return pids;
}

template <typename Value>
void add(std::string& section, std::string_view key, const Value& value) {
    section += fmt::format("\t{} = {}\n", key, value);
}

void addSatellite(std::string& section, const Service& service, const Parameters& parameters) {
    const bool isSecond = isSecondGeneration(parameters);
    // Of satellites, the format gives kHz; of everything else, Hz.
    add(section, "FREQUENCY", service.frequency / 1000);
    add(section, "SYMBOL_RATE", service.symbolRate * 1000);
    add(section, "INNER_FEC", wordOf(RATES, parameters, 'C'));
    add(section, "MODULATION", isSecond ? wordOf(MODULATIONS, parameters, 'M') : "QPSK");
    if (isSecond) {
        add(section, "ROLLOFF", wordOf(ROLLOFFS, parameters, 'O'));
        add(section, "PILOT", "AUTO");
    }
    add(section, "POLARIZATION", polarizationOf(parameters));
    add(section, "INVERSION", "AUTO");
    add(section, "DELIVERY_SYSTEM", isSecond ? "DVBS2" : "DVBS");
}

void addCable(std::string& section, const Service& service, const Parameters& parameters) {
    add(section, "FREQUENCY", service.frequency);
    add(section, "SYMBOL_RATE", service.symbolRate * 1000);
    add(section, "INNER_FEC", wordOf(RATES, parameters, 'C'));
    add(section, "MODULATION", wordOf(MODULATIONS, parameters, 'M'));
    add(section, "INVERSION", "AUTO");
    add(section, "DELIVERY_SYSTEM", "DVBC/ANNEX_A");
}

void addTerrestrial(std::string& section, const Service& service, const Parameters& parameters) {
    constexpr int HZ = 1'000'000;
    add(section, "FREQUENCY", service.frequency);
    add(section, "BANDWIDTH_HZ", toNumber<int>(valueOf(parameters, 'B')).value_or(0) * HZ);
    add(section, "CODE_RATE_HP", wordOf(RATES, parameters, 'C'));
    add(section, "CODE_RATE_LP", wordOf(RATES, parameters, 'D'));
    add(section, "MODULATION", wordOf(MODULATIONS, parameters, 'M'));
    add(section, "TRANSMISSION_MODE", wordOf(TRANSMISSIONS, parameters, 'T'));
    add(section, "GUARD_INTERVAL", wordOf(GUARDS, parameters, 'G'));
    add(section, "HIERARCHY", wordOf(HIERARCHIES, parameters, 'Y'));
    add(section, "INVERSION", "AUTO");
    add(section, "DELIVERY_SYSTEM", isSecondGeneration(parameters) ? "DVBT2" : "DVBT");
}

// Nothing if the format has no delivery system for the service.
std::optional<std::string> dvbv5Section(const Service& service) {
    std::string section = fmt::format("[{}]\n", inALine(without("[]", service.name, '|')));
    add(section, "SERVICE_ID", service.sid);
    for (const auto& [key, field] :
         {std::pair("VIDEO_PID", service.videoPid), std::pair("AUDIO_PID", service.audioPids)}) {
        const std::vector<std::string> pids = pidsOf(field);
        if (!pids.empty()) {
            add(section, key, fmt::format("{}", fmt::join(pids, " ")));
        }
    }
    const Parameters parameters = parametersOf(service.parameters);
    switch (service.source.empty() ? 0 : service.source.front()) {
        case 'S':
            addSatellite(section, service, parameters);
            break;
        case 'C':
            addCable(section, service, parameters);
            break;
        case 'T':
            addTerrestrial(section, service, parameters);
            break;
        default:
            return std::nullopt;
    }
    return section + "\n";
}

}  // namespace

void exportChannels(const Services& services, ExportFormat format, const std::function<void(std::string_view)>& write,
                    const std::function<void(const std::string&)>& problem) {
    switch (format) {
        case ExportFormat::Vdr:
            vdr(services, write, problem);
            break;
        case ExportFormat::M3u:
            write("#EXTM3U\n");
            services.forEach([&](const Service& service) { write(m3uEntry(service)); });
            break;
        case ExportFormat::Dvbv5:
            services.forEach([&](const Service& service) {
                if (const std::optional<std::string> section = dvbv5Section(service)) {
                    write(*section);
                } else {
                    problem(fmt::format("{} {}: left out: the format has no delivery system for source {}",
                                        service.number, service.name, inQuotes(service.source)));
                }
            });
            break;
    }
}

}  // namespace sim
