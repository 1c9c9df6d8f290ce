// Snapshots of a TV: what its folder held at one moment, kept inside it by name.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace sim {

// What Tv::create() leaves.
constexpr char INIT_SNAPSHOT[] = "init";

// saveSnapshot() and resetTo() want the TV's lock held, work whole or not at all, and throw Error.

// Keeps what the TV is now; a snapshot of the name is replaced. Throws Error for a name that is none.
void saveSnapshot(const std::filesystem::path& home, const std::string& name);

// Makes the TV what the snapshot has, records of runs and fault rules included. Its snapshots stay.
void resetTo(const std::filesystem::path& home, const std::string& name);

// The TV home that a snapshot is. Throws Error (Missing) where there is none of the name.
std::filesystem::path snapshotPath(const std::filesystem::path& home, const std::string& name);

// Their names, sorted.
std::vector<std::string> snapshotsOf(const std::filesystem::path& home);

}  // namespace sim
