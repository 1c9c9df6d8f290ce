// Durable file operations: what is put in place is there whole, or not at all, after a kill or a power cut at any
// moment.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace sim {

// Called before each step that changes what a restarted TV would find. Faults use it to cut the power there.
void onDiskStep(std::function<void()> hook);

// Every function below throws Error, which names the path, when it fails.

std::string readFile(const std::filesystem::path& path);

std::uint64_t sizeOf(const std::filesystem::path& path);

// The paths of what is directly in a folder, sorted; none where there is no folder.
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

// Puts the file or folder at `built` in the place of `target`. Of a folder, `target` must not exist. False: `target` is
// a folder that exists; nothing has changed.
bool putInPlace(const std::filesystem::path& built, const std::filesystem::path& target);

// Lets two folders change places in one step.
void exchange(const std::filesystem::path& one, const std::filesystem::path& other);

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
    void release();

    std::filesystem::path m_path;
    int m_lock = -1;
};

}  // namespace sim
