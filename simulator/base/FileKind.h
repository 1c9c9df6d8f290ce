// What a file is that is not what it should be, by its first bytes.
#pragma once

#include <filesystem>
#include <string>

namespace sim {

// In words, such as "empty", "nothing but zeros", "a gzip archive" or "a playlist (M3U)"; empty if it is not known.
// Throws Error if it cannot be read.
std::string fileKind(const std::filesystem::path& file);

}  // namespace sim
