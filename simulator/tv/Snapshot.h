// Snapshots of a TV: what its folder held at one moment, kept inside it by name.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace sim {

class Tv;

// What Tv::create() leaves.
constexpr char INIT_SNAPSHOT[] = "init";

// Makes `to` a copy of the TV at `from` without its snapshots. Nothing may change that TV meanwhile. Throws Error; then
// a part of the copy may be there.
void copyTv(const std::filesystem::path& from, const std::filesystem::path& to);

// What the TV was before a run is kept beside the run's record, until limits::STATES_KEPT newer runs have begun: a TV
// home with the last record before it. Files that are only ever replaced as a whole are shared with the TV by links.

// Keeps what the TV is, as `run` is about to begin. The caller must hold the TV's run lock (lockTv). Throws Error; then
// nothing is kept of that run. A power cut may take it.
void keepBefore(const Tv& tv, std::int64_t run);

// Its folder. Throws Error (Missing) if it is not kept.
std::filesystem::path pathBefore(const std::filesystem::path& home, std::int64_t run);

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
