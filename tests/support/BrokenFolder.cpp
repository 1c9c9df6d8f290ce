#include "tests/support/BrokenFolder.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fmt/format.h>

#include <cerrno>

namespace fs = std::filesystem;

namespace test {

namespace {

fs::path broken;
int entriesLeft = 0;

dirent* nextEntry(DIR* folder, const char* function) {
    if (!broken.empty() && fs::read_symlink(fmt::format("/proc/self/fd/{}", ::dirfd(folder))) == broken) {
        if (entriesLeft == 0) {
            errno = EIO;
            return nullptr;
        }
        --entriesLeft;
    }
    return reinterpret_cast<dirent* (*)(DIR*)>(::dlsym(RTLD_NEXT, function))(folder);
}

}  // namespace

BrokenFolder::BrokenFolder(const fs::path& folder, int most) {
    broken = folder;
    entriesLeft = most;
}

BrokenFolder::~BrokenFolder() {
    broken.clear();
}

}  // namespace test

// These replace the C library's. Which of the two the standard library calls depends on how it was built.
extern "C" {
dirent* readNarrow(DIR* folder) __asm__("readdir");
dirent* readNarrow(DIR* folder) {
    return test::nextEntry(folder, "readdir");
}

dirent* readWide(DIR* folder) __asm__("readdir64");
dirent* readWide(DIR* folder) {
    return test::nextEntry(folder, "readdir64");
}
}
