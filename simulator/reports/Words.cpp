#include "simulator/reports/Words.h"

#include <fmt/format.h>

namespace sim {

std::string words(const TvMode& mode) {
    return fmt::format("{}, {} services ({}/{})", nameOf(mode.antenna), nameOf(mode.service), codeOf(mode.antenna),
                       codeOf(mode.service));
}

std::string words(Source source) {
    return fmt::format("{} ({})", nameOf(source), codeOf(source));
}

std::string words(const Category& category) {
    const std::string param = category.kind == CategoryKind::All ? "" : fmt::format(" {}", category.param);
    return fmt::format("{}{}, by {} ({}/{}/{})", nameOf(category.kind), param, nameOf(category.sort),
                       codeOf(category.kind), category.param, codeOf(category.sort));
}

std::string words(Response response) {
    return fmt::format("{} ({})", codeOf(response), isKnown(response) ? nameOf(response) : "invalid");
}

}  // namespace sim
