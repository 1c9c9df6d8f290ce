// What the owner of a TV does to its channel list. The functions change services.db through ServiceDb::change(); ids
// are those of services in it, and favourite lists count from 1 to application::FAVOURITE_LISTS.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "simulator/lineup/ServiceDb.h"

namespace sim {

// The service of that number, else that name. Throws Error if there is none, or several have the name.
Service chooseService(const Services& services, const std::string& numberOrName);

// Adds services at the end of a favourite list; one that is in it already stays in its place.
void addFavourites(Database& database, int list, const std::vector<Service>& services);

// Throws Error if one of them is not in the list.
void removeFavourites(Database& database, int list, const std::vector<Service>& services);

void clearFavourites(Database& database, int list);

// Fills each favourite list with the group of its number, in the order of the list.
void fillFavouritesFromGroups(Database& database);

void lockService(Database& database, std::uint64_t id, bool isLocked);
void hideService(Database& database, std::uint64_t id, bool isHidden);

// Gives a service a name that a scan keeps; an empty one gives it its broadcaster's name back, as far as that is known.
void renameService(Database& database, std::uint64_t id, const std::string& name);

// Gives a service a number. Those from there to its old number move on by one.
void moveService(Database& database, const Service& service, int number);

}  // namespace sim
