// Confines the process: from then on it, and what it starts, can write to a few folders only.
#pragma once

#include <filesystem>
#include <vector>

namespace sim {

// Files that are open already stay as they are, and reading stays everywhere. False: the kernel has no means for that;
// nothing has changed. Throws Error where it has, and refuses.
bool confineWritingTo(const std::vector<std::filesystem::path>& folders);

}  // namespace sim
