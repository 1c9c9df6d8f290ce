// The state of a TV.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "simulator/tv/Tv.h"

namespace sim {

struct TvReport {
    std::string home;
    std::string account;  // in the cloud
    Services::Counts counts;
    Viewing viewing;
    std::optional<Service> watching;  // nothing if the channel list has no such service
    std::set<int> antenna;
    bool isScanning = false;
    std::vector<std::string> favourites;  // the lists' names
    Entries iss;
    std::map<std::string, std::uint64_t> ciFiles;  // size in bytes by name
    std::uint64_t ipServices = 0;                  // bytes
    std::string now;                               // as toUtc() has it; empty if its clock is the machine's
    bool isClockStill = false;
    std::string zone;                    // empty if it is the machine's
    std::vector<std::string> leftovers;  // of earlier runs, below unpackFolderOf()
};

struct ChannelCounts {
    std::uint64_t services = 0;
    std::map<std::string, std::uint64_t> byType;
    std::map<std::string, std::uint64_t> byGroup;
    std::map<std::string, std::uint64_t> byProvider;
    std::vector<std::uint64_t> favourites;  // in each favourite list
    std::uint64_t locked = 0;
    std::uint64_t hidden = 0;
    std::uint64_t renamed = 0;
};
ChannelCounts countChannels(const Services& services);

// The folder in which a restore unpacks its bundle, and the files that earlier runs have left there, relative to it.
std::filesystem::path unpackFolderOf(const Tv& tv);
std::vector<std::string> leftoversOf(const Tv& tv);

// Throws Error if a part cannot be read.
TvReport reportTv(const Tv& tv);

}  // namespace sim
