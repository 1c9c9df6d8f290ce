// What every reader of a channel list does with what it has read.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "simulator/lineup/ChannelSink.h"
#include "simulator/lineup/Numbering.h"
#include "simulator/lineup/Remarks.h"

namespace sim {

// Gives a service its owner's name, unless that is empty or the one that it has.
void giveOwnName(Service& service, std::string_view name);

// Numbers services, knows groups, and names what is not taken.
class ListIntake {
public:
    // `file` is for what is said about it. `satellite`, if it is not empty, is the source of services whose list only
    // says that they come from a satellite.
    ListIntake(std::string file, std::string satellite, ChannelSink& sink)
        : m_file(std::move(file)), m_satellite(std::move(satellite)), m_sink(sink) {}

    // What is skipped: a "line" unless the format says otherwise.
    void setUnit(std::string_view unit) { m_unit = unit; }

    // Where what comes next stands. A line of 0 is the whole file.
    void setPlace(int line) { m_line = line; }
    void setPlace(std::string file, int line);
    int line() const { return m_line; }

    // A group behind those before; its number.
    int addGroup(const std::string& name);

    // The group of this name, which is added if it is new; 0 for an empty name.
    int groupOf(const std::string& name);

    void addHeader(const std::string& text) { m_sink.addHeader({static_cast<int>(m_lines.size()), text}); }

    // Adds a service with the number that it has, or if it has none or one that another one has, the number after the
    // highest. Completes what the list has not said: the identity, empty fields, the frequency's unit. Throws Error if
    // there is a service of the same identity.
    void addService(Service service);

    // Tells that an entry is not taken, or one is, but not as it stands there.
    void skip(std::string_view reason);
    void note(std::string_view what);

    // Counts lines that were read as ISO 8859-1.
    void addLatin1(std::size_t lines) { m_latin1Lines += lines; }

    std::size_t services() const { return m_lines.size(); }
    ChannelSummary finish() const;

private:
    int numberFor(const Service& service);
    std::string place() const;

    std::string m_file;
    std::string m_satellite;
    ChannelSink& m_sink;
    std::string_view m_unit = "line";
    int m_line = 0;
    std::size_t m_latin1Lines = 0;
    std::vector<int> m_lines;  // of the services
    Numbering m_numbering;
    std::vector<std::string> m_groups;
    std::unordered_map<std::string, int> m_groupNumbers;
    Remarks m_problems;
    Remarks m_notes;
};

}  // namespace sim
