#include "simulator/base/Files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <random>
#include <string_view>
#include <system_error>
#include <utility>

#include "simulator/base/Error.h"
#include "simulator/base/Limits.h"
#include "simulator/base/LineSplitter.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

// Inside a function: it is set before main(), when a static object of this file may not be initialised yet.
std::function<void()>& diskStepHook() {
    static std::function<void()> hook;
    return hook;
}

void diskStep() {
    if (diskStepHook()) {
        diskStepHook()();
    }
}

void check(const char* what, const fs::path& path, const std::error_code& error) {
    if (error) {
        throw Error::ofSystem(path, what, error.value());
    }
}

void sync(const Descriptor& descriptor, const fs::path& path) {
    if (::fsync(descriptor.get()) != 0) {
        throw Error::ofSystem(path, "cannot sync");
    }
}

// Waits until a file, or a folder's list of names, is on the disk.
void sync(const fs::path& path) {
    sync(openFile(path, O_RDONLY), path);
}

// The rename in this folder is visible already, so a failure to sync it must not be reported as a failed rename.
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

// Returns the error number of the rename, or 0.
int renameDurably(const fs::path& built, const fs::path& target, unsigned flags) {
    // First: a power cut could otherwise leave the name with a file that is still empty.
    syncTree(built);
    diskStep();
    if (::renameat2(AT_FDCWD, built.c_str(), AT_FDCWD, target.c_str(), flags) != 0) {
        return errno;
    }
    diskStep();
    syncNames(target.parent_path());
    return 0;
}

void forEachBlockOf(const Descriptor& file, const fs::path& path, const std::function<void(std::string_view)>& take) {
    std::array<char, 65536> buffer;
    ssize_t count = 0;
    while ((count = ::read(file.get(), buffer.data(), buffer.size())) > 0) {
        take({buffer.data(), static_cast<std::size_t>(count)});
    }
    if (count < 0) {
        throw Error::ofSystem(path, "cannot read");
    }
}

// A scratch folder is named by this prefix and six hexadecimal digits. Its mark is its mode, which no folder has by
// chance, and which it has from mkdir() on.
constexpr std::string_view SCRATCH_PREFIX = "halcyon-building-";
constexpr std::size_t SCRATCH_DIGITS = 6;
constexpr mode_t SCRATCH_MODE = S_IRWXU | S_ISVTX;

fs::path makeScratch(const fs::path& parent) {
    static thread_local std::random_device random;
    for (;;) {
        fs::path path = parent / fmt::format("{}{:0{}x}", SCRATCH_PREFIX, random() & 0xFFFFFFU, SCRATCH_DIGITS);
        if (::mkdir(path.c_str(), SCRATCH_MODE) == 0) {
            return path;
        }
        if (errno != EEXIST) {
            throw Error::ofSystem(parent, "cannot make a folder there");
        }
    }
}

void removeAbandoned(const fs::path& parent) {
    for (const fs::path& member : membersOf(parent)) {
        // Who builds something holds the lock of its folder.
        const FolderLock lock = isScratch(member) ? FolderLock::take(member) : FolderLock();
        if (lock.isHeld()) {
            std::error_code ignored;
            fs::remove_all(member, ignored);
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

bool pathExists(const fs::path& path) {
    std::error_code ignored;
    return fs::exists(path, ignored);
}

bool isFolder(const fs::path& path) {
    std::error_code ignored;
    return fs::is_directory(path, ignored);
}

bool isRegularFile(const fs::path& path) {
    std::error_code ignored;
    return fs::is_regular_file(path, ignored);
}

bool removeFile(const fs::path& path) {
    return ::unlink(path.c_str()) == 0;
}

void removeTree(const fs::path& path) {
    std::error_code ignored;
    fs::remove_all(path, ignored);
}

void forEachBlock(const fs::path& path, const std::function<void(std::string_view)>& take) {
    forEachBlockOf(openRegularFile(path), path, take);
}

void forEachPiece(const fs::path& path, const std::function<void(std::string_view)>& take) {
    forEachBlockOf(openFile(path, O_RDONLY), path, take);
}

void forEachLine(const fs::path& path, const std::function<void(std::string_view)>& take, std::size_t maxBytes) {
    LineSplitter splitter(path.string(), maxBytes, take);
    forEachPiece(path, [&](std::string_view piece) { splitter.add(piece); });
    splitter.finish();
}

std::string readFile(const fs::path& path, std::uint64_t maxBytes) {
    std::string text;
    forEachBlock(path, [&](std::string_view block) {
        text += block;
        if (text.size() > maxBytes) {
            limits::require(path.string() + ": bytes", text.size(), maxBytes);
        }
    });
    return text;
}

std::uint64_t sizeOf(const fs::path& path) {
    std::error_code error;
    const std::uintmax_t size = fs::file_size(path, error);
    check("cannot read", path, error);
    return size;
}

fs::path absolutePath(const fs::path& path) {
    std::error_code error;
    fs::path absolute = fs::absolute(path, error);
    check("cannot find the present folder for", path, error);
    return absolute;
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
    // File systems list names in any order; what is made of them shall be the same each time.
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
        throw Error::ofSystem(folder, "cannot make the folder");
    }
}

void writeFile(const fs::path& path, const std::string& text) {
    diskStep();
    const Descriptor file = openFile(path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    writeAll(file, text, path);
    sync(file, path);
}

void copyFile(const fs::path& from, const fs::path& to) {
    diskStep();
    std::error_code error;
    fs::copy_file(from, to, fs::copy_options::overwrite_existing, error);
    if (error) {
        throw Error::ofSystem(from, fmt::format("cannot copy to {}", to.string()), error.value());
    }
    sync(to);
}

void copyQuickly(const fs::path& from, const fs::path& to) {
    std::error_code error;
    if (!fs::copy_file(from, to, error)) {
        throw Error::ofSystem(to, "cannot copy", error.value());
    }
}

void linkFile(const fs::path& from, const fs::path& to) {
    std::error_code error;
    fs::create_hard_link(from, to, error);
    if (error) {
        copyFile(from, to);
    }
}

void copyFolder(const fs::path& from, const fs::path& to, const FileCopy& copy) {
    if (!isFolder(from)) {
        return;
    }
    makePrivateFolder(to);
    for (const fs::path& member : membersOf(from)) {
        const fs::path target = to / member.filename();
        std::error_code ignored;
        if (fs::is_symlink(member, ignored)) {
            // Not followed: the application may have made it, and it could lead anywhere.
            fs::copy_symlink(member, target, ignored);
        } else if (isFolder(member)) {
            copyFolder(member, target, copy);
        } else if (isRegularFile(member)) {
            copy(member, target);
        }
    }
    // Last, as nothing could be put into a folder that is read-only.
    copyPermissions(from, to);
}

void copyPermissions(const fs::path& from, const fs::path& to) {
    std::error_code error;
    const fs::perms permissions = fs::status(from, error).permissions();
    check("cannot read", from, error);
    fs::permissions(to, permissions, error);
    check("cannot set the permissions of", to, error);
}

bool putInPlace(const fs::path& built, const fs::path& target) {
    const int error = renameDurably(built, target, 0);
    // File systems may answer either.
    if (error == ENOTEMPTY || error == EEXIST) {
        return false;
    }
    if (error != 0) {
        throw Error::ofSystem(target, "cannot put in place", error);
    }
    return true;
}

void exchange(const fs::path& built, const fs::path& target) {
    if (const int error = renameDurably(built, target, RENAME_EXCHANGE); error != 0) {
        throw Error::ofSystem(target, "cannot exchange", error);
    }
}

// The error is none of a single place: its kind would say that a file of the caller is missing.
ScratchFolder::ScratchFolder() {
    std::string failures;
    std::error_code notThere;
    for (const fs::path& place :
         {fs::temp_directory_path(notThere), fs::path("/tmp"), fs::path("/var/tmp"), fs::path("/dev/shm")}) {
        try {
            if (isFolder(place)) {
                make(place);
                return;
            }
        } catch (const Error& error) {
            failures += fmt::format("; {}", error.what());
        }
    }
    throw Error(fmt::format("no folder for temporary files; set TMPDIR to one that can be written{}", failures));
}

ScratchFolder::ScratchFolder(const fs::path& parent) {
    makeFolders(parent);
    make(parent);
}

// The lock tells a folder in use from one that a killed process has left. Another process may remove the new folder
// before it is locked.
void ScratchFolder::make(const fs::path& parent) {
    removeAbandoned(parent);
    do {
        m_path = makeScratch(parent);
        try {
            m_lock = FolderLock::take(m_path);
        } catch (const Error&) {
            ::rmdir(m_path.c_str());
            throw;
        }
    } while (!m_lock.isHeld());
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}

}  // namespace sim
