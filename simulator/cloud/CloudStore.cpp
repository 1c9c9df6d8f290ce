#include "simulator/cloud/CloudStore.h"

#include <fmt/format.h>
#include <json/value.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "simulator/base/Clock.h"
#include "simulator/base/Error.h"
#include "simulator/base/Text.h"

namespace sim {

namespace {

// A store, or somebody in it, may hand out the backup of another. Older ones do not say whose they are.
void requireOwn(const Json::Value& info, const Address& address) {
    const std::pair<const char*, const std::string&> members[] = {
        {"account", address.account}, {"client", address.clientId}, {"category", address.category}};
    for (const auto& [member, own] : members) {
        const std::string stored = info[member].isString() ? info[member].asString() : toUtf8(own);
        if (stored != toUtf8(own)) {
            throw Error(Error::Kind::Damaged, fmt::format("it was stored for the {} {}, and lies in that of {}", member,
                                                          inQuotes(stored), inQuotes(own)));
        }
    }
}

// Nothing if it was removed after the listing.
std::optional<StoredBackup> lookIfThere(const CloudStore& store, const BackupName& name) {
    try {
        return store.look(name);
    } catch (const Error& error) {
        if (error.kind() != Error::Kind::Missing) {
            throw;
        }
        return std::nullopt;
    }
}

// Some backups that are looked at together.
class Batch {
public:
    explicit Batch(std::vector<BackupName> names) : m_names(std::move(names)), m_found(m_names.size()) {}

    // Looks at one after the other until none is left; on any thread.
    void work(const CloudStore& store) {
        try {
            for (std::size_t i = m_next++; i < m_names.size(); i = m_next++) {
                m_found[i] = lookIfThere(store, m_names[i]);
            }
        } catch (...) {  // one that leaves a thread would end the process
            const std::lock_guard guard(m_mutex);
            m_failure = std::current_exception();
        }
    }

    // The same on a thread for each store.
    void workOnAll(const std::vector<std::unique_ptr<CloudStore>>& stores) {
        std::vector<std::thread> threads;
        threads.reserve(stores.size());
        for (std::size_t i = 1; i < stores.size(); ++i) {
            try {
                threads.emplace_back([this, &store = *stores[i]] { work(store); });
            } catch (const std::system_error&) {  // those that there are do all the work
                break;
            }
        }
        work(*stores[0]);
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    void visit(const std::function<void(const StoredBackup&)>& visit) const {
        if (m_failure) {
            std::rethrow_exception(m_failure);
        }
        for (const std::optional<StoredBackup>& backup : m_found) {
            if (backup) {
                visit(*backup);
            }
        }
    }

private:
    std::vector<BackupName> m_names;
    std::vector<std::optional<StoredBackup>> m_found;
    std::atomic<std::size_t> m_next{0};
    std::mutex m_mutex;
    std::exception_ptr m_failure;
};

}  // namespace

void visitBackups(const std::function<std::unique_ptr<CloudStore>()>& open, const std::vector<BackupName>& names,
                  const std::function<void(const StoredBackup&)>& visit) {
    constexpr std::size_t BATCH = 64;
    constexpr std::size_t THREADS = 8;  // a store on another machine takes its time, and not this one's
    std::vector<std::unique_ptr<CloudStore>> stores;
    for (std::size_t begin = 0; begin < names.size(); begin += BATCH) {
        const auto first = names.begin() + static_cast<std::ptrdiff_t>(begin);
        const std::size_t size = std::min(BATCH, names.size() - begin);
        Batch batch({first, first + static_cast<std::ptrdiff_t>(size)});
        while (stores.empty() || (stores[0]->isRemote() && stores.size() < std::min(THREADS, size))) {
            stores.push_back(open());
        }
        batch.workOnAll(stores);
        batch.visit(visit);
    }
}

std::vector<StoredBackup> lookAt(const CloudStore& store, const std::vector<BackupName>& names) {
    std::vector<StoredBackup> backups;
    backups.reserve(names.size());
    for (const BackupName& name : names) {
        if (std::optional<StoredBackup> backup = lookIfThere(store, name)) {
            backups.push_back(std::move(*backup));
        }
    }
    return backups;
}

Error missingBackup(const CloudStore& store, const BackupName& name) {
    return {Error::Kind::Missing,
            fmt::format("{} holds no backup {}; see: halcyon-tv cloud list", store.place(), name.path())};
}

Error duplicateBackup(const CloudStore& store, const std::string& newestId) {
    return {Error::Kind::Duplicate, fmt::format("{}: backup {} has the same bundle already", store.place(), newestId)};
}

Json::Value infoOf(const NewBackup& backup, const std::filesystem::path& bundle) {
    Json::Value info;
    info["time"] = backup.time.empty() ? toUtc(machineTime()) : backup.time;
    info["name"] = toUtf8(bundle.filename().string());
    info["device"] = toUtf8(backup.device);
    info["account"] = toUtf8(backup.account);
    info["client"] = toUtf8(backup.clientId);
    info["category"] = toUtf8(backup.category);
    if (backup.services) {
        info["services"] = Json::Value::UInt64(*backup.services);
    }
    return info;
}

void readInfo(const Json::Value& info, StoredBackup& backup) {
    if (!info.isObject() || !info["time"].isString() || !info["name"].isString()) {
        throw Error(Error::Kind::Damaged, "the description of the backup is not a JSON object with a time and a name");
    }
    // The name comes from outside and becomes a path: it must not lead out of the folder that the bundle goes to.
    const std::string name = std::filesystem::path(info["name"].asString()).filename();
    if (name.empty() || name == "." || name == "..") {
        throw Error(Error::Kind::Damaged,
                    fmt::format("{} cannot be the file name of a bundle", inQuotes(info["name"].asString())));
    }
    requireOwn(info, backup);
    backup.name = name;
    backup.time = info["time"].asString();
    backup.device = info["device"].isString() ? info["device"].asString() : "";
    if (info["services"].isUInt64()) {
        backup.services = info["services"].asUInt64();
    }
}

}  // namespace sim
