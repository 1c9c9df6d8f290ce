// The commands that look at a TV or change it.
#include <fmt/ranges.h>

#include <algorithm>
#include <memory>
#include <random>
#include <set>

#include "simulator/base/Error.h"
#include "simulator/base/Places.h"
#include "simulator/cli/Command.h"
#include "simulator/cli/Print.h"
#include "simulator/cli/Settable.h"
#include "simulator/reports/Difference.h"
#include "simulator/reports/TvReport.h"
#include "simulator/reports/Words.h"
#include "simulator/tv/ChannelList.h"

namespace fs = std::filesystem;

namespace cli {

namespace {

using sim::Database;

int init(const Place& place, const fs::path& channels, const std::string& serial) {
    const sim::ChannelList list = sim::readChannelList(channels);
    for (const std::string& problem : list.problems) {
        print(stderr, "{}\n", problem);
    }
    sim::Tv::create(place.home, list, serial.empty() ? fmt::format("{:08X}", std::random_device()()) : serial);
    print("Made a factory-fresh TV at {}: {} services in {} groups, {} lines skipped.\n", place.home.string(),
          list.services.size(), list.groups.size(), list.problems.size());
    return DONE;
}

void printService(const sim::Service& service) {
    print("{:>5}  {:<28} {:<5} {:<24} {}\n", service.number, service.name, service.type, service.identity,
          service.groupName);
}

std::string watching(const sim::TvReport& report) {
    return report.watching
               ? fmt::format("{} {} ({})", report.watching->number, report.watching->name, report.watching->id)
               : fmt::format("none: the channel list has no service {}", report.viewing.serviceId);
}

int status(const Place& place, bool withServices) {
    const sim::Tv tv(place.home, Database::Access::Look);
    const sim::TvReport report = sim::reportOn(tv);
    print("TV at {}\n", report.home);
    print("  channels   {} services, {} of them radio, in {} groups\n", report.counts.services, report.counts.radios,
          report.counts.groups);
    print("  watching   {}\n", watching(report));
    print("  mode       {}\n", sim::words(report.viewing.mode));
    print("  source     {}\n", sim::words(report.viewing.source));
    print("  category   {}\n", sim::words(report.viewing.category));
    print("  antenna    status codes {}\n", fmt::format("{}", fmt::join(report.antenna, ", ")));
    print("  scan       {}\n", report.isScanning ? "running" : "not running");
    for (std::size_t i = 0; i < report.favourites.size(); ++i) {
        print("  favname{}   {}\n", i + 1, report.favourites[i]);
    }
    for (const auto& [key, value] : report.iss) {
        print("  iss        {} = {}\n", key, value);
    }
    for (const auto& [name, size] : report.ciFiles) {
        print("  CI file    {}, {} bytes\n", name, size);
    }
    print("  ipsrv      {} bytes, this set's own\n", report.ipServices);
    if (withServices) {
        print("\n{:>5}  {:<28} {:<5} {:<24} {}\n", "no.", "name", "type", "identity", "group");
        tv.serviceDb().forEach(&printService);
    }
    return DONE;
}

void printPart(const std::string& part, bool isSame, const std::string& text) {
    print("  {:<10} {:<10} {}\n", part, isSame ? "same" : "DIFFERENT", text);
}

std::string line(const sim::Service& service) {
    return fmt::format("{} {} ({})", service.number, service.name, service.identity);
}

std::string changes(const sim::ServicePair& pair) {
    std::string text;
    for (const sim::ServiceColumn& column : sim::SERVICE_COLUMNS) {
        if (std::find(pair.columns.begin(), pair.columns.end(), column.name) != pair.columns.end()) {
            text += fmt::format("{}{} {} -> {}", text.empty() ? "" : ", ", column.name,
                                sim::inQuotes(column.valueOf(pair.one)), sim::inQuotes(column.valueOf(pair.other)));
        }
    }
    return text;
}

// "3 added, 1 moved"; what there is nothing of is not named.
std::string counts(const sim::ServiceDifference& services) {
    std::string text = fmt::format("{} and {} services, each compared in every column", services.ones, services.others);
    std::string separator = "; ";
    const auto append = [&](std::size_t count, const char* what) {
        if (count != 0) {
            text += fmt::format("{}{} {}", separator, count, what);
            separator = ", ";
        }
    };
    append(services.removed.size(), "removed");
    append(services.added.size(), "added");
    append(services.changed.size(), "changed");
    append(services.moved.size(), "moved");
    append(services.renumbered.size(), "renumbered");
    return text;
}

void printServices(const sim::ServiceDifference& services) {
    for (const sim::Service& service : services.removed) {
        print("  - {}\n", line(service));
    }
    for (const sim::Service& service : services.added) {
        print("  + {}\n", line(service));
    }
    for (const sim::ServicePair& pair : services.changed) {
        print("  ~ {}: {}\n", line(pair.one), changes(pair));
    }
    for (const sim::ServicePair& pair : services.moved) {
        print("  > {}: moved to {}\n", line(pair.one), pair.other.number);
    }
    printPart("channels", services.isSame(), counts(services));
}

int diff(const Place& place, const fs::path& other) {
    const sim::Tv one(place.home, Database::Access::Look);
    const sim::Tv two(sim::normalised(other), Database::Access::Look);
    const sim::Difference difference = sim::compare(sim::setUpOf(one), sim::setUpOf(two));
    print("Channel set-up of {} and {}:\n", place.home.string(), other.string());
    printServices(difference.services);
    for (const sim::PartDifference& part : difference.parts) {
        printPart(part.part, part.isSame, part.isSame ? part.other : part.one + " | " + part.other);
    }
    return difference.isSame() ? DONE : FAILED;
}

}  // namespace

void addTvCommands(CLI::App& app, Action& chosen) {
    struct InitOptions {
        std::string channels;
        std::string serial;
    };
    const auto options = std::make_shared<InitOptions>();
    CLI::App* making =
        addCommand(app, "init", "Make a factory-fresh TV with a channel list", chosen,
                   [options](const Place& place) { return init(place, options->channels, options->serial); });
    making->add_option("--channels", options->channels, "channel list in the channels.conf format")->required();
    making->add_option("--serial", options->serial, "serial number of the set (default: a random one)");

    const auto withServices = std::make_shared<bool>(false);
    addCommand(app, "status", "Show the TV", chosen, [withServices](const Place& place) {
        return status(place, *withServices);
    })->add_flag("--services", *withServices, "with its channel list");

    struct SetOptions {
        std::string name;
        std::string value;
    };
    const auto setting = std::make_shared<SetOptions>();
    CLI::App* changing = addCommand(app, "set", "Set a part of the TV's state", chosen, [setting](const Place& place) {
        sim::Tv tv(place.home);
        set(tv, setting->name, setting->value);
        return DONE;
    });
    changing->add_option("name", setting->name, settableHelp())->required();
    changing->add_option("value", setting->value, "the new value")->required();

    const auto other = std::make_shared<std::string>();
    addCommand(app, "diff", "Compare the channel set-up with another TV's, service by service", chosen,
               [other](const Place& place) { return diff(place, *other); })
        ->add_option("other", *other, "folder of the other TV")
        ->required();
}

}  // namespace cli
