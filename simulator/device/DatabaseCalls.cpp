// The TV service's databases.
#include <fmt/format.h>

#include <optional>
#include <string>

#include "simulator/device/Calls.h"
#include "simulator/device/OwnPath.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

using wire::CallId;

void damageArchive(CurrentCall& call, const wire::Answer<int>& /*answer*/, Damage damage, const std::string& path) {
    call.device.damage(path, damage);
}

// Why an archive cannot replace the database; nothing if it has.
std::optional<ReplaceStatus> replaceServiceDb(Device& device, const std::string& path) {
    // Of a path that leads elsewhere, the application learns no more than of an archive that is damaged.
    std::optional<OwnPath> archive;
    try {
        archive.emplace(device.tv.home(), path).requireRegularFile();
    } catch (const Error&) {
        return ReplaceStatus::ArchiveUnreadable;
    }
    return archive->use([&](const fs::path& file) {
        return device.keeper ? device.keeper->replace(device.tv, file) : device.tv.serviceDb().replace(file);
    });
}

}  // namespace

void addDatabaseCalls(Calls& calls) {
    calls.add<CallId::create_util>([](CurrentCall&) { return OBJECT; });
    calls.add<CallId::destroy_util>([](CurrentCall&) { return wire::None(); });
    calls.add<CallId::get_service_db>(
        [](CurrentCall& call, const std::string& path) {
            OwnPath(call.device.tv.home(), path).use([&](const fs::path& file) {
                call.device.tv.serviceDb().snapshot(file, call.device.seconds());
            });
            return 1;
        },
        &damageArchive);
    calls.add<CallId::replace_service_db>([](CurrentCall& call, const std::string& path) -> wire::Answer<int, int> {
        const std::optional<ReplaceStatus> problem = replaceServiceDb(call.device, path);
        if (!problem) {
            return {1, {}};
        }
        call.given = fmt::format("status {}", codeOf(*problem));
        return {0, codeOf(*problem)};
    });
    calls.add<CallId::get_iss_db_archive>(
        [](CurrentCall& call, const std::string& path) {
            try {
                OwnPath(call.device.tv.home(), path).use([&](const fs::path& file) {
                    call.device.tv.issDb().snapshot(file, call.device.seconds());
                });
                return 1;
            } catch (const std::exception&) {
                return 0;  // a negative result would be success here
            }
        },
        &damageArchive);
    calls.add<CallId::restore_iss_db_archive>([](CurrentCall& call, const std::string& path) {
        try {
            return OwnPath(call.device.tv.home(), path).requireRegularFile().use([&](const fs::path& file) {
                return call.device.tv.issDb().restore(file) ? 1 : 0;
            });
        } catch (const Error&) {
            return 0;
        }
    });
}

}  // namespace sim
