#include "simulator/base/Sandbox.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>

#include "simulator/base/Descriptor.h"
#include "simulator/base/Error.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

// The first version refuses to rename between folders, which is how files are put in place.
constexpr long OLDEST_VERSION = 2;

// LANDLOCK_ACCESS_FS_TRUNCATE, which the oldest headers that this is built with do not have.
constexpr std::uint64_t TRUNCATE = 1ULL << 14;

std::uint64_t writingRights(long version) {
    const std::uint64_t rights = LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_REMOVE_DIR |
                                 LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_MAKE_CHAR |
                                 LANDLOCK_ACCESS_FS_MAKE_DIR | LANDLOCK_ACCESS_FS_MAKE_REG |
                                 LANDLOCK_ACCESS_FS_MAKE_SOCK | LANDLOCK_ACCESS_FS_MAKE_FIFO |
                                 LANDLOCK_ACCESS_FS_MAKE_BLOCK | LANDLOCK_ACCESS_FS_MAKE_SYM | LANDLOCK_ACCESS_FS_REFER;
    return version > OLDEST_VERSION ? rights | TRUNCATE : rights;
}

[[noreturn]] void fail(const fs::path& path) {
    throw Error::ofSystem(path, "cannot confine the application here (--no-sandbox leaves it free)");
}

}  // namespace

bool confineWritingTo(const std::vector<fs::path>& folders) {
    const long version = ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (version < OLDEST_VERSION) {
        return false;
    }
    landlock_ruleset_attr attributes = {};
    attributes.handled_access_fs = writingRights(version);
    const Descriptor rules(static_cast<int>(::syscall(SYS_landlock_create_ruleset, &attributes, sizeof attributes, 0)));
    if (!rules.isOpen()) {
        fail("Landlock");
    }
    for (const fs::path& folder : folders) {
        const Descriptor place = openFile(folder, O_PATH);
        landlock_path_beneath_attr below = {};
        below.allowed_access = attributes.handled_access_fs;
        below.parent_fd = place.get();
        if (::syscall(SYS_landlock_add_rule, rules.get(), LANDLOCK_RULE_PATH_BENEATH, &below, 0) != 0) {
            fail(folder);
        }
    }
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || ::syscall(SYS_landlock_restrict_self, rules.get(), 0) != 0) {
        fail("Landlock");
    }
    return true;
}

}  // namespace sim
