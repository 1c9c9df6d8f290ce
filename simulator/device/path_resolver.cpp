#include "platform/path_resolver.h"

#include <fmt/format.h>

#include <set>
#include <string>

#include "simulator/device/Journal.h"

namespace {

constexpr int APPLICATION_DATA = 61;
constexpr int TEMPORARY_DATA = 78;

std::string baseFolder(int variable) {
    switch (variable) {
        case APPLICATION_DATA:
            return "apps";
        case TEMPORARY_DATA:
            return "tmp";
        default:
            return fmt::format("path-{}", variable);
    }
}

}  // namespace

const char* platform_path_resolve(int variable, const char* relative) {
    static std::set<std::string> resolved;  // never shrinks: the texts live as long as the process
    const std::string& path =
        *resolved.insert((sim::Device::current().tv.home() / baseFolder(variable) / relative).string()).first;
    sim::platformNotice(sim::calls::platform_path_resolve, variable, relative);
    return path.c_str();
}
