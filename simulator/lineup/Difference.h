// What is different between two channel set-ups.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/base/Names.h"
#include "simulator/lineup/Setup.h"

namespace sim {

// How a service can differ between two lists.
enum class Change {
    Removed,     // only the left list has it
    Added,       // only the right list has it
    Renamed,     //
    Changed,     // in another column
    Moved,       // to another place in the order
    Renumbered,  // in its place, with another number or id
    Customised,  // its owner has set it otherwise: favourite lists, lock, hide, whether the name is his
};
template <>
inline constexpr std::array<Name<Change>, 7> NAMES<Change>{{
    {Change::Removed, "removed"},
    {Change::Added, "added"},
    {Change::Renamed, "renamed"},
    {Change::Changed, "changed"},
    {Change::Moved, "moved"},
    {Change::Renumbered, "renumbered"},
    {Change::Customised, "customised"},
}};

// Two services of one identity; null on the side that has none.
struct ServicePair {
    const Service* left = nullptr;
    const Service* right = nullptr;
    std::uint8_t movedIn = 0;  // a bit for each favourite list in which it has moved to another place in the order

    std::vector<const ServiceColumn*> columns() const;  // that differ; both sides must be there

    // How the name differs, in words: "renamed to 'ARTE'". Both sides must be there.
    std::string renamed() const;

    // What of the owner's settings differs, in words: "favourite list 2: gone", "no longer locked"; with the subject
    // "'ARTE' is ", "favourite list 2: 'ARTE' is gone". A side that is not there has none.
    std::vector<std::string> customised(std::string_view subject = "") const;
};

// How two lists of services differ. Services are paired by their identity, not by their place in the list. The lists
// may be of any length: this keeps a byte for each service, and reads them again to show those that differ.
class ServiceDifference {
public:
    ServiceDifference() = default;  // of lists that are not there
    // Throws Error if one of them cannot be read.
    ServiceDifference(const Services& left, const Services& right);

    std::size_t leftCount() const { return m_leftCount; }
    std::size_t rightCount() const { return m_rightCount; }
    std::size_t count(Change change) const { return m_counts.at(static_cast<std::size_t>(change)); }
    bool isSame() const;
    // "3 added, 1 moved"; without those of which there are none.
    std::string summary() const;
    // The same, and which services are renamed or customised: the first few.
    std::string details() const;

    // Those that differ in that way, in the order of their list. They are good until the next pair is visited. Throws
    // Error if a list cannot be read.
    void forEach(Change change, const std::function<void(const ServicePair&)>& visit) const;

private:
    struct Places;

    void findMoved(const std::vector<int>& rightNumbers);
    void findMovedFavourites(Places& places);

    std::optional<Services> m_left;
    std::optional<Services> m_right;
    std::size_t m_leftCount = 0;
    std::size_t m_rightCount = 0;
    std::vector<std::uint8_t> m_leftChanges;                // a bit for each Change, in the order of the list
    std::vector<std::uint8_t> m_rightChanges;               // the same; empty if nothing was added
    std::map<std::size_t, std::uint8_t> m_movedFavourites;  // ServicePair::movedIn by the place in the left list
    std::array<std::size_t, NAMES<Change>.size()> m_counts = {};
};

// An item with how it reads on each side, or why it is not there.
struct ItemDifference {
    Item item = Item::Channels;
    bool isSame = true;
    std::string left;
    std::string right;
    std::string detail;  // how they differ, if the sides do not show it: "1 removed, 2 moved", "in 'a', 'b'"
};

// Any item but the IP services.
ItemDifference compare(Item item, const Setup& left, const Setup& right);

struct Difference {
    ServiceDifference services;
    std::vector<ItemDifference> items;  // all but the IP services, the channels first

    bool isSame() const;
};

Difference compare(const Setup& left, const Setup& right);

}  // namespace sim
