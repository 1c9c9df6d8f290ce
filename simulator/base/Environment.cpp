#include "simulator/base/Environment.h"

#include <cstdlib>
#include <string>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"

namespace fs = std::filesystem;

namespace sim {

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

fs::path normalised(const fs::path& folder) {
    const fs::path path = absolutePath(folder).lexically_normal();
    return path.has_filename() ? path : path.parent_path();
}

fs::path defaultHome() {
    if (const std::string home = environment(HOME_VARIABLE); !home.empty()) {
        return normalised(home);
    }
    if (const fs::path state = environment("XDG_STATE_HOME"); state.is_absolute()) {
        return state / "halcyon-tv";
    }
    if (const fs::path user = environment("HOME"); user.is_absolute()) {
        return user / ".local/state/halcyon-tv";
    }
    throw Error("no folder for the TV; set HALCYON_TV_HOME or HOME, or give --home to halcyon-tv");
}

std::string normalisedCloud(const std::string& place) {
    return place.find("://") != std::string::npos ? place : normalised(place).string();
}

std::string defaultCloud(const fs::path& home) {
    if (const std::string cloud = environment(CLOUD_VARIABLE); !cloud.empty()) {
        return normalisedCloud(cloud);
    }
    return home.parent_path() / "cloud";
}

}  // namespace sim
