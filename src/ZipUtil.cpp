#include "ZipUtil.h"

#include <minizip/unzip.h>
#include <minizip/zip.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "FileUtil.h"
#include "Log.h"

namespace fs = std::filesystem;

namespace {

using Buffer = std::array<char, 512>;

std::string EntryName(const std::string& entryPath, const std::string& baseFolder) {
    std::string name = entryPath;
    if (name.find(baseFolder) == std::string::npos) {
        LOG_AT("m_CreateZipFile", 79, FAILURE, "Cannot find parent directory[%s] in [%s]", baseFolder.c_str(),
               name.c_str());
        return fs::path(entryPath).filename().string();
    }
    // From the front, wherever the folder was found: the path of a member begins with it.
    return name.erase(0, baseFolder.size());
}

// Copies a file into the entry that is open. A read error ends the entry as the end of the file does.
bool WriteEntry(zipFile zip, std::ifstream& file, const std::string& entryPath) {
    Buffer buffer;
    for (;;) {
        file.read(buffer.data(), buffer.size());
        const std::streamsize count = file.gcount();
        if (file.fail() && count == 0) {
            return true;
        }
        if (zipWriteInFileInZip(zip, buffer.data(), static_cast<unsigned int>(count)) != ZIP_OK) {
            LOG_AT("m_CreateZipFile", 110, FAILURE, "failed when archiving %s", entryPath.c_str());
            return false;
        }
    }
}

// Adds one file to the archive, read through the given stream. When it fails, the entry may be left open: closing the
// archive finishes it.
bool AddFile(zipFile zip, std::ifstream& file, const std::string& entryPath, const std::string& name) {
    LOG_AT("m_CreateZipFile", 87, PROGRESS, "File to zip=[%s]", name.c_str());
    if (zipOpenNewFileInZip64(zip, name.c_str(), nullptr, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED,
                              Z_DEFAULT_COMPRESSION, 0) != ZIP_OK) {
        LOG_AT("m_CreateZipFile", 90, FAILURE, "zipOpenNewFileInZip64 fail %s", name.c_str());
        return false;
    }
    file.open(entryPath, std::ios::binary);
    if (!file) {
        LOG_AT("m_CreateZipFile", 99, FAILURE, "Cannot open %s for archiving.", entryPath.c_str());
        return false;
    }
    LOG_AT("m_CreateZipFile", 102, PROGRESS, "Read file [%s]", entryPath.c_str());
    if (!WriteEntry(zip, file, entryPath)) {
        return false;
    }
    if (zipCloseFileInZip(zip) != ZIP_OK) {
        LOG_AT("m_CreateZipFile", 117, FAILURE, "cannot close %s in archive", entryPath.c_str());
        return false;
    }
    file.close();
    return true;
}

bool CloseArchive(zipFile zip) {
    if (zipClose(zip, nullptr) != ZIP_OK) {
        LOG_AT("CreateZipFile", 47, FAILURE, "zipClose fail");
        return false;
    }
    return true;
}

// Copies the open entry of `size` bytes into a file. To make a stream around its buffer costs as much as a small entry.
bool ReadEntry(unzFile zip, std::uint64_t size, std::filebuf& file, const char* name, const std::string& zipPath) {
    Buffer buffer;
    for (std::uint64_t remaining = size; remaining != 0;) {
        const auto request = static_cast<unsigned int>(std::min<std::uint64_t>(remaining, buffer.size()));
        const int count = unzReadCurrentFile(zip, buffer.data(), request);
        if (count < 0) {
            LOG_AT("UnzipFile", 211, FAILURE, "error while decompressing file %s from %s", name, zipPath.c_str());
            return false;
        }
        if (count == 0) {
            LOG_AT("UnzipFile", 217, FAILURE, "EOF while decompressing file %s from %s", name, zipPath.c_str());
            return false;
        }
        if (file.sputn(buffer.data(), count) != count) {
            LOG_AT("UnzipFile", 224, FAILURE, "error while writing file %s from %s", name, zipPath.c_str());
            return false;
        }
        remaining -= static_cast<std::uint64_t>(count);
    }
    return true;
}

// Extracts the current entry and moves on to the next one. An entry whose successor cannot be reached is complete, yet
// not reported as extracted.
bool ExtractEntry(unzFile zip, bool last, const std::string& zipPath, const fs::path& destinationFolder) {
    unz_file_info64 info;
    std::array<char, 256> name;
    if (unzGetCurrentFileInfo64(zip, &info, name.data(), name.size(), nullptr, 0, nullptr, 0) != UNZ_OK) {
        LOG_AT("UnzipFile", 178, FAILURE, "error while reading file info from %s", zipPath.c_str());
        return false;
    }
    name.back() = '\0';  // minizip does not terminate a name that fills the buffer
    if (unzOpenCurrentFilePassword(zip, nullptr) != UNZ_OK) {
        LOG_AT("UnzipFile", 186, FAILURE, "error while opening file from %s", zipPath.c_str());
        return false;
    }

    const fs::path outputPath = destinationFolder / name.data();
    CFileUtil::CreateDirectories(outputPath.parent_path().string());  // if it fails, so does the open
    std::filebuf file;
    if (file.open(outputPath, std::ios::out | std::ios::binary | std::ios::trunc) == nullptr) {
        LOG_AT("UnzipFile", 197, FAILURE, "cannot extract %s [%s] on %s", outputPath.c_str(), name.data(),
               destinationFolder.c_str());
        return false;
    }
    if (!ReadEntry(zip, info.uncompressed_size, file, name.data(), zipPath)) {
        return false;
    }
    if (unzCloseCurrentFile(zip) != UNZ_OK) {
        LOG_AT("UnzipFile", 233, FAILURE, "error while closing file %s from %s", name.data(), zipPath.c_str());
        return false;
    }
    if (!last && unzGoToNextFile(zip) != UNZ_OK) {
        LOG_AT("UnzipFile", 242, FAILURE, "error while moving to next file from %s", zipPath.c_str());
        return false;
    }
    LOG_AT("UnzipFile", 246, PROGRESS, "extracted file %s from %s", name.data(), zipPath.c_str());
    return true;
}

}  // namespace

CZipUtil::CZipUtil() = default;

CZipUtil::~CZipUtil() = default;

bool CZipUtil::CreateZipFile(const std::string& sourceFolder, const std::string& zipPath) {
    zipFile zip = zipOpen64(zipPath.c_str(), APPEND_STATUS_CREATE);
    if (zip == nullptr) {
        LOG_AT(__func__, 27, FAILURE, "zipOpen64 error");
        return false;
    }

    bool written = false;
    if (!fs::is_directory(fs::status(sourceFolder))) {
        LOG_AT(__func__, 42, FAILURE, "tempPath[%s] is not directory", sourceFolder.c_str());
    } else if (!m_CreateZipFile(sourceFolder, zip, sourceFolder)) {
        LOG_AT(__func__, 37, FAILURE, "m_CreateZipFile fail");
    } else {
        written = true;
    }
    const bool closed = CloseArchive(zip);

    CFileUtil::RemoveAll(sourceFolder);
    if (!written || !closed) {
        CFileUtil::Remove(zipPath);
        return false;
    }
    return true;
}

bool CZipUtil::m_CreateZipFile(const std::string& folder, void*& zipHandle, const std::string& baseFolder) {
    std::ifstream file;  // one for all files: to make a stream costs as much as to pack a small one
    for (const fs::directory_entry& member : fs::directory_iterator(folder)) {
        const std::string& entryPath = member.path().native();
        // Asked anew, deliberately: in a folder that can be listed but not entered, that throws.
        const bool added = fs::is_directory(member.status())
                               ? m_CreateZipFile(entryPath, zipHandle, baseFolder)
                               : AddFile(zipHandle, file, entryPath, EntryName(entryPath, baseFolder));
        if (!added) {
            return false;
        }
    }
    return true;
}

// A failure after the archive was opened leaves its handle as it is, deliberately; only a run to the end closes it.
bool CZipUtil::UnzipFile(const std::string& zipPath, const std::string& destinationFolder) {
    std::error_code error;
    if (!fs::exists(zipPath, error)) {
        LOG_AT(__func__, 131, FAILURE, "exists(%s) fail [%d][%s]", zipPath.c_str(), error.value(),
               error.message().c_str());
        return false;
    }
    if (fs::is_directory(fs::status(zipPath, error))) {
        LOG_AT(__func__, 138, FAILURE, "%s is directory. Cannot unzip. [%d][%s]", zipPath.c_str(), error.value(),
               error.message().c_str());
        return false;
    }
    unzFile zip = unzOpen64(zipPath.c_str());
    if (zip == nullptr) {
        LOG_AT(__func__, 146, FAILURE, "Cannot open %s.", zipPath.c_str());
        return false;
    }
    unz_global_info64 globalInfo;
    if (unzGetGlobalInfo64(zip, &globalInfo) != UNZ_OK) {
        LOG_AT(__func__, 155, FAILURE, "error when reading global info from %s", zipPath.c_str());
        return false;
    }
    const std::uint64_t entryCount = globalInfo.number_entry;
    LOG_AT(__func__, 160, PROGRESS, "opened zip file %s with (%lld) files for extracting", zipPath.c_str(),
           static_cast<long long>(entryCount));
    if (!CFileUtil::CreateDirectories(destinationFolder)) {
        return false;
    }
    const fs::path destination = destinationFolder;
    for (std::uint64_t i = 0; i < entryCount; ++i) {
        if (!ExtractEntry(zip, i + 1 == entryCount, zipPath, destination)) {
            return false;
        }
    }
    if (unzClose(zip) != UNZ_OK) {
        LOG_AT(__func__, 253, FAILURE, "cannot close zip file %s", zipPath.c_str());
        return false;
    }
    LOG_AT(__func__, 256, PROGRESS, "closed zip file %s", zipPath.c_str());
    return true;
}
