// The CI module's own files: a folder that changes as a whole.
#pragma once

#include <filesystem>
#include <list>
#include <map>
#include <string>

namespace sim {

class CiFiles {
public:
    explicit CiFiles(std::filesystem::path folder) : m_folder(std::move(folder)) {}

    // These throw Error if they fail.
    void create(const std::map<std::string, std::string>& contents) const;  // by name
    std::map<std::string, std::string> digests() const;                     // SHA-256 by name: a file may be large
    std::list<std::string> paths() const;                                   // absolute, in the order of their names

    // Copies the files in, over those of the same names; the others stay. Returns false, with nothing changed, if one
    // of the paths is no regular file, or the folder could not be put in place.
    bool takeOver(const std::list<std::string>& paths) const;

private:
    std::filesystem::path m_folder;
};

}  // namespace sim
