#include "simulator/cli/Settable.h"

#include <fmt/format.h>

#include <functional>
#include <optional>
#include <set>
#include <vector>

#include "simulator/base/Clock.h"
#include "simulator/base/Error.h"
#include "simulator/base/Text.h"
#include "simulator/tv/Application.h"

namespace cli {

namespace {

// A name that can be set, with the form of its values and what it takes to set it.
struct Settable {
    std::string name;
    std::string form;
    std::function<void(sim::Tv&, const std::string& value)> set;
};

[[noreturn]] void refuse(const std::string& what, const std::string& value) {
    throw sim::Error(fmt::format("the TV has no {} {}; see: halcyon-tv status --services", what, sim::inQuotes(value)));
}

template <typename Number>
Number number(const std::string& text) {
    const std::optional<Number> parsed = sim::toNumber<Number>(text);
    if (!parsed) {
        throw sim::Error(fmt::format("{} is not a number that fits here", sim::inQuotes(text)));
    }
    return *parsed;
}

template <typename Enum>
Enum code(const std::string& text) {
    return static_cast<Enum>(number<int>(text));
}

// The parts of a value such as "2/0".
std::vector<std::string> parts(const std::string& value, std::size_t count, const char* form) {
    std::vector<std::string> result = sim::split(value, '/');
    if (result.size() != count) {
        throw sim::Error(fmt::format("{} is not of the form {}", sim::inQuotes(value), form));
    }
    return result;
}

void setMode(sim::Tv& tv, const std::string& value) {
    const std::vector<std::string> codes = parts(value, 2, "ANTENNA/SERVICE, such as 2/0");
    const sim::TvMode mode{code<sim::AntennaMode>(codes[0]), code<sim::ServiceMode>(codes[1])};
    if (!tv.has(mode)) {
        refuse("mode", value);
    }
    tv.changeViewing([&](sim::Viewing& viewing) { viewing.mode = mode; });
}

void setService(sim::Tv& tv, const std::string& value) {
    const auto id = number<std::uint64_t>(value);
    if (!tv.serviceDb().find(id)) {
        refuse("service", value);
    }
    tv.changeViewing([&](sim::Viewing& viewing) { viewing.serviceId = id; });
}

void setSource(sim::Tv& tv, const std::string& value) {
    const auto source = code<sim::Source>(value);
    if (!tv.has(source)) {
        refuse("source", value);
    }
    tv.changeViewing([&](sim::Viewing& viewing) { viewing.source = source; });
}

void setCategory(sim::Tv& tv, const std::string& value) {
    const std::vector<std::string> codes = parts(value, 3, "CODE/PARAM/SORT, such as 1/2/0");
    const sim::Category category{code<sim::CategoryKind>(codes[0]), number<std::uint64_t>(codes[1]),
                                 code<sim::SortMode>(codes[2])};
    if (!tv.has(category)) {
        refuse("category", value);
    }
    tv.changeViewing([&](sim::Viewing& viewing) { viewing.category = category; });
}

void setAntenna(sim::Tv& tv, const std::string& value) {
    std::set<int> statuses;
    for (const std::string& status : sim::split(value, ',')) {
        statuses.insert(number<int>(status));
    }
    tv.setAntenna(statuses);
}

void setNow(sim::Tv& tv, const std::string& value) {
    tv.setTime(value == "running" ? std::nullopt : std::optional(parseTime(value)));
}

void setScan(sim::Tv& tv, const std::string& value) {
    if (value != "on" && value != "off") {
        throw sim::Error(fmt::format("a scan is on or off, not {}", sim::inQuotes(value)));
    }
    tv.setScanning(value == "on");
}

bool fits(sim::SettingType type, const std::string& value) {
    switch (type) {
        case sim::SettingType::Int:
            return sim::toNumber<int>(value).has_value();
        case sim::SettingType::Bool:
            return value == "0" || value == "1";
        case sim::SettingType::Double:
            return sim::toNumber<double>(value).has_value();
        default:
            return true;
    }
}

const std::string SETTING_PREFIX = "setting:";

// "setting:TYPE:KEY"; a key may hold colons of its own.
void setSetting(sim::Tv& tv, const std::string& name, const std::string& value) {
    const std::size_t colon = name.find(':', SETTING_PREFIX.size());
    if (colon == std::string::npos || colon + 1 == name.size()) {
        throw sim::Error(fmt::format("{} is not of the form setting:TYPE:KEY", sim::inQuotes(name)));
    }
    const std::string typeName = name.substr(SETTING_PREFIX.size(), colon - SETTING_PREFIX.size());
    const std::optional<sim::SettingType> type = sim::fromName<sim::SettingType>(typeName);
    if (!type) {
        throw sim::Error(
            fmt::format("{} is no type of a setting; one of: int, bool, double, string", sim::inQuotes(typeName)));
    }
    if (!fits(*type, value)) {
        throw sim::Error(fmt::format("{} is no value of the type {}", sim::inQuotes(value), typeName));
    }
    const std::string key = name.substr(colon + 1);
    if (!tv.settings().set(key, *type, value)) {
        throw sim::Error(fmt::format("setting {} holds a value of another type than {}", sim::inQuotes(key), typeName));
    }
}

const std::vector<Settable>& settables() {
    static const std::vector<Settable> all = [] {
        std::vector<Settable> table = {
            {"mode", "ANTENNA/SERVICE", &setMode},
            {"service", "id", &setService},
            {"source", "0 to 4", &setSource},
            {"category", "CODE/PARAM/SORT", &setCategory},
            {"antenna", "status codes separated by commas, 0 to 4 are known", &setAntenna},
            {"scan", "on or off", &setScan},
            {"now", "a time such as 2026-01-31T18:00:00Z at which the clock stands, or running", &setNow},
        };
        for (int list = 1; list <= sim::application::FAVOURITE_LISTS; ++list) {
            table.push_back({fmt::format("favname{}", list), "a name", [list](sim::Tv& tv, const std::string& value) {
                                 tv.settings().setFavouriteName(list, value);
                             }});
        }
        return table;
    }();
    return all;
}

}  // namespace

std::time_t parseTime(const std::string& text) {
    const std::optional<std::time_t> time = sim::fromUtc(text);
    if (!time) {
        throw sim::Error(fmt::format("{} is no time such as 2026-01-31T18:00:00Z", sim::inQuotes(text)));
    }
    return *time;
}

void set(sim::Tv& tv, const std::string& name, const std::string& value) {
    for (const Settable& settable : settables()) {
        if (settable.name == name) {
            settable.set(tv, value);
            return;
        }
    }
    if (name.compare(0, SETTING_PREFIX.size(), SETTING_PREFIX) != 0) {
        std::vector<std::string> names;
        for (const Settable& settable : settables()) {
            names.push_back(settable.name);
        }
        throw sim::Error(fmt::format("cannot set {} to {}{}; see: halcyon-tv set --help", sim::inQuotes(name),
                                     sim::inQuotes(value), sim::didYouMean(name, names)));
    }
    setSetting(tv, name, value);
}

std::string settableHelp() {
    std::string help;
    for (const Settable& settable : settables()) {
        help += fmt::format("{} ({}),\n", settable.name, settable.form);
    }
    return help + "setting:TYPE:KEY (a value of the type int, bool (0 or 1), double or string)";
}

}  // namespace cli
