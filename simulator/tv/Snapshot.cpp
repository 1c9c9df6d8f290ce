#include "simulator/tv/Snapshot.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "simulator/base/Database.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Text.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr char SNAPSHOTS[] = "snapshots";
constexpr char DATABASE[] = "tv.db";

// Links a file of a snapshot into the TV's new folder; copies it if the file system has no links.
void moveFile(const fs::path& from, const fs::path& to) {
    std::error_code error;
    fs::create_hard_link(from, to, error);
    if (error) {
        copyFile(from, to);
    }
}

// Copies the tree below a folder, its files with `copy`. Does nothing if there is no such folder.
template <typename Copy>
void copyTree(const fs::path& from, const fs::path& to, Copy copy) {
    if (!isFolder(from)) {
        return;
    }
    makePrivateFolder(to);
    for (const fs::path& member : membersOf(from)) {
        const fs::path target = to / member.filename();
        std::error_code ignored;
        if (fs::is_symlink(member, ignored)) {
            // Not followed: the application may have made it, and it could lead anywhere.
            fs::copy_symlink(member, target, ignored);
        } else if (isFolder(member)) {
            copyTree(member, target, copy);
        } else if (isRegularFile(member)) {
            copy(member, target);
        }
    }
    // Last, as nothing could be put into a folder that is read-only.
    copyPermissions(from, to);
}

// Copies a TV without its snapshots. Nothing is shared: what is written into a TV's file must not reach its snapshots.
void copyTv(const fs::path& from, const fs::path& to) {
    makePrivateFolder(to);
    // By SQLite: the last changes may still be in the log beside the file.
    Database(from / DATABASE, Database::Access::Look).snapshot(to / DATABASE);
    copyFile(from / "iss.db", to / "iss.db");
    for (const char* folder : {"service-db", "ci", "runs", "apps", "tmp"}) {
        copyTree(from / folder, to / folder, &copyFile);
    }
}

}  // namespace

void saveSnapshot(const fs::path& home, const std::string& name) {
    requireName("name for a snapshot", name);
    makePrivateFolder(home / SNAPSHOTS);
    const ScratchFolder scratch(home / SNAPSHOTS);
    const fs::path built = scratch / "tv";
    copyTv(home, built);
    const fs::path target = home / SNAPSHOTS / name;
    if (!putInPlace(built, target)) {
        exchange(built, target);
    }
}

fs::path snapshotPath(const fs::path& home, const std::string& name) {
    const std::vector<std::string> names = snapshotsOf(home);
    if (std::find(names.begin(), names.end(), name) == names.end()) {
        throw Error(Error::Kind::Missing, fmt::format("the TV at {} has no snapshot {}; it has: {}", home.string(),
                                                      inQuotes(name), fmt::join(names, ", ")));
    }
    return home / SNAPSHOTS / name;
}

void resetTo(const fs::path& home, const std::string& name) {
    const fs::path snapshot = snapshotPath(home, name);
    const ScratchFolder scratch(home.parent_path());
    const fs::path built = scratch / "tv";
    copyTv(snapshot, built);
    makePrivateFolder(built / SNAPSHOTS);
    for (const std::string& each : snapshotsOf(home)) {
        // Snapshots are never written to, and the home that has them now goes: their files need not be copied.
        copyTree(home / SNAPSHOTS / each, built / SNAPSHOTS / each, &moveFile);
    }
    exchange(built, home);
}

std::vector<std::string> snapshotsOf(const fs::path& home) {
    std::vector<std::string> names;
    for (const fs::path& member : membersOf(home / SNAPSHOTS)) {
        if (pathExists(member / DATABASE)) {
            names.push_back(member.filename());
        }
    }
    return names;
}

}  // namespace sim
