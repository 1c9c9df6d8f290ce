#include "simulator/cloud/CloudStore.h"

#include <fmt/format.h>
#include <json/value.h>

#include <utility>

#include "simulator/base/Clock.h"
#include "simulator/base/Error.h"
#include "simulator/base/Text.h"

namespace sim {

namespace {

// A store, or somebody in it, may hand out the backup of another. Those of version 1 do not say whose they are.
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

}  // namespace

std::vector<StoredBackup> lookAt(const CloudStore& store, const std::vector<BackupName>& names) {
    std::vector<StoredBackup> backups;
    backups.reserve(names.size());
    for (const BackupName& name : names) {
        try {
            backups.push_back(store.look(name));
        } catch (const Error& error) {
            if (error.kind() != Error::Kind::Missing) {  // else it was removed after the listing
                throw;
            }
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
