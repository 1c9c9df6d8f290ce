#include "simulator/tv/Fingerprint.h"

#include <tuple>

#include "simulator/base/Digest.h"
#include "simulator/base/Error.h"
#include "simulator/tv/Application.h"
#include "simulator/tv/Tv.h"

namespace sim {

namespace {

std::string ofServices(const Tv& tv) {
    Digest digest;
    tv.serviceDb().forEach([&](const Service& service) {
        for (const ServiceColumn& column : SERVICE_COLUMNS) {
            digest.add(column.valueOf(service));
        }
    });
    return digest.hex();
}

template <typename Map>
std::string ofMap(const Map& map) {
    Digest digest;
    for (const auto& [key, value] : map) {
        digest.add(key).add(value);
    }
    return digest.hex();
}

std::string ofViewing(const Viewing& viewing) {
    Digest digest;
    for (const int code : {codeOf(viewing.mode.antenna), codeOf(viewing.mode.service), codeOf(viewing.source),
                           codeOf(viewing.category.kind), codeOf(viewing.category.sort)}) {
        digest.add(std::to_string(code));
    }
    return digest.add(std::to_string(viewing.serviceId)).add(std::to_string(viewing.category.param)).hex();
}

}  // namespace

Fingerprints fingerprintsOf(const Tv& tv) {
    Fingerprints fingerprints;
    const auto take = [&](Item item, auto read) {
        try {
            fingerprints[item] = read();
        } catch (const Error&) {  // has none
        }
    };
    take(Item::Channels, [&] { return ofServices(tv); });
    for (int list = 1; list <= application::FAVOURITE_LISTS; ++list) {
        take(favouriteItem(list), [&] { return Digest().add(tv.settings().favouriteName(list)).hex(); });
    }
    take(Item::Iss, [&] { return ofMap(tv.issDb().entries()); });
    take(Item::Ci, [&] { return ofMap(tv.ciModule().digests()); });
    take(Item::Viewing, [&] { return ofViewing(tv.viewing()); });
    take(Item::IpServices, [&] { return Digest().add(tv.serviceDb().ipServices()).hex(); });
    return fingerprints;
}

}  // namespace sim
