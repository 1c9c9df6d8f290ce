// The viewing state: what is on.
#pragma once

#include <cstdint>

#include "simulator/lineup/Codes.h"

namespace sim {

struct TvMode {
    AntennaMode antenna = AntennaMode::Terrestrial;
    ServiceMode service = ServiceMode::All;
};

struct Category {
    CategoryKind kind = CategoryKind::All;
    std::uint64_t param = 0;  // number of the favourite list or the group, from 1; otherwise 0
    SortMode sort = SortMode::Number;
};

struct Viewing {
    TvMode mode;
    std::uint64_t serviceId = 0;
    Source source = Source::Tuner;
    Category category;
};

bool operator==(const TvMode& left, const TvMode& right);
bool operator==(const Category& left, const Category& right);
bool operator==(const Viewing& left, const Viewing& right);

}  // namespace sim
