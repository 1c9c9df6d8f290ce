#include "simulator/lineup/TvheadendList.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <json/value.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <string_view>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Json.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/Tuning.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr char CHANNELS[] = "channel/config";
constexpr char TAGS[] = "channel/tag";
constexpr char NETWORKS[] = "input/dvb/networks";

// What the parameters are called; versions differ.
constexpr Words MODULATIONS =
    " 2=QPSK 5=PSK/8 5=8PSK 6=16APSK 6=APSK/16 7=32APSK 7=APSK/32 16=QAM/16 32=QAM/32 64=QAM/64 128=QAM/128 256=QAM/256"
    " 16=QAM16 32=QAM32 64=QAM64 128=QAM128 256=QAM256 ";
constexpr Words RATES = " 0=NONE 12=1/2 23=2/3 34=3/4 35=3/5 45=4/5 56=5/6 67=6/7 78=7/8 89=8/9 910=9/10 ";
constexpr Words BANDWIDTHS = " 5=5MHz 6=6MHz 7=7MHz 8=8MHz 10=10MHz 1712=1.712MHz ";
constexpr Words TRANSMISSIONS = " 1=1k 2=2k 4=4k 8=8k 16=16k 32=32k ";
constexpr Words GUARDS = " 4=1/4 8=1/8 16=1/16 32=1/32 128=1/128 19128=19/128 19256=19/256 ";
constexpr Words ROLLOFFS = " 20=20 25=25 35=35 20=0.20 25=0.25 35=0.35 ";
constexpr Words PILOTS = " 0=OFF 1=ON ";
constexpr Words HIERARCHIES = " 0=NONE 1=1 2=2 4=4 ";
constexpr Words SOURCES =
    " S=DVBS S=DVBS2 T=DVBT T=DVBT2 C=DVBC C=DVBC/ANNEX_A C=DVBC/ANNEX_C C=DVBC_ANNEX_A C=DVBC_ANNEX_AC A=ATSC ";
constexpr Words GENERATIONS = " 0=DVBS 1=DVBS2 0=DVBT 1=DVBT2 ";

// A text, or a whole number as one. jsoncpp ends a number with a line break.
std::string textOf(const Json::Value& object, const char* key) {
    const Json::Value& value = object[key];
    const std::string text = value.isString() ? value.asString() : value.isIntegral() ? value.toStyledString() : "";
    return std::string(trimmed(inALine(text)));
}

int idOf(const Json::Value& object, const char* key) {
    constexpr int MAX_ID = 0xFFFF;
    const Json::Value& value = object[key];
    if (!value.isNull() && !(value.isInt() && value.asInt() >= 0 && value.asInt() <= MAX_ID)) {
        throw Error(fmt::format("{} is not a number from 0 to {}", key, MAX_ID));
    }
    return value.isNull() ? 0 : value.asInt();
}

struct Mux {
    std::string network;
    Json::Value values;
};

struct Stored {
    std::string mux;
    Json::Value values;
};

// The objects that make up a list, by their ids.
class Objects {
public:
    std::map<std::string, Json::Value> networks;
    std::map<std::string, Mux> muxes;
    std::map<std::string, Stored> services;
    std::map<std::string, Json::Value> channels;
    std::map<std::string, Json::Value> tags;
};

std::uint64_t frequencyOf(const Json::Value& mux, bool isSatellite) {
    const Json::Value& value = mux["frequency"];
    constexpr std::uint64_t MAX_HZ = 100'000'000'000;
    const std::uint64_t unit = isSatellite ? 1'000 : 1;
    if (!value.isUInt64() || value.asUInt64() == 0 || value.asUInt64() > MAX_HZ / unit) {
        throw Error("its multiplex has no frequency");
    }
    return value.asUInt64() * unit;
}

// "19.2E", of the multiplex or of its network.
std::string satelliteOf(const Json::Value& mux, const Json::Value& network) {
    for (const auto& [object, key] : {std::pair(&mux, "orbital"), std::pair(&network, "orbital_pos")}) {
        const std::string source = "S" + textOf(*object, key);
        int tenths = 0;
        if (placeOf(source, tenths)) {
            return satelliteAt(tenths);
        }
    }
    return "S";
}

Parameters parametersOf(const Json::Value& mux, std::string_view system) {
    Parameters parameters;
    const auto set = [&](char letter, Words words, const char* key) {
        parameters.set(letter, valueOf(words, textOf(mux, key)));
    };
    const std::string polarization = textOf(mux, "polarisation");
    if (isSatellite(valueOf(SOURCES, system)) && !polarization.empty() &&
        std::string_view("HVLR").find(polarization.front()) != std::string_view::npos) {
        parameters.setPolarization(polarization.front());
    }
    set('B', BANDWIDTHS, "bandwidth");
    set('C', RATES, "fec");
    set('C', RATES, "fec_hi");
    set('D', RATES, "fec_lo");
    set('G', GUARDS, "guard_interval");
    set('M', MODULATIONS, "modulation");
    set('M', MODULATIONS, "constellation");
    set('N', PILOTS, "pilot");
    set('O', ROLLOFFS, "rolloff");
    set('T', TRANSMISSIONS, "transmission_mode");
    set('Y', HIERARCHIES, "hierarchy");
    parameters.set('S', valueOf(GENERATIONS, system));
    return parameters;
}

void tune(Service& service, const Json::Value& mux, const Json::Value& network) {
    std::string system = textOf(mux, "delsys");
    system.erase(std::remove(system.begin(), system.end(), '-'), system.end());
    service.source = valueOf(SOURCES, system);
    if (service.source.empty()) {
        throw Error(fmt::format("delivery system {} is none of DVB or ATSC", inQuotes(system)));
    }
    const bool isFromSatellite = isSatellite(service.source);
    service.frequencyUnit = 0;
    service.frequency = frequencyOf(mux, isFromSatellite);
    service.symbolRate = mux["symbolrate"].isInt() ? std::max(mux["symbolrate"].asInt(), 0) / 1000 : 0;
    service.parameters = parametersOf(mux, system).text();
    service.nid = idOf(mux, "onid");
    service.tid = idOf(mux, "tsid");
    if (isFromSatellite) {
        service.source = satelliteOf(mux, network);
    }
}

enum class StreamKind { Video, Audio, Dolby, Text, Access, Other };

StreamKind kindOf(std::string_view type) {
    constexpr std::pair<std::string_view, StreamKind> KINDS[] = {
        {"MPEG2VIDEO", StreamKind::Video}, {"H264", StreamKind::Video},    {"HEVC", StreamKind::Video},
        {"MPEG2AUDIO", StreamKind::Audio}, {"AAC", StreamKind::Audio},     {"AACLATM", StreamKind::Audio},
        {"AAC-LATM", StreamKind::Audio},   {"MP4A", StreamKind::Audio},    {"AC3", StreamKind::Dolby},
        {"EAC3", StreamKind::Dolby},       {"TELETEXT", StreamKind::Text}, {"CA", StreamKind::Access},
    };
    const auto* found =
        std::find_if(std::begin(KINDS), std::end(KINDS), [&](const auto& kind) { return kind.first == type; });
    return found == std::end(KINDS) ? StreamKind::Other : found->second;
}

void addSystems(std::vector<std::string>& systems, const Json::Value& stream) {
    for (const Json::Value& each : stream["caidlist"].isArray() ? stream["caidlist"] : Json::Value(Json::arrayValue)) {
        if (each.isObject() && each["caid"].isUInt() && each["caid"].asUInt() <= 0xFFFF) {
            systems.push_back(fmt::format("{:X}", each["caid"].asUInt()));
        }
    }
}

void readStreams(Service& service, const Json::Value& streams) {
    std::vector<std::string> audio;
    std::vector<std::string> dolby;
    std::vector<std::string> systems;
    for (const Json::Value& stream : streams.isArray() ? streams : Json::Value(Json::arrayValue)) {
        if (!stream.isObject()) {
            continue;
        }
        const std::string language = textOf(stream, "language");
        const std::string pid = fmt::format("{}", idOf(stream, "pid"));
        const std::string spoken = language.size() == 3 ? fmt::format("{}={}", pid, language) : pid;
        switch (kindOf(textOf(stream, "type"))) {
            case StreamKind::Video:
                service.videoPid = pid;
                break;
            case StreamKind::Audio:
                audio.push_back(spoken);
                break;
            case StreamKind::Dolby:
                dolby.push_back(spoken);
                break;
            case StreamKind::Text:
                service.textPids = pid;
                break;
            case StreamKind::Access:
                addSystems(systems, stream);
                break;
            case StreamKind::Other:
                break;
        }
    }
    service.audioPids = audio.empty() && !dolby.empty() ? "0" : fmt::format("{}", fmt::join(audio, ","));
    service.audioPids += dolby.empty() ? "" : fmt::format(";{}", fmt::join(dolby, ","));
    service.conditionalAccess = fmt::format("{}", fmt::join(systems, ","));
}

const char* typeOf(const Json::Value& service) {
    constexpr int RADIOS[] = {0x02, 0x07, 0x0A};
    const Json::Value& type = service["dvb_servicetype"];
    const bool isRadio =
        type.isInt() && std::find(std::begin(RADIOS), std::end(RADIOS), type.asInt()) != std::end(RADIOS);
    return isRadio ? "radio" : "tv";
}

// Joins the objects to services and hands them in: first what the channels have, in the order of their numbers, then
// the services that none has.
class Joining {
public:
    Joining(Objects objects, ListIntake& intake) : m_objects(std::move(objects)), m_intake(intake) {}

    void run() {
        std::vector<std::pair<int, const Json::Value*>> channels;
        channels.reserve(m_objects.channels.size());
        for (const auto& [id, channel] : m_objects.channels) {
            channels.emplace_back(numberOf(channel), &channel);
        }
        std::stable_sort(channels.begin(), channels.end(),
                         [](const auto& left, const auto& right) { return before(left.first) < before(right.first); });
        for (const auto& [number, channel] : channels) {
            takeChannel(number, *channel);
        }
        for (const auto& [id, stored] : m_objects.services) {
            if (m_taken.count(id) == 0) {
                takeService(id, stored, nullptr, 0);
            }
        }
    }

private:
    // A number, or a text of one; those of ATSC such as 2.1 are none here.
    static int numberOf(const Json::Value& channel) {
        return std::max(toNumber<int>(textOf(channel, "number")).value_or(0), 0);
    }

    // Channels without a number come last.
    static unsigned before(int number) { return static_cast<unsigned>(number) - 1; }

    void takeChannel(int number, const Json::Value& channel) {
        const Json::Value& ids = channel["services"];
        const std::string name = textOf(channel, "name");
        if (channel["enabled"].isBool() && !channel["enabled"].asBool()) {
            m_intake.skip(fmt::format("channel {} is switched off", inQuotes(name)));
            return;
        }
        for (const Json::Value& each : ids.isArray() ? ids : Json::Value(Json::arrayValue)) {
            const auto found = m_objects.services.find(each.isString() ? each.asString() : "");
            if (found != m_objects.services.end() && m_taken.count(found->first) == 0) {
                takeService(found->first, found->second, &channel, number);
                return;  // the others are the same channel from elsewhere
            }
        }
        m_intake.skip(fmt::format("channel {} has no service on the air", inQuotes(name)));
    }

    void takeService(const std::string& id, const Stored& stored, const Json::Value* channel, int number) {
        m_taken[id] = true;
        const std::string name = textOf(stored.values, "svcname");
        try {
            const auto mux = m_objects.muxes.find(stored.mux);
            if (mux == m_objects.muxes.end()) {
                throw Error("its multiplex is not there");
            }
            Service service;
            tune(service, mux->second.values, m_objects.networks[mux->second.network]);
            service.sid = idOf(stored.values, "sid");
            service.provider = textOf(stored.values, "provider");
            service.type = typeOf(stored.values);
            readStreams(service, stored.values["stream"]);
            service.name = name;
            if (channel != nullptr) {
                giveOwnName(service, textOf(*channel, "name"));
                service.group = m_intake.groupOf(tagOf(*channel));
            }
            service.number = number;
            m_intake.addService(std::move(service));
        } catch (const Error& error) {
            m_intake.skip(fmt::format("service {}: {}", inQuotes(name.empty() ? id : name), error.what()));
        }
    }

    // The first of a channel's tags: a service has one group.
    std::string tagOf(const Json::Value& channel) const {
        const Json::Value& ids = channel["tags"];
        for (const Json::Value& each : ids.isArray() ? ids : Json::Value(Json::arrayValue)) {
            const auto tag = m_objects.tags.find(each.isString() ? each.asString() : "");
            if (tag != m_objects.tags.end()) {
                return textOf(tag->second, "name");
            }
        }
        return "";
    }

    Objects m_objects;
    ListIntake& m_intake;
    std::map<std::string, bool> m_taken;
};

// An object of an array says what it is by its members.
void sortIn(const Json::Value& object, Objects& objects) {
    const std::string id = textOf(object, "uuid");
    if (object.isMember("sid")) {
        objects.services[id] = {textOf(object, "multiplex_uuid"), object};
    } else if (object.isMember("frequency")) {
        objects.muxes[id] = {textOf(object, "network_uuid"), object};
    } else if (object.isMember("networkname")) {
        objects.networks[id] = object;
    } else if (object.isMember("services")) {
        objects.channels[id] = object;
    } else {
        objects.tags[id] = object;
    }
}

class TvheadendReader final : public ListReader {
public:
    explicit TvheadendReader(ListIntake& intake) : m_intake(intake) {}

    void take(const std::string& line) override {
        m_text += line + "\n";
        limits::require("its bytes", m_text.size(), limits::JSON_LIST_BYTES);
    }

    void finish() override {
        m_intake.setPlace(0);
        Json::Value json;
        if (!parseJson(m_text, json, JSON_LIST_VALUES)) {
            throw Error(fmt::format("it is not JSON, or holds more than {} values", JSON_LIST_VALUES));
        }
        // The answers of its server have the objects in a member.
        const Json::Value& list = json.isObject() && json["entries"].isArray() ? json["entries"] : json;
        Objects objects;
        for (const Json::Value& object : list.isArray() ? list : Json::Value(Json::arrayValue)) {
            if (object.isObject()) {
                sortIn(object, objects);
            }
        }
        Joining(std::move(objects), m_intake).run();
    }

private:
    static constexpr std::size_t JSON_LIST_VALUES = 1'000'000;

    ListIntake& m_intake;
    std::string m_text;
};

// Walks the folder, which has no deeper levels than these.
class Walk {
public:
    Walk(fs::path folder, ListIntake& intake) : m_folder(std::move(folder)), m_intake(intake) {}

    Objects read() {
        Objects objects;
        forEachMember(m_folder / TAGS, [&](const fs::path& file) { read(file, objects.tags[idOf(file)]); });
        forEachMember(m_folder / CHANNELS, [&](const fs::path& file) { read(file, objects.channels[idOf(file)]); });
        forEachMember(m_folder / NETWORKS, [&](const fs::path& network) {
            read(network / "config", objects.networks[idOf(network)]);
            forEachMember(network / "muxes", [&](const fs::path& mux) {
                Mux& made = objects.muxes[idOf(mux)];
                made.network = idOf(network);
                read(mux / "config", made.values);
                forEachMember(mux / "services", [&](const fs::path& file) {
                    Stored& service = objects.services[idOf(file)];
                    service.mux = idOf(mux);
                    read(file, service.values);
                });
            });
        });
        return objects;
    }

private:
    static std::string idOf(const fs::path& path) { return path.filename().string(); }

    // Whether the path below the folder is there without a link, which could lead out of it.
    bool isOwn(const fs::path& path) const {
        std::error_code ignored;
        const std::size_t depth = static_cast<std::size_t>(std::distance(m_folder.begin(), m_folder.end()));
        fs::path upTo;
        std::size_t part = 0;
        for (const fs::path& name : path) {
            upTo /= name;
            if (part++ >= depth && fs::symlink_status(upTo, ignored).type() == fs::file_type::symlink) {
                return false;
            }
        }
        return true;
    }

    template <typename Visit>
    void forEachMember(const fs::path& folder, Visit visit) const {
        if (isOwn(folder)) {
            for (const fs::path& member : membersOf(folder)) {
                visit(member);
            }
        }
    }

    void read(const fs::path& file, Json::Value& object) {
        object = Json::Value(Json::objectValue);
        if (!isOwn(file) || !isRegularFile(file)) {
            return;
        }
        limits::require("files", ++m_files, limits::LIST_FILES);
        m_intake.setPlace(file.string(), 0);
        const std::string text = readFile(file, limits::METADATA_BYTES);
        limits::require("bytes of all files", m_bytes += text.size(), limits::CHANNEL_LIST_BYTES);
        if (!parseJson(text, object) || !object.isObject()) {
            m_intake.skip("it is no JSON object");
            object = Json::Value(Json::objectValue);
        }
    }

    fs::path m_folder;
    ListIntake& m_intake;
    std::size_t m_files = 0;
    std::uint64_t m_bytes = 0;
};

}  // namespace

bool isTvheadend(const std::vector<std::string>& head) {
    const std::string_view first = trimmed(head.front());
    return first.front() == '{' || first == "[" || first.compare(0, 2, "[{") == 0 || first.compare(0, 2, "[]") == 0;
}

std::unique_ptr<ListReader> readTvheadend(const ListFile& /*file*/, ListIntake& intake) {
    return std::make_unique<TvheadendReader>(intake);
}

bool isTvheadendFolder(const fs::path& folder) {
    return isFolder(folder / CHANNELS) || isFolder(folder / NETWORKS);
}

void readTvheadendFolder(const fs::path& folder, ListIntake& intake) {
    Objects objects = Walk(folder, intake).read();
    intake.setPlace(folder.string(), 0);
    Joining(std::move(objects), intake).run();
}

}  // namespace sim
