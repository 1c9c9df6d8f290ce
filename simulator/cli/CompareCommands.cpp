// The commands that compare channel set-ups and export channel lists.
#include <fmt/ranges.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <utility>

#include "simulator/base/Error.h"
#include "simulator/cli/Command.h"
#include "simulator/cli/Side.h"
#include "simulator/lineup/ChannelExport.h"
#include "simulator/lineup/Words.h"
#include "simulator/reports/ToJson.h"

namespace cli {

namespace {

std::string line(const sim::Service& service) {
    return fmt::format("{} {} ({})", service.number, service.name, service.identity);
}

// Of one side only: with what its owner has set, which is gone or new with it.
std::string lineOfOne(const sim::Service& service) {
    const std::string choices = sim::choiceWords(service);
    return line(service) + (choices.empty() ? "" : ": ") + choices;
}

// But for the places in favourite lists, which shift when another service leaves.
std::string columns(const sim::ServicePair& pair) {
    std::vector<std::string> texts;
    for (const sim::ServiceColumn* column : pair.columns()) {
        if (sim::isFavouritePlace(*column)) {
            continue;
        }
        texts.push_back(fmt::format("{} {} -> {}", column->label, sim::inQuotes(textOf(*column, *pair.left)),
                                    sim::inQuotes(textOf(*column, *pair.right))));
    }
    return fmt::format("{}", fmt::join(texts, ", "));
}

void printPair(sim::Change change, const sim::ServicePair& pair) {
    switch (change) {
        case sim::Change::Removed:
            return print("  - {}\n", lineOfOne(*pair.left));
        case sim::Change::Added:
            return print("  + {}\n", lineOfOne(*pair.right));
        case sim::Change::Renamed:
            return print("  = {}: {}\n", line(*pair.left), pair.renamed());
        case sim::Change::Changed:
            return print("  ~ {}: {}\n", line(*pair.left), columns(pair));
        case sim::Change::Moved:
            return print("  > {}: moved to {}\n", line(*pair.left), pair.right->number);
        case sim::Change::Renumbered:
            return print("  # {}: renumbered to {}\n", line(*pair.left), pair.right->number);
        case sim::Change::Customised:
            return print("  * {}: {}\n", line(*pair.left), fmt::format("{}", fmt::join(pair.customised(), ", ")));
    }
}

void printText(const sim::Difference& difference) {
    for (const sim::Name<sim::Change>& change : sim::NAMES<sim::Change>) {
        difference.services.forEach(change.value, [&](const sim::ServicePair& pair) { printPair(change.value, pair); });
    }
    for (const sim::ItemDifference& item : difference.items) {
        const std::string both = item.isSame ? item.left : fmt::format("{} | {}", item.left, item.right);
        print("  {:<10} {:<10} {}{}{}\n", sim::nameOf(item.item), item.isSame ? "same" : "DIFFERENT", both,
              item.detail.empty() ? "" : "; ", item.detail);
    }
}

int printDifference(const Session& session, const Side& left, const Side& right) {
    const bool isDamaged = !left.problems.empty() || !right.problems.empty();
    for (const Side* side : {&left, &right}) {
        printLines(session.isJson ? stderr : stdout, "damaged: " + side->name + ": ", side->problems);
    }
    const sim::Difference difference = sim::compare(left.setup, right.setup);
    if (session.isJson) {
        sim::JsonDocument document = sim::toDocument(difference);
        document.object["left"] = sim::toJson(left.name);
        document.object["right"] = sim::toJson(right.name);
        printJson(document);
    } else {
        print("Channel set-up of {} and {}:\n", left.name, right.name);
        printText(difference);
    }
    return isDamaged ? DAMAGED : difference.isSame() ? DONE : FAILED;
}

int exportChannels(const Side& side, const std::string& format) {
    if (!side.setup.services) {
        const std::string message =
            fmt::format("{} has no channels to export: {}", side.name, side.setup.lacking.at(sim::Item::Channels));
        if (side.problems.empty()) {
            throw sim::Error(message);
        }
        throw DamagedBundle(side.setup.unreadable.count(sim::Item::Channels) > 0 ? message : side.problems.front());
    }
    // A file gets what the list has, a terminal nothing that controls it.
    const bool isWatched = ::isatty(STDOUT_FILENO) != 0;
    const auto write = [&](std::string_view lines) {
        if (!isWatched) {
            std::fwrite(lines.data(), 1, lines.size(), stdout);
            return;
        }
        for (std::size_t end = 0; !lines.empty(); lines.remove_prefix(std::min(end + 1, lines.size()))) {
            end = std::min(lines.find('\n'), lines.size());
            print("{}\n", lines.substr(0, end));
        }
    };
    printLinesOfKinds(stderr, sim::exportChannels(*side.setup.services, format, write));
    return DONE;
}

}  // namespace

void addCompareCommands(CLI::App& app, Action& chosen) {
    const auto sides = std::make_shared<std::pair<std::string, std::string>>();
    CLI::App* comparing =
        addCommand(app, "diff", "Compare two channel set-ups, service by service; one side: this TV and that one",
                   "halcyon-tv diff 000003", chosen, [sides](const Session& session) {
                       const auto& [first, second] = *sides;
                       return printDifference(session, chooseSide(session, second.empty() ? "" : first),
                                              chooseSide(session, second.empty() ? first : second));
                   });
    comparing->add_option("side", sides->first, "the folder of a TV, a bundle file, or a stored backup's id")
        ->required();
    comparing->add_option("other", sides->second, "the same (default: this TV is the left side, and `side` the right)");

    struct ExportOptions {
        std::string side;
        std::string format;
    };
    const auto options = std::make_shared<ExportOptions>();
    CLI::App* exporting =
        addCommand(app, "export", "Write a channel list for other programs", "halcyon-tv export --format m3u > tv.m3u",
                   chosen, [options](const Session& session) {
                       return exportChannels(chooseSide(session, options->side), options->format);
                   });
    exporting->add_option("side", options->side,
                          "the folder of a TV, a bundle file, or a stored backup's id (default: this TV)");
    exporting
        ->add_option("--format", options->format,
                     "vdr: channels.conf of VDR; dvbv5: for the DVB tools of Linux; lamedb: for Enigma2, without "
                     "bouquets; csv: all there is, for spreadsheets; m3u: names and dvb://network.stream.service, for "
                     "scripts: no player finds a transponder by that")
        ->required()
        ->check(CLI::IsMember(sim::exportFormats()));
}

}  // namespace cli
