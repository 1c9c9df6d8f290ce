// How a TV stands.
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
    std::string account;  // that it has in the cloud
    Services::Counts counts;
    Viewing viewing;
    std::optional<Service> watching;  // nothing: the channel list has no such service
    std::set<int> antenna;
    bool isScanning = false;
    std::vector<std::string> favourites;  // the lists' names
    Entries iss;
    std::map<std::string, std::uint64_t> ciFiles;  // size in bytes by name
    std::uint64_t ipServices = 0;                  // bytes
    std::string fixedTime;                         // that its clock is stopped at; empty: it runs
    std::vector<std::string> leftovers;            // of earlier runs, below unpackFolderOf()
};

// How many services of what kind there are.
struct ChannelCounts {
    std::uint64_t services = 0;
    std::map<std::string, std::uint64_t> byType;
    std::map<std::string, std::uint64_t> byGroup;
    std::map<std::string, std::uint64_t> byProvider;
};
ChannelCounts countChannels(const Services& services);

// Where a restore unpacks its bundle, and what is there between runs: paths below it.
std::filesystem::path unpackFolderOf(const Tv& tv);
std::vector<std::string> leftoversOf(const Tv& tv);

// Throws Error where a part cannot be read.
TvReport reportTv(const Tv& tv);

}  // namespace sim
