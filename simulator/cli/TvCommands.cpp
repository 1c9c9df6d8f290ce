// The commands that look at a TV or change it.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <random>
#include <set>

#include "simulator/base/Error.h"
#include "simulator/base/Text.h"
#include "simulator/cli/Commands.h"
#include "simulator/cli/Names.h"
#include "simulator/tv/ChannelList.h"
#include "simulator/tv/Tv.h"

namespace fs = std::filesystem;

namespace cli {

namespace {

using Row = sim::ServiceDb::Row;

std::string randomSerial() {
    return fmt::format("{:08X}", std::random_device()());
}

template <typename Number>
Number number(const std::string& text) {
    const std::optional<Number> parsed = sim::toNumber<Number>(text);
    if (!parsed) {
        throw sim::Error(fmt::format("'{}' is not a number that fits here", text));
    }
    return *parsed;
}

// The parts of a value such as "2/0".
std::vector<std::string> parts(const std::string& value, std::size_t count, const char* form) {
    std::vector<std::string> result = sim::split(value, '/');
    if (result.size() != count) {
        throw sim::Error(fmt::format("'{}' is not of the form {}", value, form));
    }
    return result;
}

void require(bool isKnown, const std::string& what, const std::string& value) {
    if (!isKnown) {
        throw sim::Error(fmt::format("the TV has no {} '{}'; see: halcyon-tv status --services", what, value));
    }
}

void setSetting(sim::Tv& tv, const std::string& key, const std::string& type, const std::string& value) {
    const std::set<std::string> types = {"int", "bool", "double", "string"};
    if (types.count(type) == 0) {
        throw sim::Error(fmt::format("'{}' is no type of a setting; one of: {}", type, fmt::join(types, ", ")));
    }
    const bool fits = type == "string" || (type == "int" && sim::toNumber<int>(value)) ||
                      (type == "double" && sim::toNumber<double>(value)) ||
                      (type == "bool" && (value == "0" || value == "1"));
    if (!fits) {
        throw sim::Error(fmt::format("'{}' is no value of the type {}", value, type));
    }
    if (!tv.setSetting(key, type, value)) {
        throw sim::Error(fmt::format("setting {} holds a value of another type than {}", key, type));
    }
}

// "setting:TYPE:KEY"; a key may hold colons of its own.
void setAnySetting(sim::Tv& tv, const std::string& name, const std::string& value) {
    const std::size_t type = name.find(':') + 1;
    const std::size_t key = name.find(':', type);
    if (key == std::string::npos || key + 1 == name.size()) {
        throw sim::Error(fmt::format("'{}' is not of the form setting:TYPE:KEY", name));
    }
    setSetting(tv, name.substr(key + 1), name.substr(type, key - type), value);
}

void setViewing(const sim::Tv& tv, sim::Viewing& viewing, const std::string& name, const std::string& value) {
    if (name == "mode") {
        const std::vector<std::string> modes = parts(value, 2, "ANTENNA/SERVICE, such as 2/0");
        viewing.antennaMode = number<int>(modes[0]);
        viewing.serviceMode = number<int>(modes[1]);
        require(tv.hasMode(viewing.antennaMode, viewing.serviceMode), name, value);
    } else if (name == "service") {
        viewing.serviceId = number<std::uint64_t>(value);
        require(tv.serviceDb().exists(viewing.serviceId), name, value);
    } else if (name == "source") {
        viewing.source = number<int>(value);
        require(tv.hasSource(viewing.source), name, value);
    } else {
        const std::vector<std::string> codes = parts(value, 3, "CODE/PARAM/SORT, such as 1/2/0");
        viewing.category = number<int>(codes[0]);
        viewing.categoryParam = number<std::uint64_t>(codes[1]);
        viewing.sortMode = number<int>(codes[2]);
        require(tv.hasCategory(viewing.category, viewing.categoryParam, viewing.sortMode), name, value);
    }
}

std::string serviceLine(const Row& service) {
    return fmt::format("{:>5}  {:<28} {:<5} {:<24} {}", service.at("number"), service.at("name"), service.at("type"),
                       service.at("identity"), service.at("channel_group_name"));
}

std::string currentService(const sim::Tv& tv, std::uint64_t id) {
    for (const Row& service : tv.serviceDb().services()) {
        if (service.at("id") == std::to_string(id)) {
            return fmt::format("{} {} ({})", service.at("number"), service.at("name"), id);
        }
    }
    return fmt::format("none: the channel list has no service {}", id);
}

// What is on, in a line.
std::string describe(sim::Tv& tv) {
    const sim::Viewing viewing = tv.viewing();
    return fmt::format("{}; {}; {}", currentService(tv, viewing.serviceId), nameOfMode(viewing),
                       nameOfCategory(viewing));
}

std::string favourite(sim::Tv& tv, int list) {
    return tv.setting(sim::Tv::favouriteKey(list), "string").value_or("");
}

// Prints whether one part of two set-ups is the same; true when it is.
bool compare(const std::string& what, bool same, const std::string& one, const std::string& other) {
    fmt::print("  {:<10} {:<10} {}\n", what, same ? "same" : "DIFFERENT", same ? other : one + " | " + other);
    return same;
}

// The keys under which two maps differ.
template <typename Map>
std::set<std::string> differing(const Map& one, const Map& other) {
    std::set<std::string> keys;
    const auto collect = [&](const Map& from, const Map& in) {
        for (const auto& [key, value] : from) {
            const auto found = in.find(key);
            if (found == in.end() || found->second != value) {
                keys.insert(key);
            }
        }
    };
    collect(one, other);
    collect(other, one);
    return keys;
}

template <typename Map>
bool compareMaps(const std::string& what, const Map& one, const Map& other, const char* unit) {
    const std::set<std::string> keys = differing(one, other);
    const std::string size = fmt::format("{} {}", other.size(), unit);
    return keys.empty() ? compare(what, true, size, size)
                        : compare(what, false, fmt::format("{} {}", one.size(), unit),
                                  fmt::format("{}; in: {}", size, fmt::join(keys, ", ")));
}

bool compareServices(const sim::Tv& one, const sim::Tv& other) {
    const std::vector<Row> ones = one.serviceDb().services();
    const std::vector<Row> others = other.serviceDb().services();
    std::size_t differing = 0;
    for (std::size_t i = 0; i < std::max(ones.size(), others.size()); ++i) {
        if (i < ones.size() && i < others.size() && ones[i] == others[i]) {
            continue;
        }
        ++differing;
        fmt::print("  - {}\n  + {}\n", i < ones.size() ? serviceLine(ones[i]) : "no such service",
                   i < others.size() ? serviceLine(others[i]) : "no such service");
    }
    const std::string shown = fmt::format("{} and {} services, each compared in every column; {} differ", ones.size(),
                                          others.size(), differing);
    fmt::print("  {:<10} {:<10} {}\n", "channels", differing == 0 ? "same" : "DIFFERENT", shown);
    return differing == 0;
}

}  // namespace

int init(const Place& place, const fs::path& channels, const std::string& serial) {
    const sim::ChannelList list = sim::readChannelList(channels);
    for (const std::string& problem : list.problems) {
        fmt::print(stderr, "{}\n", problem);
    }
    sim::Tv::create(place.home, list, serial.empty() ? randomSerial() : serial);
    fmt::print("Made a factory-fresh TV at {}: {} services in {} groups, {} lines skipped.\n", place.home.string(),
               list.services.size(), list.groups.size(), list.problems.size());
    return DONE;
}

int status(const Place& place, bool withServices) {
    sim::Tv tv(place.home);
    const sim::Viewing viewing = tv.viewing();
    const std::vector<Row> services = tv.serviceDb().services();
    const auto radios = std::count_if(services.begin(), services.end(),
                                      [](const Row& service) { return service.at("type") == "radio"; });
    fmt::print("TV at {}\n", place.home.string());
    fmt::print("  channels   {} services, {} of them radio, in {} groups\n", services.size(), radios,
               tv.serviceDb().groupCount());
    fmt::print("  watching   {}\n", currentService(tv, viewing.serviceId));
    fmt::print("  mode       {}\n", nameOfMode(viewing));
    fmt::print("  source     {}\n", nameOfSource(viewing));
    fmt::print("  category   {}\n", nameOfCategory(viewing));
    fmt::print("  antenna    status codes {}\n", fmt::join(tv.antenna(), ", "));
    fmt::print("  scan       {}\n", tv.isScanning() ? "running" : "not running");
    for (int i = 1; i <= sim::FAVOURITE_LISTS; ++i) {
        fmt::print("  favname{}   {}\n", i, favourite(tv, i));
    }
    for (const auto& [key, value] : tv.issDb().entries()) {
        fmt::print("  iss        {} = {}\n", key, value);
    }
    for (const auto& [name, content] : tv.ciModule().files()) {
        fmt::print("  CI file    {}, {} bytes\n", name, content.size());
    }
    fmt::print("  ipsrv      {} bytes, this set's own\n", tv.serviceDb().ipServices().size());
    if (withServices) {
        fmt::print("\n{:>5}  {:<28} {:<5} {:<24} {}\n", "no.", "name", "type", "identity", "group");
        for (const Row& service : services) {
            fmt::print("{}\n", serviceLine(service));
        }
    }
    return DONE;
}

int set(const Place& place, const std::string& name, const std::string& value) {
    sim::Tv tv(place.home);
    if (name == "mode" || name == "service" || name == "source" || name == "category") {
        tv.changeViewing([&](sim::Viewing& viewing) { setViewing(tv, viewing, name, value); });
    } else if (name == "antenna") {
        std::set<int> statuses;
        for (const std::string& status : sim::split(value, ',')) {
            statuses.insert(number<int>(status));
        }
        tv.setAntenna(statuses);
    } else if (name == "scan" && (value == "on" || value == "off")) {
        tv.setScanning(value == "on");
    } else if (name.compare(0, 8, "setting:") == 0) {
        setAnySetting(tv, name, value);
    } else if (name.size() == 8 && name.compare(0, 7, "favname") == 0 && name[7] >= '1' && name[7] <= '5') {
        setSetting(tv, sim::Tv::favouriteKey(name[7] - '0'), "string", value);
    } else {
        throw sim::Error(fmt::format("cannot set '{}' to '{}'; see: halcyon-tv set --help", name, value));
    }
    return DONE;
}

int diff(const Place& place, const fs::path& other) {
    sim::Tv one(place.home);
    sim::Tv two(sim::Tv::normalised(other));
    fmt::print("Channel set-up of {} and {}:\n", place.home.string(), other.string());
    bool same = compareServices(one, two);
    for (int i = 1; i <= sim::FAVOURITE_LISTS; ++i) {
        const std::string names[] = {favourite(one, i), favourite(two, i)};
        same &= compare(fmt::format("favname{}", i), names[0] == names[1], names[0], names[1]);
    }
    same &=
        compareMaps("CI files", one.ciModule().files(), two.ciModule().files(), "files, each compared byte by byte");
    same &= compareMaps("iss", one.issDb().entries(), two.issDb().entries(), "entries");
    same &= compare("viewing", one.viewing() == two.viewing(), describe(one), describe(two));
    return same ? DONE : FAILED;
}

}  // namespace cli
