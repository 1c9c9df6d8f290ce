// Zip archives as the TV service and the cloud see them: written and read by another library than the application's.
#pragma once

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

namespace sim {

struct ArchiveEntry {
    std::string name;
    std::uint64_t size = 0;  // bytes, unpacked
    std::uint32_t crc = 0;   // CRC-32 of them, as the archive has it
};

// Every function throws Error when the archive cannot be written, read or trusted.

// Writes an archive of these files, each under its own file name and as of a time. The archive is there whole or not at
// all.
void writeArchive(const std::filesystem::path& archive, const std::vector<std::filesystem::path>& files,
                  std::time_t time = std::time(nullptr));

// The archive's entries in its own order, with names as bytes. Throws Error (Damaged) also if its structures contradict
// each other, such as the central directory and a local header.
std::vector<ArchiveEntry> listArchive(const std::filesystem::path& archive);

// Unpacks the one entry `name` into the file `target`, checksum checked. Other entries are not looked at, so that no
// name in the archive decides where something is written, and an entry that unpacks to more than limits::ENTRY_BYTES is
// refused. False: there is no such entry.
bool extractEntry(const std::filesystem::path& archive, const std::string& name, const std::filesystem::path& target);

}  // namespace sim
