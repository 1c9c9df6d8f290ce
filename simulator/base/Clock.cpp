#include "simulator/base/Clock.h"

#include <fmt/chrono.h>

#include <ctime>

namespace sim {

std::string utcNow() {
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(std::time(nullptr)));
}

}  // namespace sim
