#include "simulator/lineup/Viewing.h"

namespace sim {

bool operator==(const TvMode& left, const TvMode& right) {
    return left.antenna == right.antenna && left.service == right.service;
}

bool operator==(const Category& left, const Category& right) {
    return left.kind == right.kind && left.param == right.param && left.sort == right.sort;
}

bool operator==(const Viewing& left, const Viewing& right) {
    return left.mode == right.mode && left.serviceId == right.serviceId && left.source == right.source &&
           left.category == right.category;
}

}  // namespace sim
