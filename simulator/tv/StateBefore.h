// What a TV was before a run: kept beside the run's record, until limits::STATES_KEPT newer runs have begun. It is a TV
// home with the last record before it. Files that are only ever replaced as a whole are shared with the TV by links.
#pragma once

#include <cstdint>
#include <filesystem>

#include "simulator/tv/Tv.h"

namespace sim {

// Keeps what the TV is, as `run` is about to begin. The caller must hold the TV's run lock (lockTv). Throws Error; then
// nothing is kept of that run. A power cut may take it.
void keepBefore(const Tv& tv, std::int64_t run);

// Its folder. Throws Error (Missing) if it is not kept.
std::filesystem::path pathBefore(const std::filesystem::path& home, std::int64_t run);

}  // namespace sim
