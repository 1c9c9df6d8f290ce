// Channel lists in the channels.conf format of VDR.
#pragma once

#include <functional>
#include <string>

#include "simulator/lineup/ListFormat.h"

namespace sim {

class VdrReader final : public ListReader {
public:
    explicit VdrReader(ListIntake& intake) : m_intake(intake) {}

    void take(const std::string& line) override;

private:
    void takeGroup(std::string text);
    void takeService(Service service);

    ListIntake& m_intake;
    int m_number = 0;
    int m_group = 0;
};

bool isVdrSource(const std::string& source);

// The list as it was read, if that still gives the services their numbers and groups.
void writeVdr(const Services& services, const ListOutput& output);

}  // namespace sim
