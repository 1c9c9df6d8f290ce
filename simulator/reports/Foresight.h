// What a restore does to a TV, item by item: foretold before it, and found after it.
#pragma once

#include <string>
#include <vector>

#include "simulator/lineup/Bundle.h"
#include "simulator/tv/Tv.h"

namespace sim {

constexpr char IP_SERVICES_STAY[] = "this set's own";  // and no backup should have them

// How an item of a backup differs from the TV's; empty if it does not.
std::string howItDiffers(Item item, const Setup& backup, const Setup& tv);

// What became of each item, from what the TV holds now, and the fingerprints of all items before and now.
std::vector<ItemVerdict> itemsAfterRestore(const Bundle& bundle, const Setup& now, const Fingerprints& before,
                                           const Fingerprints& after);

// How a restored channel list is received on the TV; nothing if the list is not the backup's, or the TV has never
// scanned.
std::optional<Reception> receptionOf(const std::vector<ItemVerdict>& items, const Setup& now, const Tv& tv);

// Those that are not as they should be, in words; empty if all are.
std::string lostItems(const std::vector<ItemVerdict>& items);

// The verdict on a restore that nothing disturbs.
struct Foresight {
    Outcome outcome = Outcome::Done;
    Cause cause = Cause::None;
    std::string why;  // in words; empty if all would be done
    std::vector<ItemVerdict> items;
    std::vector<std::string> leftovers;  // of earlier runs, which the restore would apply too
    std::optional<Reception> reception;  // as of a verdict
};

// Takes the application's steps on the set-up of a TV as it is now, which stays as it is. A bundle without metadata is
// taken with those of metadataFor(). `saysScan`: the launch request says that a scan is under way. Throws Error if the
// TV cannot be read.
Foresight foresee(const Bundle& bundle, const Tv& tv, bool saysScan = false);

}  // namespace sim
