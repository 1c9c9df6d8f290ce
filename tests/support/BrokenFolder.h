// A folder whose members cannot all be read.
#pragma once

#include <filesystem>

namespace test {

// Within the scope, reading the folder (named without links or a '/' at the end) fails with EIO after `most` of its
// entries, "." and ".." included. One at a time.
class BrokenFolder {
public:
    BrokenFolder(const std::filesystem::path& folder, int most);
    ~BrokenFolder();
    BrokenFolder(const BrokenFolder&) = delete;
    BrokenFolder& operator=(const BrokenFolder&) = delete;
};

}  // namespace test
