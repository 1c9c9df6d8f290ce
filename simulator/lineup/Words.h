// A TV's codes in words.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "simulator/lineup/Scan.h"
#include "simulator/lineup/ServiceDb.h"
#include "simulator/lineup/Viewing.h"

namespace sim {

// "satellite, all services (2/0)" and the like: the names, and the codes as `halcyon-tv set` takes them.
std::string words(const TvMode& mode);
std::string words(Source source);
std::string words(const Category& category);
std::string words(Response response);
std::string words(ReplaceStatus status);

// The service that is on, and the viewing state with it; std::nullopt if the channel list does not have it.
std::string words(const std::optional<Service>& service, std::uint64_t id);
std::string words(const Viewing& viewing, const std::optional<Service>& service);

// What the owner of a TV has set of a service: "favourite 2:1 4:3" (list:place), "locked", "hidden", "renamed from
// 'Das Erste'"; separated by commas. Empty if nothing.
std::string choiceWords(const Service& service);

// "12 of 15 services; 1 has moved, 2 are off the air, and 7 new ones are dropped".
std::string words(const Reception& reception);

// "7 gone, 3 renamed by their broadcasters"; without those of which there are none.
std::string words(const ScanResult& result);

// "terrestrial (0), satellite (2)".
std::string antennaWords(const std::set<int>& inputs);

}  // namespace sim
