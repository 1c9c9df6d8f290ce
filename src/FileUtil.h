// File-system operations with logged outcomes.
#pragma once

#include <string>

// Each operation logs its outcome, and returns false if it failed. CreateDirectories() and Copy() follow links, and
// throw std::filesystem::filesystem_error if they cannot tell whether a folder is there.
class CFileUtil {
public:
    CFileUtil();
    virtual ~CFileUtil();

    // Removes one file or empty folder. A missing path is a failure.
    static bool Remove(const std::string& path);

    // Removes a file, or a folder with all that it holds. True if anything at all was removed.
    static bool RemoveAll(const std::string& path);

    // Makes a folder and those above it that are missing. The folder itself, if it is new, is opened to everybody (mode
    // 0777, whatever the umask). True if the folder was there, or is there now with that mode.
    static bool CreateDirectories(const std::string& folder);

    // Copies one regular file into a folder under its own name, over a file that is there. A missing folder is made,
    // and taken away again if the copy then fails; in a folder that was there, a file that was copied in part stays.
    static bool Copy(const std::string& source, const std::string& destinationFolder);

    // Copies the file, then removes the source. True if the copy succeeded, even if the source stays.
    static bool Move(const std::string& source, const std::string& destinationFolder);
};
