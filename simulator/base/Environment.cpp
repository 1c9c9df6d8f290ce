#include "simulator/base/Environment.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

// Whether a path is a folder or below it, links followed.
bool isWithin(const fs::path& path, const fs::path& folder) {
    std::error_code error;
    // Weakly, as the cloud's folder need not be there yet.
    const fs::path inner = fs::weakly_canonical(path, error);
    const fs::path outer = fs::weakly_canonical(folder, error);
    return std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end();
}

}  // namespace

std::string environment(const char* name, const char* otherwise) {
    const char* value = std::getenv(name);
    return value != nullptr && *value != '\0' ? value : otherwise;
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

std::string cloudOf(const fs::path& home, const std::string& given) {
    std::string place = given.empty() ? environment(CLOUD_VARIABLE) : given;
    if (place.find("://") != std::string::npos) {
        return place;
    }
    const fs::path folder = place.empty() ? home.parent_path() / "cloud" : normalised(place);
    // A reset would remove a store in the home, as it replaces all that is there.
    if (isWithin(folder, home) || isWithin(home, folder)) {
        throw Error(
            fmt::format("the cloud at {} and the TV at {} must not be in one another; choose another folder with "
                        "--cloud or HALCYON_CLOUD",
                        folder.string(), home.string()));
    }
    return folder;
}

}  // namespace sim
