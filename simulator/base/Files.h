// Durable file operations: after a kill or a power cut at any moment, what is put in place is there whole, or not at
// all.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/base/FolderLock.h"

namespace sim {

// Sets a function that is called before each step that changes what a restarted TV would find, on the thread that takes
// the step. Faults use it to cut the power there. An empty function removes it.
void onDiskStep(std::function<void()> hook);

// These follow links, and return false if the path cannot be looked at.
bool pathExists(const std::filesystem::path& path);
bool isFolder(const std::filesystem::path& path);
bool isRegularFile(const std::filesystem::path& path);

// Removes a file or a link. Returns false if there is none, or if it cannot be removed.
bool removeFile(const std::filesystem::path& path);

// Removes a file, or a folder with all that it holds, as far as that can be done.
void removeTree(const std::filesystem::path& path);

// Every function below throws Error if it fails, with the path in the message and the kind of the system's error.

// Passes the bytes of a regular file to `take`, block by block. Throws Error (Damaged) if it is of another kind.
void forEachBlock(const std::filesystem::path& path, const std::function<void(std::string_view)>& take);

// The same of a file of any kind, such as a pipe.
void forEachPiece(const std::filesystem::path& path, const std::function<void(std::string_view)>& take);

// Passes the lines of a file of any kind to `take`, without their line breaks. Throws Error (Damaged) if one is longer
// than `maxBytes`.
void forEachLine(const std::filesystem::path& path, const std::function<void(std::string_view)>& take,
                 std::size_t maxBytes = SIZE_MAX);

// All of a regular file. Throws Error (Damaged) if it is of another kind, or has more than `maxBytes`.
std::string readFile(const std::filesystem::path& path, std::uint64_t maxBytes = UINT64_MAX);

std::uint64_t sizeOf(const std::filesystem::path& path);

// The path from the root.
std::filesystem::path absolutePath(const std::filesystem::path& path);

// The paths of what is directly in a folder, sorted. Empty if there is no such folder.
std::vector<std::filesystem::path> membersOf(const std::filesystem::path& folder);

// Makes a folder, and those above it that are missing.
void makeFolders(const std::filesystem::path& folder);

// Makes a folder that no other user can read or write, and those above it that are missing. An existing folder keeps
// its permissions.
void makePrivateFolder(const std::filesystem::path& folder);

// Writes a file and waits until it is on the disk. Not atomic: use it for files that are put in place later.
void writeFile(const std::filesystem::path& path, const std::string& text);

// Copies a regular file and waits until the copy is on the disk.
void copyFile(const std::filesystem::path& from, const std::filesystem::path& to);

// The same without waiting for the disk.
void copyQuickly(const std::filesystem::path& from, const std::filesystem::path& to);

// Links a file to another place; copies it if the file system has no links.
void linkFile(const std::filesystem::path& from, const std::filesystem::path& to);

// Makes a file of another.
using FileCopy = std::function<void(const std::filesystem::path& from, const std::filesystem::path& to)>;

// Copies a folder and what is below it: regular files with `copy`, links as links, nothing else. Does nothing if there
// is no such folder.
void copyFolder(const std::filesystem::path& from, const std::filesystem::path& to, const FileCopy& copy = &copyFile);

// Gives a file or folder the permissions of another.
void copyPermissions(const std::filesystem::path& from, const std::filesystem::path& to);

// Syncs the file or folder at `built` and renames it to `target`. A file replaces an existing one. Returns false, and
// changes nothing, if `target` is a folder that is not empty.
bool putInPlace(const std::filesystem::path& built, const std::filesystem::path& target);

// Atomically swaps two folders (RENAME_EXCHANGE), which must be on the same file system, after syncing `built`.
void exchange(const std::filesystem::path& built, const std::filesystem::path& target);

// Returns true if the folder is a ScratchFolder, also one that a killed process has left.
bool isScratch(const std::filesystem::path& folder);

// A folder for what is being built, removed with its content at the end of the scope.
class ScratchFolder {
public:
    // Makes the folder for temporary files of this process: in $TMPDIR or, if that cannot be used, in one
    // of the system's.
    ScratchFolder();

    // Makes the folder inside `parent`, which is made too if it is missing, and removes those that killed processes
    // have left there.
    explicit ScratchFolder(const std::filesystem::path& parent);
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    std::filesystem::path operator/(const std::string& name) const { return m_path / name; }

private:
    void make(const std::filesystem::path& parent);

    std::filesystem::path m_path;
    FolderLock m_lock;
};

}  // namespace sim
