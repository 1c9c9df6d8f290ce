// Channel lists of the DVB tools of Linux.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "simulator/lineup/ListFormat.h"

namespace sim {

bool isDvbv5(const std::vector<std::string>& head);
std::unique_ptr<ListReader> readDvbv5(const ListFile& file, ListIntake& intake);
void writeDvbv5(const Services& services, const ListOutput& output);

}  // namespace sim
