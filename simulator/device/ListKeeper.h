// Another program that keeps a TV's channel list, where a TV of this program's own has its databases alone.
#pragma once

#include <filesystem>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "simulator/lineup/ServiceDb.h"
#include "simulator/tv/Tv.h"

namespace sim {

// Takes what a person has to know, though nothing has failed.
using Say = std::function<void(const std::string&)>;

class ListKeeper {
public:
    virtual ~ListKeeper() = default;

    // The program's list, for a TV that is to be made. Throws Error.
    virtual ChannelSource list() = 0;

    // Takes over into the TV what the program has: before each run. What is the same stays as it is. Throws Error.
    virtual void refresh(Tv& tv) = 0;

    // Puts the channel database of an archive in place in the program and in the TV. Returns nothing on success, else
    // why both are as they were.
    virtual std::optional<ReplaceStatus> replace(Tv& tv, const std::filesystem::path& archive) = 0;

    // Puts those of the CI files in place that are the program's. Returns false, with nothing changed, if that failed.
    virtual bool takeOver(const std::list<std::string>& ciFiles) = 0;

    // Shows a service, if the program can.
    virtual void show(const Service& service) = 0;

    // The folders that it writes to.
    virtual std::vector<std::filesystem::path> folders() const = 0;
};

struct KeeperOption {
    const char* name;  // of the command line; the first of a kind is that of the kind
    const char* help;
    bool isRequired = false;
    bool isFolder = false;
};

// A kind of such programs. Whoever implements one makes a KeeperKind that lives as long as the program.
class KeeperKind {
public:
    using Open = std::unique_ptr<ListKeeper> (*)(const Keeper& keeper, const Say& say);  // throws Error

    KeeperKind(const char* kindName, std::vector<KeeperOption> kindOptions, Open opener);

    static const std::vector<const KeeperKind*>& all();

    const char* const name;
    const std::vector<KeeperOption> options;
    const Open open;
};

// Null for a TV without. Throws Error.
std::unique_ptr<ListKeeper> openKeeper(const Keeper& keeper, const Say& say);

}  // namespace sim
