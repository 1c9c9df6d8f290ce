#include "simulator/tv/Snapshot.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "simulator/base/Database.h"
#include "simulator/base/Descriptor.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Text.h"
#include "simulator/tv/Tv.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr char SNAPSHOTS[] = "snapshots";
constexpr char DATABASE[] = "tv.db";
constexpr char RUNS[] = "runs";

// Links a file to another place; copies it if the file system has no links.
void linkFile(const fs::path& from, const fs::path& to) {
    std::error_code error;
    fs::create_hard_link(from, to, error);
    if (error) {
        copyFile(from, to);
    }
}

// Does not wait for the disk.
void copyQuickly(const fs::path& from, const fs::path& to) {
    std::error_code error;
    if (!fs::copy_file(from, to, error)) {
        throw Error::ofSystem(to, "cannot copy", error.value());
    }
}

fs::path placeBefore(const fs::path& home, std::int64_t run) {
    return home / RUNS / fmt::format("{:06}.before", run);
}

void removeFolder(const fs::path& folder) {
    std::error_code ignored;
    fs::remove_all(folder, ignored);
}

}  // namespace

// Nothing is shared: what is written into a TV's file must not reach its copies.
void copyTv(const fs::path& from, const fs::path& to) {
    makePrivateFolder(to);
    // By SQLite: the last changes may still be in the log beside the file.
    Database(from / DATABASE, Database::Access::Look).snapshot(to / DATABASE);
    copyFile(from / "iss.db", to / "iss.db");
    for (const char* folder : {"service-db", "ci", "apps", "tmp"}) {
        copyFolder(from / folder, to / folder);
    }
    makePrivateFolder(to / RUNS);
    for (const fs::path& record : membersOf(from / RUNS)) {
        if (isRegularFile(record)) {  // and not what was before a run
            copyFile(record, to / RUNS / record.filename());
        }
    }
}

void keepBefore(const Tv& tv, std::int64_t run) {
    const fs::path& home = tv.home();
    const fs::path kept = placeBefore(home, run);
    removeFolder(placeBefore(home, run - limits::STATES_KEPT));
    removeFolder(kept);  // of a run that never began
    try {
        makePrivateFolder(kept / RUNS);
        const fs::path last = fmt::format("{}/{:06}.jsonl", RUNS, run - 1);
        if (isRegularFile(home / last)) {
            linkFile(home / last, kept / last);
        }
        linkFile(home / "iss.db", kept / "iss.db");
        for (const char* folder : {"service-db", "ci", "tmp"}) {
            copyFolder(home / folder, kept / folder, &linkFile);
        }
        copyFolder(home / "apps", kept / "apps", &copyQuickly);  // which the application changes in place
        // At last: it makes a TV of the folder.
        writeAll(openFile(kept / DATABASE, O_WRONLY | O_CREAT | O_EXCL, 0600), tv.database(), kept / DATABASE);
    } catch (const Error&) {
        removeFolder(kept);
        throw;
    }
}

fs::path pathBefore(const fs::path& home, std::int64_t run) {
    fs::path kept = placeBefore(home, run);
    if (!pathExists(kept / DATABASE)) {
        throw Error(
            Error::Kind::Missing,
            fmt::format("what the TV at {} was before run {} is not there any more: it is kept of the newest {} "
                        "runs that halcyon-tv run launched, until a reset",
                        home.string(), run, limits::STATES_KEPT));
    }
    return kept;
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
