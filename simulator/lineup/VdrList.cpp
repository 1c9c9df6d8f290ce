#include "simulator/lineup/VdrList.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <string_view>
#include <vector>

#include "simulator/base/Error.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/Tuning.h"

namespace sim {

namespace {

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
    service.source = fields[3];
    if (!isVdrSource(service.source)) {
        throw Error(fmt::format("source {} is not one such as S19.2E, C or T", inQuotes(service.source)));
    }
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
    return service;
}

std::string orElse(const std::string& text, const char* other) {
    return text.empty() ? other : text;
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
    // VDR refuses a list whole for an empty field. I999 leaves the inversion to the receiver.
    return inALine(fmt::format("{}:{}:{}:{}:{}:{}:{}:{}:{}:{}:{}:{}{}", vdrNames(s),
                               s.frequency / std::max<std::uint64_t>(s.frequencyUnit, 1), orElse(s.parameters, "I999"),
                               s.source, s.symbolRate, orElse(s.videoPid, "0"), orElse(s.audioPids, "0"),
                               orElse(s.textPids, "0"), orElse(s.conditionalAccess, "0"), s.sid, s.nid, s.tid, rid));
}

// Why VDR would refuse the list whole for this service; null if it takes it.
const char* refusalOf(const Service& service) {
    if (service.sid == 0) {
        return "VDR takes no service id 0";
    }
    return isVdrSource(service.source) ? nullptr : "VDR takes no service without a source such as S19.2E, C or T";
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
        if (refusalOf(service) == nullptr) {
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
        if (refusalOf(service) != nullptr) {
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

    ListIntake m_intake{"", "", *this};
    VdrReader m_reader{m_intake};
    const Service* m_expected = nullptr;  // until it is read
    bool m_isTrue = true;
};

}  // namespace

bool isVdrSource(const std::string& source) {
    const bool isKnown = !source.empty() && std::string_view("ACIPSTV").find(source.front()) != std::string_view::npos;
    const bool isPlaced = source.size() > 1 || (isKnown && !isSatellite(source));
    const bool isPlain = source.find_first_not_of("0123456789.EW", 1) == std::string::npos;
    return isKnown && isPlaced && isPlain;
}

void VdrReader::take(const std::string& line) {
    if (line.empty()) {
        return;
    }
    try {
        if (line.front() == ':') {
            takeGroup(line.substr(1));
            m_intake.addHeader(line);
        } else {
            takeService(parseService(line));
        }
    } catch (const Error& error) {
        m_intake.skip(error.what());
    }
}

// "text", "@number text" or "@number", which names no group but sets the next service's number.
void VdrReader::takeGroup(std::string text) {
    if (!text.empty() && text.front() == '@') {
        const std::size_t end = std::min(text.find_first_not_of("0123456789", 1), text.size());
        const std::optional<int> number = toNumber<int>(std::string_view(text).substr(1, end - 1));
        if (!number || *number > Numbering::MAX_NUMBER) {
            throw Error(fmt::format("{} sets no number from 1 to {}", inQuotes(text), Numbering::MAX_NUMBER));
        }
        // VDR never counts back either: a lower number is ignored.
        if (*number > m_number) {
            m_number = *number - 1;
        }
        text.erase(0, std::min(text.find_first_not_of(' ', end), text.size()));
    }
    if (!text.empty()) {
        m_group = m_intake.addGroup(text);
    }
}

void VdrReader::takeService(Service service) {
    service.number = m_number + 1;
    service.group = m_group;
    m_intake.addService(std::move(service));
    ++m_number;
}

void writeVdr(const Services& services, const ListOutput& output) {
    services.forEach([&](const Service& service) {
        output.see(service);
        if (const char* refusal = refusalOf(service)) {
            output.leaveOut(service, refusal);
        }
    });
    // Lines go out one by one and cannot be taken back, so the list is read back before the first one is written.
    ReadBack readBack;
    withHeaders(services, [&](const std::string& line, const Service* service) { readBack.take(line, service); });
    const auto writeLine = [&](const std::string& line, const Service* /*service*/) { output.write(line + "\n"); };
    if (readBack.isTrue()) {
        withHeaders(services, writeLine);
    } else {
        withMadeHeaders(services, writeLine);
    }
}

}  // namespace sim
