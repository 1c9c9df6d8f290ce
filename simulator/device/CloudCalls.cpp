// The client of the cloud backup service.
#include <fmt/format.h>
#include <json/value.h>

#include <chrono>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "simulator/base/Clock.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Json.h"
#include "simulator/device/Calls.h"
#include "simulator/device/OwnPath.h"
#include "simulator/tv/Run.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

using wire::CallId;
using namespace std::chrono_literals;

constexpr int NO_SESSION = -1;
constexpr int NOT_THERE = -2;
constexpr int ALREADY_OPEN = -3;
constexpr auto BACKUP_DURATION = 1500ms;
constexpr auto RESTORE_DURATION = 2500ms;

std::string sessionName(const std::string& id) {
    return fmt::format("the cloud service ({})", id);
}

// The response for an error of the store.
Response responseTo(const Error& error) {
    switch (error.kind()) {
        case Error::Kind::Unreachable:
            return Response::ServerNotResponding;
        case Error::Kind::Duplicate:
            return Response::DuplicatedData;
        default:
            return Response::Error;
    }
}

// What a restore brings.
struct Download {
    std::string metadata;
    std::string path;
};

class Client {
public:
    explicit Client(Calls& calls) : m_calls(calls), m_device(calls.device) {}

    int open(const std::string& id, const std::string& category) {
        if (!m_sessions.emplace(id, category).second) {
            return ALREADY_OPEN;
        }
        m_device.awaited.insert(sessionName(id));
        return 0;
    }

    int close(const std::string& id) {
        m_device.noLongerAwaited(sessionName(id));
        return m_sessions.erase(id) == 1 ? 0 : NO_SESSION;
    }

    wire::Answer<int, int> addHandler(const std::string& id) {
        if (!isOpen(id)) {
            return {NO_SESSION, {}};
        }
        m_handlers[++m_lastHandler] = id;
        return {0, m_lastHandler};
    }

    int removeHandler(int number) { return m_handlers.erase(number) == 1 ? 0 : NOT_THERE; }

    int backUp(CurrentCall& call, const std::string& id, const std::string& metadata, const std::string& path) {
        if (!isOpen(id)) {
            return NO_SESSION;
        }
        // The service accepts the request first, and looks at the metadata later: only the response refuses them.
        Json::Value parsed;
        if (!parseJson(metadata, parsed)) {
            respondLater(BACKUP_DURATION, id, Response::BackupSchemaError, std::nullopt);
            return 0;
        }
        const NewBackup backup{addressOf(id),
                               metadata,
                               m_device.tv.serial(),
                               m_device.tv.services().counts().services,
                               m_device.launch.refuseDuplicates,
                               toUtc(m_device.now())};
        const OwnPath bundle(m_device.tv.home(), path);
        bundle.requireRegularFile();
        if (m_device.cloud->isRemote()) {
            bundle.use([&](const fs::path& file) { uploadLater(backup, file); });
            call.given = "spooled";
            return 0;
        }
        // Stored before the call returns, as its caller may delete the bundle then.
        const Stored stored = bundle.use([&](const fs::path& file) { return store(backup, file); });
        respondLater(BACKUP_DURATION, id, stored.response, std::nullopt);
        call.given = stored.id.empty() ? "" : "backup " + stored.id;
        return 0;
    }

    int restore(const std::string& id, const std::string& folder) {
        if (!isOpen(id)) {
            return NO_SESSION;
        }
        try {
            if (!OwnPath(m_device.tv.home(), folder).isFolder()) {
                return NOT_THERE;
            }
        } catch (const Error&) {
            return NOT_THERE;
        }
        respondLater(RESTORE_DURATION, id, Response::RestoreData, folder);
        return 0;
    }

    int report(const std::string& id, Reported outcome) {
        if (!isOpen(id)) {
            return NO_SESSION;
        }
        m_device.record.reported(outcome);
        return 0;
    }

private:
    struct Stored {
        Response response;
        std::string id;  // of the backup; empty: there is none
    };

    bool isOpen(const std::string& id) const { return m_sessions.count(id) > 0; }

    Address addressOf(const std::string& id) const { return {m_device.tv.account(), id, m_sessions.at(id)}; }

    // Answers a request on the main loop; a restore downloads the backup into `folder` first.
    void respondLater(std::chrono::milliseconds delay, const std::string& id, Response response,
                      const std::optional<fs::path>& folder) {
        postEvent(m_calls, calls::bnr_response, id, delay, codeOf(response), [this, id, folder](Arrival arrival) {
            if (!isOpen(id)) {
                return;  // it was closed meanwhile
            }
            std::optional<Download> downloaded;
            // A fault may have made it another response, which brings no data.
            if (arrival.code == codeOf(Response::RestoreData) && folder) {
                arrival.code = codeOf(download(id, *folder, downloaded));
                if (downloaded && arrival.damage) {
                    m_device.damage(downloaded->path, *arrival.damage);
                }
            }
            respond(id, arrival, downloaded);
        });
    }

    // Downloads a backup into `folder`. `downloaded` is set if the response is RestoreData.
    Response download(const std::string& id, const fs::path& folder, std::optional<Download>& downloaded) {
        const Address address = addressOf(id);
        try {
            const std::optional<BackupName> name = m_device.launch.backup.empty()
                                                       ? m_device.cloud->newest(address)
                                                       : std::optional(BackupName{address, m_device.launch.backup, ""});
            if (!name) {
                return Response::Error;
            }
            const StoredBackup backup = OwnPath(m_device.tv.home(), folder).use([&](const fs::path& place) {
                return m_device.cloud->fetch(*name, place);
            });
            if (!backup.damage.empty()) {
                m_device.record.call(calls::cloud_request.name, "backup " + name->path(),
                                     DAMAGED_BACKUP + backup.damage, std::nullopt);
                return Response::Error;
            }
            m_device.record.transferred(address, backup.id);
            m_device.bundleName = backup.name;
            m_device.bundleMetadata = backup.metadata;
            downloaded = {backup.metadata, folder / backup.name};
            return Response::RestoreData;
        } catch (const Error& error) {
            explain("a backup for the restore", error);
            return responseTo(error);
        } catch (const std::exception& error) {
            explain("a backup for the restore", error);
            return Response::Error;
        }
    }

    // Records an error that is none of a request, which has been recorded: a full disk, or a full category.
    void explain(const std::string& what, const std::exception& error) {
        const std::string why = error.what();
        if (m_device.lastOutcome.empty() || why.compare(0, m_device.lastOutcome.size(), m_device.lastOutcome) != 0) {
            m_device.record.call(calls::cloud_request.name, what, why, std::nullopt);
        }
    }

    // Calls the application back, which may remove the handler.
    void respond(const std::string& id, const Arrival& arrival, const std::optional<Download>& downloaded) {
        const auto handler =
            std::find_if(m_handlers.begin(), m_handlers.end(), [&](const auto& each) { return each.second == id; });
        if (handler == m_handlers.end()) {
            return;
        }
        wire::Text metadata;
        wire::Text path;
        if (downloaded && arrival.hasData) {
            metadata = downloaded->metadata;
            path = downloaded->path;
        }
        // An event is recorded before it is delivered: in the record, it stands before the calls that it leads to.
        m_device.record.responded(arrival.code);
        m_device.record.call(calls::bnr_response.name, toJournal(std::tuple(arrival.code, path)), "", arrival.fault);
        m_device.session.deliver<wire::EventId::response>(handler->first, arrival.code, arrival.hasUserData, metadata,
                                                          path);
    }

    // Puts a backup into the store. Throws Error if the service would refuse the request itself, because the disk of a
    // local store is full, for example.
    Stored store(const NewBackup& backup, const fs::path& bundle) {
        Stored stored{Response::BackupCompleted, ""};
        try {
            stored.id = m_device.cloud->put(backup, bundle);
        } catch (const Error& error) {
            if (!m_device.cloud->isRemote() && error.kind() != Error::Kind::Duplicate) {
                throw;
            }
            explain("the new backup", error);
            return {responseTo(error), ""};
        }
        m_device.record.transferred(backup, stored.id);
        return stored;
    }

    // Copies the bundle, which its owner may remove at once, and uploads the copy to a remote store before the
    // response.
    void uploadLater(const NewBackup& backup, const fs::path& bundle) {
        const auto spool = std::make_shared<ScratchFolder>(m_device.tv.home() / "spool");
        const fs::path copy = *spool / bundle.filename();
        copyFile(bundle, copy);
        m_device.loop.post(BACKUP_DURATION, [this, backup, spool, copy] {
            if (isOpen(backup.clientId)) {  // it may have been closed meanwhile
                respondLater(0ms, backup.clientId, store(backup, copy).response, std::nullopt);
            }
        });
    }

    Calls& m_calls;
    Device& m_device;
    std::map<std::string, std::string> m_sessions;  // category by client id
    std::map<int, std::string> m_handlers;          // client id by the handler's number
    int m_lastHandler = 0;
};

}  // namespace

void addCloudCalls(Calls& calls) {
    const auto client = std::make_shared<Client>(calls);
    calls.add<CallId::bnr_init>([client](CurrentCall&, const std::string& id, const std::string& category) {
        return client->open(id, category);
    });
    calls.add<CallId::bnr_deinit>([client](CurrentCall&, const std::string& id) { return client->close(id); });
    calls.add<CallId::bnr_callback_register>(
        [client](CurrentCall&, const std::string& id) { return client->addHandler(id); });
    calls.add<CallId::bnr_callback_deregister>(
        [client](CurrentCall&, int handler) { return client->removeHandler(handler); });
    calls.add<CallId::bnr_backup>(
        [client](CurrentCall& call, const std::string& id, const std::string& metadata, const std::string& path) {
            return client->backUp(call, id, metadata, path);
        },
        [](CurrentCall& call, const wire::Answer<int>&, Damage damage, const std::string&, const std::string&,
           const std::string& path) { call.device.damage(path, damage); });
    // What becomes of the bundle of a request that fails is of interest, too.
    calls.addBefore(CallId::bnr_backup, [&device = calls.device](std::string_view body, bool) {
        const auto [id, metadata, path] = wire::decode<wire::Call<CallId::bnr_backup>::Arguments>(body);
        device.bundleName = fs::path(path.value_or("")).filename();
        device.bundleMetadata = metadata.value_or("");
    });
    calls.add<CallId::bnr_restore>([client](CurrentCall&, const std::string& id, const std::string& folder) {
        return client->restore(id, folder);
    });
    calls.add<CallId::bnr_report_success>(
        [client](CurrentCall&, const std::string& id) { return client->report(id, Reported::Success); });
    calls.add<CallId::bnr_report_failure>(
        [client](CurrentCall&, const std::string& id) { return client->report(id, Reported::Failure); });
}

}  // namespace sim
