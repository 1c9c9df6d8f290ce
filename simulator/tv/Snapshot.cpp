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
constexpr char RUNS[] = "runs";

}  // namespace

// Nothing is shared: what is written into a TV's file must not reach its copies.
void copyTv(const fs::path& from, const fs::path& to) {
    makePrivateFolder(to);
    // By SQLite: the last changes may still be in the log beside the file.
    Database(from / DATABASE, Database::Access::Look).snapshot(to / DATABASE);
    copyFile(from / "iss.db", to / "iss.db");
    for (const char* folder : {"service-db", "on-air", "ci", "apps", "tmp"}) {
        copyFolder(from / folder, to / folder);
    }
    makePrivateFolder(to / RUNS);
    for (const fs::path& record : membersOf(from / RUNS)) {
        if (isRegularFile(record)) {  // and not what was before a run
            copyFile(record, to / RUNS / record.filename());
        }
    }
}

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
        copyFolder(home / SNAPSHOTS / each, built / SNAPSHOTS / each, &linkFile);
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
