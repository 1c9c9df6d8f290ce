#include "simulator/base/FolderLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <thread>

namespace sim {

// No system call waits for a lock for a limited time, so this polls.
FolderLock FolderLock::take(const std::filesystem::path& folder, std::chrono::milliseconds patience) {
    constexpr std::chrono::milliseconds POLL_INTERVAL{20};
    for (;; patience -= POLL_INTERVAL) {
        FolderLock lock;
        lock.m_descriptor = openFile(folder, O_RDONLY | O_DIRECTORY);
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
