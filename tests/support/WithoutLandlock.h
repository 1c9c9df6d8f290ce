// A kernel without Landlock.
#pragma once

#include <linux/landlock.h>
#include <seccomp.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <thread>

namespace test {

inline bool hasLandlock() {
    constexpr int OLDEST_VERSION = 2;
    return ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION) >= OLDEST_VERSION;
}

// Does something on a thread, for which, and the programs that it starts, there is none.
inline void withoutLandlock(const std::function<void()>& action) {
    std::thread([&] {
        const scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
        seccomp_rule_add(filter, SCMP_ACT_ERRNO(ENOSYS), SYS_landlock_create_ruleset, 0);
        seccomp_load(filter);
        seccomp_release(filter);
        action();
    }).join();
}

}  // namespace test
