// Unpacks a bundle as the application does, so that what is said of a bundle is what a restore of it meets.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "simulator/base/Archive.h"
#include "simulator/base/Descriptor.h"
#include "simulator/base/Limits.h"

namespace sim {

// By a name as the application reads it: up to a NUL, at most 255 bytes.
struct UnpackedEntry : ArchiveEntry {
    std::string digest;   // SHA-256 of its bytes; empty: they cannot be read
    std::string problem;  // why the application cannot unpack it, or must not; empty: it can
};

struct Unpacking {
    std::vector<UnpackedEntry> entries;        // in the archive's order, to the first one that the application fails at
    std::string problem;                       // of the archive as such; empty: it can be opened
    std::map<std::string, std::string> files;  // SHA-256 by path; of entries with one path, the last counts
};

// The most bytes that a file may have, by its path, if its content is wanted; 0 if it may stay empty.
using Wanted = std::function<std::uint64_t(const std::string& path)>;

// Uses the application's library and takes its steps: the entries in the order of the central directory, by the names
// there, each over what is in its place, and the end at the first failure. Names that lead out of `folder` are not
// followed. If all entries together have more than `maxBytes`, or share too many packed bytes, nothing is unpacked.
// Throws Error if the archive cannot be read or the disk is full.
Unpacking unpackBundle(const Descriptor& archive, const std::filesystem::path& folder, const Wanted& wanted,
                       std::uint64_t maxBytes = limits::ARCHIVE_BYTES);

// Where another reader of archives disagrees with the application, a line each: such a bundle is not what other tools
// say.
std::vector<std::string> ambiguitiesOf(const Descriptor& archive, const Unpacking& unpacking);

}  // namespace sim
