#include "simulator/tv/Files.h"

#include <fcntl.h>
#include <linux/fs.h>
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

}  // namespace

void onDiskStep(std::function<void()> hook) {
    diskStepHook() = std::move(hook);
}

std::string readFile(const fs::path& path) {
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

ScratchFolder::ScratchFolder(const fs::path& parent) {
    fs::create_directories(parent);
    std::string name = parent / "building-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) {
        fail("cannot make a folder in", parent, errno);
    }
    m_path = name;
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}

}  // namespace sim
