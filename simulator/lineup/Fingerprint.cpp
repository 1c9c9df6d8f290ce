#include "simulator/lineup/Fingerprint.h"

#include <fmt/compile.h>

#include <cstring>
#include <iterator>

#include "simulator/base/Digest.h"
#include "simulator/base/Error.h"

namespace sim {

std::string fingerprintOf(const std::map<std::string, std::string>& map) {
    Digest digest;
    for (const auto& [key, value] : map) {
        digest.add(key).add(value);
    }
    return digest.hex();
}

std::string fingerprintOf(const Viewing& viewing) {
    Digest digest;
    for (const int code : {codeOf(viewing.mode.antenna), codeOf(viewing.mode.service), codeOf(viewing.source),
                           codeOf(viewing.category.kind), codeOf(viewing.category.sort)}) {
        digest.add(std::to_string(code));
    }
    return digest.add(std::to_string(viewing.serviceId)).add(std::to_string(viewing.category.param)).hex();
}

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

}  // namespace sim
