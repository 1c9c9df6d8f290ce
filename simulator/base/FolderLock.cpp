#include "simulator/base/FolderLock.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>
#include <utility>

#include "simulator/base/Error.h"

namespace sim {

FolderLock::FolderLock(FolderLock&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}

FolderLock& FolderLock::operator=(FolderLock&& other) noexcept {
    std::swap(m_descriptor, other.m_descriptor);
    return *this;
}

FolderLock::~FolderLock() {
    if (isHeld()) {
        ::close(m_descriptor);
    }
}

// There is no system call that waits for a lock for a while, so it is asked for again and again.
FolderLock FolderLock::take(const std::filesystem::path& folder, std::chrono::milliseconds patience) {
    constexpr std::chrono::milliseconds BETWEEN{20};
    for (;; patience -= BETWEEN) {
        FolderLock lock;
        lock.m_descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (!lock.isHeld()) {
            throw Error(kindOfErrno(errno), fmt::format("{}: cannot open: {}", folder.string(), std::strerror(errno)));
        }
        // The folder may have been replaced by another since it was opened.
        if (::flock(lock.m_descriptor, LOCK_EX | LOCK_NB) == 0 && isOf(folder, lock.m_descriptor)) {
            return lock;
        }
        if (patience <= std::chrono::milliseconds::zero()) {
            return {};
        }
        std::this_thread::sleep_for(BETWEEN);
    }
}

bool FolderLock::isOf(const std::filesystem::path& folder, int descriptor) {
    struct stat one = {};
    struct stat other = {};
    return ::stat(folder.c_str(), &one) == 0 && ::fstat(descriptor, &other) == 0 && one.st_dev == other.st_dev &&
           one.st_ino == other.st_ino;
}

}  // namespace sim
