#include "simulator/lineup/LamedbList.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <map>
#include <optional>
#include <string_view>
#include <tuple>
#include <unordered_map>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/ListText.h"
#include "simulator/lineup/Tuning.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr std::string_view HEADER = "eDVB services /";

// The upper half of a namespace: tenths of a degree to the east, or one of these.
constexpr std::uint32_t TERRESTRIAL = 0xEEEE;
constexpr std::uint32_t CABLE = 0xFFFF;
constexpr int CIRCLE = 3600;

// The values of VDR and the codes of Enigma2.
constexpr Words RATES = " 12=1 23=2 34=3 56=4 78=5 89=6 35=7 45=8 910=9 67=10 0=15 ";
constexpr Words POLARIZATIONS = " H=0 V=1 L=2 R=3 ";
constexpr Words SATELLITE_MODULATIONS = " 2=1 5=2 16=3 6=4 7=5 ";
constexpr Words ROLLOFFS = " 35=0 25=1 20=2 ";
constexpr Words PILOTS = " 0=0 1=1 ";
constexpr Words INVERSIONS = " 0=0 1=1 ";
constexpr Words CABLE_MODULATIONS = " 16=1 32=2 64=3 128=4 256=5 ";
constexpr Words TERRESTRIAL_RATES = " 12=0 23=1 34=2 56=3 78=4 67=6 89=7 ";
constexpr Words TERRESTRIAL_MODULATIONS = " 2=0 16=1 64=2 256=4 ";
constexpr Words BANDWIDTHS = " 8=0 7=1 6=2 5=4 1712=5 10=6 ";
constexpr Words TRANSMISSIONS = " 2=0 8=1 4=3 1=4 16=5 32=6 ";
constexpr Words GUARDS = " 32=0 16=1 8=2 4=3 128=5 19128=6 19256=7 ";
constexpr Words HIERARCHIES = " 0=0 1=1 2=2 4=3 ";

// Where each parameter of a transponder stands, from 0 behind the letter of its kind; codes that say "automatic".
struct Position {
    char letter;
    std::size_t at;
    Words words;
    std::string_view automatic;
};
constexpr Position SATELLITE[] = {
    {'C', 3, RATES, "0"},       {'I', 5, INVERSIONS, "2"},
    {'S', 7, " 0=0 1=1 ", "0"}, {'M', 8, SATELLITE_MODULATIONS, "0"},
    {'O', 9, ROLLOFFS, "3"},    {'N', 10, PILOTS, "2"},
};
constexpr Position CABLES[] = {
    {'I', 2, INVERSIONS, "2"},
    {'M', 3, CABLE_MODULATIONS, "0"},
    {'C', 4, RATES, "0"},
};
constexpr Position TERRESTRIALS[] = {
    {'B', 1, BANDWIDTHS, "3"},        {'C', 2, TERRESTRIAL_RATES, "5"},
    {'D', 3, TERRESTRIAL_RATES, "5"}, {'M', 4, TERRESTRIAL_MODULATIONS, "3"},
    {'T', 5, TRANSMISSIONS, "2"},     {'G', 6, GUARDS, "4"},
    {'Y', 7, HIERARCHIES, "4"},       {'I', 8, INVERSIONS, "2"},
    {'S', 10, " 0=0 1=1 ", "0"},
};

struct Transponder {
    std::string source;
    std::uint64_t frequency = 0;
    int symbolRate = 0;
    std::string parameters;
};

template <typename Number = int>
Number number(const std::vector<std::string>& fields, std::size_t at, const char* what, int base = 10) {
    const std::optional<Number> value = at < fields.size() ? toNumber<Number>(fields[at], base) : std::nullopt;
    if (!value) {
        throw Error(fmt::format("{} {} is no number", what, inQuotes(at < fields.size() ? fields[at] : "")));
    }
    return *value;
}

template <std::size_t N>
std::string parametersOf(const std::vector<std::string>& fields, const Position (&positions)[N],
                         Parameters parameters) {
    for (const Position& position : positions) {
        if (position.at < fields.size()) {
            parameters.set(position.letter, valueOf(position.words, fields[position.at]));
        }
    }
    return parameters.text();
}

// "s 11361750:22000000:0:2:192:2:0:1:2:0:2"
Transponder transponderOf(std::string_view text) {
    const char kind = text.empty() ? '\0' : text.front();
    text.remove_prefix(std::min<std::size_t>(2, text.size()));
    const std::vector<std::string> fields = split(text.substr(0, text.find(',')), ':');
    Transponder transponder;
    transponder.frequency = number<std::uint32_t>(fields, 0, "frequency");
    const Parameters firstGeneration("S0");  // older lists end before the system
    if (kind == 't') {
        transponder.source = "T";
        transponder.parameters = parametersOf(fields, TERRESTRIALS, firstGeneration);
        return transponder;
    }
    constexpr std::uint64_t KHZ = 1'000;
    transponder.frequency *= KHZ;
    transponder.symbolRate = static_cast<int>(number<std::uint32_t>(fields, 1, "symbol rate") / KHZ);
    if (kind == 'c') {
        transponder.source = "C";
        transponder.parameters = parametersOf(fields, CABLES, Parameters());
    } else if (kind == 's') {
        Parameters parameters = firstGeneration;
        const std::string_view polarization = fields.size() > 2 ? valueOf(POLARIZATIONS, fields[2]) : "";
        if (!polarization.empty()) {
            parameters.setPolarization(polarization.front());
        }
        transponder.source = satelliteAt(number<std::int16_t>(fields, 4, "orbital position"));
        transponder.parameters = parametersOf(fields, SATELLITE, parameters);
    } else {
        throw Error(fmt::format("a transponder of kind {} is neither satellite, cable nor terrestrial",
                                inQuotes(std::string_view(&kind, 1))));
    }
    return transponder;
}

// Hexadecimal numbers, told apart whatever zeros stand before them.
using Key = std::tuple<std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t>;  // namespace, tid, nid, sid

struct Entry {
    int line = 0;
    Service service;
};

struct AudioPids {
    std::vector<std::string> plain;
    std::vector<std::string> dolby;
};

// Two digits that say whose pid it is, and the pid.
void readPid(std::string_view text, Service& service, AudioPids& audio) {
    const std::string pid = fmt::format("{}", toNumber<std::uint16_t>(text.substr(2), 16).value_or(0));
    switch (toNumber<int>(text.substr(0, 2), 16).value_or(-1)) {
        case 0:
            service.videoPid = pid;
            break;
        case 1:
            audio.plain.push_back(pid);
            break;
        case 2:
            service.textPids = pid;
            break;
        case 4:
            audio.dolby.push_back(pid);
            break;
        default:
            break;
    }
}

// "p:" + provider, "c:00" + pid and so on, "C:" + CA system.
void readFlags(std::string_view text, Service& service) {
    AudioPids audio;
    std::vector<std::string> systems;
    for (const std::string& flag : split(text, ',')) {
        const std::string value = flag.size() > 2 && flag[1] == ':' ? flag.substr(2) : "";
        const char kind = value.empty() ? '\0' : flag.front();
        if (kind == 'p') {
            service.provider = value;
        } else if (kind == 'C' && toNumber<std::uint16_t>(value, 16)) {
            systems.push_back(value);
        } else if (kind == 'c' && value.size() > 2) {
            readPid(value, service, audio);
        }
    }
    service.audioPids = fmt::format("{}", fmt::join(audio.plain, ","));
    if (!audio.dolby.empty()) {
        service.audioPids =
            fmt::format("{};{}", audio.plain.empty() ? "0" : service.audioPids, fmt::join(audio.dolby, ","));
    }
    service.conditionalAccess = fmt::format("{}", fmt::join(systems, ","));
}

// "tv" or "radio" of a service type of DVB; throws Error for what is neither.
const char* typeOf(int type) {
    constexpr int RADIOS[] = {0x02, 0x07, 0x0A};
    constexpr int DATA[] = {0x03, 0x08, 0x0C, 0x0D, 0x0E, 0x0F, 0x10};
    if (std::find(std::begin(DATA), std::end(DATA), type) != std::end(DATA)) {
        throw Error(fmt::format("service type {} is neither television nor radio", type));
    }
    return std::find(std::begin(RADIOS), std::end(RADIOS), type) != std::end(RADIOS) ? "radio" : "tv";
}

class LamedbReader final : public ListReader {
public:
    LamedbReader(ListFile file, ListIntake& intake) : m_file(std::move(file)), m_intake(intake) {}

    void take(const std::string& line) override {
        if (!m_isBegun) {
            begin(line);
        } else if (m_isFlat) {
            takeFlat(line);
        } else {
            takeNested(line);
        }
    }

    void finish() override {
        for (const char* bouquets : {"bouquets.tv", "bouquets.radio"}) {
            takeBouquets(m_file.path.parent_path() / bouquets);
        }
        // What no bouquet has comes behind those.
        for (Entry& entry : m_entries) {
            if (!entry.service.name.empty()) {
                m_intake.setPlace(m_file.path.string(), entry.line);
                add(entry);
            }
        }
    }

private:
    void begin(const std::string& line) {
        if (line.empty()) {
            return;
        }
        const std::string_view version = std::string_view(line).substr(std::min(HEADER.size(), line.size()));
        if (version != "4/" && version != "5/") {
            throw Error(fmt::format("{} is not lamedb of version 4 or 5", inQuotes(line)));
        }
        m_isFlat = version == "5/";
        m_isBegun = true;
    }

    // Version 4: a transponder has three lines, the last one "/", and so has a service, the first one its key.
    void takeNested(const std::string& line) {
        if (m_lines.empty() && (line == "transponders" || line == "services" || line == "end")) {
            m_part = line;
            return;
        }
        m_lines.push_back(line);
        if (m_lines.size() < 3) {
            return;
        }
        m_intake.setPlace(m_intake.line() - 2);
        if (m_part == "transponders") {
            takeTransponder(split(m_lines[0], ':'), trimmed(m_lines[1]));
        } else if (m_part == "services") {
            takeService(split(m_lines[0], ':'), m_lines[1], m_lines[2]);
        }
        m_lines.clear();
    }

    // Version 5: t:namespace:tid:nid,s:... and s:sid:namespace:tid:nid:type:number,"name",flags.
    void takeFlat(const std::string& line) {
        const std::size_t comma = line.find(',');
        if (comma == std::string::npos || line.size() < 2) {
            return;
        }
        const std::vector<std::string> fields = split(std::string_view(line).substr(2, comma - 2), ':');
        const std::string rest = line.substr(comma + 1);
        if (line.compare(0, 2, "t:") == 0) {
            takeTransponder(fields, rest);
        } else if (line.compare(0, 2, "s:") == 0) {
            const std::size_t close = rest.find("\",", 1);
            const std::size_t end = std::min(close, rest.size() - (rest.size() > 1 && rest.back() == '"' ? 1 : 0));
            takeService(fields, rest.substr(std::min<std::size_t>(1, end), end - std::min<std::size_t>(1, end)),
                        close == std::string::npos ? "" : rest.substr(close + 2));
        }
    }

    void takeTransponder(const std::vector<std::string>& key, std::string_view text) {
        try {
            m_transponders[{number<std::uint32_t>(key, 0, "namespace", 16), number<std::uint16_t>(key, 1, "id", 16),
                            number<std::uint16_t>(key, 2, "id", 16), 0}] = transponderOf(text);
        } catch (const Error& error) {
            m_intake.skip(fmt::format("transponder: {}", error.what()));
        }
    }

    void takeService(const std::vector<std::string>& fields, const std::string& name, const std::string& flags) {
        try {
            Entry entry{m_intake.line(), {}};
            Service& service = entry.service;
            service.name = name;
            service.sid = number<std::uint16_t>(fields, 0, "service id", 16);
            service.tid = number<std::uint16_t>(fields, 2, "transport stream id", 16);
            service.nid = number<std::uint16_t>(fields, 3, "network id", 16);
            service.type = typeOf(number<int>(fields, 4, "service type"));
            if (service.name.empty()) {
                throw Error("the name is empty");
            }
            const auto space = number<std::uint32_t>(fields, 1, "namespace", 16);
            tune(service, space);
            readFlags(flags, service);
            const auto place = m_entries.size();
            const Key key{space, service.tid, service.nid, service.sid};
            if (m_places.emplace(key, place).second) {
                m_entries.push_back(std::move(entry));
            }
        } catch (const Error& error) {
            m_intake.skip(error.what());
        }
    }

    void tune(Service& service, std::uint32_t space) const {
        const auto found = m_transponders.find({space, service.tid, service.nid, 0});
        if (found == m_transponders.end()) {
            throw Error("its transponder is not in the list");
        }
        service.frequencyUnit = 0;
        service.source = found->second.source;
        service.frequency = found->second.frequency;
        service.symbolRate = found->second.symbolRate;
        service.parameters = found->second.parameters;
    }

    // A service moves to the list once: its entry loses its name.
    void add(Entry& entry) {
        try {
            m_intake.addService(entry.service);
        } catch (const Error& error) {
            m_intake.skip(error.what());
        }
        entry.service.name.clear();
    }

    // The file may be anything. `take` gets its lines with their numbers.
    template <typename Take>
    void forEachLineOf(const fs::path& file, Take take) {
        if (!isPlainFile(file)) {
            return;
        }
        int line = 0;
        m_intake.addLatin1(forEachTextLine(file, m_file.encoding, [&](const std::string& text) {
            m_intake.setPlace(file.string(), ++line);
            take(text);
        }));
    }

    // Each line names a bouquet: FROM BOUQUET "userbouquet.news.tv" ORDER BY bouquet
    void takeBouquets(const fs::path& file) {
        std::vector<std::string> names;
        forEachLineOf(file, [&](const std::string& line) {
            const std::size_t open = line.find("FROM BOUQUET \"");
            if (open == std::string::npos) {
                return;
            }
            const std::size_t begin = line.find('"', open) + 1;
            const std::string name = line.substr(begin, line.find('"', begin) - begin);
            if (name.find('/') != std::string::npos || name.find("bouquet.") == std::string::npos) {
                m_intake.skip(fmt::format("{} is not the name of a bouquet", inQuotes(name)));
            } else if (names.size() >= MAX_BOUQUETS) {
                m_intake.skip(fmt::format("it is behind the first {} bouquets", MAX_BOUQUETS));
            } else {
                names.push_back(name);
            }
        });
        for (const std::string& name : names) {
            takeBouquet(m_file.path.parent_path() / name);
        }
    }

    struct Bouquet {
        std::string name;
        int group = 0;               // 0: it has no service yet
        Entry* described = nullptr;  // is added behind its description
    };

    void takeBouquet(const fs::path& file) {
        Bouquet bouquet;
        bouquet.name = file.filename().string();
        forEachLineOf(file, [&](const std::string& line) { takeLine(line, bouquet); });
        addDescribed(bouquet);
    }

    void takeLine(const std::string& line, Bouquet& bouquet) {
        const auto withoutColon = [](std::string_view text) {
            return trimmed(text.substr(text.front() == ':' ? 1 : 0));
        };
        if (const auto text = textBehind(line, "#NAME "); !text.empty()) {
            bouquet.name = text;
        } else if (const auto own = textBehind(line, "#DESCRIPTION"); !own.empty() && bouquet.described != nullptr) {
            giveOwnName(bouquet.described->service, withoutColon(own));
        } else if (const auto reference = textBehind(line, "#SERVICE"); !reference.empty()) {
            addDescribed(bouquet);
            bouquet.described = find(withoutColon(reference));
        }
    }

    void addDescribed(Bouquet& bouquet) {
        if (bouquet.described == nullptr) {
            return;
        }
        if (bouquet.group == 0) {
            bouquet.group = m_intake.addGroup(bouquet.name);
        }
        bouquet.described->service.group = bouquet.group;
        add(*bouquet.described);
        bouquet.described = nullptr;
    }

    static std::string_view textBehind(std::string_view line, std::string_view key) {
        return line.substr(0, key.size()) == key ? line.substr(key.size()) : std::string_view();
    }

    // "1:0:19:2B5C:3F3:1:C00000:0:0:0:", or a marker. Null if it is not to be added.
    Entry* find(std::string_view reference) {
        constexpr int NOT_PLAYABLE = 0x40 | 0x07;  // markers, folders and further bouquets
        const std::vector<std::string> fields = split(reference, ':');
        try {
            if ((number<int>(fields, 1, "flags of a reference") & NOT_PLAYABLE) != 0) {
                return nullptr;
            }
            if (number<int>(fields, 0, "kind of a reference") != 1 || (fields.size() > 10 && !fields[10].empty())) {
                throw Error(fmt::format("{} names no service on the air", inQuotes(reference)));
            }
            const auto found = m_places.find(
                {number<std::uint32_t>(fields, 6, "namespace", 16), number<std::uint16_t>(fields, 4, "id", 16),
                 number<std::uint16_t>(fields, 5, "id", 16), number<std::uint16_t>(fields, 3, "id", 16)});
            if (found == m_places.end()) {
                throw Error(fmt::format("{} is not in lamedb", inQuotes(reference)));
            }
            Entry& entry = m_entries[found->second];
            if (entry.service.name.empty()) {
                m_intake.note(
                    fmt::format("{} stands in an earlier bouquet already, which is its group", inQuotes(reference)));
                return nullptr;
            }
            return &entry;
        } catch (const Error& error) {
            m_intake.skip(error.what());
            return nullptr;
        }
    }

    static constexpr std::size_t MAX_BOUQUETS = 1000;

    ListFile m_file;
    ListIntake& m_intake;
    bool m_isBegun = false;
    bool m_isFlat = false;
    std::string m_part;
    std::vector<std::string> m_lines;  // of a transponder or a service
    std::map<Key, Transponder> m_transponders;
    std::vector<Entry> m_entries;
    std::map<Key, std::size_t> m_places;
};

template <std::size_t N>
void setCodes(std::vector<std::string>& fields, const Position (&positions)[N], const Parameters& parameters) {
    for (const Position& position : positions) {
        fields.resize(std::max(fields.size(), position.at + 1), "0");
        fields[position.at] = wordOf(position.words, parameters.valueOf(position.letter), position.automatic);
    }
}

// What stands between two services on the same frequency where the ids do not tell them apart.
std::uint32_t hashOf(const Service& service, char polarization) {
    const bool hasIds = service.nid != 0 || service.tid != 0;
    const auto megahertz = static_cast<std::uint32_t>(service.frequency / 1'000'000);
    return hasIds ? 0 : ((megahertz & 0x7FFF) | (polarization == 'V' ? 0x8000U : 0U));
}

// A line such as "s 11361750:22000000:0:2:192:2:0:1:2:0:2", and the namespace; nothing if the format has none for it.
std::optional<std::pair<std::uint32_t, std::string>> transponderLine(const Service& service) {
    const Parameters parameters(service.parameters);
    const char polarization = parameters.polarization();
    const std::uint64_t kilohertz = service.frequency / 1000;
    const std::string rate = fmt::format("{}", std::int64_t{service.symbolRate} * 1000);
    std::vector<std::string> fields;
    std::uint32_t place = 0;
    int tenths = 0;
    char kind = '\0';
    if (placeOf(service.source, tenths)) {
        kind = 's';
        place = static_cast<std::uint32_t>((tenths + CIRCLE) % CIRCLE);
        fields = {fmt::format("{}", kilohertz), rate,
                  std::string(wordOf(POLARIZATIONS, std::string_view(&polarization, 1), "0")), "0",
                  fmt::format("{}", tenths)};
        setCodes(fields, SATELLITE, parameters);
    } else if (service.source == "C") {
        kind = 'c';
        place = CABLE;
        fields = {fmt::format("{}", kilohertz), rate};
        setCodes(fields, CABLES, parameters);
        fields.emplace_back("0");
    } else if (service.source == "T") {
        kind = 't';
        place = TERRESTRIAL;
        fields = {fmt::format("{}", service.frequency)};
        setCodes(fields, TERRESTRIALS, parameters);
    } else {
        return std::nullopt;
    }
    return std::pair(place << 16 | hashOf(service, polarization), fmt::format("{} {}", kind, fmt::join(fields, ":")));
}

std::string flagsOf(const Service& service) {
    std::string flags = "p:" + inALine(without(",", service.provider, ' '));
    const auto addPids = [&](int cache, std::string_view field) {
        for (const std::string& pid : pidsOf(field)) {
            flags += fmt::format(",c:{:02x}{:04x}", cache, toNumber<int>(pid).value_or(0));
        }
    };
    const std::string_view audio = service.audioPids;
    const std::size_t dolby = std::min(audio.find(';'), audio.size());
    addPids(0, service.videoPid);
    addPids(1, audio.substr(0, dolby));
    addPids(2, std::string_view(service.textPids).substr(0, service.textPids.find(';')));
    addPids(4, audio.substr(dolby));
    for (const std::string& system : split(service.conditionalAccess, ',')) {
        if (toNumber<std::uint16_t>(system, 16).value_or(0) != 0) {
            flags += ",C:" + system;
        }
    }
    return flags;
}

}  // namespace

bool isLamedb(const std::vector<std::string>& head) {
    return head.front().compare(0, HEADER.size(), HEADER) == 0;
}

std::unique_ptr<ListReader> readLamedb(const ListFile& file, ListIntake& intake) {
    return std::make_unique<LamedbReader>(file, intake);
}

void writeLamedb(const Services& services, const ListOutput& output) {
    std::map<Key, bool> written;
    output.write("eDVB services /4/\ntransponders\n");
    const auto ids = [](std::uint32_t space, const Service& service) {
        return fmt::format("{:08x}:{:04x}:{:04x}", space, service.tid, service.nid);
    };
    services.forEach([&](const Service& service) {
        output.see(service);
        const auto transponder = transponderLine(service);
        if (!transponder) {
            output.leaveOut(service, "the format needs a source such as S19.2E, C or T");
        } else if (written.emplace(Key(transponder->first, service.tid, service.nid, 0), true).second) {
            output.write(fmt::format("{}\n\t{}\n/\n", ids(transponder->first, service), transponder->second));
        }
    });
    output.write("end\nservices\n");
    services.forEach([&](const Service& service) {
        constexpr int TELEVISION = 1;
        constexpr int RADIO = 2;
        if (const auto transponder = transponderLine(service)) {
            output.write(fmt::format("{:04x}:{}:{}:0\n{}\n{}\n", service.sid, ids(transponder->first, service),
                                     service.type == "radio" ? RADIO : TELEVISION, inALine(service.name),
                                     flagsOf(service)));
        }
    });
    output.write("end\n");
}

}  // namespace sim
