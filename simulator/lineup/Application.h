// What the simulator knows of the application that runs on the TV.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace sim::application {

constexpr char NAME[] = "halcyon-lineup";

// Its working folder, and the one that keeps the archives of failed operations, below the TV home.
constexpr char DATA_FOLDER[] = "apps/com.kestrel.tv.halcyon-lineup/data";
constexpr char UNPACK_FOLDER[] = "temp";  // below the working folder
constexpr char FAILURE_FOLDER[] = "tmp/halcyon-lineup";

// The extra value of a launch request that tells what to do, and whether it makes the run a restore; and the
// one that tells that a scan is under way.
constexpr char OPERATION[] = "operation";
bool isRestore(std::string_view operation);
constexpr char SCAN_ACTIVATED[] = "scan_activated";

// What is wrong with an extra value on a command line; empty if it is of the form KEY=VALUE.
std::string checkExtra(const std::string& extra);

// Under which its backups are in the cloud.
constexpr char CLIENT_ID[] = "Qr7tLw2ZkA";
constexpr char CATEGORY[] = "OOBERFChannelList";

// What the metadata beside a bundle file are called, in the failure folder and elsewhere: the bundle's name and this.
constexpr char METADATA_SUFFIX[] = ".json";

// The entries of a bundle: the channel database and the iss database as archives, the settings, and the CI module's
// files below a folder.
constexpr char SERVICE_DB_ENTRY[] = "ServiceDB.zip";
constexpr char ISS_DB_ENTRY[] = "issDB.zip";
constexpr char SETTINGS_ENTRY[] = "vconf.json";
constexpr char CI_PREFIX[] = "ci/";

// The settings that it carries: the names of the favourite lists, counted from 1.
constexpr int FAVOURITE_LISTS = 5;
std::string favouriteKey(int list);

// The text with TIME in place of the times, DDMMYYYY_HHMMSS, that names of its bundles are made of.
std::string withoutTimes(std::string text);

// The version of a backup's metadata that it writes, and the only one that it restores.
constexpr char SCHEMA_VERSION[] = "0.3";

// The mask that it makes of the antenna inputs' codes, unknown ones left out. A restore needs equal masks on both
// sides.
int antennaMask(const std::set<int>& inputs);
// The fewest known inputs that make a mask; nothing if none do.
std::optional<std::set<int>> antennaInputsOf(int mask);

}  // namespace sim::application
