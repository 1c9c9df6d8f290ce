#include "simulator/tv/StateBefore.h"

#include <fcntl.h>
#include <fmt/format.h>

#include "simulator/base/Descriptor.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Limits.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr char DATABASE[] = "tv.db";
constexpr char RUNS[] = "runs";

fs::path placeBefore(const fs::path& home, std::int64_t run) {
    return home / RUNS / fmt::format("{:06}.before", run);
}

}  // namespace

void keepBefore(const Tv& tv, std::int64_t run) {
    const fs::path& home = tv.home();
    const fs::path kept = placeBefore(home, run);
    removeTree(placeBefore(home, run - limits::STATES_KEPT));
    removeTree(kept);  // of a run that never began
    try {
        makePrivateFolder(kept / RUNS);
        const fs::path last = fmt::format("{}/{:06}.jsonl", RUNS, run - 1);
        if (isRegularFile(home / last)) {
            linkFile(home / last, kept / last);
        }
        linkFile(home / "iss.db", kept / "iss.db");
        for (const char* folder : {"service-db", "on-air", "ci", "tmp"}) {
            copyFolder(home / folder, kept / folder, &linkFile);
        }
        copyFolder(home / "apps", kept / "apps", &copyQuickly);  // which the application changes in place
        // At last: it makes a TV of the folder.
        writeAll(openFile(kept / DATABASE, O_WRONLY | O_CREAT | O_EXCL, 0600), tv.database(), kept / DATABASE);
    } catch (const Error&) {
        removeTree(kept);
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

}  // namespace sim
