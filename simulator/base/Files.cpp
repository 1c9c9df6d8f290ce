#include "simulator/base/Files.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <utility>

namespace fs = std::filesystem;

namespace sim {

namespace {

// Inside a function, because it is set before main() where the order of initialisation is open.
std::function<void()>& diskStepHook() {
    static std::function<void()> hook;
    return hook;
}

void diskStep() {
    if (diskStepHook()) {
        diskStepHook()();
    }
}

[[noreturn]] void fail(const std::string& what, const fs::path& path, int error) {
    throw fs::filesystem_error(what, path, std::error_code(error, std::generic_category()));
}

// Waits until a file, or a folder's list of names, is on the disk.
void sync(const fs::path& path) {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        fail("cannot open", path, errno);
    }
    const int error = ::fsync(descriptor) == 0 ? 0 : errno;
    ::close(descriptor);
    if (error != 0) {
        fail("cannot sync", path, error);
    }
}

void syncTree(const fs::path& path) {
    if (fs::is_directory(path)) {
        for (const fs::directory_entry& member : fs::directory_iterator(path)) {
            syncTree(member.path());
        }
    }
    sync(path);
}

constexpr char PREFIX[] = "halcyon-building-";

// The descriptor that holds a folder's lock; -1 when somebody else holds it, or it is gone.
int lock(const fs::path& folder) {
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0 && ::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        ::close(descriptor);
        return -1;
    }
    return descriptor;
}

void removeAbandoned(const fs::path& parent) {
    for (const fs::directory_entry& member : fs::directory_iterator(parent)) {
        if (member.path().filename().string().compare(0, sizeof PREFIX - 1, PREFIX) != 0) {
            continue;
        }
        const int held = lock(member.path());
        if (held >= 0) {
            std::error_code ignored;
            fs::remove_all(member.path(), ignored);
            ::close(held);
        }
    }
}

}  // namespace

void onDiskStep(std::function<void()> hook) {
    diskStepHook() = std::move(hook);
}

std::string readFile(const fs::path& path) {
    if (fs::is_directory(path)) {
        fail("cannot read", path, EISDIR);
    }
    std::ifstream file(path, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (!file.is_open() || file.bad()) {
        fail("cannot read", path, errno);
    }
    return text;
}

void writeFile(const fs::path& path, const std::string& text) {
    diskStep();
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    if (!file) {
        fail("cannot write", path, errno);
    }
    sync(path);
}

void copyFile(const fs::path& from, const fs::path& to) {
    diskStep();
    fs::copy_file(from, to, fs::copy_options::overwrite_existing);
    sync(to);
}

bool putInPlace(const fs::path& built, const fs::path& target) {
    syncTree(built);
    diskStep();
    if (::rename(built.c_str(), target.c_str()) != 0) {
        if (errno == ENOTEMPTY || errno == EEXIST) {
            return false;
        }
        fail("cannot put in place", target, errno);
    }
    diskStep();
    sync(target.parent_path());
    return true;
}

void exchange(const fs::path& one, const fs::path& other) {
    syncTree(one);
    diskStep();
    if (::syscall(SYS_renameat2, AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE) != 0) {
        fail("cannot exchange", other, errno);
    }
    diskStep();
    sync(other.parent_path());
}

// A folder belongs to who holds its lock, and to nobody after a kill.
ScratchFolder::ScratchFolder(const fs::path& parent) {
    fs::create_directories(parent);
    removeAbandoned(parent);
    for (;;) {
        std::string name = parent / (PREFIX + std::string("XXXXXX"));
        if (::mkdtemp(name.data()) == nullptr) {
            fail("cannot make a folder in", parent, errno);
        }
        m_path = name;
        m_lock = lock(m_path);
        if (m_lock >= 0 && fs::exists(m_path)) {
            return;
        }
        if (m_lock >= 0) {
            ::close(m_lock);  // another process took it for an abandoned one
        }
    }
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
    ::close(m_lock);
}

}  // namespace sim
