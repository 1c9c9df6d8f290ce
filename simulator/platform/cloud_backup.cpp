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
#include "simulator/platform/Device.h"

namespace fs = std::filesystem;

namespace {

using sim::Device;
using sim::Failure;
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

// What the cloud hands out for a restore. Nothing: it has no such backup, or cannot read or deliver it.
struct Download {
    std::string metadata;
    std::string path;
};
std::optional<Download> download(const std::string& category, const std::string& id, const fs::path& folder) {
    const Device& device = Device::current();
    try {
        const std::optional<sim::StoredBackup> backup = device.cloud.find(id, category, device.chosenBackup);
        if (!backup) {
            return std::nullopt;
        }
        const fs::path target = folder / backup->name;
        fs::remove(target);  // or a link there would lead the download elsewhere
        fs::copy_file(backup->bundle, target);
        return Download{backup->metadata, target};
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

struct Response {
    std::string id;
    bnr_response_e code;
    std::optional<fs::path> folder;  // where the answer to a restore request puts the backup
    std::optional<sim::FaultInjector::Hit> hit;
};

bool fails(const Response& response, Failure::Kind kind) {
    return response.hit && response.hit->failure.kind == kind;
}

void deliver(Response response) {
    Device& device = Device::current();
    if (fails(response, Failure::Kind::Result)) {
        response.code = static_cast<bnr_response_e>(response.hit->failure.number);
    }
    const auto session = client().sessions.find(response.id);
    if (session == client().sessions.end()) {
        return;  // closed in the meantime
    }
    std::optional<Download> downloaded;
    bnr_resp_data_s data = {};
    if (response.code == BNR_RESPONSE_RESTORE_DATA && response.folder) {
        downloaded = download(session->second, response.id, *response.folder);
        if (!downloaded) {
            response.code = BNR_RESPONSE_ERROR;
        } else if (fails(response, Failure::Kind::Damage)) {
            sim::damageFile(downloaded->path, response.hit->failure.text);
        }
    }
    if (downloaded) {
        data = {downloaded->metadata.c_str(), downloaded->path.c_str()};
    }
    const bool hasData = downloaded && !fails(response, Failure::Kind::NoData);
    for (const auto& [number, handler] : client().handlers) {
        if (handler.id == response.id) {
            const Handler called = handler;  // it may deregister itself
            device.record.responded(response.code);
            device.record.call("bnr_response",
                               fmt::format("{}, {}", response.code, hasData ? data.filePath : "no data"), "",
                               response.hit ? std::optional(response.hit->rule) : std::nullopt);
            called.callback(response.code, hasData ? &data : nullptr,
                            fails(response, Failure::Kind::Null) ? nullptr : called.userData);
            return;
        }
    }
}

void respondLater(sim::EventLoop::Milliseconds delay, const std::string& id, bnr_response_e code,
                  const std::optional<fs::path>& folder) {
    Device& device = Device::current();
    const Response response{id, code, folder, sim::nextFailure(device, "bnr_response", id)};
    if (fails(response, Failure::Kind::Lost)) {
        return;
    }
    if (fails(response, Failure::Kind::Delay)) {
        delay += sim::EventLoop::Milliseconds(response.hit->failure.number);
    }
    device.loop.post(delay, [response] { deliver(response); });
}

int report(const char* call, const char* id, const char* outcome) {
    return sim::platformCall(call, id, [&] {
        if (client().sessions.count(id) == 0) {
            return NO_SESSION;
        }
        Device::current().record.reported(outcome);
        return 0;
    });
}

}  // namespace

int bnr_init(const char* id, const char* category) {
    return sim::platformCall("bnr_init", fmt::format("{}, {}", id, category), [&] {
        const bool isNew = client().sessions.emplace(id, category).second;
        if (isNew) {
            Device::current().awaited.insert(sessionName(id));
        }
        return isNew ? 0 : NO_SESSION;
    });
}

int bnr_deinit(const char* id) {
    return sim::platformCall("bnr_deinit", id, [&] {
        Device::current().noLongerAwaited(sessionName(id));
        return client().sessions.erase(id) == 1 ? 0 : NO_SESSION;
    });
}

int bnr_callback_register(const char* id, bnr_response_cb callback, void* userData, int* handlerId) {
    return sim::platformCall("bnr_callback_register", id, [&](sim::Given& given) {
        if (client().sessions.count(id) == 0) {
            return NO_SESSION;
        }
        *handlerId = ++client().lastHandler;
        client().handlers[*handlerId] = {id, callback, userData};
        given.text = std::to_string(*handlerId);
        return 0;
    });
}

int bnr_callback_deregister(int handlerId) {
    return sim::platformCall("bnr_callback_deregister", std::to_string(handlerId),
                             [&] { return client().handlers.erase(handlerId) == 1 ? 0 : NOT_THERE; });
}

int bnr_backup(const char* id, const char* metadata, const char* filePath) {
    return sim::platformCall("bnr_backup", fmt::format("{}, {}, {}", id, metadata, filePath), [&](sim::Given& given) {
        if (client().sessions.count(id) == 0) {
            return NO_SESSION;
        }
        Json::Value parsed;
        if (!sim::parseJson(metadata, parsed)) {
            respondLater(BACKUP_TAKES, id, BNR_RESPONSE_BACKUP_SCHEMA_ERROR, std::nullopt);
            return 0;
        }
        given.text = "backup " + Device::current().cloud.put(id, client().sessions[id], metadata, filePath);
        respondLater(BACKUP_TAKES, id, BNR_RESPONSE_BACKUP_COMPLETED, std::nullopt);
        return 0;
    });
}

int bnr_restore(const char* id, const char* folder) {
    return sim::platformCall("bnr_restore", fmt::format("{}, {}", id, folder), [&] {
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
    return report("bnr_report_success", id, "success");
}

int bnr_report_failure(const char* id) {
    return report("bnr_report_failure", id, "failure");
}
