// File-system operations with logged outcomes.
#pragma once

#include <string>

// Each operation logs what became of it, and returns false when it failed. A status query that fails for another reason
// than a missing path leaves CreateDirectories() and Copy() as a std::filesystem::filesystem_error.
class CFileUtil {
public:
    CFileUtil();
    virtual ~CFileUtil();

    // Removes one file or empty folder. A missing path is a failure.
    static bool Remove(const std::string& path);

    // Removes a file, or a folder with all that it holds. True when anything at all was removed.
    static bool RemoveAll(const std::string& path);

    // Makes a folder and those above it that are missing. The folder itself, when it is new, is opened to everybody
    // (mode 0777, whatever the umask). True when the folder is there afterwards with its mode set.
    static bool CreateDirectories(const std::string& folder);

    // Copies one regular file into a folder under its own name, over a file that is there. The folder is made when it
    // is missing, and taken away again when the copy then fails.
    static bool Copy(const std::string& source, const std::string& destinationFolder);

    // Copies the file, then removes the source. True when the copy succeeded, even if the source stays.
    static bool Move(const std::string& source, const std::string& destinationFolder);
};
