#include "simulator/lineup/Unpacking.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <minizip/unzip.h>

#include <algorithm>
#include <array>
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

class Unpacker {
public:
    Unpacker(const fs::path& archive, const fs::path& folder, const std::function<bool(const std::string&)>& isWanted,
             std::uint64_t maxBytes)
        : m_archive(archive),
          m_zip(unzOpen64(archive.c_str()), &unzClose),
          m_folder(folder),
          m_isWanted(isWanted),
          m_maxBytes(maxBytes) {}

    Unpacking run() {
        Unpacking result;
        unz_global_info64 info = {};
        if (m_zip == nullptr || unzGetGlobalInfo64(m_zip.get(), &info) != UNZ_OK) {
            result.problem = whyNoArchive(m_archive);
            return result;
        }
        if (info.number_entry > limits::ARCHIVE_ENTRIES) {
            result.problem =
                fmt::format("entries: {}, and the limit is {}", info.number_entry, limits::ARCHIVE_ENTRIES);
            return result;
        }
        for (std::uint64_t i = 0; i < info.number_entry; ++i) {
            result.entries.emplace_back();
            if (!unpack(result.entries.back(), i + 1 == info.number_entry, result.files)) {
                break;
            }
        }
        return result;
    }

private:
    // Returns false if the application would end here.
    bool unpack(UnpackedEntry& entry, bool isLast, std::map<std::string, std::string>& files) {
        try {
            readInfo(entry);
            const std::optional<std::string> path = pathInFolder(entry.name);
            const Descriptor file = path ? makeFile(*path) : Descriptor();
            entry.digest = readContent(entry, path && m_isWanted(*path) ? &file : nullptr);
            if (path) {
                files[*path] = entry.digest;
            } else {
                entry.problem = "its name leads out of the folder that it is unpacked in";
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
        limits::require("bytes", entry.size, limits::ENTRY_BYTES);
        Digest digest;
        std::array<char, 65536> buffer;
        for (std::uint64_t rest = entry.size; rest > 0;) {
            const auto request = static_cast<unsigned int>(std::min<std::uint64_t>(rest, buffer.size()));
            const int count = unzReadCurrentFile(m_zip.get(), buffer.data(), request);
            if (count <= 0) {
                damaged(count < 0 ? "its data cannot be unpacked" : "its data end early");
            }
            const std::string_view bytes(buffer.data(), static_cast<std::size_t>(count));
            limits::require("bytes of all entries", m_unpacked += bytes.size(), m_maxBytes);
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

    const fs::path& m_archive;
    Zip m_zip;
    const fs::path& m_folder;
    const std::function<bool(const std::string&)>& m_isWanted;
    std::uint64_t m_maxBytes;
    std::uint64_t m_unpacked = 0;
};

}  // namespace

Unpacking unpackBundle(const fs::path& archive, const fs::path& folder,
                       const std::function<bool(const std::string&)>& isWanted, std::uint64_t maxBytes) {
    openFile(archive, O_RDONLY);  // what the system says of it, which the library does not tell
    return Unpacker(archive, folder, isWanted, maxBytes).run();
}

std::vector<std::string> ambiguitiesOf(const fs::path& archive, const Unpacking& unpacking) {
    std::vector<ArchiveEntry> others;
    try {
        others = listArchive(archive);
    } catch (const Error& error) {
        return {fmt::format("another reader: {}", error.what())};
    }
    std::vector<std::string> ambiguities;
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
