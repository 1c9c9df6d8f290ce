#include "simulator/lineup/ListIntake.h"

#include <fmt/format.h>

#include <utility>

#include "simulator/base/Error.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/Tuning.h"

namespace sim {

namespace {

// What a list of VDR has for nothing.
void completeFields(Service& service) {
    for (std::string* field : {&service.videoPid, &service.audioPids, &service.textPids, &service.conditionalAccess}) {
        if (field->empty()) {
            *field = '0';
        }
    }
    if (service.type.empty()) {
        service.type = pidsOf(service.videoPid).empty() ? "radio" : "tv";
    }
}

}  // namespace

void giveOwnName(Service& service, std::string_view name) {
    if (!name.empty() && service.name != name) {
        service.broadcastName = std::exchange(service.name, std::string(name));
        service.renamed = true;
    }
}

void ListIntake::setPlace(std::string file, int line) {
    m_file = std::move(file);
    m_line = line;
}

int ListIntake::addGroup(const std::string& name) {
    m_sink.addGroup(name);
    m_groups.push_back(name);
    return static_cast<int>(m_groups.size());
}

int ListIntake::groupOf(const std::string& name) {
    if (name.empty()) {
        return 0;
    }
    const auto [known, isNew] = m_groupNumbers.emplace(name, 0);
    if (isNew) {
        known->second = addGroup(name);
    }
    return known->second;
}

int ListIntake::numberFor(const Service& service) {
    if (m_numbering.isFree(service.number)) {
        return service.number;
    }
    if (service.number != 0) {
        note(fmt::format("{} gets the number {}: {} is taken or too high", inQuotes(service.name),
                         m_numbering.behindAll(), service.number));
    }
    return m_numbering.behindAll();
}

void ListIntake::addService(Service service) {
    if (service.name.empty()) {
        throw Error("the name is empty");
    }
    if (service.source == "S" && !m_satellite.empty()) {
        service.source = m_satellite;
    }
    completeFields(service);
    if (service.frequencyUnit == 0) {
        service.frequencyUnit = unitFor(service.frequency, service.source);
    }
    if (service.identity.empty()) {
        service.identity = identityOf(service);
    }
    service.number = numberFor(service);
    service.groupName = service.group == 0 ? "" : m_groups[static_cast<std::size_t>(service.group) - 1];
    if (const std::size_t known = m_sink.addService(service); known != 0) {
        const int line = m_lines[known - 1];
        throw Error(fmt::format("the service {} stands {} already, and here as {}", service.identity,
                                line == 0 ? "in the list" : fmt::format("in line {}", line), inQuotes(service.name)));
    }
    m_numbering.take(service.number);
    m_lines.push_back(m_line);
}

std::string ListIntake::place() const {
    return m_line == 0 ? m_file : fmt::format("{}:{}", m_file, m_line);
}

void ListIntake::skip(std::string_view reason) {
    m_problems.add(fmt::format("{}: {}; {} skipped", place(), reason, m_unit), reason);
}

void ListIntake::note(std::string_view what) {
    m_notes.add(fmt::format("{}: {}", place(), what), what);
}

ChannelSummary ListIntake::finish() const {
    ChannelSummary summary;
    summary.services = m_lines.size();
    summary.groups = m_groups.size();
    summary.latin1Lines = m_latin1Lines;
    summary.unit = m_unit;
    summary.skipped = m_problems.count();
    summary.problems = m_problems.lines();
    summary.notes = m_notes.lines();
    return summary;
}

}  // namespace sim
