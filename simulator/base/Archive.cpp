#include "simulator/base/Archive.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <zip.h>

#include <array>
#include <memory>

#include "simulator/base/Descriptor.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Text.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

// The lowest: the application packs the archive once more. The library's default is the highest.
constexpr int LEVEL = 1;

using Zip = std::unique_ptr<zip_t, decltype(&zip_discard)>;

// If the system did not fail, the archive is at fault.
Error::Kind kindOfZipError(zip_error_t* error) {
    return zip_error_system_type(error) == ZIP_ET_SYS ? kindOfErrno(zip_error_code_system(error))
                                                      : Error::Kind::Damaged;
}

// `code` is why there is no archive.
Zip opened(zip_t* archive, int code, int flags, const std::string& name) {
    if (archive == nullptr) {
        zip_error_t error;
        zip_error_init_with_code(&error, code);
        const std::string reason = zip_error_strerror(&error);
        Error::Kind kind = kindOfZipError(&error);
        zip_error_fini(&error);
        if (kind == Error::Kind::Full && (flags & ZIP_RDONLY) != 0) {
            kind = Error::Kind::Damaged;  // an offset beyond what a file can have
        }
        throw Error(kind, fmt::format("{}: no usable zip archive: {}", name, reason));
    }
    return {archive, &zip_discard};
}

Zip open(const fs::path& archive, int flags) {
    int code = 0;
    zip_t* zip = zip_open(archive.c_str(), flags, &code);
    return opened(zip, code, flags, archive);
}

[[noreturn]] void fail(const fs::path& archive, zip_t* zip) {
    throw Error(kindOfZipError(zip_get_error(zip)), fmt::format("{}: {}", archive.string(), zip_strerror(zip)));
}

// Unpacks an entry into a file. Error messages begin with `what`.
void readEntry(zip_t* zip, zip_uint64_t index, const std::string& what, const fs::path& target) {
    zip_stat_t stat;
    if (zip_stat_index(zip, index, 0, &stat) != 0) {
        throw Error(kindOfZipError(zip_get_error(zip)), what + zip_strerror(zip));
    }
    limits::require(what + "bytes", stat.size, limits::ENTRY_BYTES);
    const std::unique_ptr<zip_file_t, decltype(&zip_fclose)> entry(zip_fopen_index(zip, index, 0), &zip_fclose);
    if (!entry) {
        throw Error(kindOfZipError(zip_get_error(zip)), what + zip_strerror(zip));
    }
    const Descriptor file = openFile(target, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    std::array<char, 65536> buffer;
    zip_int64_t count = 0;
    std::uint64_t size = 0;
    while ((count = zip_fread(entry.get(), buffer.data(), buffer.size())) > 0) {
        // The size in the directory may be a lie.
        size += static_cast<std::uint64_t>(count);
        limits::require(what + "bytes", size, limits::ENTRY_BYTES);
        writeAll(file, {buffer.data(), static_cast<std::size_t>(count)}, target);
    }
    if (count < 0) {
        zip_error_t* error = zip_file_get_error(entry.get());
        throw Error(kindOfZipError(error), what + zip_error_strerror(error));
    }
}

}  // namespace

void writeArchive(const fs::path& archive, const std::vector<fs::path>& files, std::time_t time) {
    Zip zip = open(archive, ZIP_CREATE | ZIP_TRUNCATE);
    for (const fs::path& file : files) {
        limits::require(fmt::format("{}: bytes", file.string()), sizeOf(file), limits::ENTRY_BYTES);
        zip_source_t* source = zip_source_file(zip.get(), file.c_str(), 0, -1);
        const zip_int64_t entry = source == nullptr ? -1
                                                    : zip_file_add(zip.get(), file.filename().c_str(), source,
                                                                   ZIP_FL_OVERWRITE | ZIP_FL_ENC_UTF_8);
        if (entry < 0) {
            // The library takes over a source only once it is added.
            zip_source_free(source);
            fail(archive, zip.get());
        }
        zip_set_file_compression(zip.get(), static_cast<zip_uint64_t>(entry), ZIP_CM_DEFLATE, LEVEL);
        zip_file_set_mtime(zip.get(), static_cast<zip_uint64_t>(entry), time, 0);
    }
    if (zip_close(zip.get()) != 0) {
        fail(archive, zip.get());
    }
    static_cast<void>(zip.release());  // closing has freed it
}

std::vector<ArchiveEntry> listArchive(const fs::path& archive) {
    return listArchive(openFile(archive, O_RDONLY), archive);
}

std::vector<ArchiveEntry> listArchive(const Descriptor& archive, const std::string& name) {
    Descriptor own = openAgain(archive);
    int code = 0;
    zip_t* const handle = zip_fdopen(own.get(), ZIP_CHECKCONS, &code);
    const Zip zip = opened(handle, code, ZIP_RDONLY, name);
    own.release();  // the library has closed it
    std::vector<ArchiveEntry> entries;
    const zip_int64_t count = zip_get_num_entries(zip.get(), 0);
    limits::require(fmt::format("{}: entries", name), static_cast<std::uint64_t>(count), limits::ARCHIVE_ENTRIES);
    for (zip_int64_t i = 0; i < count; ++i) {
        zip_stat_t stat;
        if (zip_stat_index(zip.get(), static_cast<zip_uint64_t>(i), 0, &stat) != 0) {
            fail(name, zip.get());
        }
        const char* entry = zip_get_name(zip.get(), static_cast<zip_uint64_t>(i), ZIP_FL_ENC_RAW);
        entries.push_back({entry != nullptr ? entry : "", stat.size, stat.crc});
    }
    return entries;
}

bool extractEntry(const fs::path& archive, const std::string& name, const fs::path& target) {
    const Zip zip = open(archive, ZIP_RDONLY);
    const zip_int64_t index = zip_name_locate(zip.get(), name.c_str(), 0);
    if (index < 0) {
        return false;
    }
    readEntry(zip.get(), static_cast<zip_uint64_t>(index),
              fmt::format("{}: entry {}: ", archive.string(), inQuotes(name)), target);
    return true;
}

}  // namespace sim
