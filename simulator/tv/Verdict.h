// What became of a run: item by item, as it was read back from the TV and the store, and as a whole.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/lineup/Item.h"
#include "simulator/lineup/Scan.h"

namespace sim {

enum class ItemState {
    Restored,      // it is as the backup has it, and was not before
    AlreadyEqual,  // it is as the backup has it, and was before
    Kept,          // it is as it was: the backup does not have it, or the application by its design does not apply it
    Stored,        // it is in the stored backup as it is in the TV
    Differs,       // it is not as the backup has it; or it has changed, but the backup does not have it
    Damaged,       // what the backup has of it cannot be read
    Missing,       // the stored backup does not have it, though the TV does
    Unreadable,    // what the TV has of it cannot be read
};
template <>
inline constexpr std::array<Name<ItemState>, 8> NAMES<ItemState>{{
    {ItemState::Restored, "restored"},
    {ItemState::AlreadyEqual, "already equal"},
    {ItemState::Kept, "kept"},
    {ItemState::Stored, "stored"},
    {ItemState::Differs, "differs"},
    {ItemState::Damaged, "damaged"},
    {ItemState::Missing, "missing"},
    {ItemState::Unreadable, "unreadable"},
}};

struct ItemVerdict {
    Item item;
    ItemState state;
    std::string detail;  // in words; may be empty
};

// Whether an item is as it should be.
constexpr bool isWell(ItemState state) {
    return state == ItemState::Restored || state == ItemState::AlreadyEqual || state == ItemState::Kept ||
           state == ItemState::Stored;
}

enum class Outcome {
    Open,        // it has not ended
    Done,        // and each item is as it should be
    DoneInPart,  // success was reported, but an item was lost
    Refused,     // the backup does not fit this TV
    Failed,
    Crashed,
    Unchecked,  // it has ended, but the TV or the store could not be looked at
};
template <>
inline constexpr std::array<Name<Outcome>, 7> NAMES<Outcome>{{
    {Outcome::Open, "open"},
    {Outcome::Done, "done"},
    {Outcome::DoneInPart, "done in part"},
    {Outcome::Refused, "refused"},
    {Outcome::Failed, "failed"},
    {Outcome::Crashed, "crashed"},
    {Outcome::Unchecked, "unchecked"},
}};

// Why a run was not done.
enum class Cause {
    None,
    Antenna,        // the TV's antenna inputs are not those of the backup
    SchemaVersion,  // the backup's metadata is of another version
    Damage,         // the bundle, or an item of it, is damaged
    Cloud,          // the cloud service refused, or could not be reached
    NothingStored,  // there is no backup to restore
    Exception,      // an exception, or a signal, ended the application
    Waiting,        // what it waited for never came
    ItemLost,
    Other,
};
template <>
inline constexpr std::array<Name<Cause>, 10> NAMES<Cause>{{
    {Cause::None, "none"},
    {Cause::Antenna, "antenna"},
    {Cause::SchemaVersion, "schema version"},
    {Cause::Damage, "damage"},
    {Cause::Cloud, "cloud"},
    {Cause::NothingStored, "nothing stored"},
    {Cause::Exception, "exception"},
    {Cause::Waiting, "waiting"},
    {Cause::ItemLost, "item lost"},
    {Cause::Other, "other"},
}};

// A fault rule that fired in a run.
struct FiredFault {
    std::int64_t rule = 0;
    std::string call;
    int nth = 0;    // call of that name in the run at which it first fired, from 1
    int fired = 0;  // how often, in this run
};

struct Verdict {
    Outcome outcome = Outcome::Open;
    Cause cause = Cause::None;
    std::string why;   // in words, with the place to look; empty if all is done
    int decisive = 0;  // sequence number of the call or log record that decided the outcome; 0: none did
    std::vector<ItemVerdict> items;
    std::vector<FiredFault> faults;
    std::string warning;  // of a backup that lost much of what the one before it had; may be empty
    std::optional<Reception> reception = std::nullopt;  // of a restored channel list, if the TV has ever scanned
};

}  // namespace sim
