// Channel lists of Tvheadend: the objects of its configuration, in the files of its folder or in one array of JSON.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "simulator/lineup/ListFormat.h"

namespace sim {

bool isTvheadend(const std::vector<std::string>& head);
std::unique_ptr<ListReader> readTvheadend(const ListFile& file, ListIntake& intake);

// Whether a folder is one of Tvheadend's configuration; and reads it.
bool isTvheadendFolder(const std::filesystem::path& folder);
void readTvheadendFolder(const std::filesystem::path& folder, ListIntake& intake);

}  // namespace sim
