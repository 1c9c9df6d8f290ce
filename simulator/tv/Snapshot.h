// Snapshots of a TV: what its folder held at one moment, kept inside it by name.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace sim {

// What Tv::create() leaves.
constexpr char INIT_SNAPSHOT[] = "init";

// Each function but the last wants the TV's lock held, works whole or not at all, and throws Error.

// Keeps what the TV is now; a snapshot of the name is replaced. Throws Error for a name that is none.
void saveSnapshot(const std::filesystem::path& home, const std::string& name);

// Makes the TV what the snapshot has, records of runs and fault rules included. Its snapshots stay.
void resetTo(const std::filesystem::path& home, const std::string& name);

// Their names, sorted.
std::vector<std::string> snapshotsOf(const std::filesystem::path& home);

}  // namespace sim
