// Stands between a program and the disk: sees each of its system calls that change files before it is done, and can
// let it fail.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "simulator/base/Process.h"

namespace test {

struct DiskCall {
    std::string name;
    std::string path;  // relative to the folder that is watched; of two, the first
};

// Decides what becomes of a call, which waits meanwhile: 0: it is done; else the number of the error that it fails
// with.
using Fate = std::function<int(const DiskCall&)>;

// Runs a program to its end, and gives its status as waitpid() does. Only calls below `folder` count, and none on the
// program's standard streams. A program that makes no call for long hangs, and is killed.
int runTraced(const sim::ProcessOptions& options, const std::filesystem::path& folder, const Fate& fate);

}  // namespace test
