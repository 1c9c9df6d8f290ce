// Channel lists for other programs.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "simulator/base/Names.h"
#include "simulator/lineup/ServiceDb.h"

namespace sim {

enum class ExportFormat {
    Vdr,    // channels.conf of VDR, as halcyon-tv init reads it
    M3u,    // a playlist of DVB URIs: dvb://network.stream.service in hexadecimal digits
    Dvbv5,  // as the DVB tools of Linux read it
};
template <>
inline constexpr std::array<Name<ExportFormat>, 3> NAMES<ExportFormat>{{
    {ExportFormat::Vdr, "vdr"},
    {ExportFormat::M3u, "m3u"},
    {ExportFormat::Dvbv5, "dvbv5"},
}};

struct ChannelExport {
    std::string text;
    std::vector<std::string> problems;  // a line for each service that the format cannot express
};

ChannelExport exportChannels(const Services& services, ExportFormat format);

}  // namespace sim
