#include "simulator/lineup/Unpacking.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <minizip/unzip.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <optional>
#include <set>
#include <type_traits>

#include "simulator/base/Descriptor.h"
#include "simulator/base/Digest.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/Diagnosis.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

using Zip = std::unique_ptr<std::remove_pointer_t<unzFile>, decltype(&unzClose)>;

[[noreturn]] void damaged(const std::string& problem) {
    throw Error(Error::Kind::Damaged, problem);
}

// For the library: a file that is open already, in place of one of that name.
void* openGiven(void* descriptor, const void* /*name*/, int /*mode*/) {
    auto& given = *static_cast<Descriptor*>(descriptor);
    std::FILE* file = ::fdopen(given.get(), "rb");
    if (file != nullptr) {
        given.release();  // the file closes it
    }
    return file;
}

Zip openZip(const Descriptor& archive) {
    Descriptor given = openAgain(archive);
    zlib_filefunc64_def functions;
    fill_fopen64_filefunc(&functions);
    functions.zopen64_file = &openGiven;
    functions.opaque = &given;
    return {unzOpen2_64("", &functions), &unzClose};
}

class Unpacker {
public:
    Unpacker(const Descriptor& archive, const fs::path& folder, const Wanted& wanted, std::uint64_t maxBytes)
        : m_archive(archive),
          m_zip(openZip(archive)),
          m_folder(folder),
          m_wanted(wanted),
          m_archiveBytes(sizeOf(archive)),
          m_maxBytes(maxBytes) {}

    Unpacking run() {
        Unpacking result;
        unz_global_info64 info = {};
        // minizip also gives null for an archive without entries.
        if (m_zip == nullptr || unzGetGlobalInfo64(m_zip.get(), &info) != UNZ_OK) {
            result.problem = whyNoArchive(fmt::format("/proc/self/fd/{}", m_archive.get()));
            return result;
        }
        result.problem = info.number_entry > limits::ARCHIVE_ENTRIES
                             ? limits::excess("entries", info.number_entry, limits::ARCHIVE_ENTRIES)
                             : excess();
        for (std::uint64_t i = 0; result.problem.empty() && i < info.number_entry; ++i) {
            result.entries.emplace_back();
            if (!unpack(result.entries.back(), i + 1 == info.number_entry, result.files)) {
                break;
            }
        }
        return result;
    }

private:
    // What the central directory announces beyond a limit on all entries together, as far as they would be unpacked;
    // empty if there is nothing. The packed bytes can be more than the archive has due to damage, too, but then few
    // entries say so.
    std::string excess() {
        std::uint64_t bytes = 0;
        std::uint64_t packed = 0;
        unz_file_info64 info = {};
        for (int code = UNZ_OK; code == UNZ_OK; code = unzGoToNextFile(m_zip.get())) {
            // Unpacking ends at such an entry, so what comes behind it does not count.
            if (unzGetCurrentFileInfo64(m_zip.get(), &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK ||
                info.uncompressed_size > limits::ENTRY_BYTES) {
                break;
            }
            bytes += info.uncompressed_size;
            packed += std::min<std::uint64_t>(info.compressed_size, m_archiveBytes);
        }
        unzGoToFirstFile(m_zip.get());
        const std::uint64_t maxPacked = limits::PACKED_BYTES_BY_ARCHIVE * m_archiveBytes;
        if (packed > maxPacked) {
            return limits::excess("packed bytes of all entries", packed, maxPacked);
        }
        return bytes > m_maxBytes ? limits::excess("bytes of all entries", bytes, m_maxBytes) : "";
    }

    // Returns false if the application would end here.
    bool unpack(UnpackedEntry& entry, bool isLast, std::map<std::string, std::string>& files) {
        try {
            readInfo(entry);
            const std::optional<std::string> path = pathInFolder(entry.name);
            // In the application's order: it makes the file first, and a name that no file can have ends it.
            const Descriptor file = path ? makeFile(*path) : Descriptor();
            limits::require("bytes", entry.size, limits::ENTRY_BYTES);
            const std::uint64_t wanted = path ? m_wanted(*path) : 0;
            if (wanted != 0 && entry.size > wanted) {
                entry.problem = limits::excess("bytes", entry.size, wanted);
            } else {
                // Also if the file is not wanted: a restore ends at data that cannot be unpacked, and items are
                // compared by digest.
                entry.digest = readContent(entry, wanted != 0 ? &file : nullptr);
            }
            if (!path) {
                entry.problem = "its name leads out of the folder that it is unpacked in";
            } else if (entry.problem.empty()) {
                files[*path] = entry.digest;
            }
            if (!isLast && unzGoToNextFile(m_zip.get()) != UNZ_OK) {
                damaged("the entry after it cannot be read");
            }
            return true;
        } catch (const Error& error) {
            if (error.kind() != Error::Kind::Damaged) {
                throw;
            }
            entry.problem = error.what();
            return false;
        }
    }

    void readInfo(UnpackedEntry& entry) {
        unz_file_info64 info = {};
        std::array<char, 256> name = {};
        if (unzGetCurrentFileInfo64(m_zip.get(), &info, name.data(), name.size(), nullptr, 0, nullptr, 0) != UNZ_OK) {
            damaged("its record in the central directory cannot be read");
        }
        name.back() = '\0';  // the library does not end a name that fills the buffer
        entry.name = name.data();
        entry.size = info.uncompressed_size;
        entry.crc = static_cast<std::uint32_t>(info.crc);
        if (unzOpenCurrentFilePassword(m_zip.get(), nullptr) != UNZ_OK) {
            damaged("it cannot be opened: its local header is damaged or differs, or it is packed in an unknown way");
        }
    }

    // Nothing if the name leads out.
    static std::optional<std::string> pathInFolder(const std::string& name) {
        const fs::path path = fs::path(name).lexically_normal();
        const bool leadsOut = path.is_absolute() || (!path.empty() && *path.begin() == "..");
        return leadsOut ? std::nullopt : std::optional(path.string());
    }

    Descriptor makeFile(const std::string& path) const {
        const fs::path target = m_folder / path;
        std::error_code ignored;  // what it has not made, the file lacks
        fs::create_directories(target.parent_path(), ignored);
        Descriptor file(::open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
        if (!file.isOpen() && kindOfErrno(errno) == Error::Kind::Full) {
            throw Error::ofSystem(target, "cannot write");
        }
        if (!file.isOpen()) {
            damaged(path.empty() || path.back() == '/'
                        ? "the application cannot unpack a folder's own entry; pack the files alone, as zip -D does"
                        : "no file of its name can be made");
        }
        return file;
    }

    std::string readContent(const UnpackedEntry& entry, const Descriptor* file) {
        Digest digest;
        std::array<char, 65536> buffer;
        for (std::uint64_t rest = entry.size; rest > 0;) {
            const auto request = static_cast<unsigned int>(std::min<std::uint64_t>(rest, buffer.size()));
            const int count = unzReadCurrentFile(m_zip.get(), buffer.data(), request);
            if (count <= 0) {
                damaged(count < 0 ? "its data cannot be unpacked" : "its data end early");
            }
            const std::string_view bytes(buffer.data(), static_cast<std::size_t>(count));
            digest.addBytes(bytes);
            if (file != nullptr) {
                writeAll(*file, bytes, m_folder);
            }
            rest -= bytes.size();
        }
        if (unzCloseCurrentFile(m_zip.get()) != UNZ_OK) {
            damaged("its data do not match their checksum");
        }
        return digest.hex();
    }

    const Descriptor& m_archive;
    Zip m_zip;
    const fs::path& m_folder;
    const Wanted& m_wanted;
    std::uint64_t m_archiveBytes;
    std::uint64_t m_maxBytes;
};

}  // namespace

Unpacking unpackBundle(const Descriptor& archive, const fs::path& folder, const Wanted& wanted,
                       std::uint64_t maxBytes) {
    return Unpacker(archive, folder, wanted, maxBytes).run();
}

std::vector<std::string> ambiguitiesOf(const Descriptor& archive, const Unpacking& unpacking) {
    std::vector<ArchiveEntry> others;
    try {
        others = listArchive(archive, "another reader");
    } catch (const Error& error) {
        return {error.what()};
    }
    std::vector<std::string> ambiguities;
    // Where unpacking has ended, the entries behind it are not known, and the numbers cannot be compared.
    const bool isWhole = unpacking.entries.empty() || unpacking.entries.back().problem.empty();
    if (isWhole && others.size() != unpacking.entries.size()) {
        ambiguities.push_back(fmt::format("{} for the application, {} for another reader",
                                          plural(unpacking.entries.size(), "entry", "entries"), others.size()));
    }
    std::set<fs::path> paths;
    for (std::size_t i = 0; i < std::min(others.size(), unpacking.entries.size()); ++i) {
        const ArchiveEntry& ours = unpacking.entries[i];
        if (ours.name != others[i].name || ours.size != others[i].size || ours.crc != others[i].crc) {
            ambiguities.push_back(fmt::format("entry {} of {} bytes is {} of {} for another reader",
                                              inQuotes(ours.name), ours.size, inQuotes(others[i].name),
                                              others[i].size));
        }
        if (!paths.insert(fs::path(ours.name).lexically_normal()).second) {
            ambiguities.push_back(fmt::format("entry {} takes the place of an earlier one", inQuotes(ours.name)));
        }
    }
    return ambiguities;
}

}  // namespace sim
