// Confines what a process may do.
#pragma once

#include <filesystem>
#include <vector>

namespace sim {

// From now on this process and its children can change files only below these folders. They can still read everywhere,
// and write to files that are already open. Returns false and changes nothing if this kernel has no Landlock; throws
// Error if Landlock fails.
bool confineWritingTo(const std::vector<std::filesystem::path>& folders);

// For a process that handles what it was sent by somebody else. From now on it can change files below the `writable`
// folders only, and make nothing but files and folders there. It can read those, the `readable` folders and files as
// far as they are there, and the system's libraries and time zones. It can start no program, open no socket, and signal
// or trace no other process. Without Landlock it is put into a mount namespace of its own, where it can read everywhere
// but in /proc. Returns false if the kernel allows neither; throws Error if a writable folder cannot be opened. The
// process must have one thread.
bool confineApplication(const std::vector<std::filesystem::path>& writable,
                        const std::vector<std::filesystem::path>& readable);

}  // namespace sim
