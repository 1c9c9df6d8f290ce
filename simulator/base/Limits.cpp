#include "simulator/base/Limits.h"

#include <fmt/format.h>

#include "simulator/base/Error.h"
#include "simulator/base/Text.h"

namespace sim::limits {

std::string excess(std::string_view what, std::uint64_t value, std::uint64_t limit) {
    return fmt::format("{}: {}, and the limit is {}", what, value, limit);
}

void require(std::string_view what, std::uint64_t value, std::uint64_t limit) {
    if (value > limit) {
        throw Error(Error::Kind::Damaged, excess(what, value, limit));
    }
}

std::string cut(std::string_view text) {
    return text.size() <= RECORD_BYTES ? std::string(text)
                                       : fmt::format("{}... ({} bytes)", startOf(text, RECORD_BYTES), text.size());
}

}  // namespace sim::limits
