#include "simulator/base/FolderLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <thread>

#include "simulator/base/Error.h"

namespace sim {

// No system call waits for a lock for a limited time, so this polls.
FolderLock FolderLock::take(const std::filesystem::path& folder, std::chrono::milliseconds patience) {
    constexpr std::chrono::milliseconds POLL_INTERVAL{20};
    for (;; patience -= POLL_INTERVAL) {
        FolderLock lock;
        lock.m_descriptor = Descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!lock.isHeld() && errno != ENOENT) {
            throw Error::ofSystem(folder, "cannot read");
        }
        // The folder may have been replaced by another since it was opened.
        if (::flock(lock.descriptor(), LOCK_EX | LOCK_NB) == 0 && isOf(folder, lock.descriptor())) {
            return lock;
        }
        if (patience <= std::chrono::milliseconds::zero()) {
            return {};
        }
        std::this_thread::sleep_for(POLL_INTERVAL);
    }
}

bool FolderLock::isOf(const std::filesystem::path& folder, int descriptor) {
    struct stat named = {};
    struct stat opened = {};
    return ::stat(folder.c_str(), &named) == 0 && ::fstat(descriptor, &opened) == 0 && named.st_dev == opened.st_dev &&
           named.st_ino == opened.st_ino;
}

}  // namespace sim
