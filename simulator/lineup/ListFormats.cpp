#include "simulator/lineup/ListFormats.h"

#include <fmt/format.h>

#include <algorithm>

#include "simulator/lineup/CsvList.h"
#include "simulator/lineup/Dvbv5List.h"
#include "simulator/lineup/LamedbList.h"
#include "simulator/lineup/M3uList.h"
#include "simulator/lineup/TvheadendList.h"
#include "simulator/lineup/VdrList.h"

namespace sim {

namespace {

std::unique_ptr<ListReader> readVdr(const ListFile& /*file*/, ListIntake& intake) {
    return std::make_unique<VdrReader>(intake);
}

}  // namespace

const std::vector<ListFormat>& listFormats() {
    static const std::vector<ListFormat> formats = {
        {"m3u", "a playlist (M3U)", "entry", &isM3u, &readM3u, &writeM3u, " number name type group sid nid tid "},
        {"lamedb", "a channel list of Enigma2 (lamedb)", "entry", &isLamedb, &readLamedb, &writeLamedb,
         " name provider type source frequencyHz symbolRate parameters videoPid* audioPids* textPids* "
         "conditionalAccess "
         "sid nid tid "},
        // Before JSON: the name of its first section may look like a list of numbers.
        {"dvbv5", "a channel list of the DVB tools (dvbv5)", "section", &isDvbv5, &readDvbv5, &writeDvbv5,
         " name type frequencyHz symbolRate parameters videoPid* audioPids* sid "},
        {"tvheadend", "JSON, as Tvheadend writes it", "object", &isTvheadend, &readTvheadend, nullptr, " "},
        {"csv", "a table of values (CSV)", "row", &isCsv, &readCsv, &writeCsv, ""},
        {"vdr", "a channel list of VDR (channels.conf)", "line",
         [](const std::vector<std::string>& /*head*/) { return true; }, &readVdr, &writeVdr,
         " number name shortName provider type group source frequencyHz symbolRate parameters videoPid audioPids "
         "textPids conditionalAccess sid nid tid rid "},
    };
    return formats;
}

const ListFormat& listFormat(std::string_view name) {
    return *std::find_if(listFormats().begin(), listFormats().end(),
                         [&](const ListFormat& format) { return format.name == name; });
}

Carried carriedBy(const ListFormat& format, const ServiceColumn& column) {
    const auto has = [&](const char* mark) {
        return format.carries.find(fmt::format(" {}{} ", column.json, mark)) != std::string_view::npos;
    };
    if (format.carries.empty() || has("")) {
        return Carried::All;
    }
    return has("*") ? Carried::Part : Carried::Nothing;
}

}  // namespace sim
