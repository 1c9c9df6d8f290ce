// The table of formats of channel lists.
#pragma once

#include <string_view>
#include <vector>

#include "simulator/lineup/ListFormat.h"

namespace sim {

// The first that fits a list is its format: the last fits any.
const std::vector<ListFormat>& listFormats();

const ListFormat& listFormat(std::string_view name);

// How much of a column a format carries.
enum class Carried { Nothing, Part, All };
Carried carriedBy(const ListFormat& format, const ServiceColumn& column);

}  // namespace sim
