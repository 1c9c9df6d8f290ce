#include "platform/cloud_backup.h"

#include <fmt/format.h>
#include <json/value.h>

#include <chrono>
#include <exception>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "simulator/base/Json.h"
#include "simulator/platform/PlatformCall.h"

namespace fs = std::filesystem;

namespace {

using sim::Device;
using namespace std::chrono_literals;

constexpr int NO_SESSION = -1;
constexpr int NOT_THERE = -2;
constexpr auto BACKUP_TAKES = 1500ms;
constexpr auto RESTORE_TAKES = 2500ms;

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

// What the cloud hands out for a restore. Nothing: it has no such backup, or cannot read or deliver it.
struct Download {
    std::string metadata;
    std::string path;
};
std::optional<Download> download(const std::string& category, const std::string& id, const fs::path& folder) {
    Device& device = Device::current();
    try {
        const std::optional<sim::StoredBackup> backup = device.cloud->find(id, category, device.chosenBackup);
        if (!backup || !backup->damage.empty()) {
            return std::nullopt;
        }
        const fs::path target = folder / backup->name;
        device.cloud->fetch(*backup, target);
        device.record.used(backup->id, id, category);
        device.bundleName = backup->name;
        device.bundleMetadata = backup->metadata;
        return Download{backup->metadata, target};
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

// Calls the client's callback. It may deregister itself.
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

// Answers a request on the main loop; that for a restore brings the backup into `folder`.
void respondLater(std::chrono::milliseconds delay, const std::string& id, bnr_response_e code,
                  const std::optional<fs::path>& folder) {
    sim::platformEvent(sim::calls::bnr_response, id, delay, code, [id, folder](sim::Arrival arrival) {
        const auto session = client().sessions.find(id);
        if (session == client().sessions.end()) {
            return;  // closed in the meantime
        }
        std::optional<Download> downloaded;
        if (arrival.code == BNR_RESPONSE_RESTORE_DATA && folder) {
            downloaded = download(session->second, id, *folder);
            if (!downloaded) {
                arrival.code = BNR_RESPONSE_ERROR;
            } else if (arrival.damage) {
                sim::damageFile(downloaded->path, *arrival.damage);
            }
        }
        respond(id, arrival, downloaded);
    });
}

int report(const sim::PlatformCall& call, const char* id, const char* outcome) {
    return sim::platformCall(call, std::tuple(id), [&] {
        if (client().sessions.count(id) == 0) {
            return NO_SESSION;
        }
        Device::current().record.reported(outcome);
        return 0;
    });
}

}  // namespace

int bnr_init(const char* id, const char* category) {
    return sim::platformCall(sim::calls::bnr_init, std::tuple(id, category), [&] {
        const bool isNew = client().sessions.emplace(id, category).second;
        if (isNew) {
            Device::current().awaited.insert(sessionName(id));
        }
        return isNew ? 0 : NO_SESSION;
    });
}

int bnr_deinit(const char* id) {
    return sim::platformCall(sim::calls::bnr_deinit, std::tuple(id), [&] {
        Device::current().noLongerAwaited(sessionName(id));
        return client().sessions.erase(id) == 1 ? 0 : NO_SESSION;
    });
}

int bnr_callback_register(const char* id, bnr_response_cb callback, void* userData, int* handlerId) {
    return sim::platformCall(sim::calls::bnr_callback_register, std::tuple(id), [&](sim::Given& given) {
        if (client().sessions.count(id) == 0) {
            return NO_SESSION;
        }
        *handlerId = ++client().lastHandler;
        client().handlers[*handlerId] = {id, callback, userData};
        given.text = sim::toJournal(*handlerId);
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
        [&](sim::Given& given) {
            if (client().sessions.count(id) == 0) {
                return NO_SESSION;
            }
            Json::Value parsed;
            if (!sim::parseJson(metadata, parsed)) {
                respondLater(BACKUP_TAKES, id, BNR_RESPONSE_BACKUP_SCHEMA_ERROR, std::nullopt);
                return 0;
            }
            const std::string category = client().sessions[id];
            Device& device = Device::current();
            const std::string backup = device.cloud->put(
                {id, category, metadata, device.tv.serial(), device.tv.serviceDb().counts().services}, filePath);
            device.record.used(backup, id, category);
            given.text = "backup " + backup;
            respondLater(BACKUP_TAKES, id, BNR_RESPONSE_BACKUP_COMPLETED, std::nullopt);
            return 0;
        },
        [&](sim::Damage damage) { sim::damageFile(filePath, damage); });
}

int bnr_restore(const char* id, const char* folder) {
    return sim::platformCall(sim::calls::bnr_restore, std::tuple(id, folder), [&] {
        if (client().sessions.count(id) == 0) {
            return NO_SESSION;
        }
        if (!fs::is_directory(folder)) {
            return NOT_THERE;
        }
        respondLater(RESTORE_TAKES, id, BNR_RESPONSE_RESTORE_DATA, folder);
        return 0;
    });
}

int bnr_report_success(const char* id) {
    return report(sim::calls::bnr_report_success, id, "success");
}

int bnr_report_failure(const char* id) {
    return report(sim::calls::bnr_report_failure, id, "failure");
}
