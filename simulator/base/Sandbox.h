// Confines what the process may write to.
#pragma once

#include <filesystem>
#include <vector>

namespace sim {

// From now on this process and its children can change files below these folders only. They can still read everywhere,
// and write to files that are open already. False: this kernel has no Landlock; nothing has changed. Throws Error if it
// has, but refuses.
bool confineWritingTo(const std::vector<std::filesystem::path>& folders);

}  // namespace sim
