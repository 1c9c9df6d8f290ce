#include "simulator/lineup/Dvbv5List.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <map>
#include <optional>
#include <string_view>

#include "simulator/base/Error.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/Tuning.h"

namespace sim {

namespace {

constexpr Words RATES = " 0=NONE 12=1/2 23=2/3 34=3/4 35=3/5 45=4/5 56=5/6 67=6/7 78=7/8 89=8/9 910=9/10 ";
constexpr Words MODULATIONS =
    " 2=QPSK 5=PSK/8 6=APSK/16 7=APSK/32 10=VSB/8 11=VSB/16 12=DQPSK 16=QAM/16 32=QAM/32 64=QAM/64 128=QAM/128"
    " 256=QAM/256 ";
constexpr Words TRANSMISSIONS = " 1=1K 2=2K 4=4K 8=8K 16=16K 32=32K ";
constexpr Words GUARDS = " 4=1/4 8=1/8 16=1/16 32=1/32 128=1/128 19128=19/128 19256=19/256 ";
constexpr Words HIERARCHIES = " 0=NONE 1=1 2=2 4=4 ";
constexpr Words INVERSIONS = " 0=OFF 1=ON ";
constexpr Words ROLLOFFS = " 20=20 25=25 35=35 ";
constexpr Words POLARIZATIONS = " H=HORIZONTAL V=VERTICAL L=LEFT R=RIGHT ";
// What a list of VDR has in kHz instead of MHz.
constexpr std::string_view BANDWIDTH_1712 = "1712";

template <typename Value>
void add(std::string& section, std::string_view key, const Value& value) {
    section += fmt::format("\t{} = {}\n", key, value);
}

std::string_view word(Words words, const Parameters& parameters, char letter) {
    return wordOf(words, parameters.valueOf(letter), "AUTO");
}

void addSatellite(std::string& section, const Service& service, const Parameters& parameters) {
    const bool isSecond = parameters.isSecondGeneration();
    const char polarization = parameters.polarization();
    // Of satellites, the format gives kHz; of everything else, Hz.
    add(section, "FREQUENCY", service.frequency / 1000);
    add(section, "SYMBOL_RATE", std::int64_t{service.symbolRate} * 1000);
    add(section, "INNER_FEC", word(RATES, parameters, 'C'));
    add(section, "MODULATION", isSecond ? word(MODULATIONS, parameters, 'M') : "QPSK");
    if (isSecond) {
        add(section, "ROLLOFF", word(ROLLOFFS, parameters, 'O'));
        add(section, "PILOT", "AUTO");
    }
    add(section, "POLARIZATION", wordOf(POLARIZATIONS, std::string_view(&polarization, 1), "OFF"));
    add(section, "INVERSION", "AUTO");
    add(section, "DELIVERY_SYSTEM", isSecond ? "DVBS2" : "DVBS");
}

void addCable(std::string& section, const Service& service, const Parameters& parameters) {
    add(section, "FREQUENCY", service.frequency);
    add(section, "SYMBOL_RATE", std::int64_t{service.symbolRate} * 1000);
    add(section, "INNER_FEC", word(RATES, parameters, 'C'));
    add(section, "MODULATION", word(MODULATIONS, parameters, 'M'));
    add(section, "INVERSION", "AUTO");
    add(section, "DELIVERY_SYSTEM", "DVBC/ANNEX_A");
}

void addTerrestrial(std::string& section, const Service& service, const Parameters& parameters) {
    const std::string bandwidth = parameters.valueOf('B');
    const int unit = bandwidth == BANDWIDTH_1712 ? 1'000 : 1'000'000;
    add(section, "FREQUENCY", service.frequency);
    // A made-up list can have any number there.
    add(section, "BANDWIDTH_HZ", std::int64_t{toNumber<int>(bandwidth).value_or(0)} * unit);
    add(section, "CODE_RATE_HP", word(RATES, parameters, 'C'));
    add(section, "CODE_RATE_LP", word(RATES, parameters, 'D'));
    add(section, "MODULATION", word(MODULATIONS, parameters, 'M'));
    add(section, "TRANSMISSION_MODE", word(TRANSMISSIONS, parameters, 'T'));
    add(section, "GUARD_INTERVAL", word(GUARDS, parameters, 'G'));
    add(section, "HIERARCHY", word(HIERARCHIES, parameters, 'Y'));
    add(section, "INVERSION", "AUTO");
    add(section, "DELIVERY_SYSTEM", parameters.isSecondGeneration() ? "DVBT2" : "DVBT");
}

// Nothing if the format has no delivery system for the service.
std::optional<std::string> sectionOf(const Service& service) {
    std::string section = fmt::format("[{}]\n", inALine(without("[]", service.name, '|')));
    add(section, "SERVICE_ID", service.sid);
    for (const auto& [key, field] :
         {std::pair("VIDEO_PID", service.videoPid), std::pair("AUDIO_PID", service.audioPids)}) {
        const std::vector<std::string> pids = pidsOf(field);
        if (!pids.empty()) {
            add(section, key, fmt::format("{}", fmt::join(pids, " ")));
        }
    }
    const Parameters parameters(service.parameters);
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

// A section's values by their keys.
class Section {
public:
    std::string name;
    int line = 0;
    std::map<std::string, std::string, std::less<>> values;

    std::string text(const char* key) const {
        const auto found = values.find(key);
        return found == values.end() ? "" : found->second;
    }

    // 0 if the section has no such key. Throws Error if the value is no number up to `max`.
    std::uint64_t number(const char* key, std::uint64_t max) const {
        const std::string value = text(key);
        const auto parsed = value.empty() ? std::uint64_t{0} : toNumber<std::uint64_t>(value);
        if (!parsed || *parsed > max) {
            throw Error(fmt::format("{} {} is not a number from 0 to {}", key, inQuotes(value), max));
        }
        return *parsed;
    }
    int id(const char* key) const {
        constexpr std::uint64_t MAX_ID = 0xFFFF;
        return static_cast<int>(number(key, MAX_ID));
    }

    // Pids that blanks separate, as a list of VDR has them: in decimal, separated by commas.
    std::string pids(const char* key) const {
        std::vector<std::string> pids;
        for (const std::string& pid : split(text(key), ' ')) {
            if (toNumber<std::uint16_t>(pid).value_or(0) != 0) {
                pids.push_back(pid);
            }
        }
        return fmt::format("{}", fmt::join(pids, ","));
    }
};

struct System {
    const char* name;
    const char* source;
    const char* generation;
};
constexpr System SYSTEMS[] = {
    {"DVBS", "S", "0"},        {"DVBS2", "S", "1"},       {"DVBT", "T", "0"},        {"DVBT2", "T", "1"},
    {"DVBC/ANNEX_A", "C", ""}, {"DVBC/ANNEX_C", "C", ""}, {"DVBC/ANNEX_B", "A", ""}, {"ATSC", "A", ""},
};

const System& systemOf(const Section& section) {
    const std::string name = section.text("DELIVERY_SYSTEM");
    const auto* found =
        std::find_if(std::begin(SYSTEMS), std::end(SYSTEMS), [&](const System& system) { return system.name == name; });
    if (found == std::end(SYSTEMS)) {
        throw Error(name.empty() ? "it has no DELIVERY_SYSTEM"
                                 : fmt::format("delivery system {} is none of DVB or ATSC", inQuotes(name)));
    }
    return *found;
}

Parameters parametersOf(const Section& section, const System& system) {
    const std::uint64_t bandwidth = section.number("BANDWIDTH_HZ", 100'000'000);
    Parameters parameters;
    const auto set = [&](char letter, Words words, const char* key) {
        parameters.set(letter, valueOf(words, section.text(key)));
    };
    if (*system.source == 'S') {
        const std::string_view polarization = valueOf(POLARIZATIONS, section.text("POLARIZATION"));
        if (!polarization.empty()) {
            parameters.setPolarization(polarization.front());
        }
    }
    set('C', RATES, "INNER_FEC");
    set('C', RATES, "CODE_RATE_HP");
    set('D', RATES, "CODE_RATE_LP");
    set('M', MODULATIONS, "MODULATION");
    set('T', TRANSMISSIONS, "TRANSMISSION_MODE");
    set('G', GUARDS, "GUARD_INTERVAL");
    set('Y', HIERARCHIES, "HIERARCHY");
    set('I', INVERSIONS, "INVERSION");
    set('O', ROLLOFFS, "ROLLOFF");
    parameters.set('P', section.text("STREAM_ID") == "0" ? "" : section.text("STREAM_ID"));
    parameters.set('S', system.generation);
    if (bandwidth > 0) {
        parameters.set('B',
                       bandwidth == 1'712'000 ? std::string(BANDWIDTH_1712) : fmt::format("{}", bandwidth / 1'000'000));
    }
    return parameters;
}

Service serviceOf(const Section& section) {
    const System& system = systemOf(section);
    const std::uint64_t unit = *system.source == 'S' ? 1'000 : 1;
    Service service;
    service.frequencyUnit = 0;
    service.name = section.name;
    service.source = system.source;
    service.frequency = section.number("FREQUENCY", 100'000'000'000 / unit) * unit;
    service.symbolRate = static_cast<int>(section.number("SYMBOL_RATE", 100'000'000) / 1000);
    service.parameters = parametersOf(section, system).text();
    service.videoPid = section.pids("VIDEO_PID");
    service.audioPids = section.pids("AUDIO_PID");
    service.sid = section.id("SERVICE_ID");
    service.nid = section.id("NETWORK_ID");
    service.tid = section.id("TRANSPORT_ID");
    // "2.1" is a number of ATSC, which no TV here counts by.
    service.number = toNumber<int>(section.text("VCHANNEL")).value_or(0);
    if (service.sid == 0) {
        throw Error("it has no SERVICE_ID: a transponder is no service");
    }
    if (service.frequency == 0) {
        throw Error("it has no FREQUENCY");
    }
    return service;
}

class Dvbv5Reader final : public ListReader {
public:
    explicit Dvbv5Reader(ListIntake& intake) : m_intake(intake) {}

    void take(const std::string& line) override {
        const std::string_view text = trimmed(line);
        if (text.empty() || text.front() == '#') {
            return;
        }
        if (text.front() == '[' && text.back() == ']') {
            takeSection();
            m_section = Section();
            m_section.name = text.substr(1, text.size() - 2);
            m_section.line = m_intake.line();
            return;
        }
        const std::size_t sign = text.find('=');
        // A repeated key is the program's mistake: the last one counts, as it does for the DVB tools.
        if (sign != std::string_view::npos && m_section.values.size() < MAX_KEYS) {
            m_section.values[std::string(trimmed(text.substr(0, sign)))] = trimmed(text.substr(sign + 1));
        }
    }

    void finish() override { takeSection(); }

private:
    static constexpr std::size_t MAX_KEYS = 1000;

    void takeSection() {
        if (m_section.line == 0) {
            return;
        }
        const int line = m_intake.line();
        m_intake.setPlace(m_section.line);
        try {
            m_intake.addService(serviceOf(m_section));
        } catch (const Error& error) {
            m_intake.skip(error.what());
        }
        m_intake.setPlace(line);
    }

    ListIntake& m_intake;
    Section m_section;
};

}  // namespace

bool isDvbv5(const std::vector<std::string>& head) {
    bool hasSection = false;
    for (const std::string& line : head) {
        const std::string_view text = trimmed(line);
        hasSection = hasSection || (text.front() == '[' && text.back() == ']');
        const std::string_view key = trimmed(text.substr(0, text.find('=')));
        if (hasSection && key.size() < text.size() &&
            (key == "DELIVERY_SYSTEM" || key == "SERVICE_ID" || key == "FREQUENCY")) {
            return true;
        }
    }
    return false;
}

std::unique_ptr<ListReader> readDvbv5(const ListFile& /*file*/, ListIntake& intake) {
    return std::make_unique<Dvbv5Reader>(intake);
}

void writeDvbv5(const Services& services, const ListOutput& output) {
    services.forEach([&](const Service& service) {
        output.see(service);
        if (const std::optional<std::string> section = sectionOf(service)) {
            output.write(*section);
        } else {
            output.leaveOut(service,
                            fmt::format("the format has no delivery system for source {}", inQuotes(service.source)));
        }
    });
}

}  // namespace sim
