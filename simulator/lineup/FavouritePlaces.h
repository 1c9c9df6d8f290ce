// The places in the favourite lists of a channel database.
#pragma once

namespace sim {

class Database;

// Numbers the places of a favourite list from 1 in their order; of all of them.
void closeFavourites(Database& database, int list);
void closeFavourites(Database& database);

}  // namespace sim
