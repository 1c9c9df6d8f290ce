// One process at a time for a folder. The kernel releases the lock when its last holder ends, however that is.
#pragma once

#include <chrono>
#include <filesystem>

namespace sim {

class FolderLock {
public:
    FolderLock() = default;
    FolderLock(FolderLock&& other) noexcept;
    FolderLock& operator=(FolderLock&& other) noexcept;
    ~FolderLock();

    // Takes the lock, waiting for it for a while. What it gives holds nothing when somebody else has it still. Throws
    // Error where the folder cannot be opened.
    static FolderLock take(const std::filesystem::path& folder, std::chrono::milliseconds patience);

    // Whether an open descriptor, as another process hands it down, is that of the folder; it shares its lock then.
    static bool isOf(const std::filesystem::path& folder, int descriptor);

    bool isHeld() const { return m_descriptor >= 0; }

    // To be handed down to another program, which holds the lock, too, from then on.
    int descriptor() const { return m_descriptor; }

private:
    int m_descriptor = -1;
};

}  // namespace sim
