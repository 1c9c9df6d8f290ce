#include "simulator/device/ListKeeper.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "simulator/base/Error.h"

namespace sim {

namespace {

// Made by whoever comes first: kinds are made before main().
std::vector<const KeeperKind*>& kinds() {
    static std::vector<const KeeperKind*> kinds;
    return kinds;
}

}  // namespace

KeeperKind::KeeperKind(const char* kindName, std::vector<KeeperOption> kindOptions, Open opener)
    : name(kindName), options(std::move(kindOptions)), open(opener) {
    kinds().push_back(this);
}

const std::vector<const KeeperKind*>& KeeperKind::all() {
    return kinds();
}

std::unique_ptr<ListKeeper> openKeeper(const Keeper& keeper, const Say& say) {
    if (keeper.kind.empty()) {
        return nullptr;
    }
    const auto kind =
        std::find_if(kinds().begin(), kinds().end(), [&](const KeeperKind* each) { return each->name == keeper.kind; });
    if (kind == kinds().end()) {
        throw Error(fmt::format(
            "the channel list of this TV is kept by {}, which this build of halcyon-tv does not know", keeper.kind));
    }
    return (*kind)->open(keeper, say);
}

}  // namespace sim
