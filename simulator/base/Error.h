// What the simulator reports to the person who runs it.
#pragma once

#include <stdexcept>

namespace sim {

// The message says what was wrong, with which file or value, and what to do.
class Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace sim
