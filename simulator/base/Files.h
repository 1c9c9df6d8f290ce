// Durable file operations: what is put in place is there whole, or not at all, after a kill or a power cut at any
// moment.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/base/Descriptor.h"

namespace sim {

// Sets what the whole process calls, on the thread that takes it, before each step that changes what a restarted TV
// would find. Faults use it to cut the power there; an empty hook is none.
void onDiskStep(std::function<void()> hook);

// Whether something is there, links followed. A path that cannot be looked at is not there.
bool pathExists(const std::filesystem::path& path);
bool isFolder(const std::filesystem::path& path);
bool isRegularFile(const std::filesystem::path& path);

// Removes a file or a link. False: there is none, or it cannot be removed.
bool removeFile(const std::filesystem::path& path);

// Every function below throws Error, which names the path, when it fails.

// Where temporary files belong: $TMPDIR, else /tmp.
std::filesystem::path temporaryFolder();

// Hands the bytes of a file on, block by block.
void forEachBlock(const std::filesystem::path& path, const std::function<void(std::string_view)>& take);

// Hands its lines on, without their line breaks. Throws Error (Damaged) if one is longer than `maxBytes`.
void forEachLine(const std::filesystem::path& path, const std::function<void(std::string_view)>& take,
                 std::size_t maxBytes = SIZE_MAX);

// All of a file. Throws Error (Damaged) if it has more than `maxBytes`.
std::string readFile(const std::filesystem::path& path, std::uint64_t maxBytes = UINT64_MAX);

// The same of a file that somebody else may have put there. Throws Error (Damaged) if it is not a regular file: reading
// a pipe might never end.
std::string readReceived(const std::filesystem::path& path, std::uint64_t maxBytes);

std::uint64_t sizeOf(const std::filesystem::path& path);

// The path from the root.
std::filesystem::path absolutePath(const std::filesystem::path& path);

// The paths of what is directly in a folder, sorted; none if there is no folder.
std::vector<std::filesystem::path> membersOf(const std::filesystem::path& folder);

// Makes a folder and those above it that are missing.
void makeFolders(const std::filesystem::path& folder);

// Makes a folder that nobody else can read or write, and those above it that are missing. One that is there stays as it
// is.
void makePrivateFolder(const std::filesystem::path& folder);

// Writes a file and waits until it is on the disk. Not atomic by itself: for files that are still beside their place.
void writeFile(const std::filesystem::path& path, const std::string& text);

// Copies a regular file and waits until the copy is on the disk.
void copyFile(const std::filesystem::path& from, const std::filesystem::path& to);

// Gives a file or folder the permissions of another.
void copyPermissions(const std::filesystem::path& from, const std::filesystem::path& to);

// Puts the file or folder at `built` in the place of `target`. Of a folder, `target` must not exist. False: `target` is
// a folder that exists; nothing has changed.
bool putInPlace(const std::filesystem::path& built, const std::filesystem::path& target);

// Swaps two folders in one step. Both must be on one file system that can do so.
void exchange(const std::filesystem::path& built, const std::filesystem::path& target);

// Whether a path is that of a ScratchFolder, also of one that a killed process has left.
bool isScratch(const std::filesystem::path& folder);

// A folder of its own for what is being built, removed with all it holds at the end of the scope.
class ScratchFolder {
public:
    // Makes the folder inside `parent`, which is made too when it is missing, and removes those there that a killed
    // process has left. What only has such a name, but not the mark of this class, stays.
    explicit ScratchFolder(const std::filesystem::path& parent);
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    std::filesystem::path operator/(const std::string& name) const { return m_path / name; }

private:
    std::filesystem::path m_path;
    Descriptor m_lock;
};

}  // namespace sim
