// A lock on a folder, held by one process at a time. The kernel releases it when its last holder ends, even by a kill.
#pragma once

#include <chrono>
#include <filesystem>

#include "simulator/base/Descriptor.h"

namespace sim {

class FolderLock {
public:
    // Holds nothing.
    FolderLock() = default;

    // Takes the lock, and waits up to `patience` for it. Holds nothing if somebody else still has it then, or if there
    // is no such folder. Throws Error if the folder cannot be opened.
    static FolderLock take(const std::filesystem::path& folder, std::chrono::milliseconds patience = {});

    // Returns true if `descriptor`, which another process has handed down, is of that folder, and so shares its lock.
    static bool isOf(const std::filesystem::path& folder, int descriptor);

    bool isHeld() const { return m_descriptor.isOpen(); }

    // For another program to inherit, which then holds the lock too; -1 if nothing is held.
    int descriptor() const { return m_descriptor.get(); }

private:
    Descriptor m_descriptor;
};

}  // namespace sim
