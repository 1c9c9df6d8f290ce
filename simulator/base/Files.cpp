#include "simulator/base/Files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
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

// Of a folder in which something has just been put in place: there it is, whatever the disk says, and so must what is
// answered.
void syncNames(const fs::path& folder) {
    try {
        sync(folder);
    } catch (const Error&) {
    }
}

void syncTree(const fs::path& path) {
    for (const fs::path& member : membersOf(path)) {
        syncTree(member);
    }
    sync(path);
}

// A scratch folder has a name of this prefix and six hexadecimal digits. Its mark is its mode, which no folder has by
// chance, and which it has from the moment it is made to the moment it is gone.
constexpr std::string_view SCRATCH_PREFIX = "halcyon-building-";
constexpr std::size_t SCRATCH_DIGITS = 6;
constexpr mode_t SCRATCH_MODE = S_IRWXU | S_ISVTX;

// The descriptor that holds a folder's lock; -1 when somebody else holds it, or it is gone.
int lock(const fs::path& folder) {
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0 && ::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        ::close(descriptor);
        return -1;
    }
    return descriptor;
}

fs::path makeScratch(const fs::path& parent) {
    static thread_local std::random_device random;
    for (;;) {
        fs::path path = parent / fmt::format("{}{:0{}x}", SCRATCH_PREFIX, random() & 0xFFFFFFU, SCRATCH_DIGITS);
        if (::mkdir(path.c_str(), SCRATCH_MODE) == 0) {
            return path;
        }
        if (errno != EEXIST) {
            fail("cannot make a folder in", parent, errno);
        }
    }
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

bool isScratch(const fs::path& folder) {
    const std::string name = folder.filename();
    struct stat status = {};
    return name.size() == SCRATCH_PREFIX.size() + SCRATCH_DIGITS &&
           name.compare(0, SCRATCH_PREFIX.size(), SCRATCH_PREFIX) == 0 &&
           name.find_first_not_of("0123456789abcdef", SCRATCH_PREFIX.size()) == std::string::npos &&
           ::lstat(folder.c_str(), &status) == 0 && status.st_mode == (S_IFDIR | SCRATCH_MODE) &&
           status.st_uid == ::geteuid();
}

void onDiskStep(std::function<void()> hook) {
    diskStepHook() = std::move(hook);
}

std::string readFile(const fs::path& path) {
    std::error_code ignored;
    if (fs::is_directory(path, ignored)) {
        fail("cannot read", path, EISDIR);
    }
    std::ifstream file(path, std::ios::binary);
    std::string text;
    std::array<char, 65536> buffer;
    while (file.read(buffer.data(), buffer.size()) || file.gcount() > 0) {
        text.append(buffer.data(), static_cast<std::size_t>(file.gcount()));
    }
    if (!file.eof()) {
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
    syncNames(target.parent_path());
    return true;
}

void exchange(const fs::path& one, const fs::path& other) {
    syncTree(one);
    diskStep();
    if (::syscall(SYS_renameat2, AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE) != 0) {
        fail("cannot exchange", other, errno);
    }
    diskStep();
    syncNames(other.parent_path());
}

// A folder belongs to who holds its lock, and to nobody after a kill. Who makes one may lose it to another process
// before it holds the lock, and then makes another.
ScratchFolder::ScratchFolder(const fs::path& parent) {
    makeFolders(parent);
    removeAbandoned(parent);
    std::error_code ignored;
    do {
        release();
        m_path = makeScratch(parent);
        m_lock = lock(m_path);
    } while (m_lock < 0 || !fs::exists(m_path, ignored));
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
    release();
}

void ScratchFolder::release() {
    if (m_lock >= 0) {
        ::close(m_lock);
        m_lock = -1;
    }
}

}  // namespace sim
