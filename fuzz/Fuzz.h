// What the fuzz targets share: a private folder that the process is confined to, with a simulated TV in it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

namespace fuzz {

// The private folder, made at the first use. The process can write nowhere else from then on; where the kernel cannot
// see to that, it ends.
const std::filesystem::path& folder();

// Empties or makes a folder below the private one, and gives its path.
std::filesystem::path emptyFolder(const std::string& name);

std::filesystem::path writeInput(const std::string& name, const std::uint8_t* data, std::size_t size);

// A TV with one service, opened for this process. Every so many calls the process's record of it begins anew.
void openTv();

}  // namespace fuzz
