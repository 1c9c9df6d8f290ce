// The metadata of a backup: what the TV was that it was made on.
#pragma once

#include <string>
#include <vector>

#include "simulator/lineup/Viewing.h"

namespace sim {

// As the application reads it: a member that is missing, or of another type, is -1 or empty.
struct Metadata {
    std::string version;
    int antenna = -1;  // mask
    Viewing viewing;
    std::vector<std::string> problems;  // what differs from how the application writes it

    // The viewing state after a restore to a TV that has `before`.
    Viewing appliedTo(const Viewing& before) const;
};

Metadata readMetadata(const std::string& text);

}  // namespace sim
