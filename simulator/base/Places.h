// Where the TV and the cloud are when nobody says so.
#pragma once

#include <filesystem>

namespace sim {

// A folder's path, absolute and without a '/' at its end.
std::filesystem::path normalised(const std::filesystem::path& folder);

// $HALCYON_TV_HOME, else $XDG_STATE_HOME/halcyon-tv, else ~/.local/state/halcyon-tv. Throws Error without any of them.
std::filesystem::path defaultHome();

// $HALCYON_CLOUD, else the folder "cloud" beside the TV.
std::filesystem::path defaultCloud(const std::filesystem::path& home);

}  // namespace sim
