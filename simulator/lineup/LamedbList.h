// Channel lists of Enigma2: lamedb, in its versions 4 and 5, with the bouquets beside it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "simulator/lineup/ListFormat.h"

namespace sim {

bool isLamedb(const std::vector<std::string>& head);
std::unique_ptr<ListReader> readLamedb(const ListFile& file, ListIntake& intake);

// Version 4. The bouquets, which have the order and the groups, would be files of their own.
void writeLamedb(const Services& services, const ListOutput& output);

}  // namespace sim
