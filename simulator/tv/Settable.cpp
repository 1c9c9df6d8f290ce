#include "simulator/tv/Settable.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <functional>
#include <optional>
#include <set>
#include <vector>

#include "simulator/base/Clock.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/Editing.h"

namespace sim {

namespace {

using Words = std::vector<std::string>;

// A name that can be set, the form of its values, and how it is set: by one value, or by words.
struct Settable {
    std::string name;
    std::string form;
    std::function<void(Tv&, const std::string& value)> set;
    std::function<void(Tv&, const Words& words)> setByWords = nullptr;
};

void require(bool isThere, const char* what, const std::string& value) {
    if (!isThere) {
        throw Error(fmt::format("the TV has no {} {}; see: halcyon-tv status --services", what, inQuotes(value)));
    }
}

template <typename Number>
Number number(const std::string& text) {
    const std::optional<Number> parsed = toNumber<Number>(text);
    if (!parsed) {
        throw Error(fmt::format("{} is not a number that fits here", inQuotes(text)));
    }
    return *parsed;
}

std::string inLowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

// By its number, or its name as `status` shows it.
template <typename Enum>
Enum code(const std::string& text) {
    const std::optional<Enum> named = fromName<Enum>(inLowerCase(text));
    return named ? *named : static_cast<Enum>(number<int>(text));
}

// The parts of a value such as "2/0".
std::vector<std::string> parts(const std::string& value, std::size_t count, const char* form) {
    std::vector<std::string> result = split(value, '/');
    if (result.size() != count) {
        throw Error(fmt::format("{} is not of the form {}", inQuotes(value), form));
    }
    return result;
}

void setMode(Tv& tv, const std::string& value) {
    const std::vector<std::string> codes = parts(value, 2, "ANTENNA/SERVICE, such as 2/0");
    const TvMode mode{code<AntennaMode>(codes[0]), code<ServiceMode>(codes[1])};
    require(tv.has(mode), "mode", value);
    tv.changeViewing([&](Viewing& viewing) { viewing.mode = mode; });
}

void setService(Tv& tv, const std::string& value) {
    const auto id = number<std::uint64_t>(value);
    require(tv.services().find(id).has_value(), "service", value);
    tv.changeViewing([&](Viewing& viewing) { viewing.serviceId = id; });
}

void setSource(Tv& tv, const std::string& value) {
    const auto source = code<Source>(value);
    require(tv.has(source), "source", value);
    tv.changeViewing([&](Viewing& viewing) { viewing.source = source; });
}

void setCategory(Tv& tv, const std::string& value) {
    const std::vector<std::string> codes = parts(value, 3, "CODE/PARAM/SORT, such as 1/2/0");
    const Category category{code<CategoryKind>(codes[0]), number<std::uint64_t>(codes[1]), code<SortMode>(codes[2])};
    require(tv.has(category), "category", value);
    tv.changeViewing([&](Viewing& viewing) { viewing.category = category; });
}

void setAntenna(Tv& tv, const std::string& value) {
    std::set<int> statuses;
    for (const std::string& status : split(value, ',')) {
        statuses.insert(codeOf(code<AntennaInput>(status)));
    }
    tv.setAntenna(statuses);
}

void setScan(Tv& tv, const std::string& value) {
    const std::string state = inLowerCase(value);
    if (state != "on" && state != "off") {
        throw Error(fmt::format("a scan is on or off, not {}", inQuotes(value)));
    }
    tv.setScanning(state == "on");
}

bool fits(SettingType type, const std::string& value) {
    return type == SettingType::String || (type == SettingType::Bool && (value == "0" || value == "1")) ||
           (type == SettingType::Int && toNumber<int>(value)) ||
           (type == SettingType::Double && toNumber<double>(value));
}

const std::string SETTING_PREFIX = "setting:";
const std::string MACHINE = "machine";
constexpr char ZONES[] = "/usr/share/zoneinfo";

// "setting:TYPE:KEY"; a key may hold colons of its own.
void setSetting(Tv& tv, const std::string& name, const std::string& value) {
    const std::size_t colon = name.find(':', SETTING_PREFIX.size());
    if (colon == std::string::npos || colon + 1 == name.size()) {
        throw Error(fmt::format("{} is not of the form setting:TYPE:KEY", inQuotes(name)));
    }
    const std::string typeName = name.substr(SETTING_PREFIX.size(), colon - SETTING_PREFIX.size());
    const std::optional<SettingType> type = fromName<SettingType>(typeName);
    if (!type) {
        throw Error(fmt::format("{} is no type of a setting; one of: int, bool, double, string", inQuotes(typeName)));
    }
    if (!fits(*type, value)) {
        throw Error(fmt::format("{} is no value of the type {}", inQuotes(value), typeName));
    }
    const std::string key = name.substr(colon + 1);
    if (!tv.settings().set(key, *type, value)) {
        throw Error(fmt::format("setting {} holds a value of another type than {}", inQuotes(key), typeName));
    }
}

void setClock(Tv& tv, const std::string& value) {
    TvClock clock = readClock(value, tv.now());
    clock.zone = tv.clock().zone;
    tv.setClock(clock);
}

void setZone(Tv& tv, const std::string& value) {
    TvClock clock = tv.clock();
    clock.zone = value == MACHINE ? "" : value;
    requireZone(clock.zone);
    tv.setClock(clock);
}

[[noreturn]] void failAtForm(const Words& words, const char* form) {
    throw Error(fmt::format("{} is not of the form {}", inQuotes(fmt::format("{}", fmt::join(words, " "))), form));
}

// "2 add 22", with any number of channels, "2 remove 22", "2 clear".
void setFavourite(Tv& tv, const Words& words) {
    const std::string verb = words.size() > 1 ? words[1] : "";
    const bool isClearing = verb == "clear" && words.size() == 2;
    if (!isClearing && !((verb == "add" || verb == "remove") && words.size() > 2)) {
        failAtForm(words, "LIST add CHANNEL..., LIST remove CHANNEL... or LIST clear");
    }
    const std::optional<int> list = toNumber<int>(words[0]);
    if (!list || *list < 1 || *list > application::FAVOURITE_LISTS) {
        throw Error(
            fmt::format("the favourite lists are 1 to {}, not {}", application::FAVOURITE_LISTS, inQuotes(words[0])));
    }
    std::vector<Service> services;
    for (auto word = words.begin() + 2; word != words.end(); ++word) {
        services.push_back(chooseService(tv.services(), *word));
    }
    tv.serviceDb().change([&](Database& database) {
        if (isClearing) {
            clearFavourites(database, *list);
        } else if (verb == "add") {
            addFavourites(database, *list, services);
        } else {
            removeFavourites(database, *list, services);
        }
    });
}

// How `edit` switches something of a channel on or off.
std::function<void(Tv&, const Words&)> switching(void (*edit)(Database&, std::uint64_t, bool)) {
    return [edit](Tv& tv, const Words& words) {
        const std::string state = words.size() == 2 ? inLowerCase(words[1]) : "";
        if (state != "on" && state != "off") {
            failAtForm(words, "CHANNEL on, or CHANNEL off");
        }
        const Service service = chooseService(tv.services(), words[0]);
        tv.serviceDb().change([&](Database& database) { edit(database, service.id, state == "on"); });
    };
}

void renameChannel(Tv& tv, const Words& words) {
    const Service service = chooseService(tv.services(), words[0]);
    const std::string name = fmt::format("{}", fmt::join(words.begin() + 1, words.end(), " "));
    tv.serviceDb().change([&](Database& database) { renameService(database, service.id, name); });
}

void moveChannel(Tv& tv, const Words& words) {
    constexpr int MAX_NUMBER = 999'999;
    const std::optional<int> to = words.size() == 2 ? toNumber<int>(words[1]) : std::nullopt;
    if (!to || *to < 1 || *to > MAX_NUMBER) {
        failAtForm(words, "CHANNEL NUMBER, with a number from 1 to 999999");
    }
    tv.requireOwnChannels("move them");
    const Service service = chooseService(tv.services(), words[0]);
    tv.serviceDb().change([&](Database& database) { moveService(database, service, *to); });
}

std::vector<Settable> settables() {
    std::vector<Settable> all = {
        {"mode", "ANTENNA/SERVICE", &setMode},
        {"service", "id", &setService},
        {"source", "0 to 4", &setSource},
        {"category", "CODE/PARAM/SORT", &setCategory},
        {"antenna",
         "connected inputs separated by commas, by number or name: 0 terrestrial, 1 cable, 2 satellite, 3 second "
         "satellite, 4 combined",
         &setAntenna},
        {"scan", "on or off", &setScan},
        {"account", "whose backups it makes and restores",
         [](Tv& tv, const std::string& value) { tv.setAccount(value); }},
        {"clock",
         "a time such as 2026-01-31T18:00:00Z, 2026-01-31, +1d or -90s, which runs move on, or that and ' still', or "
         "machine",
         &setClock},
        {"zone", "time zone such as Europe/Berlin, or UTC-3; machine for this machine's", &setZone},
    };
    for (int list = 1; list <= application::FAVOURITE_LISTS; ++list) {
        all.push_back({fmt::format("favname{}", list), "a name",
                       [list](Tv& tv, const std::string& value) { tv.settings().setFavouriteName(list, value); }});
    }
    all.push_back({"favourite",
                   "LIST add CHANNEL..., LIST remove CHANNEL... or LIST clear; a channel by number or name", nullptr,
                   &setFavourite});
    all.push_back({"lock", "CHANNEL on, or off", nullptr, switching(&lockService)});
    all.push_back({"hide", "CHANNEL on, or off", nullptr, switching(&hideService)});
    all.push_back({"rename", "CHANNEL NAME; without NAME the broadcaster's again", nullptr, &renameChannel});
    all.push_back({"move", "CHANNEL NUMBER; the channels from there to its old number move on", nullptr, &moveChannel});
    return all;
}

std::optional<Settable> find(const std::string& name) {
    const std::vector<Settable> all = settables();
    const auto found = std::find_if(all.begin(), all.end(), [&](const Settable& each) { return each.name == name; });
    return found == all.end() ? std::nullopt : std::optional(*found);
}

Words names() {
    Words names;
    for (const Settable& settable : settables()) {
        names.push_back(settable.name);
    }
    return names;
}

}  // namespace

TvClock readClock(const std::string& text, std::chrono::milliseconds now) {
    TvClock clock;
    if (text == MACHINE) {
        return clock;
    }
    const std::string still = " still";
    clock.isStill = text.size() > still.size() && text.compare(text.size() - still.size(), still.size(), still) == 0;
    clock.time = fromUtc(clock.isStill ? text.substr(0, text.size() - still.size()) : text, now);
    if (!clock.time) {
        constexpr bool ENDS_IN_2038 = sizeof(std::time_t) == 4;
        throw Error(fmt::format("{} is no time such as 2026-01-31T18:00:00Z, 2026-01-31, +1d or -90s{}", inQuotes(text),
                                ENDS_IN_2038 ? ", up to 2038-01-19T03:14:07Z, where this processor's time ends" : ""));
    }
    return clock;
}

void requireZone(const std::string& zone) {
    // The C library takes the name for that of a file: it must not lead out of the folder of zones.
    const bool isPlainName = zone.find("..") == std::string::npos && !zone.empty() && zone.front() != '/';
    // Else it says its rules itself, such as CET-1CEST: letters, then a number of hours.
    const std::size_t hours = zone.find_first_of("0123456789");
    const std::size_t other = zone.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz<>+-");
    const bool saysItself = hours != std::string::npos && hours >= 3 && other == hours;
    if (!zone.empty() && !saysItself && !(isPlainName && isRegularFile(std::filesystem::path(ZONES) / zone))) {
        throw Error(
            fmt::format("there is no time zone {} in {}; names are such as Europe/Berlin", inQuotes(zone), ZONES));
    }
}

void setByName(Tv& tv, const std::string& name, const Words& words) {
    const std::string value = fmt::format("{}", fmt::join(words, " "));
    const bool isSetting = name.compare(0, SETTING_PREFIX.size(), SETTING_PREFIX) == 0;
    const std::optional<Settable> settable = isSetting ? std::nullopt : find(name);
    if (!isSetting && !settable) {
        throw Error(fmt::format("cannot set {} to {}{}; see: halcyon-tv set --help", inQuotes(name), inQuotes(value),
                                didYouMean(name, names())));
    }
    if (settable && settable->setByWords) {
        settable->setByWords(tv, words);
    } else if (words.size() != 1) {
        throw Error(fmt::format("{} takes one value, and not {}; put it into quotes: {}", inQuotes(name), words.size(),
                                inQuotes(value)));
    } else if (isSetting) {
        setSetting(tv, name, value);
    } else {
        settable->set(tv, value);
    }
}

void setByName(Tv& tv, const std::string& name, const std::string& text) {
    const std::optional<Settable> settable = find(name);
    setByName(tv, name, settable && settable->setByWords ? split(text, ' ') : Words{text});
}

std::string settableHelp() {
    std::string help;
    for (const Settable& settable : settables()) {
        help += fmt::format("{} ({}),\n", settable.name, settable.form);
    }
    return help + "setting:TYPE:KEY (a value of the type int, bool (0 or 1), double or string)";
}

}  // namespace sim
