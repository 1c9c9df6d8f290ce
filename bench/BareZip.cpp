#include "bench/BareZip.h"

#include <minizip/unzip.h>
#include <minizip/zip.h>

#include <cstdio>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

constexpr std::size_t BLOCK = 512;

bool packFile(zipFile zip, const fs::path& path, const std::string& name) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    bool isGood = file != nullptr && zipOpenNewFileInZip64(zip, name.c_str(), nullptr, nullptr, 0, nullptr, 0, nullptr,
                                                           Z_DEFLATED, Z_DEFAULT_COMPRESSION, 0) == ZIP_OK;
    char block[BLOCK];
    for (std::size_t size = 1; isGood && (size = std::fread(block, 1, sizeof block, file)) > 0;) {
        isGood = zipWriteInFileInZip(zip, block, static_cast<unsigned int>(size)) == ZIP_OK;
    }
    if (file != nullptr) {
        std::fclose(file);
    }
    return isGood && zipCloseFileInZip(zip) == ZIP_OK;
}

bool unpackFile(unzFile zip, const fs::path& folder) {
    unz_file_info64 info;
    char name[256];
    if (unzGetCurrentFileInfo64(zip, &info, name, sizeof name, nullptr, 0, nullptr, 0) != UNZ_OK ||
        unzOpenCurrentFilePassword(zip, nullptr) != UNZ_OK) {
        return false;
    }
    const fs::path path = folder / name;
    fs::create_directories(path.parent_path());
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        return false;
    }
    char block[BLOCK];
    int size = 0;
    while ((size = unzReadCurrentFile(zip, block, sizeof block)) > 0) {
        std::fwrite(block, 1, static_cast<std::size_t>(size), file);
    }
    return std::fclose(file) == 0 && size == 0 && unzCloseCurrentFile(zip) == UNZ_OK;
}

}  // namespace

bool packBare(const std::string& folder, const std::string& archive) {
    zipFile zip = zipOpen64(archive.c_str(), APPEND_STATUS_CREATE);
    bool isGood = zip != nullptr;
    for (const fs::directory_entry& member : fs::recursive_directory_iterator(folder)) {
        if (isGood && !fs::is_directory(member.status())) {
            isGood = packFile(zip, member.path(), member.path().string().substr(folder.size()));
        }
    }
    isGood = isGood && zipClose(zip, nullptr) == ZIP_OK;
    fs::remove_all(folder);
    return isGood;
}

bool unpackBare(const std::string& archive, const std::string& folder) {
    unzFile zip = unzOpen64(archive.c_str());
    bool isGood = zip != nullptr && unzGoToFirstFile(zip) == UNZ_OK;
    int moved = UNZ_OK;
    for (; isGood && moved == UNZ_OK; moved = unzGoToNextFile(zip)) {
        isGood = unpackFile(zip, folder);
    }
    return isGood && moved == UNZ_END_OF_LIST_OF_FILE && unzClose(zip) == UNZ_OK;
}
