#include "simulator/cloud/FolderStore.h"

#include <fmt/format.h>
#include <json/value.h>

#include <algorithm>
#include <utility>

#include "simulator/base/Digest.h"
#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Json.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Text.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr std::size_t MIN_ID_DIGITS = 6;
constexpr char REMOVED[] = ".removed";
constexpr char PINNED[] = ".pinned";
// Tells the folders of accounts from those of the default account's clients, which stand beside them.
constexpr char ACCOUNT_MARK = '@';

// The number that an id stands for; nothing if the name is not that of a backup. A number has one id only: leading
// zeros fill it up to six digits, and no further.
std::optional<std::uint64_t> numberOf(const std::string& id) {
    const bool hasForm = id.size() >= MIN_ID_DIGITS && id.find_first_not_of("0123456789") == std::string::npos &&
                         (id.size() == MIN_ID_DIGITS || id.front() != '0');
    return hasForm ? toNumber<std::uint64_t>(id) : std::nullopt;
}

// Oldest first. As texts, 1000000 would come before 999999.
std::vector<std::string> backupIds(const fs::path& category) {
    std::vector<std::string> ids;
    for (const fs::path& member : membersOf(category)) {
        if (isFolder(member) && numberOf(member.filename())) {
            ids.push_back(member.filename());
        }
    }
    std::sort(ids.begin(), ids.end(),
              [](const std::string& left, const std::string& right) { return numberOf(left) < numberOf(right); });
    return ids;
}

// The highest number ever used in a category, also by removed backups; 0 if none was.
std::uint64_t highestNumber(const fs::path& category) {
    std::uint64_t highest = 0;
    for (const fs::path& member : membersOf(category)) {
        const fs::path id = member.extension() == REMOVED ? member.stem() : member.filename();
        highest = std::max(highest, numberOf(id).value_or(0));
    }
    return highest;
}

void load(const fs::path& folder, StoredBackup& backup) {
    const fs::path file = folder / "info.json";
    Json::Value info;
    parseJson(readFile(file, limits::METADATA_BYTES), info);  // else it is null
    try {
        readInfo(info, backup);
    } catch (const Error& error) {
        throw Error(error.kind(), fmt::format("{}: {}", file.string(), error.what()));
    }
    backup.metadata = readFile(folder / "metadata.json", limits::METADATA_BYTES);
    backup.size = sizeOf(folder / "bundle.zip");
    limits::require(fmt::format("{}: bytes", (folder / "bundle.zip").string()), backup.size, limits::ARCHIVE_BYTES);
}

bool isAccount(const fs::path& member) {
    return member.filename().string().front() == ACCOUNT_MARK && isFolder(member);
}

// What the store itself keeps beside backups: the marks of removed and pinned ones, and what is being built.
bool isOwn(const fs::path& member) {
    return member.extension() == REMOVED || member.extension() == PINNED || isScratch(member);
}

}  // namespace

FolderStore::FolderStore(fs::path folder) : m_folder(std::move(folder)) {
    // A file in the way is found out here, before a run depends on the store.
    fs::path existing = absolutePath(m_folder);
    while (!pathExists(existing) && existing.has_relative_path()) {
        existing = existing.parent_path();
    }
    if (!isFolder(existing)) {
        throw Error(fmt::format("the cloud cannot be at {}: {} is no folder", m_folder.string(), existing.string()));
    }
}

std::vector<fs::path> FolderStore::makeLocalFolders() const {
    makePrivateFolder(m_folder);
    return {m_folder};
}

std::vector<StoreTrial> FolderStore::examine() const {
    std::vector<StoreTrial> trials;
    try {
        const ScratchFolder scratch(m_folder);
        makeFolders(scratch / "built");
        writeFile(scratch / "built/file", "");
        putInPlace(scratch / "built", scratch / "placed");
        trials.push_back({"writing", true, "a folder can be made, and put in place"});
        std::error_code error;
        constexpr std::uint64_t MEBIBYTE = 1U << 20;
        trials.push_back({"room", true, fmt::format("{} MiB", fs::space(m_folder, error).available / MEBIBYTE)});
    } catch (const Error& error) {
        trials.push_back({"writing", false, error.what()});
    }
    return trials;
}

std::string FolderStore::put(const NewBackup& backup, const fs::path& bundle) {
    limits::require("the metadata of a backup: bytes", backup.metadata.size(), limits::METADATA_BYTES);
    makePrivateFolder(m_folder);
    const fs::path parent = folderOf(backup);
    if (backup.refuseDuplicate) {
        const std::vector<std::string> ids = backupIds(parent);
        if (!ids.empty() && digestOf(parent / ids.back() / "bundle.zip") == digestOf(bundle)) {
            throw duplicateBackup(*this, ids.back());
        }
    }
    const ScratchFolder scratch(parent);
    const fs::path built = scratch / "backup";
    makeFolders(built);
    copyFile(bundle, built / "bundle.zip");
    writeFile(built / "metadata.json", backup.metadata);
    writeFile(built / "info.json", writeJson(infoOf(backup, bundle)));
    // Another writer may have taken the number since: then the next one is tried.
    for (std::uint64_t number = highestNumber(parent) + 1;; ++number) {
        std::string id = fmt::format("{:0{}}", number, MIN_ID_DIGITS);
        if (putInPlace(built, parent / id)) {
            return id;
        }
    }
}

// The mark comes first: if the process is killed in between, the backup is still there, and no id is used twice.
void FolderStore::remove(const BackupName& backup) {
    const fs::path folder = existingFolderOf(backup);
    const ScratchFolder scratch(folder.parent_path());
    reserve(backup);
    putInPlace(folder, scratch / "removed");
}

void FolderStore::pin(const BackupName& backup, bool isPinned) {
    const fs::path mark = existingFolderOf(backup).string() + PINNED;
    if (isPinned) {
        writeFile(mark, "");
    } else {
        removeFile(mark);
    }
}

void FolderStore::reserve(const BackupName& backup) const {
    makeFolders(folderOf(backup));
    writeFile(folderOf(backup) / (backup.id + REMOVED), "");
}

fs::path FolderStore::folderOf(const Address& address) const {
    const fs::path account =
        address.account == DEFAULT_ACCOUNT ? m_folder : m_folder / (ACCOUNT_MARK + address.account);
    return account / address.clientId / address.category;
}

fs::path FolderStore::existingFolderOf(const BackupName& name) const {
    fs::path folder = folderOf(name) / name.id;
    if (!numberOf(name.id) || !isFolder(folder)) {
        throw missingBackup(*this, name);
    }
    return folder;
}

std::optional<BackupName> FolderStore::newest(const Address& address) const {
    const std::vector<std::string> ids = backupIds(folderOf(address));
    return ids.empty() ? std::nullopt : std::optional(BackupName{address, ids.back(), ""});
}

// The folders in a folder. Adds everything else there to the foreign content, unless it is the store's own.
std::vector<fs::path> FolderStore::foldersIn(const fs::path& folder, StoreContent& content) const {
    std::vector<fs::path> folders;
    for (const fs::path& member : membersOf(folder)) {
        if (isFolder(member) && !isOwn(member)) {
            folders.push_back(member);
        } else if (!isOwn(member)) {
            content.foreign.push_back(member.lexically_relative(m_folder));
        }
    }
    return folders;
}

void FolderStore::addCategory(const Address& address, const fs::path& folder, StoreContent& content) const {
    for (const std::string& id : backupIds(folder)) {
        content.backups.push_back({address, id, "", pathExists(folder / (id + PINNED))});
    }
    for (const fs::path& member : foldersIn(folder, content)) {
        if (!numberOf(member.filename())) {
            content.foreign.push_back(member.lexically_relative(m_folder));
        }
    }
}

void FolderStore::addAccount(const std::string& account, const fs::path& folder, StoreContent& content) const {
    for (const fs::path& client : foldersIn(folder, content)) {
        if (isAccount(client)) {
            continue;
        }
        for (const fs::path& category : foldersIn(client, content)) {
            addCategory({account, client.filename(), category.filename()}, category, content);
        }
    }
}

StoreContent FolderStore::contentOf(const std::string& account) const {
    StoreContent content;
    if (account.empty() || account == DEFAULT_ACCOUNT) {
        addAccount(DEFAULT_ACCOUNT, m_folder, content);
    }
    for (const fs::path& member : membersOf(m_folder)) {
        const std::string name = member.filename().string().substr(1);
        if (isAccount(member) && (account.empty() || account == name)) {
            addAccount(name, member, content);
        }
    }
    return content;
}

StoredBackup FolderStore::look(const BackupName& name) const {
    const fs::path folder = existingFolderOf(name);
    StoredBackup backup(name);
    try {
        load(folder, backup);
    } catch (const Error& error) {
        backup.damage = error.what();
    }
    return backup;
}

StoredBackup FolderStore::fetch(const BackupName& name, const fs::path& folder) const {
    StoredBackup backup = look(name);
    if (backup.damage.empty()) {
        removeFile(folder / backup.name);  // a link there would lead the copy out of the folder
        copyFile(folderOf(name) / name.id / "bundle.zip", folder / backup.name);
    }
    return backup;
}

}  // namespace sim
