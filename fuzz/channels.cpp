// Channel lists.
#include "fuzz/Fuzz.h"
#include "simulator/base/Error.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/ChannelList.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        sim::ChannelList list;
        for (const std::string& problem : sim::readChannelList(fuzz::writeInput("x.conf", data, size), list).problems) {
            if (sim::shown(problem).find('\x1b') != std::string::npos) {
                __builtin_trap();  // what is shown controls no terminal
            }
        }
    } catch (const sim::Error&) {
    }
    return 0;
}
