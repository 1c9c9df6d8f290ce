#include "simulator/lineup/FavouritePlaces.h"

#include <fmt/format.h>

#include "simulator/base/Database.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/Service.h"

namespace sim {

void closeFavourites(Database& database, int list) {
    database.run(fmt::format(
        "UPDATE services SET {0} = ordered.place FROM (SELECT id AS of, row_number() OVER (ORDER BY {0}) AS place "
        "FROM services WHERE {0} > 0) AS ordered WHERE id = ordered.of AND {0} <> ordered.place",
        favouriteColumn(list)));
}

void closeFavourites(Database& database) {
    for (int list = 1; list <= application::FAVOURITE_LISTS; ++list) {
        closeFavourites(database, list);
    }
}

}  // namespace sim
