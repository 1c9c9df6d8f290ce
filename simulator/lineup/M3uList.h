// Playlists (M3U) of services on the air: DVB URIs, and the requests of SAT>IP.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "simulator/lineup/ListFormat.h"

namespace sim {

bool isM3u(const std::vector<std::string>& head);
std::unique_ptr<ListReader> readM3u(const ListFile& file, ListIntake& intake);

// An entry such as dvb://network.stream.service, in hexadecimal digits, for each service.
void writeM3u(const Services& services, const ListOutput& output);

}  // namespace sim
