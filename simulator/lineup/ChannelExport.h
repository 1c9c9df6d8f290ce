// Channel lists for other programs.
#pragma once

#include <array>
#include <functional>
#include <string>
#include <string_view>

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

// Writes the list piece by piece, and a line to `problem` for each service that the format cannot express.
void exportChannels(const Services& services, ExportFormat format, const std::function<void(std::string_view)>& write,
                    const std::function<void(const std::string&)>& problem);

}  // namespace sim
