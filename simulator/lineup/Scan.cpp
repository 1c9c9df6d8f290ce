#include "simulator/lineup/Scan.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace sim {

namespace {

// Empty if it is not known.
const std::string& broadcastNameOf(const Service& service) {
    return service.renamed ? service.broadcastName : service.name;
}

// What stays if a service moves to another transport stream.
std::string lastingPartOf(const Service& service) {
    return fmt::format("{} {} {} {}", service.source, service.nid, service.sid, broadcastNameOf(service));
}

// A service on the air without what an owner has set, as a list from another TV may have it.
Service broadcast(const Service& onAir) {
    Service service = onAir;
    service.name = broadcastNameOf(onAir).empty() ? onAir.name : broadcastNameOf(onAir);
    for (const auto place : FAVOURITE_PLACES) {
        service.*place = 0;
    }
    service.locked = false;
    service.hidden = false;
    service.renamed = false;
    service.broadcastName.clear();
    return service;
}

// What the broadcaster says, with what stays of a service of the list.
Service merged(const Service& ofList, const Service& onAir) {
    Service service = broadcast(onAir);
    service.id = ofList.id;
    service.number = ofList.number;
    for (const auto place : FAVOURITE_PLACES) {
        service.*place = ofList.*place;
    }
    service.locked = ofList.locked;
    service.hidden = ofList.hidden;
    if (ofList.renamed) {
        service.broadcastName = std::exchange(service.name, ofList.name);
        service.renamed = true;
    }
    return service;
}

bool isOfGroupsOrNames(const ServiceColumn& column) {
    const std::string_view label = column.label;
    return label == "group" || label == "name" || label == "broadcaster's name";
}

void count(const Service& before, const Service& after, ScanResult& result) {
    const std::string& nameBefore = broadcastNameOf(before);
    if (!nameBefore.empty() && nameBefore != broadcastNameOf(after)) {
        ++result.renamed;
        result.ownNames += after.renamed ? 1U : 0U;
    }
    if (before.tid != after.tid) {
        ++result.moved;
    } else if (before.frequency != after.frequency) {
        ++result.retuned;
    } else {
        const bool isChanged = std::any_of(
            std::begin(SERVICE_COLUMNS), std::end(SERVICE_COLUMNS),
            [&](const ServiceColumn& column) { return !isOfGroupsOrNames(column) && differ(column, before, after); });
        result.changed += isChanged ? 1U : 0U;
    }
}

}  // namespace

Partners::Partners(const Services& list, const Services& air)
    : m_list(list), m_air(air), m_inList(m_list.finder()), m_onAir(m_air.finder()) {
    struct Candidate {
        std::string identity;
        int services = 0;
        std::string onAir;
        int servicesOnAir = 0;
    };
    std::unordered_map<std::string, Candidate> candidates;  // by lastingPartOf()
    list.forEach([&](const Service& service) {
        if (const Service* here = m_onAir(service.identity)) {
            ++(here->frequency == service.frequency ? m_counts.onAir : m_counts.moved);
            return;
        }
        ++m_counts.gone;
        Candidate& candidate = candidates[lastingPartOf(service)];
        candidate.identity = service.identity;
        ++candidate.services;
    });
    air.forEach([&](const Service& service) {
        if (m_inList(service.identity) != nullptr) {
            return;
        }
        ++m_counts.missing;
        if (const auto found = candidates.find(lastingPartOf(service)); found != candidates.end()) {
            found->second.onAir = service.identity;
            ++found->second.servicesOnAir;
        }
    });
    for (const auto& [lasting, candidate] : candidates) {
        if (candidate.services == 1 && candidate.servicesOnAir == 1) {
            m_moved.emplace(candidate.identity, candidate.onAir);
            m_taken.insert(candidate.onAir);
        }
    }
    m_counts.moved += m_moved.size();
    m_counts.gone -= m_moved.size();
    m_counts.missing -= m_moved.size();
}

const Service* Partners::onAir(const Service& ofList) const {
    const auto moved = m_moved.find(ofList.identity);
    return m_onAir(moved == m_moved.end() ? ofList.identity : moved->second);
}

bool Partners::isNew(const Service& onAir) const {
    return m_taken.count(onAir.identity) == 0 && m_inList(onAir.identity) == nullptr;
}

ScanResult scan(const Services& list, const Services& air, ChannelSink& sink) {
    const Partners partners(list, air);
    ScanResult result;
    std::uint64_t lastId = 0;
    int lastNumber = 0;
    for (const std::string& group : air.groups()) {
        sink.addGroup(group);
    }
    list.forEach([&](const Service& service) {
        lastId = std::max(lastId, service.id);
        lastNumber = std::max(lastNumber, service.number);
        const Service* onAir = partners.onAir(service);
        if (onAir == nullptr) {
            ++result.gone;
            return;
        }
        const Service stays = merged(service, *onAir);
        count(service, stays, result);
        sink.addService(stays);
        ++result.services;
    });
    air.forEach([&](const Service& service) {
        if (partners.isNew(service)) {
            Service added = broadcast(service);
            added.id = ++lastId;
            added.number = ++lastNumber;
            sink.addService(added);
            ++result.added;
            ++result.services;
        }
    });
    for (const ListHeader& header : air.headers()) {
        sink.addHeader(header);
    }
    return result;
}

}  // namespace sim
