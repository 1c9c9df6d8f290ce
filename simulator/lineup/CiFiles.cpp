#include "simulator/lineup/CiFiles.h"

#include <fmt/format.h>

#include "simulator/base/Digest.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Limits.h"

namespace fs = std::filesystem;

namespace sim {

void CiFiles::create(const std::map<std::string, std::string>& contents) const {
    makeFolders(m_folder);
    for (const auto& [name, content] : contents) {
        writeFile(m_folder / name, content);
    }
}

// The TV may be another user's: a link could lead anywhere, and a file be endless.
std::map<std::string, std::string> CiFiles::digests() const {
    std::map<std::string, std::string> digests;
    std::uint64_t bytes = 0;
    for (const std::string& path : paths()) {
        std::error_code ignored;
        if (fs::is_symlink(path, ignored)) {
            throw Error(Error::Kind::Damaged, fmt::format("{}: a link, not a file", path));
        }
        bytes += isRegularFile(path) ? sizeOf(path) : 0;
        limits::require(fmt::format("{}: bytes of all CI files", m_folder.string()), bytes, limits::ENTRY_BYTES);
        digests.emplace(fs::path(path).filename(), digestOf(path));
    }
    return digests;
}

std::list<std::string> CiFiles::paths() const {
    if (!isFolder(m_folder)) {
        throw Error(Error::Kind::Missing, fmt::format("{}: the CI module's folder is not there", m_folder.string()));
    }
    std::list<std::string> paths;
    for (const fs::path& member : membersOf(m_folder)) {
        paths.push_back(absolutePath(member));
    }
    return paths;
}

bool CiFiles::takeOver(const std::list<std::string>& paths) const {
    try {
        // Built beside the folder, as a rename cannot cross file systems. After the exchange, the old files are in the
        // scratch folder, and go with it.
        const ScratchFolder scratch(m_folder.parent_path());
        const fs::path built = scratch / "ci";
        makeFolders(built);
        // The new ones come second, and replace those of their name.
        for (const std::string& path : this->paths()) {
            copyFile(path, built / fs::path(path).filename());
        }
        for (const std::string& path : paths) {
            if (!isRegularFile(path)) {
                return false;
            }
            copyFile(path, built / fs::path(path).filename());
        }
        copyPermissions(m_folder, built);
        exchange(built, m_folder);
    } catch (const Error&) {
        return false;
    }
    return true;
}

}  // namespace sim
