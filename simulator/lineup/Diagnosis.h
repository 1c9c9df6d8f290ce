// Why a file is no bundle, for the person who got it.
#pragma once

#include <filesystem>
#include <string>

namespace sim {

// Of a file that no reader can open as an archive: what it is, or what is still whole in it.
std::string whyNoArchive(const std::filesystem::path& file);

// Of an archive without a channel database: how it was packed, and what to do; empty if that is not known.
std::string whyNoBundle(const std::filesystem::path& archive);

}  // namespace sim
