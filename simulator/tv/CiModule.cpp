#include "simulator/tv/CiModule.h"

#include <algorithm>

#include "simulator/base/Files.h"

namespace fs = std::filesystem;

namespace sim {

void CiModule::create(const Files& files) const {
    fs::create_directories(m_folder);
    for (const auto& [name, content] : files) {
        writeFile(m_folder / name, content);
    }
}

CiModule::Files CiModule::files() const {
    Files files;
    for (const std::string& path : paths()) {
        files.emplace(fs::path(path).filename(), readFile(path));
    }
    return files;
}

std::list<std::string> CiModule::paths() const {
    std::list<std::string> paths;
    for (const fs::directory_entry& member : fs::directory_iterator(m_folder)) {
        paths.push_back(fs::absolute(member.path()));
    }
    paths.sort();
    return paths;
}

bool CiModule::takeOver(const std::list<std::string>& paths) const {
    const auto isRegular = [](const std::string& path) { return fs::is_regular_file(path); };
    try {
        if (!std::all_of(paths.begin(), paths.end(), isRegular)) {
            return false;
        }
        const ScratchFolder scratch(m_folder.parent_path());
        for (const std::string& path : this->paths()) {
            copyFile(path, scratch / fs::path(path).filename());
        }
        for (const std::string& path : paths) {
            copyFile(path, scratch / fs::path(path).filename());
        }
        fs::permissions(scratch.path(), fs::status(m_folder).permissions());
        exchange(scratch.path(), m_folder);
    } catch (const fs::filesystem_error&) {
        return false;
    }
    return true;
}

}  // namespace sim
