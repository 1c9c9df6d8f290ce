// A path that the application hands over.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "simulator/base/Descriptor.h"
#include "simulator/base/Error.h"

namespace sim {

// The application's folders below the TV home, for its data and for temporary files: all that it may write to.
std::vector<std::filesystem::path> foldersOfApplication(const std::filesystem::path& home);

// Leads to a place in the application's own folders, and never out of them: no step may be a link. The application may
// have made links or moved folders, but waits for the answer to its call, so that nothing changes meanwhile.
class OwnPath {
public:
    // Opens the folder that the path is in. Throws Error if it is not below the folders of the application.
    OwnPath(const std::filesystem::path& home, const std::filesystem::path& path);

    // The path as it was handed over.
    const std::filesystem::path& shown() const { return m_shown; }

    // Does not follow a link.
    bool isRegularFile() const;
    bool isFolder() const;

    // Throws Error unless it is a regular file.
    const OwnPath& requireRegularFile() const;

    // Passes a path to it that is valid during the call. An Error that this throws names the path as it was handed
    // over.
    template <typename Action>
    auto use(Action action) const {
        try {
            return action(reachable());
        } catch (const Error& error) {
            throw Error(error.kind(), readable(error.what()));
        }
    }

    // Such a path, as long as this object lives.
    std::filesystem::path reachable() const;

private:
    std::string readable(std::string message) const;

    std::filesystem::path m_shown;
    Descriptor m_folder;
};

}  // namespace sim
