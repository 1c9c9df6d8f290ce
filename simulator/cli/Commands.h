// The commands of halcyon-tv. Each prints its result to standard output, and throws sim::Error, or an exception of the
// standard library or of SQLite, when it cannot do what it is asked for.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace cli {

// Where a command works.
struct Place {
    std::filesystem::path home;
    std::filesystem::path cloud;
};

// Exit codes.
constexpr int DONE = 0;
constexpr int FAILED = 1;  // the run did not succeed; the TVs differ
constexpr int USAGE = 2;
constexpr int UNUSABLE = 3;  // a file, folder or value that cannot be used

int init(const Place& place, const std::filesystem::path& channels, const std::string& serial);

int status(const Place& place, bool withServices);

// Sets one part of the TV's state.
int set(const Place& place, const std::string& name, const std::string& value);

struct RunOptions {
    std::vector<std::string> extras;  // key=value each
    std::string backup;
    bool reply = true;
    bool realtime = false;
    bool quiet = false;
};
// Launches the application on the TV and waits for its end.
int run(const Place& place, const RunOptions& options);

// Shows a run; without an id, the newest.
int record(const Place& place, std::optional<std::int64_t> id, bool withCalls, bool withLog);
int listRecords(const Place& place);

// Compares the channel set-up with that of the TV at `other`, service by service.
int diff(const Place& place, const std::filesystem::path& other);

int cloudList(const Place& place);
int cloudShow(const Place& place, const std::string& id);

int faultAdd(const Place& place, const std::string& call, const std::string& failure, int nth, int times);
int faultList(const Place& place);
int faultClear(const Place& place, std::optional<std::int64_t> rule);
int faultCalls();

}  // namespace cli
