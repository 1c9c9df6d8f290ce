// Channel lists, in any of the formats that ListFormat has.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <unordered_map>
#include <vector>

#include "simulator/lineup/ChannelSink.h"

namespace sim {

// What a list does not say itself.
struct ListOptions {
    std::string encoding;   // as iconv calls it; empty: UTF-8 or what a byte order mark says, else ISO 8859-1
    std::string satellite;  // the source of services of a satellite that the list does not name, such as "S19.2E"
};

// Reads a channel list: a file, or a folder of Enigma2 or Tvheadend. The format follows from the content. Throws Error
// if it cannot be read, or no part of it is a service; with what it seems to be instead.
ChannelSummary readChannelList(const std::filesystem::path& file, ChannelSink& sink, const ListOptions& options = {});

// A channel list in memory.
class ChannelList final : public ChannelSink {
public:
    std::vector<std::string> groups;
    std::vector<Service> services;
    std::vector<ListHeader> headers;
    std::vector<std::string> problems;  // of reading it

    void addGroup(const std::string& name) override { groups.push_back(name); }
    void addHeader(const ListHeader& header) override { headers.push_back(header); }
    std::size_t addService(const Service& service) override;

private:
    std::unordered_map<std::string, std::size_t> m_places;  // by identity, from 1
};

}  // namespace sim
