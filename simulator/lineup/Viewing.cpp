#include "simulator/lineup/Viewing.h"

namespace sim {

bool operator==(const TvMode& one, const TvMode& other) {
    return one.antenna == other.antenna && one.service == other.service;
}

bool operator==(const Category& one, const Category& other) {
    return one.kind == other.kind && one.param == other.param && one.sort == other.sort;
}

bool operator==(const Viewing& one, const Viewing& other) {
    return one.mode == other.mode && one.serviceId == other.serviceId && one.source == other.source &&
           one.category == other.category;
}

}  // namespace sim
