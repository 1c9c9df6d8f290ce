#include "simulator/tv/Fingerprint.h"

#include <fmt/format.h>

#include <iterator>

#include "simulator/base/Digest.h"
#include "simulator/base/Error.h"
#include "simulator/tv/Application.h"
#include "simulator/tv/Tv.h"

namespace sim {

namespace {

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

std::string fingerprintOf(const ServiceDb& services) {
    Digest digest;
    std::string row;
    services.forEach([&](const Service& s) {
        row.clear();
        for (const std::string* text :
             {&s.identity, &s.name, &s.shortName, &s.provider, &s.type, &s.groupName, &s.source, &s.parameters,
              &s.videoPid, &s.audioPids, &s.textPids, &s.conditionalAccess}) {
            row.append(*text).push_back('\0');
        }
        fmt::format_to(std::back_inserter(row), "{} {} {} {} {} {} {} {} {}", s.id, s.number, s.group, s.frequency,
                       s.symbolRate, s.sid, s.nid, s.tid, s.rid);
        digest.add(row);
    });
    return digest.hex();
}

Fingerprints fingerprintsOf(const Tv& tv) {
    Fingerprints fingerprints;
    const auto take = [&](Item item, auto read) {
        try {
            fingerprints[item] = read();
        } catch (const Error&) {  // has none
        }
    };
    take(Item::Channels, [&] { return fingerprintOf(tv.serviceDb()); });
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
