// Channel lists in the channels.conf format of VDR.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace sim {

struct Service {
    int number = 0;    // as the viewer sees it
    int group = 0;     // 1-based, into ChannelList::groups; 0 before the first group
    std::string name;  // texts are UTF-8
    std::string shortName;
    std::string provider;
    std::uint64_t frequency = 0;  // Hz
    std::string parameters;
    std::string source;    // "S19.2E", "C", "T", ...
    int symbolRate = 0;    // kilosymbols a second, 0 where the source has none
    std::string videoPid;  // pids as the list has them, with modes and languages
    std::string audioPids;
    std::string textPids;
    std::vector<int> conditionalAccess;  // CA system ids
    int sid = 0;
    int nid = 0;
    int tid = 0;
    int rid = 0;
    bool radio = false;
    std::string identity;  // source-nid-tid-sid-rid
};

struct ChannelList {
    std::vector<std::string> groups;
    std::vector<Service> services;
    std::vector<std::string> problems;  // a line each: file, line, reason; what they name was skipped
};

// Reads a channel list. Throws Error when the file cannot be read or no line of it is a service.
ChannelList readChannelList(const std::filesystem::path& file);

}  // namespace sim
