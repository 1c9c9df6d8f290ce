#include "FileUtil.h"

#include <cstdint>
#include <filesystem>
#include <system_error>

#include "Log.h"

namespace fs = std::filesystem;

CFileUtil::CFileUtil() = default;

CFileUtil::~CFileUtil() = default;

bool CFileUtil::Remove(const std::string& path) {
    std::error_code error;
    if (!fs::remove(path, error)) {  // a missing path fails without an error: [0][Success]
        LOG_AT(__func__, 69, FAILURE, "remove(%s) fail [%d][%s]", path.c_str(), error.value(), error.message().c_str());
        return false;
    }
    LOG_AT(__func__, 65, PROGRESS, "remove(%s) success", path.c_str());
    return true;
}

bool CFileUtil::RemoveAll(const std::string& path) {
    std::error_code error;
    // The count alone decides, deliberately: a tree that is gone in part is reported as removed.
    const std::uintmax_t count = fs::remove_all(path, error);
    if (count == 0) {
        LOG_AT(__func__, 54, FAILURE, "remove_all(%s) fail [%d][%s]", path.c_str(), error.value(),
               error.message().c_str());
        return false;
    }
    LOG_AT(__func__, 50, PROGRESS, "remove_all(%s) success", path.c_str());
    return true;
}

bool CFileUtil::CreateDirectories(const std::string& folder) {
    if (fs::is_directory(fs::status(folder))) {
        return true;
    }
    std::error_code error;
    // Only the folder itself is opened below: those above it keep the mode that the umask gives them.
    if (!fs::create_directories(folder, error)) {
        LOG_AT(__func__, 27, FAILURE, "create_directories(%s) fail [%d][%s]", folder.c_str(), error.value(),
               error.message().c_str());
        return false;
    }
    LOG_AT(__func__, 32, PROGRESS, "create_directories(%s) success", folder.c_str());

    constexpr unsigned int MODE = 0777;
    fs::permissions(folder, static_cast<fs::perms>(MODE), fs::perm_options::replace, error);
    if (error != std::error_code()) {
        LOG_AT(__func__, 37, FAILURE, "permissions(%s, %o) fail [%d][%s]", folder.c_str(), MODE, error.value(),
               error.message().c_str());
        return false;
    }
    return true;
}

bool CFileUtil::Copy(const std::string& source, const std::string& destinationFolder) {
    std::error_code error;
    if (!fs::is_regular_file(fs::status(source, error))) {
        LOG_AT(__func__, 80, FAILURE, "is_regular_file(%s) fail [%d][%s]", source.c_str(), error.value(),
               error.message().c_str());
        return false;
    }
    const bool folderExisted = fs::is_directory(fs::status(destinationFolder));
    if (!folderExisted && !CreateDirectories(destinationFolder)) {
        return false;
    }
    const fs::path target = fs::path(destinationFolder) / fs::path(source).filename();
    if (!fs::copy_file(source, target, fs::copy_options::overwrite_existing, error)) {
        LOG_AT(__func__, 98, FAILURE, "copy_file(%s, %s) fail [%d][%s]", source.c_str(), target.c_str(), error.value(),
               error.message().c_str());
        if (!folderExisted) {
            RemoveAll(destinationFolder);
        }
        return false;
    }
    LOG_AT(__func__, 94, PROGRESS, "copy_file(%s, %s) success", source.c_str(), target.c_str());
    return true;
}

bool CFileUtil::Move(const std::string& source, const std::string& destinationFolder) {
    // Never renamed: the failure folder may be on another file system.
    if (!Copy(source, destinationFolder)) {
        return false;
    }
    Remove(source);  // the file is where it should be, whatever becomes of the source
    return true;
}
