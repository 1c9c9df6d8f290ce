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

// Before 2.0, the default TV was the folder itself, and its cloud was beside it. They are not moved by themselves: a
// program of that time may be about to use them.
void requireNoneOfBefore(const fs::path& place) {
    if (isRegularFile(place / "tv.db")) {
        throw Error(
            fmt::format("{0} is a TV of an earlier version; the default TV is {0}/tv now, and its cloud {0}/cloud. "
                        "Move both: mv {0} {0}.old && mkdir {0} && mv {0}.old {0}/tv; mv {1}/cloud {0}/cloud",
                        place.string(), place.parent_path().string()));
    }
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
    fs::path state = environment("XDG_STATE_HOME");
    if (const fs::path user = environment("HOME"); !state.is_absolute() && user.is_absolute()) {
        state = user / ".local/state";
    }
    if (!state.is_absolute()) {
        throw Error("no folder for the TV; set HALCYON_TV_HOME or HOME, or give --home to halcyon-tv");
    }
    const fs::path place = state / "halcyon-tv";
    requireNoneOfBefore(place);
    return place / "tv";
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
