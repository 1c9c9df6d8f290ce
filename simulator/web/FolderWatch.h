// Tells which folders have changed, by inotify: watching costs nothing while nothing happens.
#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <set>
#include <string>

#include "simulator/base/Descriptor.h"

namespace sim {

class FolderWatch {
public:
    FolderWatch();

    // Reports changes of what is directly in a folder under `name` from now on. Does nothing if there is no such
    // folder, or if it is watched already.
    void add(const std::filesystem::path& folder, const std::string& name);

    // Returns the names of the folders that have changed since the last call, after waiting for at most `patience`. If
    // the system has no room for so many watches, it always waits, and returns all names.
    std::set<std::string> wait(std::chrono::milliseconds patience);

private:
    void readEvents(std::set<std::string>& changed);

    Descriptor m_inotify;
    std::map<int, std::set<std::string>> m_names;  // by watch
    std::set<std::string> m_all;
    bool m_isBlind = false;
};

}  // namespace sim
