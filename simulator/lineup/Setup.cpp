#include "simulator/lineup/Setup.h"

namespace sim {

bool operator==(const Setup& one, const Setup& other) {
    return one.services == other.services && one.favourites == other.favourites && one.iss == other.iss &&
           one.ci == other.ci && one.viewing == other.viewing && one.lacking == other.lacking;
}

}  // namespace sim
