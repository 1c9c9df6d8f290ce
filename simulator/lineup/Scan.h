// A channel scan: a list against what is on the air, and what a scan makes of it.
#pragma once

#include <cstddef>
#include <map>
#include <set>
#include <string>

#include "simulator/lineup/ServiceDb.h"

namespace sim {

// How the services of a list stand to those on the air.
struct Reception {
    std::size_t onAir = 0;    // there, on the same frequency
    std::size_t moved = 0;    // there, on another frequency or transport stream
    std::size_t gone = 0;     // off the air
    std::size_t missing = 0;  // on the air, and not in the list
};

// Pairs the services of a list with those on the air: by their identity; those that are left, as after a move to
// another transport stream, by source, network, service id and the broadcaster's name, if only one on each side has
// these.
class Partners {
public:
    // Throws Error if one of them cannot be read.
    Partners(const Services& list, const Services& air);

    const Reception& counts() const { return m_counts; }

    // The service on the air that one of the list has become; null if that is off the air. Good until the next call.
    const Service* onAir(const Service& ofList) const;

    bool isNew(const Service& onAir) const;  // no service of the list has become it

private:
    const Services m_list;  // keep them open for the finders
    const Services m_air;
    ServiceFinder m_inList;
    ServiceFinder m_onAir;
    std::map<std::string, std::string> m_moved;  // identities on the air by those in the list
    std::set<std::string> m_taken;               // those identities on the air
    Reception m_counts;
};

// What a scan has changed in a list. A service is counted once of `moved`, `retuned` and `changed`.
struct ScanResult {
    std::size_t services = 0;  // in the list now
    std::size_t gone = 0;
    std::size_t added = 0;
    std::size_t renamed = 0;   // by their broadcasters
    std::size_t ownNames = 0;  // of these, those that keep the name which the owner gave them
    std::size_t moved = 0;     // to another transport stream
    std::size_t retuned = 0;   // to another frequency
    std::size_t changed = 0;   // otherwise
};

// Hands the list to a sink as a scan leaves it. What is still on the air keeps its id and number, and what the owner
// has set; the rest of it is the broadcaster's. What is gone leaves a gap in a favourite list, and what is new comes at
// the end. Throws Error if one of them cannot be read.
ScanResult scan(const Services& list, const Services& air, ChannelSink& sink);

}  // namespace sim
