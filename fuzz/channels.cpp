// Channel lists of all formats: the content decides. The input is also a bouquet beside the list.
#include "fuzz/Fuzz.h"
#include "simulator/base/Error.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/ChannelList.h"

namespace {

constexpr char BOUQUETS[] = "#SERVICE 1:7:1:0:0:0:0:0:0:0:FROM BOUQUET \"userbouquet.x.tv\" ORDER BY bouquet\n";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::filesystem::path folder = fuzz::emptyFolder("list");
    static const std::filesystem::path bouquets =
        fuzz::writeInput("list/bouquets.tv", reinterpret_cast<const std::uint8_t*>(BOUQUETS), sizeof(BOUQUETS) - 1);
    fuzz::writeInput("list/userbouquet.x.tv", data, size);
    try {
        sim::ChannelList list;
        const sim::ChannelSummary summary = sim::readChannelList(fuzz::writeInput("list/x", data, size), list);
        for (const std::string& problem : summary.problems) {
            if (sim::shown(problem).find('\x1b') != std::string::npos) {
                __builtin_trap();  // what is shown controls no terminal
            }
        }
        if (summary.services != list.services.size()) {
            __builtin_trap();  // what is counted is there
        }
    } catch (const sim::Error&) {
    }
    return 0;
}
