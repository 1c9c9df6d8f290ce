// Archives as other tools make them, and as none would.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace test {

// Leaks within the scope are not reported. An operation on an archive that fails, or throws, leaves its handle open,
// deliberately.
class LeavesHandles {
public:
    LeavesHandles();
    ~LeavesHandles();
    LeavesHandles(const LeavesHandles&) = delete;
    LeavesHandles& operator=(const LeavesHandles&) = delete;
};

// Writes an archive with these entries stored as they are: the names are taken as given.
void makeArchive(const std::filesystem::path& path, const std::vector<std::pair<std::string, std::string>>& entries);

// The little-endian number of `size` bytes at an offset of an archive.
std::uint64_t number(const std::string& bytes, std::size_t offset, std::size_t size);
void setNumber(std::string& bytes, std::size_t offset, std::size_t size, std::uint64_t value);

// The offset of the central directory's n-th record, in an archive without a comment.
std::size_t centralRecord(const std::string& bytes, std::size_t n);

}  // namespace test
