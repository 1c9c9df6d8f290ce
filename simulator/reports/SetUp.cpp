#include "simulator/reports/SetUp.h"

#include "simulator/tv/Application.h"

namespace sim {

bool operator==(const SetUp& one, const SetUp& other) {
    return one.services == other.services && one.favourites == other.favourites && one.iss == other.iss &&
           one.ci == other.ci && one.viewing == other.viewing && one.lacking == other.lacking;
}

SetUp setUpOf(const Tv& tv) {
    SetUp setUp{tv.serviceDb().services(), {}, tv.issDb().entries(), tv.ciModule().digests(), tv.viewing(),
                tv.serviceDb().headers(),  {}};
    for (int list = 1; list <= application::FAVOURITE_LISTS; ++list) {
        setUp.favourites.push_back(tv.settings().favouriteName(list));
    }
    return setUp;
}

}  // namespace sim
