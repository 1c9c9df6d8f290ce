// Intercepts each system call of a program that changes files, before it is done, and can make it fail.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "simulator/base/Process.h"

namespace test {

struct DiskCall {
    std::string name;
    std::string path;  // relative to the folder that is watched; of two, the first
    int process = 0;
};

// Decides about a call while it waits: 0 to let it pass, else the errno that it fails with.
using Fate = std::function<int(const DiskCall&)>;

// Runs a program and those that it starts to their end, and gives its status as waitpid() does. Only calls below
// `folder` count, and none on the standard streams. A program that makes no call for long hangs, and is killed.
int runTraced(const sim::ProcessOptions& options, const std::filesystem::path& folder, const Fate& fate);

}  // namespace test
