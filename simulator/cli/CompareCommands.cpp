// The commands that compare channel set-ups, and that write channel lists for other programs.
#include <fmt/ranges.h>

#include <algorithm>
#include <cstdio>
#include <memory>

#include "simulator/base/Error.h"
#include "simulator/cli/Command.h"
#include "simulator/cli/Difference.h"
#include "simulator/cli/Print.h"
#include "simulator/cli/Side.h"
#include "simulator/lineup/ChannelExport.h"
#include "simulator/reports/Json.h"

namespace cli {

namespace {

void printPart(std::string_view part, bool isSame, const std::string& text) {
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
    append(services.renamed.size(), "renamed");
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
    for (const sim::ServicePair& pair : services.renamed) {
        print("  = {}: renamed to {}\n", line(pair.one), sim::inQuotes(pair.other.name));
    }
    for (const sim::ServicePair& pair : services.changed) {
        print("  ~ {}: {}\n", line(pair.one), changes(pair));
    }
    for (const sim::ServicePair& pair : services.moved) {
        print("  > {}: moved to {}\n", line(pair.one), pair.other.number);
    }
    for (const sim::ServicePair& pair : services.renumbered) {
        print("  # {}: renumbered to {}\n", line(pair.one), pair.other.number);
    }
    printPart(sim::nameOf(sim::Item::Channels), services.isSame(),
              services.lacking.empty() ? counts(services) : services.lacking);
}

}  // namespace

int printDifference(const Place& place, const Side& one, const Side& other) {
    const sim::Difference difference = sim::compare(one.setup, other.setup);
    if (place.isJson) {
        Json::Value value = sim::toJson(difference);
        value["one"] = sim::toUtf8(one.name);
        value["other"] = sim::toUtf8(other.name);
        printJson(value);
    } else {
        print("Channel set-up of {} and {}:\n", one.name, other.name);
        printServices(difference.services);
        for (const sim::PartDifference& part : difference.parts) {
            printPart(sim::nameOf(part.item), part.isSame, part.isSame ? part.other : part.one + " | " + part.other);
        }
    }
    return difference.isSame() ? DONE : FAILED;
}

int exportChannels(const Side& side, const std::string& format) {
    const auto lacking = side.setup.lacking.find(sim::Item::Channels);
    if (lacking != side.setup.lacking.end()) {
        throw sim::Error(sim::Error::Kind::Damaged,
                         fmt::format("{} has no channels to export: {}", side.name, lacking->second));
    }
    const sim::ChannelExport written = sim::exportChannels(side.setup, *sim::fromName<sim::ExportFormat>(format));
    std::fwrite(written.text.data(), 1, written.text.size(), stdout);
    for (const std::string& problem : written.problems) {
        print(stderr, "{}\n", problem);
    }
    return DONE;
}

void addFormat(CLI::App& command, std::string& format) {
    std::vector<std::string> names;
    names.reserve(sim::NAMES<sim::ExportFormat>.size());
    for (const auto& each : sim::NAMES<sim::ExportFormat>) {
        names.emplace_back(each.name);
    }
    command.add_option("--format", format, "what to write")->required()->check(CLI::IsMember(names));
}

void addCompareCommands(CLI::App& app, Action& chosen) {
    const auto sides = std::make_shared<std::vector<std::string>>();
    addCommand(app, "diff", "Compare two channel set-ups, service by service; one side: this TV and that one",
               "halcyon-tv diff 000003", chosen,
               [sides](const Place& place) {
                   return sides->size() == 2
                              ? printDifference(place, chooseSide(place, sides->at(0)), chooseSide(place, sides->at(1)))
                              : printDifference(place, thisTv(place), chooseSide(place, sides->at(0)));
               })
        ->add_option("side", *sides, "each the folder of a TV, a bundle file, or a stored backup's id")
        ->required()
        ->expected(1, 2);

    struct ExportOptions {
        std::string side;
        std::string format;
    };
    const auto options = std::make_shared<ExportOptions>();
    CLI::App* exporting =
        addCommand(app, "export", "Write a channel list for other programs", "halcyon-tv export --format m3u > tv.m3u",
                   chosen, [options](const Place& place) {
                       return exportChannels(options->side.empty() ? thisTv(place) : chooseSide(place, options->side),
                                             options->format);
                   });
    exporting->add_option("side", options->side,
                          "the folder of a TV, a bundle file, or a stored backup's id (default: this TV)");
    addFormat(*exporting, options->format);
}

}  // namespace cli
