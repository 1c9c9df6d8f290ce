#include "simulator/tv/Verdict.h"

namespace sim {

bool isWell(ItemState state) {
    return state == ItemState::Restored || state == ItemState::AlreadyEqual || state == ItemState::Kept ||
           state == ItemState::Stored;
}

}  // namespace sim
