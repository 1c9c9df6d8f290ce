// The commands on bundles: files and stored backups.
#include <fmt/ranges.h>

#include <memory>

#include "simulator/base/Environment.h"
#include "simulator/base/Files.h"
#include "simulator/cli/Command.h"
#include "simulator/cli/Side.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/Words.h"
#include "simulator/reports/CloudReport.h"
#include "simulator/reports/ToJson.h"
#include "simulator/reports/TvReport.h"

namespace cli {

namespace {

struct BundleOptions {
    std::string bundle;
    std::string metadata;
    std::string tv;  // its home; empty: the session's
};
using Options = std::shared_ptr<BundleOptions>;

Json::Value toJson(const NamedBundle& named) {
    Json::Value value = sim::toJson(named.bundle);
    value["bundle"] = sim::toJson(named.name);
    value["backup"] = sim::toJson(named.backup);
    return value;
}

std::string counted(const std::map<std::string, std::uint64_t>& by) {
    std::vector<std::string> texts;
    texts.reserve(by.size());
    for (const auto& [name, count] : by) {
        texts.push_back(fmt::format("{} {}", count, name.empty() ? "(none)" : name));
    }
    return fmt::format("{}", fmt::join(texts, ", "));
}

// What its owner has set; empty if nothing.
std::string customised(const sim::Setup& setup, const sim::ChannelCounts& counts) {
    std::vector<std::string> texts;
    int list = 0;
    for (const std::uint64_t count : counts.favourites) {
        ++list;
        if (count > 0) {
            texts.push_back(fmt::format("{} in {}", count, sim::inQuotes(setup.favourite(list))));
        }
    }
    for (const auto& [count, word] : {std::pair(counts.locked, "locked"), std::pair(counts.hidden, "hidden"),
                                      std::pair(counts.renamed, "renamed")}) {
        if (count > 0) {
            texts.push_back(fmt::format("{} {}", count, word));
        }
    }
    return fmt::format("{}", fmt::join(texts, ", "));
}

void printChannels(const sim::Bundle& bundle) {
    if (!bundle.setup().services) {
        return;
    }
    const sim::ChannelCounts counts = sim::countChannels(*bundle.setup().services);
    print("  channels   {}: {}\n", sim::plural(counts.services, "service"), counted(counts.byType));
    print("    groups     {}\n", counted(counts.byGroup));
    print("    providers  {}\n", counted(counts.byProvider));
    if (const std::string text = customised(bundle.setup(), counts); !text.empty()) {
        print("    customised {}\n", text);
    }
}

void printMetadata(const NamedBundle& named) {
    const sim::Bundle& bundle = named.bundle;
    if (!bundle.metadataText()) {
        print("  metadata   not known: neither in {}{} nor given with --metadata\n", named.name,
              sim::application::METADATA_SUFFIX);
        return;
    }
    const sim::Metadata& metadata = bundle.metadata();
    const std::optional<std::set<int>> inputs = sim::application::antennaInputsOf(metadata.antenna);
    print("  metadata   version {}{}{}\n", metadata.version.empty() ? "unknown" : metadata.version,
          named.metadataFile.empty() ? "" : ", from ", named.metadataFile);
    print("    antenna    {}\n", inputs ? sim::antennaWords(*inputs) : fmt::format("mask {}", metadata.antenna));
    const std::optional<sim::Services>& services = bundle.setup().services;
    print("    watching   {}\n",
          sim::words(metadata.viewing, services ? services->find(metadata.viewing.serviceId) : std::nullopt));
}

void printItems(const sim::Bundle& bundle) {
    for (const sim::Name<sim::Item>& item : sim::NAMES<sim::Item>) {
        const sim::BundlePart& part = bundle.part(item.value);
        std::string text = part.problem;
        if (const std::optional<int> list = sim::favouriteList(item.value);
            list && part.state == sim::PartState::Whole) {
            text = bundle.setup().favourite(*list);
        } else if (item.value == sim::Item::IpServices && part.state == sim::PartState::Absent) {
            text = "they stay with their set";
        }
        print("  {:<10} {:<8} {}\n", item.name, sim::nameOf(part.state), text);
    }
}

void printEntries(const sim::Bundle& bundle) {
    print("  {:<28} {:>12}  {:<8}\n", "entry", "bytes", "crc32");
    for (const sim::UnpackedEntry& entry : bundle.entries()) {
        print("  {:<28} {:>12}  {:08x}  {}\n", sim::inColumns(entry.name, 28), entry.size, entry.crc, entry.problem);
    }
}

void printHead(const NamedBundle& named) {
    print("{}\n", named.name);
    if (named.backup) {
        print("  stored     {} as {}\n", named.backup->time, named.backup->path());
        print("  made by    {}\n", named.backup->device.empty() ? "unknown" : named.backup->device);
        print("  file       {}, {} bytes\n", named.backup->name, named.backup->size);
    }
}

int show(const Session& session, const BundleOptions& options) {
    const NamedBundle named = chooseBundle(session, options.bundle, options.metadata);
    const std::vector<std::string> problems = named.bundle.problems();
    const int code = problems.empty() ? DONE : DAMAGED;
    if (session.isJson) {
        printJson(toJson(named));
        return code;
    }
    printLines(stdout, "damaged: ", problems);
    if (!named.bundle.problem().empty()) {
        return code;  // there is nothing in it to show
    }
    printHead(named);
    printMetadata(named);
    printChannels(named.bundle);
    printItems(named.bundle);
    printEntries(named.bundle);
    return code;
}

// On the TV that was asked for; else on the session's, if it exists.
std::optional<sim::Foresight> foreseeFor(const Session& session, const std::string& tv, const sim::Bundle& bundle) {
    if (!tv.empty()) {
        return sim::foresee(bundle, sim::Tv(sim::normalised(tv), sim::Database::Access::Look));
    }
    return sim::pathExists(session.home) ? std::optional(sim::foresee(bundle, session.look())) : std::nullopt;
}

const char* statusOf(const sim::Bundle& bundle) {
    return bundle.isWhole() ? "whole" : (bundle.problems().empty() ? "AMBIGUOUS" : "DAMAGED");
}

// What is lost is not told twice: each item says it.
void printForesight(const sim::Bundle& bundle, const sim::Foresight& foresight) {
    const bool isOfItems = foresight.cause == sim::Cause::ItemLost || foresight.why.empty();
    print("A restore on this TV: {}{}{}\n", sim::nameOf(foresight.outcome), isOfItems ? "" : ": ",
          isOfItems ? "" : foresight.why);
    if (!bundle.metadataText()) {
        print("  with metadata made up, as cloud import does: the antenna inputs of this TV, no viewing state\n");
    }
    for (const sim::ItemVerdict& item : foresight.items) {
        print("  {:<10} {:<13} {}\n", sim::nameOf(item.item), sim::nameOf(item.state), item.detail);
    }
    printLines(stdout, "  left by an earlier run: ", foresight.leftovers);
    if (foresight.reception) {
        print("  on the air {}\n", sim::words(*foresight.reception));
        print("It would bring back {} off the air, and drop {}.\n",
              sim::plural(foresight.reception->gone, "channel that is", "channels that are"),
              sim::plural(foresight.reception->missing, "new one"));
    }
}

void printVerified(const NamedBundle& named, const std::optional<sim::Foresight>& foresight) {
    printLines(stdout, "damaged: ", named.bundle.problems());
    if (!named.bundle.problem().empty()) {
        return;
    }
    printLines(stdout, "ambiguous: ", named.bundle.ambiguities());
    print("{}: {}, each byte of {} read\n", named.name, statusOf(named.bundle),
          sim::plural(named.bundle.entries().size(), "entry", "entries"));
    printItems(named.bundle);
    printEntries(named.bundle);
    if (foresight) {
        printForesight(named.bundle, *foresight);
    }
}

int verify(const Session& session, const BundleOptions& options) {
    const NamedBundle named = chooseBundle(session, options.bundle, options.metadata);
    const std::optional<sim::Foresight> foresight = foreseeFor(session, options.tv, named.bundle);
    if (session.isJson) {
        Json::Value value = toJson(named);
        value["restore"] = sim::toJson(foresight);
        printJson(value);
    } else {
        printVerified(named, foresight);
    }
    if (!named.bundle.isWhole()) {
        return DAMAGED;
    }
    return options.tv.empty() ? DONE : exitCodeOf(foresight->outcome, foresight->cause);
}

void addBundle(CLI::App& command, const Options& options) {
    command.add_option("bundle", options->bundle, "a bundle file, or a stored backup's id (default: the newest)");
    command.add_option("--metadata", options->metadata,
                       "file with a bundle file's metadata (default: BUNDLE.json beside it, if any)");
}

}  // namespace

void addBundleCommands(CLI::App& app, Action& chosen) {
    const auto options = std::make_shared<BundleOptions>();
    CLI::App* group = addGroup(app, "bundle", "Look into a bundle: a file, or a stored backup");
    addBundle(*addCommand(*group, "show", "Show what a bundle holds", "halcyon-tv bundle show 000001", chosen,
                          [options](const Session& session) { return show(session, *options); }),
              options);
    CLI::App* verifying =
        addCommand(*group, "verify", "Read each byte of a bundle, and say what a restore on this TV would do",
                   "halcyon-tv bundle verify customer.zip --for /tmp/halcyon/tv", chosen,
                   [options](const Session& session) { return verify(session, *options); });
    addBundle(*verifying, options);
    verifying->add_option("--for", options->tv,
                          "folder of the TV to restore it on; the exit code is that of the restore");
}

}  // namespace cli
