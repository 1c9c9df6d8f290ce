// The viewing state: what is on.
#pragma once

#include <cstdint>

#include "simulator/lineup/Codes.h"

namespace sim {

struct TvMode {
    AntennaMode antenna = AntennaMode::Terrestrial;
    ServiceMode service = ServiceMode::All;
};
inline bool operator==(const TvMode& left, const TvMode& right) {
    return left.antenna == right.antenna && left.service == right.service;
}

struct Category {
    CategoryKind kind = CategoryKind::All;
    std::uint64_t param = 0;  // number of the favourite list or the group, from 1; otherwise 0
    SortMode sort = SortMode::Number;
};
inline bool operator==(const Category& left, const Category& right) {
    return left.kind == right.kind && left.param == right.param && left.sort == right.sort;
}

// Whether a TV knows them; of the categories, whether one with so many groups has it.
bool isKnown(const TvMode& mode);
bool isKnown(const Category& category, std::uint64_t groups);

struct Viewing {
    TvMode mode;
    std::uint64_t serviceId = 0;
    Source source = Source::Tuner;
    Category category;
};
inline bool operator==(const Viewing& left, const Viewing& right) {
    return left.mode == right.mode && left.serviceId == right.serviceId && left.source == right.source &&
           left.category == right.category;
}

}  // namespace sim
