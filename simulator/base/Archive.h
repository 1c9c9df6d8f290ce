// Zip archives as the TV service and the cloud see them. They use libzip and the application uses minizip, so that a
// fault of either library shows.
#pragma once

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "simulator/base/Descriptor.h"

namespace sim {

struct ArchiveEntry {
    std::string name;
    std::uint64_t size = 0;  // bytes, unpacked
    std::uint32_t crc = 0;   // CRC-32 of those bytes, as the archive has it
};

// Every function throws Error: Damaged if the archive is damaged or exceeds a limit, else the kind of the system's
// error.

// Writes an archive of these files, each under its file name and with `time` as its time. If it fails, what was at
// `archive` before is unchanged.
void writeArchive(const std::filesystem::path& archive, const std::vector<std::filesystem::path>& files,
                  std::time_t time = std::time(nullptr));

// Lists the entries in the order of the archive, without reading their bytes; names are bytes of any encoding. Throws
// Error (Damaged) also if the structures contradict each other, such as the central directory and a local header.
// `name` is for messages.
std::vector<ArchiveEntry> listArchive(const Descriptor& archive, const std::string& name);
std::vector<ArchiveEntry> listArchive(const std::filesystem::path& archive);

// Unpacks the entry `name` into the file `target` and checks its checksum. No name in the archive decides where
// something is written. Throws Error (Damaged) if the entry has more than limits::ENTRY_BYTES. Returns false if there
// is no such entry.
bool extractEntry(const std::filesystem::path& archive, const std::string& name, const std::filesystem::path& target);

}  // namespace sim
