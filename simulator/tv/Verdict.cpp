#include "simulator/tv/Verdict.h"

namespace sim {

Item favouriteItem(int list) {
    return static_cast<Item>(codeOf(Item::Favourite1) + list - 1);
}

bool isWell(ItemState state) {
    return state == ItemState::Restored || state == ItemState::AlreadyEqual || state == ItemState::Kept ||
           state == ItemState::Stored;
}

}  // namespace sim
