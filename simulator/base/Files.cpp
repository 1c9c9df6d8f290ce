#include "simulator/base/Files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string_view>
#include <system_error>
#include <utility>

#include "simulator/base/Error.h"

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

[[noreturn]] void fail(const char* what, const fs::path& path, int error) {
    throw Error(kindOfErrno(error), fmt::format("{}: {}: {}", path.string(), what, std::strerror(error)));
}

void check(const char* what, const fs::path& path, const std::error_code& error) {
    if (error) {
        fail(what, path, error.value());
    }
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
    for (const fs::path& member : membersOf(path)) {
        syncTree(member);
    }
    sync(path);
}

constexpr std::string_view SCRATCH_PREFIX = "halcyon-building-";
constexpr char SCRATCH_RANDOM[] = "XXXXXX";
constexpr char SCRATCH_MARK[] = ".halcyon-building";

// The descriptor that holds a folder's lock; -1 when somebody else holds it, or it is gone.
int lock(const fs::path& folder) {
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0 && ::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        ::close(descriptor);
        return -1;
    }
    return descriptor;
}

bool isScratch(const fs::path& folder) {
    const std::string name = folder.filename();
    std::error_code ignored;
    return name.size() == SCRATCH_PREFIX.size() + sizeof SCRATCH_RANDOM - 1 &&
           name.compare(0, SCRATCH_PREFIX.size(), SCRATCH_PREFIX) == 0 &&
           fs::is_directory(fs::symlink_status(folder, ignored)) &&
           fs::is_regular_file(fs::symlink_status(folder / SCRATCH_MARK, ignored));
}

void removeAbandoned(const fs::path& parent) {
    for (const fs::path& member : membersOf(parent)) {
        const int held = isScratch(member) ? lock(member) : -1;
        if (held >= 0) {
            std::error_code ignored;
            fs::remove_all(member, ignored);
            ::close(held);
        }
    }
}

}  // namespace

void onDiskStep(std::function<void()> hook) {
    diskStepHook() = std::move(hook);
}

std::string readFile(const fs::path& path) {
    std::error_code ignored;
    if (fs::is_directory(path, ignored)) {
        fail("cannot read", path, EISDIR);
    }
    std::ifstream file(path, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (!file.is_open() || file.bad()) {
        fail("cannot read", path, errno);
    }
    return text;
}

std::uint64_t sizeOf(const fs::path& path) {
    std::error_code error;
    const std::uintmax_t size = fs::file_size(path, error);
    check("cannot read", path, error);
    return size;
}

std::vector<fs::path> membersOf(const fs::path& folder) {
    std::vector<fs::path> members;
    std::error_code error;
    if (!fs::is_directory(folder, error)) {
        return members;
    }
    for (auto member = fs::directory_iterator(folder, error); !error && member != fs::directory_iterator();
         member.increment(error)) {
        members.push_back(member->path());
    }
    check("cannot read", folder, error);
    std::sort(members.begin(), members.end());
    return members;
}

void makeFolders(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    check("cannot make the folder", folder, error);
}

void makePrivateFolder(const fs::path& folder) {
    makeFolders(folder.parent_path());
    if (::mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        fail("cannot make the folder", folder, errno);
    }
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
    std::error_code error;
    fs::copy_file(from, to, fs::copy_options::overwrite_existing, error);
    if (error) {
        throw Error(kindOfErrno(error.value()),
                    fmt::format("{}: cannot copy to {}: {}", from.string(), to.string(), error.message()));
    }
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

// A folder belongs to who holds its lock, and to nobody after a kill. Nobody removes it before it has its mark, and
// then it is locked.
ScratchFolder::ScratchFolder(const fs::path& parent) {
    makeFolders(parent);
    removeAbandoned(parent);
    std::string name = parent / fmt::format("{}{}", SCRATCH_PREFIX, SCRATCH_RANDOM);
    if (::mkdtemp(name.data()) == nullptr) {
        fail("cannot make a folder in", parent, errno);
    }
    m_path = name;
    m_lock = lock(m_path);
    if (m_lock < 0 || !std::ofstream(m_path / SCRATCH_MARK).is_open()) {
        const int error = errno;
        removeAll();
        fail("cannot make a file in", m_path, error);
    }
}

ScratchFolder::~ScratchFolder() {
    removeAll();
}

void ScratchFolder::removeAll() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
    if (m_lock >= 0) {
        ::close(m_lock);
    }
}

}  // namespace sim
