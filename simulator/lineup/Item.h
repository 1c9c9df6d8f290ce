// The items of a channel set-up: what a backup carries, one by one.
#pragma once

#include <array>
#include <optional>

#include "simulator/base/Names.h"

namespace sim {

enum class Item { Channels, Favourite1, Favourite2, Favourite3, Favourite4, Favourite5, Iss, Ci, Viewing, IpServices };
template <>
inline constexpr std::array<Name<Item>, 10> NAMES<Item>{{
    {Item::Channels, "channels"},
    {Item::Favourite1, "favname1"},
    {Item::Favourite2, "favname2"},
    {Item::Favourite3, "favname3"},
    {Item::Favourite4, "favname4"},
    {Item::Favourite5, "favname5"},
    {Item::Iss, "iss"},
    {Item::Ci, "ci"},
    {Item::Viewing, "viewing"},
    {Item::IpServices, "ipsrv"},
}};

// The item that the name of a favourite list is, 1 to application::FAVOURITE_LISTS; and the list that an item names.
constexpr Item favouriteItem(int list) {
    return static_cast<Item>(codeOf(Item::Favourite1) + list - 1);
}
constexpr std::optional<int> favouriteList(Item item) {
    const int list = codeOf(item) - codeOf(Item::Favourite1) + 1;
    return list >= 1 && item <= Item::Favourite5 ? std::optional(list) : std::nullopt;
}

}  // namespace sim
