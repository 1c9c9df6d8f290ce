// How two runs of the application differ.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "simulator/reports/RunReport.h"

namespace sim {

// A run with its timeline, and the home of its TV.
struct RunSide {
    RunReport report;
    std::vector<Moment> timeline;
    std::filesystem::path home;
};

// A part of the verdict in which they differ, in words.
struct VerdictDifference {
    std::string what;
    std::string left;
    std::string right;
};

// A moment of both timelines, or of one: its place there.
struct MomentPair {
    std::optional<std::size_t> left;
    std::optional<std::size_t> right;

    bool isOfBoth() const { return left && right; }
};

struct RunDifference {
    RunSide left;
    RunSide right;
    std::vector<VerdictDifference> verdict;
    std::vector<MomentPair> timeline;  // in order; of a stretch that differs, the left side's come first

    bool isSame() const;
    const Moment& momentOf(const MomentPair& pair) const;  // the left one of two
};

// What each run has its own is no difference: its TV's folder, the number of a backup that it made, names made of the
// time, and lines in the application's source.
RunDifference compareRuns(RunSide left, RunSide right);

}  // namespace sim
