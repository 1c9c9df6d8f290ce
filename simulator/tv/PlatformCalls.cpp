#include "simulator/tv/PlatformCalls.h"

#include "simulator/base/Text.h"

namespace sim {

std::vector<std::string> PlatformCall::failureList() const {
    return failures.empty() ? std::vector<std::string>() : split(failures, ' ');
}

const std::vector<const PlatformCall*>& platformCalls() {
#define PLATFORM_CALL(identifier, name, failures) &calls::identifier,
    static const std::vector<const PlatformCall*> all = {
#include "simulator/tv/PlatformCalls.inc"
    };
#undef PLATFORM_CALL
    return all;
}

}  // namespace sim
