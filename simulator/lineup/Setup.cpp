#include "simulator/lineup/Setup.h"

#include "simulator/base/Digest.h"

namespace sim {

namespace {

std::string fingerprintOf(const Entries& entries) {
    Digest digest;
    for (const auto& [key, value] : entries) {
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

}  // namespace

const Entries& Setup::of(Item item) const {
    static const Entries none;
    const auto found = entries.find(item);
    return found == entries.end() ? none : found->second;
}

std::string Setup::favourite(int list) const {
    const Entries& entry = of(favouriteItem(list));
    return entry.empty() ? "" : entry.begin()->second;
}

bool operator==(const Setup& left, const Setup& right) {
    return left.entries == right.entries && left.viewing == right.viewing && left.lacking == right.lacking &&
           left.services == right.services;
}

Fingerprints fingerprintsOf(const Setup& setup) {
    Fingerprints fingerprints;
    if (setup.services) {
        fingerprints[Item::Channels] = setup.services->fingerprint();
    }
    if (setup.lacking.count(Item::Viewing) == 0) {
        fingerprints[Item::Viewing] = fingerprintOf(setup.viewing);
    }
    for (const auto& [item, entries] : setup.entries) {
        fingerprints[item] = fingerprintOf(entries);
    }
    return fingerprints;
}

}  // namespace sim
