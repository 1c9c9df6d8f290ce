#include "simulator/base/Archive.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <zip.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <memory>

#include "simulator/base/Descriptor.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Text.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

// The lowest: what is packed here is packed once more before anybody keeps it. The library's own choice is the highest.
constexpr int LEVEL = 1;

using Zip = std::unique_ptr<zip_t, decltype(&zip_discard)>;

// An error of the system's is that; any other is the archive's.
Error::Kind kindOf(zip_error_t* error) {
    return zip_error_system_type(error) == ZIP_ET_SYS ? kindOfErrno(zip_error_code_system(error))
                                                      : Error::Kind::Damaged;
}

Zip open(const fs::path& archive, int flags) {
    int code = 0;
    Zip zip(zip_open(archive.c_str(), flags, &code), &zip_discard);
    if (!zip) {
        zip_error_t error;
        zip_error_init_with_code(&error, code);
        const std::string reason = zip_error_strerror(&error);
        const Error::Kind kind = kindOf(&error);
        zip_error_fini(&error);
        throw Error(kind, fmt::format("{}: no usable zip archive: {}", archive.string(), reason));
    }
    return zip;
}

[[noreturn]] void fail(const fs::path& archive, zip_t* zip) {
    throw Error(kindOf(zip_get_error(zip)), fmt::format("{}: {}", archive.string(), zip_strerror(zip)));
}

// Where an archive is written, until it is whole under a name of its own beside its place. The library's own way draws
// that name at random, and starts a cryptographic library to do so, which takes longer than packing a usual list.
class Output {
public:
    explicit Output(const fs::path& archive) : m_archive(archive), m_part(archive.string() + ".part") {
        zip_error_init(&m_error);
    }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    ~Output() { rollBack(); }

    static zip_int64_t serve(void* output, void* data, zip_uint64_t size, zip_source_cmd_t command) {
        return static_cast<Output*>(output)->perform(data, size, command);
    }

private:
    zip_int64_t perform(void* data, zip_uint64_t size, zip_source_cmd_t command) {
        switch (command) {
            case ZIP_SOURCE_SUPPORTS:
                return ZIP_SOURCE_SUPPORTS_WRITABLE;
            case ZIP_SOURCE_STAT:
                return fail(ZIP_ER_READ, ENOENT);  // it is always a new one
            case ZIP_SOURCE_BEGIN_WRITE:
                m_file = std::fopen(m_part.c_str(), "wb");
                return m_file != nullptr ? 0 : fail(ZIP_ER_TMPOPEN, errno);
            case ZIP_SOURCE_WRITE: {
                const auto bytes = static_cast<std::size_t>(size);
                return std::fwrite(data, 1, bytes, m_file) == bytes ? static_cast<zip_int64_t>(size)
                                                                    : fail(ZIP_ER_WRITE, errno);
            }
            case ZIP_SOURCE_SEEK_WRITE: {
                const auto* to = ZIP_SOURCE_GET_ARGS(zip_source_args_seek_t, data, size, &m_error);
                return to != nullptr && ::fseeko(m_file, to->offset, to->whence) == 0 ? 0 : fail(ZIP_ER_SEEK, errno);
            }
            case ZIP_SOURCE_TELL_WRITE:
                return ::ftello(m_file);
            case ZIP_SOURCE_COMMIT_WRITE:
                return commit();
            case ZIP_SOURCE_ROLLBACK_WRITE:
                rollBack();
                return 0;
            case ZIP_SOURCE_ERROR:
                return zip_error_to_data(&m_error, data, size);
            default:
                return 0;
        }
    }

    zip_int64_t commit() {
        const bool isWritten = std::fclose(m_file) == 0;
        m_file = nullptr;
        if (!isWritten || std::rename(m_part.c_str(), m_archive.c_str()) != 0) {
            const int error = errno;
            std::remove(m_part.c_str());
            return fail(ZIP_ER_WRITE, error);
        }
        return 0;
    }

    void rollBack() {
        if (m_file != nullptr) {
            std::fclose(m_file);
            std::remove(m_part.c_str());
            m_file = nullptr;
        }
    }

    zip_int64_t fail(int code, int systemError) {
        zip_error_set(&m_error, code, systemError);
        return -1;
    }

    fs::path m_archive;
    std::string m_part;
    std::FILE* m_file = nullptr;
    zip_error_t m_error;
};

Zip openNew(Output& output) {
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* source = zip_source_function_create(&Output::serve, &output, &error);
    zip_t* zip = source != nullptr ? zip_open_from_source(source, ZIP_CREATE | ZIP_TRUNCATE, &error) : nullptr;
    if (zip == nullptr) {
        throw Error(fmt::format("cannot begin a zip archive: {}", zip_error_strerror(&error)));
    }
    return {zip, &zip_discard};
}

// Hands the bytes of an entry on as they are unpacked. `what` begins the messages of what it throws.
void readEntry(zip_t* zip, zip_uint64_t index, const std::string& what,
               const std::function<void(const char*, std::size_t)>& take) {
    zip_stat_t stat;
    if (zip_stat_index(zip, index, 0, &stat) != 0) {
        throw Error(kindOf(zip_get_error(zip)), what + zip_strerror(zip));
    }
    limits::require(what + "bytes", stat.size, limits::ENTRY_BYTES);
    const std::unique_ptr<zip_file_t, decltype(&zip_fclose)> entry(zip_fopen_index(zip, index, 0), &zip_fclose);
    if (!entry) {
        throw Error(kindOf(zip_get_error(zip)), what + zip_strerror(zip));
    }
    std::array<char, 65536> buffer;
    zip_int64_t count = 0;
    std::uint64_t size = 0;
    while ((count = zip_fread(entry.get(), buffer.data(), buffer.size())) > 0) {
        size += static_cast<std::uint64_t>(count);
        limits::require(what + "bytes", size, limits::ENTRY_BYTES);
        take(buffer.data(), static_cast<std::size_t>(count));
    }
    if (count < 0) {
        zip_error_t* error = zip_file_get_error(entry.get());
        throw Error(kindOf(error), what + zip_error_strerror(error));
    }
}

}  // namespace

void writeArchive(const fs::path& archive, const std::vector<fs::path>& files, std::time_t time) {
    Output output(archive);
    Zip zip = openNew(output);
    for (const fs::path& file : files) {
        limits::require(fmt::format("{}: bytes", file.string()), sizeOf(file), limits::ENTRY_BYTES);
        zip_source_t* source = zip_source_file(zip.get(), file.c_str(), 0, -1);
        const zip_int64_t entry = source == nullptr ? -1
                                                    : zip_file_add(zip.get(), file.filename().c_str(), source,
                                                                   ZIP_FL_OVERWRITE | ZIP_FL_ENC_UTF_8);
        if (entry < 0) {
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
    const Zip zip = open(archive, ZIP_RDONLY | ZIP_CHECKCONS);
    std::vector<ArchiveEntry> entries;
    const zip_int64_t count = zip_get_num_entries(zip.get(), 0);
    limits::require(fmt::format("{}: entries", archive.string()), static_cast<std::uint64_t>(count),
                    limits::ARCHIVE_ENTRIES);
    for (zip_int64_t i = 0; i < count; ++i) {
        zip_stat_t stat;
        if (zip_stat_index(zip.get(), static_cast<zip_uint64_t>(i), 0, &stat) != 0) {
            fail(archive, zip.get());
        }
        const char* name = zip_get_name(zip.get(), static_cast<zip_uint64_t>(i), ZIP_FL_ENC_RAW);
        entries.push_back({name != nullptr ? name : "", stat.size, stat.crc});
    }
    return entries;
}

bool extractEntry(const fs::path& archive, const std::string& name, const fs::path& target) {
    const Zip zip = open(archive, ZIP_RDONLY);
    const zip_int64_t index = zip_name_locate(zip.get(), name.c_str(), 0);
    if (index < 0) {
        return false;
    }
    const Descriptor file = openFile(target, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    readEntry(zip.get(), static_cast<zip_uint64_t>(index),
              fmt::format("{}: entry {}: ", archive.string(), inQuotes(name)),
              [&](const char* bytes, std::size_t size) {
                  writeAll(file, {bytes, size}, target);
              });
    return true;
}

}  // namespace sim
