// Snapshots of a TV: what its folder held at one moment, kept inside it by name.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace sim {

// What Tv::create() leaves.
constexpr char INIT_SNAPSHOT[] = "init";

// Makes `to` a copy of the TV at `from` without its snapshots. Nothing may change that TV meanwhile. Throws Error; then
// a part of the copy may be there.
void copyTv(const std::filesystem::path& from, const std::filesystem::path& to);

// The caller of saveSnapshot() and resetTo() must hold the TV's run lock (lockTv). They are done whole or not at all,
// and throw Error if they fail.

// Keeps what the TV is now, in place of an older snapshot of that name. Throws Error if the name is not allowed.
void saveSnapshot(const std::filesystem::path& home, const std::string& name);

// Makes the TV what it was at the snapshot, with its records of runs and fault rules. All snapshots stay.
void resetTo(const std::filesystem::path& home, const std::string& name);

// The folder of a snapshot, which is a TV home itself. Throws Error (Missing) if there is none of that name.
std::filesystem::path snapshotPath(const std::filesystem::path& home, const std::string& name);

// Their names, sorted.
std::vector<std::string> snapshotsOf(const std::filesystem::path& home);

}  // namespace sim
