#include "simulator/device/OwnPath.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace sim {

namespace {

Descriptor openFolder(int parent, const fs::path& step, const fs::path& shown) {
    Descriptor folder(::openat(parent, step.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!folder.isOpen()) {
        throw Error::ofSystem(shown, "cannot be reached");
    }
    return folder;
}

// One step after the other: unlike openat2(), every kernel and emulator can do that.
Descriptor openFolderOf(const fs::path& home, const fs::path& shown) {
    // '..' is taken out of the text. The kernel would come to the same place, because no step is a link.
    const fs::path path = shown.lexically_normal();
    for (const fs::path& own : foldersOfApplication(home)) {
        const fs::path below = path.parent_path().lexically_relative(own);
        if (below.empty() || *below.begin() == "..") {
            continue;
        }
        Descriptor folder = openFolder(AT_FDCWD, own, shown);
        for (const fs::path& step : below) {
            folder = openFolder(folder.get(), step, shown);
        }
        return folder;
    }
    throw Error(fmt::format("{}: is not in a folder of the application", shown.string()));
}

// The kernel resolves this to the folder that was opened, whatever stands at its former path.
std::string placeOf(const Descriptor& folder) {
    return fmt::format("/proc/self/fd/{}", folder.get());
}

mode_t kindOf(const Descriptor& folder, const fs::path& name) {
    struct stat status = {};
    return ::fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 ? status.st_mode & S_IFMT : 0;
}

}  // namespace

std::vector<fs::path> foldersOfApplication(const fs::path& home) {
    return {home / "apps", home / "tmp"};
}

OwnPath::OwnPath(const fs::path& home, const fs::path& path)
    // A folder may be handed over with a slash at its end.
    : m_shown(path.has_filename() ? path : path.parent_path()), m_folder(openFolderOf(home, m_shown)) {}

bool OwnPath::isRegularFile() const {
    return kindOf(m_folder, m_shown.filename()) == S_IFREG;
}

bool OwnPath::isFolder() const {
    return kindOf(m_folder, m_shown.filename()) == S_IFDIR;
}

const OwnPath& OwnPath::requireRegularFile() const {
    if (!isRegularFile()) {
        throw Error(Error::Kind::Missing, fmt::format("{}: is no regular file", m_shown.string()));
    }
    return *this;
}

fs::path OwnPath::reachable() const {
    return placeOf(m_folder) / m_shown.filename();
}

std::string OwnPath::readable(std::string message) const {
    const std::string place = placeOf(m_folder) + "/";
    for (std::size_t at = message.find(place); at != std::string::npos; at = message.find(place)) {
        message.replace(at, place.size(), m_shown.parent_path().string() + "/");
    }
    return message;
}

}  // namespace sim
