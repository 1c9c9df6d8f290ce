// The exit codes of halcyon-tv. halcyon-lineup uses DONE, USAGE, UNUSABLE and BUSY only.
#pragma once

#include <array>

namespace sim::exit_code {

constexpr int DONE = 0;
constexpr int FAILED = 1;
constexpr int USAGE = 2;
constexpr int UNUSABLE = 3;
constexpr int IN_PART = 4;
constexpr int INCOMPATIBLE = 5;
constexpr int DAMAGED = 6;
constexpr int NO_BACKUP = 7;
constexpr int BUSY = 8;
constexpr int SILENT_FAULT = 9;
constexpr int UNCHECKED = 10;

struct ExitCode {
    int code;
    const char* meaning;
};
constexpr std::array<ExitCode, 11> ALL = {{
    {DONE, "done"},
    {FAILED, "the run failed for a reason not listed below; or the two sides of a diff differ"},
    {USAGE, "wrong usage"},
    {UNUSABLE, "a file, folder or value cannot be used"},
    {IN_PART, "done in part: the run reported success, but an item was lost"},
    {INCOMPATIBLE, "refused: the backup is not compatible with the TV"},
    {DAMAGED, "the bundle is damaged"},
    {NO_BACKUP, "the cloud refused or cannot be reached, or there is nothing to restore"},
    {BUSY, "the TV is busy"},
    {SILENT_FAULT, "a fault rule did not fire, and run --expect-faults demands it"},
    {UNCHECKED, "the run has ended, but what became of it could not be read back from the TV and the store"},
}};

}  // namespace sim::exit_code
