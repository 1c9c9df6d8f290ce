#include "simulator/tv/Fingerprint.h"

#include <fmt/compile.h>

#include <cstring>
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
    constexpr std::size_t ENOUGH = 64U << 10;  // to be digested at once
    Digest digest;
    std::string rows;
    services.forEach([&](const Service& s) {
        const std::size_t begin = rows.size();
        rows.append(sizeof(std::uint64_t), '\0');
        for (const std::string* text :
             {&s.identity, &s.name, &s.shortName, &s.provider, &s.type, &s.groupName, &s.source, &s.parameters,
              &s.videoPid, &s.audioPids, &s.textPids, &s.conditionalAccess}) {
            rows.append(*text).push_back('\0');
        }
        fmt::format_to(std::back_inserter(rows), FMT_COMPILE("{} {} {} {} {} {} {} {} {}"), s.id, s.number, s.group,
                       s.frequency, s.symbolRate, s.sid, s.nid, s.tid, s.rid);
        const std::uint64_t size = rows.size() - begin - sizeof size;
        std::memcpy(&rows[begin], &size, sizeof size);
        if (rows.size() >= ENOUGH) {
            digest.addBytes(rows);
            rows.clear();
        }
    });
    return digest.addBytes(rows).hex();
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
