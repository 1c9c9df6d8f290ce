#include "simulator/lineup/Viewing.h"

#include "simulator/lineup/Application.h"

namespace sim {

bool isKnown(const TvMode& mode) {
    return isKnown(mode.antenna) && isKnown(mode.service);
}

bool isKnown(const Category& category, std::uint64_t groups) {
    if (!isKnown(category.sort)) {
        return false;
    }
    switch (category.kind) {
        case CategoryKind::All:
            return category.param == 0;
        case CategoryKind::FavouriteList:
            return category.param >= 1 && category.param <= application::FAVOURITE_LISTS;
        case CategoryKind::Group:
            return category.param >= 1 && category.param <= groups;
        default:
            return false;
    }
}

}  // namespace sim
