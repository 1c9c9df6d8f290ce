// Confines what the process may write to.
#pragma once

#include <filesystem>
#include <vector>

namespace sim {

// From now on this process and its children can change files only below these folders. They can still read everywhere,
// and write to files that are already open. Returns false and changes nothing if this kernel has no Landlock; throws
// Error if Landlock fails.
bool confineWritingTo(const std::vector<std::filesystem::path>& folders);

}  // namespace sim
