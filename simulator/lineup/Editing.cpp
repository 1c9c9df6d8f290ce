#include "simulator/lineup/Editing.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "simulator/base/Database.h"
#include "simulator/base/Error.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/FavouritePlaces.h"

namespace sim {

namespace {

[[noreturn]] void failToChoose(const Services& services, const std::string& text) {
    std::vector<std::string> names;
    services.forEach([&](const Service& service) { names.push_back(service.name); });
    throw Error(Error::Kind::Missing, fmt::format("the TV has no channel {}{}; see: halcyon-tv status --services",
                                                  inQuotes(text), didYouMean(text, names)));
}

}  // namespace

Service chooseService(const Services& services, const std::string& numberOrName) {
    const std::optional<int> number = toNumber<int>(numberOrName);
    std::optional<Service> numbered;
    std::vector<int> numbers;
    std::optional<Service> named;
    services.forEach([&](const Service& service) {
        if (service.number == number) {
            numbered = service;
        }
        if (service.name == numberOrName) {
            numbers.push_back(service.number);
            named = service;
        }
    });
    if (numbered) {
        return *numbered;
    }
    if (numbers.size() > 1) {
        throw Error(fmt::format("{} channels are called {}; give the number of one: {}", numbers.size(),
                                inQuotes(numberOrName), fmt::join(numbers, ", ")));
    }
    if (!named) {
        failToChoose(services, numberOrName);
    }
    return *named;
}

void addFavourites(Database& database, int list, const std::vector<Service>& services) {
    Statement add(database, fmt::format("UPDATE services SET {0} = (SELECT max({0}) + 1 FROM services) "
                                        "WHERE id = ? AND {0} = 0",
                                        favouriteColumn(list)));
    for (const Service& service : services) {
        add.bind(service.id).run();
    }
}

void removeFavourites(Database& database, int list, const std::vector<Service>& services) {
    const std::string places = favouriteColumn(list);
    for (const Service& service : services) {
        if (database.change(fmt::format("UPDATE services SET {0} = 0 WHERE id = ? AND {0} > 0", places), service.id) ==
            0) {
            throw Error(Error::Kind::Missing, fmt::format("favourite list {} does not have {} {}", list, service.number,
                                                          inQuotes(service.name)));
        }
    }
    closeFavourites(database, list);
}

void clearFavourites(Database& database, int list) {
    database.run(fmt::format("UPDATE services SET {0} = 0 WHERE {0} > 0", favouriteColumn(list)));
}

void fillFavouritesFromGroups(Database& database) {
    for (int list = 1; list <= application::FAVOURITE_LISTS; ++list) {
        database.change(fmt::format("UPDATE services SET {} = number WHERE channel_group = ?", favouriteColumn(list)),
                        list);
    }
    closeFavourites(database);
}

void lockService(Database& database, std::uint64_t id, bool isLocked) {
    database.change("UPDATE services SET locked = ? WHERE id = ?", isLocked, id);
}

void hideService(Database& database, std::uint64_t id, bool isHidden) {
    database.change("UPDATE services SET hidden = ? WHERE id = ?", isHidden, id);
}

void renameService(Database& database, std::uint64_t id, const std::string& name) {
    limits::require("bytes of a name", name.size(), limits::CHANNEL_LINE_BYTES);
    if (name.empty()) {
        database.change(
            "UPDATE services SET name = iif(broadcast_name = '', name, broadcast_name), renamed = 0, "
            "broadcast_name = '' WHERE id = ?",
            id);
        return;
    }
    database.change(
        "UPDATE services SET broadcast_name = iif(renamed, broadcast_name, name), name = ?, renamed = 1 WHERE id = ?",
        name, id);
}

void moveService(Database& database, const Service& service, int number) {
    const bool isUp = number < service.number;
    // Numbers are unique in each step: first they all go to where no other is, then to their places.
    constexpr std::int64_t ASIDE = std::int64_t{1} << 40;
    database.change("UPDATE services SET number = ? + iif(id = ?, ?, number + ?) WHERE number BETWEEN ? AND ?", ASIDE,
                    service.id, number, isUp ? 1 : -1, isUp ? number : service.number, isUp ? service.number : number);
    database.change("UPDATE services SET number = number - ?1 WHERE number >= ?1", ASIDE);
}

}  // namespace sim
