// The CI module.
#include <deque>
#include <list>
#include <string>

#include "simulator/device/Calls.h"
#include "simulator/device/OwnPath.h"

namespace sim {

namespace {

using wire::CallId;
using Paths = wire::Answer<int, std::list<std::string>>;

// Returns false if one of the files is not there, or is not the application's own.
bool takeOver(const Device& device, const std::list<std::string>& paths) {
    // Each reachable path leads through the descriptor of its OwnPath: all stay open until the files are taken.
    std::deque<OwnPath> own;
    std::list<std::string> reachable;
    try {
        for (const std::string& path : paths) {
            own.emplace_back(device.tv.home(), path).requireRegularFile();
            reachable.push_back(own.back().reachable());
        }
    } catch (const Error&) {
        return false;
    }
    return (!device.keeper || device.keeper->takeOver(reachable)) && device.tv.ciFiles().takeOver(reachable);
}

}  // namespace

void addCiCalls(Calls& calls) {
    calls.add<CallId::ci_general_instance>([](CurrentCall&) { return wire::Object{true}; });
    calls.add<CallId::get_backup_file_paths>(
        [](CurrentCall& call) -> Paths {
            return {1, call.device.tv.ciFiles().paths()};
        },
        // The module also names a file that does not exist.
        [](CurrentCall& call, Paths& answer, Damage) {
            answer.out->push_back(call.device.tv.home() / "ci/missing.bin");
        });
    calls.add<CallId::backup_file_done>(
        [](CurrentCall& call, const std::list<std::string>& paths) { return takeOver(call.device, paths) ? 1 : 0; });
}

}  // namespace sim
