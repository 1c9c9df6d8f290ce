// The environment variables that configure the programs, and the defaults.
#pragma once

#include <filesystem>
#include <string>

namespace sim {

// The account of a TV that was given no other.
constexpr char DEFAULT_ACCOUNT[] = "default";

// The application reads these instead of options, because it opens its TV before main() gets the command line.
// halcyon-tv sets them for the application that it launches.
constexpr char HOME_VARIABLE[] = "HALCYON_TV_HOME";
constexpr char CLOUD_VARIABLE[] = "HALCYON_CLOUD";
constexpr char LOCK_VARIABLE[] = "HALCYON_TV_LOCK";        // descriptor that holds the lock of the TV's folder
constexpr char WAIT_VARIABLE[] = "HALCYON_TV_WAIT";        // seconds to wait for that lock
constexpr char KEEP_VARIABLE[] = "HALCYON_TV_KEEP";        // how many runs' records are kept
constexpr char SANDBOX_VARIABLE[] = "HALCYON_TV_SANDBOX";  // "off": the application is not confined
constexpr char SOCKET_VARIABLE[] = "HALCYON_TV_SOCKET";    // descriptor that leads to the TV's services

// How long a request to an object store may take, in seconds.
constexpr char STALL_VARIABLE[] = "HALCYON_CLOUD_STALL";  // a try that does not get on
constexpr char LIMIT_VARIABLE[] = "HALCYON_CLOUD_LIMIT";  // all tries together, and a whole listing
constexpr char PAUSE_VARIABLE[] = "HALCYON_CLOUD_PAUSE";  // the pause before the second try, at most

// In a TV's home: which addresses of its object store were down lately.
constexpr char DOWN_NOTES[] = "down-addresses";

// A folder's path, absolute and without a trailing '/'. Throws Error if the working folder is gone.
std::filesystem::path normalised(const std::filesystem::path& folder);

// $HALCYON_TV_HOME, else $XDG_STATE_HOME/halcyon-tv/tv, else ~/.local/state/halcyon-tv/tv. Throws Error if all are
// unset, or if a TV is where versions before 2.0 had the default one.
std::filesystem::path defaultHome();

// The value of an environment variable; `otherwise` if it is not set, or empty.
std::string environment(const char* name, const char* otherwise = "");

// The place of a TV's cloud: `given`, if it is not empty, else $HALCYON_CLOUD, else the folder "cloud" beside the TV.
// An address such as s3://BUCKET stays as it is, a folder is normalised(). Throws Error if the folder is inside the
// TV's home, where a reset would delete it, or the home inside the folder, where the application could write to it all.
std::string cloudOf(const std::filesystem::path& home, const std::string& given = "");

}  // namespace sim
