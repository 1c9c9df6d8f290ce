#include "platform/cloud_backup.h"

#include <fmt/format.h>
#include <json/value.h>

#include <chrono>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Json.h"
#include "simulator/device/Journal.h"

namespace fs = std::filesystem;

namespace {

using sim::Device;
using namespace std::chrono_literals;

constexpr int NO_SESSION = -1;
constexpr int NOT_THERE = -2;
constexpr int ALREADY_OPEN = -3;
constexpr auto BACKUP_DURATION = 1500ms;
constexpr auto RESTORE_DURATION = 2500ms;

struct Handler {
    std::string id;
    bnr_response_cb callback;
    void* userData;
};

struct Client {
    std::map<std::string, std::string> sessions;  // category by client id
    std::map<int, Handler> handlers;
    int lastHandler = 0;
};

Client& client() {
    static Client client;
    return client;
}

std::string sessionName(const std::string& id) {
    return fmt::format("the cloud service ({})", id);
}

std::optional<Handler> handlerOf(const std::string& id) {
    for (const auto& [number, handler] : client().handlers) {
        if (handler.id == id) {
            return handler;
        }
    }
    return std::nullopt;
}

// The response code for an error of the store.
int responseTo(const sim::Error& error) {
    switch (error.kind()) {
        case sim::Error::Kind::Unreachable:
            return BNR_RESPONSE_SERVER_NOT_RESPONDING;
        case sim::Error::Kind::Duplicate:
            return BNR_RESPONSE_DUPLICATED_DATA;
        default:
            return BNR_RESPONSE_ERROR;
    }
}

sim::Address addressOf(const std::string& id) {
    return {Device::current().tv.account(), id, client().sessions[id]};
}

// What a restore brings.
struct Download {
    std::string metadata;
    std::string path;
};

// Downloads a backup into `folder`. Returns the code of the response; if that is BNR_RESPONSE_RESTORE_DATA,
// `downloaded` is set.
int download(const std::string& id, const fs::path& folder, std::optional<Download>& downloaded) {
    Device& device = Device::current();
    const sim::Address address = addressOf(id);
    try {
        const std::optional<sim::BackupName> name =
            device.launch.backup.empty() ? device.cloud->newest(address)
                                         : std::optional(sim::BackupName{address, device.launch.backup, ""});
        if (!name) {
            return BNR_RESPONSE_ERROR;
        }
        const sim::StoredBackup backup = device.cloud->fetch(*name, folder);
        if (!backup.damage.empty()) {
            device.record.call(sim::calls::cloud_request.name, "backup " + name->path(), "damaged: " + backup.damage,
                               std::nullopt);
            return BNR_RESPONSE_ERROR;
        }
        const fs::path target = folder / backup.name;
        device.record.transferred(address, backup.id);
        device.bundleName = backup.name;
        device.bundleMetadata = backup.metadata;
        downloaded = {backup.metadata, target};
        return BNR_RESPONSE_RESTORE_DATA;
    } catch (const sim::Error& error) {
        return responseTo(error);
    } catch (const std::exception&) {
        return BNR_RESPONSE_ERROR;
    }
}

// Calls the client's callback, which may deregister itself.
void respond(const std::string& id, const sim::Arrival& arrival, const std::optional<Download>& downloaded) {
    const std::optional<Handler> handler = handlerOf(id);
    if (!handler) {
        return;
    }
    bnr_resp_data_s data = {};
    const bool hasData = downloaded && arrival.hasData;
    if (hasData) {
        data = {downloaded->metadata.c_str(), downloaded->path.c_str()};
    }
    Device& device = Device::current();
    device.record.responded(arrival.code);
    device.record.call(sim::calls::bnr_response.name, sim::toJournal(std::tuple(arrival.code, data.filePath)), "",
                       arrival.fault);
    handler->callback(static_cast<bnr_response_e>(arrival.code), hasData ? &data : nullptr,
                      arrival.hasUserData ? handler->userData : nullptr);
}

// Answers a request on the main loop; a restore downloads the backup into `folder` first.
void respondLater(std::chrono::milliseconds delay, const std::string& id, bnr_response_e code,
                  const std::optional<fs::path>& folder) {
    sim::platformEvent(Device::current(), sim::calls::bnr_response, id, delay, code,
                       [id, folder](sim::Arrival arrival) {
                           if (client().sessions.count(id) == 0) {
                               return;  // it was closed meanwhile
                           }
                           std::optional<Download> downloaded;
                           if (arrival.code == BNR_RESPONSE_RESTORE_DATA && folder) {
                               arrival.code = download(id, *folder, downloaded);
                               if (downloaded && arrival.damage) {
                                   sim::damageFile(downloaded->path, *arrival.damage);
                               }
                           }
                           respond(id, arrival, downloaded);
                       });
}

// Puts a backup into the store and returns the code of the response. Throws Error if the service would refuse the
// request itself, because the disk of a local store is full, for example.
bnr_response_e store(const sim::NewBackup& backup, const fs::path& bundle, std::string& stored) {
    Device& device = Device::current();
    try {
        stored = device.cloud->put(backup, bundle);
    } catch (const sim::Error& error) {
        if (!device.cloud->isRemote() && error.kind() != sim::Error::Kind::Duplicate) {
            throw;
        }
        return static_cast<bnr_response_e>(responseTo(error));
    }
    device.record.transferred(backup, stored);
    return BNR_RESPONSE_BACKUP_COMPLETED;
}

// Copies the bundle, which its owner may remove at once, and uploads the copy to a remote store before the response.
void uploadLater(const sim::NewBackup& backup, const fs::path& bundle) {
    Device& device = Device::current();
    const auto spool = std::make_shared<sim::ScratchFolder>(device.tv.home() / "spool");
    const fs::path copy = *spool / bundle.filename();
    sim::copyFile(bundle, copy);
    device.loop.post(BACKUP_DURATION, [backup, spool, copy] {
        if (client().sessions.count(backup.clientId) == 0) {
            return;  // it was closed meanwhile
        }
        std::string stored;
        respondLater(0ms, backup.clientId, store(backup, copy, stored), std::nullopt);
    });
}

int report(const sim::PlatformCall& call, const char* id, sim::Reported outcome) {
    return sim::platformCall(call, std::tuple(id), [&](Device& device) {
        if (client().sessions.count(id) == 0) {
            return NO_SESSION;
        }
        device.record.reported(outcome);
        return 0;
    });
}

}  // namespace

int bnr_init(const char* id, const char* category) {
    return sim::platformCall(sim::calls::bnr_init, std::tuple(id, category), [&](Device& device) {
        if (!client().sessions.emplace(id, category).second) {
            return ALREADY_OPEN;
        }
        device.awaited.insert(sessionName(id));
        return 0;
    });
}

int bnr_deinit(const char* id) {
    return sim::platformCall(sim::calls::bnr_deinit, std::tuple(id), [&](Device& device) {
        device.noLongerAwaited(sessionName(id));
        return client().sessions.erase(id) == 1 ? 0 : NO_SESSION;
    });
}

int bnr_callback_register(const char* id, bnr_response_cb callback, void* userData, int* handlerId) {
    return sim::platformCall(sim::calls::bnr_callback_register, std::tuple(id), [&](Device&, sim::Given& given) {
        if (client().sessions.count(id) == 0) {
            return NO_SESSION;
        }
        *handlerId = ++client().lastHandler;
        client().handlers[*handlerId] = {id, callback, userData};
        given = sim::toJournal(*handlerId);
        return 0;
    });
}

int bnr_callback_deregister(int handlerId) {
    return sim::platformCall(sim::calls::bnr_callback_deregister, std::tuple(handlerId),
                             [&] { return client().handlers.erase(handlerId) == 1 ? 0 : NOT_THERE; });
}

int bnr_backup(const char* id, const char* metadata, const char* filePath) {
    Device::current().bundleName = fs::path(filePath).filename();
    Device::current().bundleMetadata = metadata;
    return sim::platformCall(
        sim::calls::bnr_backup, std::tuple(id, metadata, filePath),
        [&](Device& device, sim::Given& given) {
            if (client().sessions.count(id) == 0) {
                return NO_SESSION;
            }
            Json::Value parsed;
            if (!sim::parseJson(metadata, parsed)) {
                respondLater(BACKUP_DURATION, id, BNR_RESPONSE_BACKUP_SCHEMA_ERROR, std::nullopt);
                return 0;
            }
            const sim::NewBackup backup{addressOf(id), metadata, device.tv.serial(),
                                        device.tv.services().counts().services, device.launch.refuseDuplicates};
            if (device.cloud->isRemote()) {
                uploadLater(backup, filePath);
                given = "spooled";
                return 0;
            }
            std::string stored;
            respondLater(BACKUP_DURATION, id, store(backup, filePath, stored), std::nullopt);
            given = stored.empty() ? "" : "backup " + stored;
            return 0;
        },
        [&](sim::Damage damage) { sim::damageFile(filePath, damage); });
}

int bnr_restore(const char* id, const char* folder) {
    return sim::platformCall(sim::calls::bnr_restore, std::tuple(id, folder), [&] {
        if (client().sessions.count(id) == 0) {
            return NO_SESSION;
        }
        if (!sim::isFolder(folder)) {
            return NOT_THERE;
        }
        respondLater(RESTORE_DURATION, id, BNR_RESPONSE_RESTORE_DATA, folder);
        return 0;
    });
}

int bnr_report_success(const char* id) {
    return report(sim::calls::bnr_report_success, id, sim::Reported::Success);
}

int bnr_report_failure(const char* id) {
    return report(sim::calls::bnr_report_failure, id, sim::Reported::Failure);
}
