// The metadata of a backup: what the TV was that it was made on.
#pragma once

#include <string>
#include <vector>

#include "simulator/lineup/Viewing.h"

namespace sim {

// As the application reads it: what is not there, or is of another type, is -1, or empty.
struct Metadata {
    std::string version;
    int antenna = -1;  // mask
    Viewing viewing;
    std::vector<std::string> problems;  // where it is not what the application writes

    // What a restore makes of the viewing state of a TV that has `before`.
    Viewing appliedTo(const Viewing& before) const;
};

Metadata readMetadata(const std::string& text);

}  // namespace sim
