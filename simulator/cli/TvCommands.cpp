// The commands that look at a TV or change it.
#include <fmt/ranges.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>

#include "simulator/base/Clock.h"
#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/cli/Command.h"
#include "simulator/device/ListKeeper.h"
#include "simulator/lineup/ChannelList.h"
#include "simulator/lineup/Words.h"
#include "simulator/reports/ToJson.h"
#include "simulator/reports/TvReport.h"
#include "simulator/tv/Settable.h"
#include "simulator/tv/Snapshot.h"

namespace cli {

namespace {

struct InitOptions {
    std::string channels;
    sim::ListOptions list;
    std::string serial;
    std::string now = "machine";
    bool isStill = false;
    std::string zone;
    std::string account = sim::DEFAULT_ACCOUNT;
    bool favouritesFromGroups = false;
    sim::Keeper keeper;
};

// Reads a channel list, and says what it lacks before a later step can fail, which may be why it does.
sim::ChannelSource reading(const Session& session, const std::string& file, const sim::ListOptions& options,
                           sim::ChannelSummary& list) {
    return [&](sim::ChannelSink& sink) {
        list = sim::readChannelList(file, sink, options);
        if (session.isQuiet) {
            return;
        }
        printLinesOfKinds(stderr, list.problems);
        printLinesOfKinds(stderr, list.notes);
        if (list.latin1Lines > 0) {
            print(stderr,
                  "{}: {} not UTF-8, read as ISO 8859-1 (Latin-1); if names look wrong, say what the list is in, such "
                  "as: --encoding CP1251\n",
                  file, list.latin1Lines == 1 ? "1 line is" : fmt::format("{} lines are", list.latin1Lines));
        }
    };
}

int init(const Session& session, const InitOptions& options) {
    if (options.channels.empty() == options.keeper.kind.empty()) {
        throw UsageError("give one channel list, such as: halcyon-tv init --channels list.conf");
    }
    sim::TvClock clock = sim::readClock(options.now, sim::machineTime());
    clock.isStill = options.isStill;
    clock.zone = options.zone;
    sim::requireZone(clock.zone);
    const std::unique_ptr<sim::ListKeeper> keeper = sim::openKeeper(options.keeper, [&](const std::string& message) {
        if (!session.isQuiet) {
            print(stderr, "{}\n", sim::shown(message));
        }
    });
    sim::ChannelSummary list;
    const sim::ChannelSource read = reading(session, options.channels, options.list, list);
    sim::Tv::create(session.home, keeper ? keeper->list() : read,
                    options.serial.empty() ? fmt::format("{:08X}", std::random_device()()) : options.serial, clock,
                    options.account, options.favouritesFromGroups, options.keeper);
    if (keeper) {
        sim::Tv tv(session.home);
        keeper->refresh(tv);
        const sim::Services::Counts counts = tv.services().counts();
        list.services = static_cast<std::size_t>(counts.services);
        list.groups = static_cast<std::size_t>(counts.groups);
        list.format = options.keeper.kind;
        list.unit = "line";
    }
    const Json::Value json = sim::object({{"home", session.home.string()},
                                          {"services", list.services},
                                          {"groups", list.groups},
                                          {"format", std::string(list.format)},
                                          {"latin1Lines", list.latin1Lines},
                                          {"skipped", list.skipped},
                                          {"problems", list.problems},
                                          {"notes", list.notes}});
    return answer(session, json, [&] {
        if (session.isQuiet) {
            return;
        }
        print("Made a factory-fresh TV at {}: {} in {}, {} skipped.\n", session.home.string(),
              sim::plural(list.services, "service"), sim::plural(list.groups, "group"),
              sim::plural(list.skipped, list.unit, list.unit == "entry" ? "entries" : ""));
    });
}

void printService(const sim::Service& service) {
    print("{:>5}  {:<28} {:<5} {:<24} {:<20} {}\n", service.number, service.name, service.type, service.identity,
          service.groupName, sim::choiceWords(service));
}

void printTv(const sim::TvReport& report) {
    print("TV at {}\n", report.home);
    print("  account    {}\n", report.account);
    print("  channels   {}, {} of them radio, in {}\n", sim::plural(report.counts.services, "service"),
          report.counts.radios, sim::plural(report.counts.groups, "group"));
    print("  watching   {}\n", sim::words(report.watching, report.viewing.serviceId));
    print("  mode       {}\n", sim::words(report.viewing.mode));
    print("  source     {}\n", sim::words(report.viewing.source));
    print("  category   {}\n", sim::words(report.viewing.category));
    print("  antenna    {}\n", sim::antennaWords(report.antenna));
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
    if (!report.now.empty()) {
        print("  clock      {}{}\n", report.now, report.isClockStill ? ", standing" : "");
    }
    if (!report.zone.empty()) {
        print("  zone       {}\n", report.zone);
    }
    for (const std::string& file : report.leftovers) {
        print("  leftover   {} of an earlier run; a restore applies what its bundle does not have\n", file);
    }
}

int showTv(const Session& session) {
    const sim::TvReport report = sim::reportTv(session.look());
    return answer(session, sim::toJson(report), [&] { printTv(report); });
}

int showTvWithServices(const Session& session) {
    const sim::Tv tv = session.look();
    const sim::TvReport report = sim::reportTv(tv);
    return answer(session, sim::toDocument(report, tv.services()), [&] {
        printTv(report);
        print("\n{:>5}  {:<28} {:<5} {:<24} {}\n", "no.", "name", "type", "identity", "group");
        tv.services().forEach(&printService);
    });
}

int saveSnapshot(const Session& session, const std::string& name) {
    if (!name.empty()) {
        const sim::FolderLock lock = sim::lockTv(session.home, std::chrono::seconds(0));
        sim::saveSnapshot(session.home, name);
    }
    session.look();  // there is a TV
    const std::vector<std::string> names = sim::snapshotsOf(session.home);
    return answer(session, sim::object({{"snapshots", names}}), [&] {
        if (name.empty()) {
            for (const std::string& each : names) {
                print("{}\n", each);
            }
        }
    });
}

struct SetOptions {
    std::string name;
    std::vector<std::string> words;
    bool isStill = false;
};

int set(const Session& session, const SetOptions& options) {
    std::vector<std::string> words = options.words;
    if (options.isStill && options.name != "clock") {
        throw UsageError("--still makes a clock stand: halcyon-tv set clock 2026-01-31T18:00:00Z --still");
    }
    // Not during a run, whose verdict would take the change for the application's work.
    const sim::FolderLock lock = sim::lockTv(session.home, std::chrono::seconds(0));
    sim::Tv tv(session.home);
    words.back() += options.isStill ? " still" : "";
    sim::setByName(tv, options.name, words);
    if (session.isJson) {
        printJson(sim::object({{"name", options.name}, {"value", fmt::format("{}", fmt::join(words, " "))}}));
    }
    return DONE;
}

struct RescanOptions {
    std::string list;
    sim::ListOptions options;
};

int rescan(const Session& session, const RescanOptions& options) {
    const sim::FolderLock lock = sim::lockTv(session.home, std::chrono::seconds(0));
    sim::Tv tv(session.home);
    const std::uint64_t before = tv.viewing().serviceId;
    sim::ChannelSummary list;
    const sim::ScanResult result = tv.rescan(reading(session, options.list, options.options, list));
    const std::uint64_t now = tv.viewing().serviceId;
    Json::Value json = sim::toJson(result);
    json["latin1Lines"] = sim::toJson(list.latin1Lines);
    json["skipped"] = sim::toJson(list.skipped);
    json["problems"] = sim::toJson(list.problems);
    json["notes"] = sim::toJson(list.notes);
    return answer(session, json, [&] {
        print("{} found: {}.\n", sim::plural(result.services, "service"), sim::words(result));
        if (now != before) {
            print("What was on is gone; now on: {}.\n", sim::words(tv.services().find(now), now));
        }
    });
}

int reset(const Session& session, const std::string& name) {
    const sim::FolderLock lock = sim::lockTv(session.home, std::chrono::seconds(0));
    sim::resetTo(session.home, name);
    if (session.isJson) {
        printJson(sim::object({{"snapshot", name}}));
    }
    return DONE;
}

// How a channel list is read.
void addListOptions(CLI::App& command, sim::ListOptions& options) {
    command.add_option("--encoding", options.encoding,
                       "of the list, as iconv calls it (default: UTF-8 or what its byte order mark says; lines that "
                       "are not are read as ISO 8859-1)");
    command.add_option("--satellite", options.satellite,
                       "where services come from whose list only says that it is a satellite, such as S19.2E");
}

// The options of a program that keeps the list, in the place of a file.
void addKeeperOptions(CLI::App& making, const sim::KeeperKind& kind, const std::shared_ptr<InitOptions>& options,
                      CLI::Option* channels) {
    CLI::Option* first = nullptr;
    for (const sim::KeeperOption& option : kind.options) {
        CLI::Option* added = making.add_option_function<std::string>(
            fmt::format("--{}", option.name),
            [options, &kind, &option](const std::string& value) {
                options->keeper.kind = kind.name;
                options->keeper.options[option.name] = option.isFolder ? sim::normalised(value).string() : value;
            },
            option.help);
        if (first == nullptr) {
            first = added->excludes(channels);
            continue;
        }
        added->needs(first);
        if (option.isRequired) {
            first->needs(added);
        }
    }
}

void addInit(CLI::App& app, Action& chosen) {
    const auto options = std::make_shared<InitOptions>();
    CLI::App* making =
        addCommand(app, "init", "Make a factory-fresh TV with a channel list", "halcyon-tv init --channels list.conf",
                   chosen, [options](const Session& session) { return init(session, *options); });
    CLI::Option* channels = making->add_option(
        "--channels", options->channels,
        "channel list: channels.conf of VDR, dvbv5, M3U, lamedb or the folder with it and its bouquets, Tvheadend's "
        "JSON or its folder, CSV; its content says which");
    for (const sim::KeeperKind* kind : sim::KeeperKind::all()) {
        addKeeperOptions(*making, *kind, options, channels);
    }
    addListOptions(*making, options->list);
    making->add_option("--serial", options->serial, "serial number of the set (default: a random one)");
    making->add_option("--account", options->account, "its account in the cloud: TVs of one account share backups")
        ->capture_default_str();
    making->add_flag("--favourites-from-groups", options->favouritesFromGroups,
                     "fill the favourite lists 1 to 5 with the list's first five groups, and name them so");
    CLI::Option* now = making->add_option(
        "--now", options->now,
        "the TV's time, such as 2026-01-31T18:00:00Z, 2026-01-31 or +1d, which runs move on (default: the machine's)");
    making->add_flag("--still", options->isStill, "its clock stands: runs do not move it on")->needs(now);
    making->add_option("--zone", options->zone, "its time zone, such as Europe/Berlin (default: the machine's)");
}

void addRescan(CLI::App& app, Action& chosen) {
    const auto scanning = std::make_shared<RescanOptions>();
    CLI::App* scan =
        addCommand(app, "rescan", "Scan the channels: a list is what is on the air now", "halcyon-tv rescan new.conf",
                   chosen, [scanning](const Session& session) { return rescan(session, *scanning); });
    scan->add_option("list", scanning->list,
                     "channel list, as for init; what stays keeps its number and what its owner has set")
        ->required();
    addListOptions(*scan, scanning->options);
}

}  // namespace

void addTvCommands(CLI::App& app, Action& chosen) {
    addInit(app, chosen);
    addRescan(app, chosen);

    const auto withServices = std::make_shared<bool>(false);
    addCommand(app, "status", "Show the TV", "halcyon-tv status --services", chosen,
               [withServices](const Session& session) {
                   return *withServices ? showTvWithServices(session) : showTv(session);
               })
        ->add_flag("--services", *withServices, "with its channel list");

    const auto setting = std::make_shared<SetOptions>();
    CLI::App* changing = addCommand(app, "set", "Set a part of the TV's state", "halcyon-tv set favourite 2 add 22 23",
                                    chosen, [setting](const Session& session) { return set(session, *setting); });
    changing->add_option("name", setting->name, sim::settableHelp())->required();
    // Each by an option of its own, as far as a new name may stand: a list of words would take the brackets off
    // "[News]".
    const auto add = [setting](const std::string& word) { setting->words.push_back(word); };
    changing->add_option_function<std::string>("value", add, "the new value, or words as above")->required();
    changing->add_option_function<std::string>("word", add);
    changing->add_option_function<std::vector<std::string>>(
        "words", [add](const std::vector<std::string>& words) { std::for_each(words.begin(), words.end(), add); });
    changing->add_flag("--still", setting->isStill, "a clock that is set stands: runs do not move it on");

    const auto name = std::make_shared<std::string>();
    addCommand(app, "snapshot", "Save the TV's state under a name, or list the names", "halcyon-tv snapshot before",
               chosen, [name](const Session& session) { return saveSnapshot(session, *name); })
        ->add_option("name", *name, "letters, digits, '.', '_', '-' (default: list the names)");
    const auto which = std::make_shared<std::string>(sim::INIT_SNAPSHOT);
    addCommand(app, "reset", "Return the TV to a snapshot, with its records and fault rules", "halcyon-tv reset before",
               chosen, [which](const Session& session) { return reset(session, *which); })
        ->add_option("name", *which, "name of the snapshot (default: init, the factory state)");
}

}  // namespace cli
