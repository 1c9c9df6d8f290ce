#include "simulator/cloud/ObjectStore.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <json/value.h>

#include <algorithm>
#include <random>
#include <set>
#include <utility>

#include "simulator/base/Descriptor.h"
#include "simulator/base/Digest.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Json.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Text.h"
#include "simulator/cloud/Examination.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr std::string_view SCHEME = "s3://";

constexpr std::size_t SEQUENCE_DIGITS = 8;
constexpr std::uint64_t MAX_SEQUENCE = 99'999'999;
constexpr std::size_t RANDOM_DIGITS = 8;
// Older objects have another form of key, and are foreign.
constexpr std::string_view KEY_VERSION = "v2-";
// Behind those of backups in a listing, the first of which is the newest.
constexpr std::string_view PIN = "~pin-";

constexpr int PAGE_SIZE = 1000;       // stores list no more at once
constexpr int SHORT_PAGE_SIZE = 100;  // if the first name is likely to be the one

constexpr std::string_view MAGIC = "halcyon backup 1 ";
constexpr std::size_t DIGEST_DIGITS = 64;
constexpr std::size_t HEADER_LINE_BYTES = MAGIC.size() + DIGEST_DIGITS + 1;
constexpr std::uint64_t MAX_HEADER_BYTES = 256U << 10;  // of both lines and the metadata
constexpr std::uint64_t TYPICAL_HEADER_BYTES = 8U << 10;

bool consistsOf(std::string_view text, std::size_t size, const char* characters) {
    return text.size() == size && text.find_first_not_of(characters) == std::string_view::npos;
}

bool isId(const std::string& id) {
    const std::string_view text = id;
    return text.size() > SEQUENCE_DIGITS && text[SEQUENCE_DIGITS] == '-' &&
           consistsOf(text.substr(0, SEQUENCE_DIGITS), SEQUENCE_DIGITS, "0123456789") &&
           consistsOf(text.substr(SEQUENCE_DIGITS + 1), RANDOM_DIGITS, "0123456789abcdef");
}

std::uint64_t numberOf(const std::string& id) {
    return toNumber<std::uint64_t>(std::string_view(id).substr(0, SEQUENCE_DIGITS)).value_or(0);
}

// Counts an id down into the name of its key, or such a name up into the id.
std::string mirrored(const std::string& id) {
    return fmt::format("{:0{}}{}", MAX_SEQUENCE - numberOf(id), SEQUENCE_DIGITS, id.substr(SEQUENCE_DIGITS));
}

// In front of an '@' may be a key with its secret, which is not shown.
[[noreturn]] void refusePlace(const std::string& place, const char* why) {
    const std::string what = place.find('@') == std::string::npos ? inQuotes(place) : "an address with a user";
    throw Error(fmt::format("{} is not a cloud store: {}; give a folder, or s3://BUCKET[/PREFIX]", what, why));
}

// The header has the digest of all that follows its first line, so that a bit that flips anywhere on the way back is
// noticed. The digest of the whole body is for the store, which checks what arrives.
ObjectClient::Body bodyOf(const NewBackup& backup, const fs::path& bundle) {
    const std::uint64_t bundleSize = sizeOf(bundle);
    Json::Value info = infoOf(backup, bundle);
    info["sha256"] = digestOf(bundle);
    info["metadata"] = Json::Value::UInt64(backup.metadata.size());
    info["bundle"] = Json::Value::UInt64(bundleSize);
    const std::string rest = writeJson(info) + "\n" + backup.metadata;
    ObjectClient::Body body;
    body.file = bundle;
    body.header = fmt::format("{}{}\n{}", MAGIC, Digest().addBytes(rest).addFile(bundle).hex(), rest);
    if (body.header.size() > MAX_HEADER_BYTES) {
        throw Error(fmt::format("the metadata of the backup has {} bytes; a store takes at most about {}",
                                backup.metadata.size(), MAX_HEADER_BYTES));
    }
    body.size = body.header.size() + bundleSize;
    body.sha256 = Digest().addBytes(body.header).addFile(bundle).hex();
    return body;
}

ObjectClient::Body bodyOf(const std::string& text) {
    return {text, "", text.size(), Digest().addBytes(text).hex()};
}

// Reads an object as it arrives: the header into memory, the bundle into a file.
class ObjectReader {
public:
    // Without a folder, the bundle is ignored.
    ObjectReader(const BackupName& name, fs::path folder) : m_folder(std::move(folder)), m_backup(name) {}

    ObjectClient::Sink sink() {
        return {[this] { restart(); }, [this](std::uint64_t size) { m_objectSize = size; },
                [this](std::string_view bytes) { take(bytes); }};
    }

    bool hasHeader() const { return m_hasHeader; }

    // What was read. Throws Error (Damaged) if the object is not whole; without a folder, its header is enough.
    const StoredBackup& finish() {
        if (!m_hasHeader) {
            fail("the object is not a backup, or its end is missing");
        }
        if (!m_folder.empty() && m_bundleBytes != m_backup.size) {
            fail(fmt::format("it has {} of the {} bytes of its bundle", m_bundleBytes, m_backup.size));
        }
        if (!m_folder.empty() && m_digest.hex() != m_header.substr(MAGIC.size(), DIGEST_DIGITS)) {
            fail("its bytes are not those that were stored (SHA-256)");
        }
        return m_backup;
    }

    // Removes the file that was begun, if any.
    void discard() {
        if (m_file.isOpen()) {
            removeFile(m_folder / m_backup.name);
        }
    }

private:
    [[noreturn]] static void fail(const std::string& why) { throw Error(Error::Kind::Damaged, why); }

    // A try that was cut off may have left a part of the bundle.
    void restart() {
        discard();
        *this = ObjectReader(m_backup, m_folder);
    }

    void take(std::string_view bytes) {
        if (m_hasHeader) {
            m_digest.addBytes(bytes);
        } else {
            m_header += bytes;
            if (!readHeader()) {
                if (m_header.size() >= MAX_HEADER_BYTES) {
                    fail(fmt::format("its header does not end within {} bytes", MAX_HEADER_BYTES));
                }
                return;
            }
            bytes = std::string_view(m_header).substr(m_headerSize);
        }
        if (!m_folder.empty()) {
            write(bytes);
        }
    }

    // Returns false if more bytes are needed.
    bool readHeader() {
        // As far as it has come: something else is refused before 256 KB of it are kept.
        if (m_header.compare(0, MAGIC.size(), MAGIC, 0, m_header.size()) != 0) {
            fail("the object is not a backup");
        }
        const std::size_t end = m_header.find('\n', HEADER_LINE_BYTES);
        if (end == std::string::npos) {
            return false;
        }
        Json::Value info;
        const bool hasSizes = parseJson(m_header.substr(HEADER_LINE_BYTES, end - HEADER_LINE_BYTES), info) &&
                              info.isObject() && info["sha256"].isString() && info["bundle"].isUInt64() &&
                              info["metadata"].isUInt64() && info["metadata"].asUInt64() < MAX_HEADER_BYTES;
        if (!hasSizes) {
            fail("its header does not describe a backup");
        }
        m_headerSize = end + 1 + static_cast<std::size_t>(info["metadata"].asUInt64());
        if (m_header.size() < m_headerSize) {
            return false;
        }
        const std::uint64_t bundleSize = info["bundle"].asUInt64();
        limits::require("its bundle: bytes", bundleSize, limits::ARCHIVE_BYTES);
        if (m_headerSize + bundleSize != m_objectSize) {
            fail(fmt::format("the object has {} bytes, and should have {}", m_objectSize, m_headerSize + bundleSize));
        }
        readInfo(info, m_backup);
        m_backup.sha256 = info["sha256"].asString();
        m_backup.size = bundleSize;
        m_backup.metadata = m_header.substr(end + 1, m_headerSize - end - 1);
        m_digest.addBytes(std::string_view(m_header).substr(HEADER_LINE_BYTES));
        m_hasHeader = true;
        return true;
    }

    void write(std::string_view bytes) {
        m_bundleBytes += bytes.size();
        if (m_bundleBytes > m_backup.size) {
            fail(fmt::format("it is longer than the {} bytes of its bundle", m_backup.size));
        }
        const fs::path target = m_folder / m_backup.name;
        if (!m_file.isOpen()) {
            removeFile(target);  // a link there would lead the bundle out of the folder
            m_file = openFile(target, O_WRONLY | O_CREAT | O_EXCL, 0666);
        }
        writeAll(m_file, bytes, target);
    }

    fs::path m_folder;
    StoredBackup m_backup;
    std::string m_header;            // and, of the piece that completed it, the start of the bundle
    std::size_t m_headerSize = 0;    // known once it is whole
    std::uint64_t m_objectSize = 0;  // as the store says
    bool m_hasHeader = false;
    Digest m_digest;
    std::uint64_t m_bundleBytes = 0;
    Descriptor m_file;
};

// Calls `read`, which fills the reader, and returns the backup. Damage becomes part of it; other errors are thrown.
StoredBackup described(const CloudStore& store, const BackupName& name, ObjectReader& reader,
                       const std::function<void()>& read) {
    try {
        read();
        return reader.finish();
    } catch (const Error& error) {
        reader.discard();
        if (error.kind() == Error::Kind::Missing) {
            throw missingBackup(store, name);
        }
        if (error.kind() != Error::Kind::Damaged) {
            throw;
        }
        StoredBackup backup(name);
        backup.damage = error.what();
        return backup;
    }
}

}  // namespace

ObjectStore::ObjectStore(const std::string& place, RequestObserver observer, fs::path notes) {
    if (place.compare(0, SCHEME.size(), SCHEME) != 0) {
        refusePlace(place, "its scheme is not s3");
    }
    const std::string rest = place.substr(SCHEME.size());
    const std::size_t slash = rest.find('/');
    const std::string bucket = rest.substr(0, slash);
    constexpr std::size_t MIN_BUCKET_SIZE = 3;
    constexpr std::size_t MAX_BUCKET_SIZE = 63;
    if (bucket.size() < MIN_BUCKET_SIZE || bucket.size() > MAX_BUCKET_SIZE || bucket.front() == '-' ||
        bucket.front() == '.' ||
        bucket.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789.-") != std::string::npos) {
        refusePlace(place, "a bucket's name is 3 to 63 lower-case letters, digits, '-' and '.'");
    }
    if (slash != std::string::npos) {
        m_prefix = rest.substr(slash + 1);
        m_prefix.erase(m_prefix.find_last_not_of('/') + 1);
    }
    for (const std::string& part : split(m_prefix, '/')) {
        if (part.empty() && !m_prefix.empty()) {
            refusePlace(place, "the prefix has an empty part");
        }
        if (part == "." || part == "..") {  // servers on the way would resolve it, and lead to another bucket
            refusePlace(place, "a part of the prefix is '.' or '..'");
        }
    }
    m_place = fmt::format("{}{}{}{}", SCHEME, bucket, m_prefix.empty() ? "" : "/", m_prefix);
    m_prefix += m_prefix.empty() ? "" : "/";
    m_bucket = bucket;
    m_client = std::make_unique<ObjectClient>(bucket, std::move(observer), std::move(notes));
}

ObjectClient& ObjectStore::clientFor(const Address& address) const {
    m_client->prefer(address.account);
    return *m_client;
}

std::string ObjectStore::folderOf(const Address& address) const {
    return fmt::format("{}{}/{}/{}/", m_prefix, address.account, address.clientId, address.category);
}

std::string ObjectStore::keyOf(const BackupName& name, std::string_view kind) const {
    if (!isId(name.id)) {
        throw missingBackup(*this, name);
    }
    return fmt::format("{}{}{}", folderOf(name), kind, mirrored(name.id));
}

std::optional<BackupName> ObjectStore::nameIn(const ObjectClient::Object& object, std::string_view kind) const {
    const std::vector<std::string> parts = split(std::string_view(object.key).substr(m_prefix.size()), '/');
    constexpr std::size_t PARTS = 4;
    if (parts.size() != PARTS || parts[3].compare(0, kind.size(), kind) != 0 ||
        std::any_of(parts.begin(), parts.end(), [](const std::string& part) { return part.empty(); })) {
        return std::nullopt;
    }
    const std::string countedDown = parts[3].substr(kind.size());
    return isId(countedDown)
               ? std::optional(BackupName{{parts[0], parts[1], parts[2]}, mirrored(countedDown), object.etag})
               : std::nullopt;
}

std::vector<StoreTrial> ObjectStore::examine() const {
    return examineObjectStore(m_bucket, m_prefix, m_client->settings());
}

void ObjectStore::create() {
    m_client->makeBucket();
}

// The first object is the newest backup, unless foreign ones sort before it.
std::optional<BackupName> ObjectStore::newest(const Address& address) const {
    std::optional<BackupName> newest;
    clientFor(address).list(folderOf(address), SHORT_PAGE_SIZE, [&](const ObjectClient::Object& object) {
        newest = nameIn(object, KEY_VERSION);
        return !newest;
    });
    return newest;
}

std::string ObjectStore::put(const NewBackup& backup, const fs::path& bundle) {
    const std::optional<BackupName> before = newest(backup);
    if (before && backup.refuseDuplicate) {
        for (const StoredBackup& stored : lookAt(*this, {*before})) {
            if (stored.sha256 == digestOf(bundle)) {
                throw duplicateBackup(*this, before->id);
            }
        }
    }
    const std::uint64_t number = before ? numberOf(before->id) + 1 : 1;
    if (number > MAX_SEQUENCE) {
        throw Error(Error::Kind::Denied,
                    fmt::format("{}: {} is full: no number follows that of backup {}; remove it, or "
                                "use another prefix",
                                m_place, folderOf(backup), before->id));
    }
    // Two writers may see the same newest backup and take the same number. The random part keeps their objects apart.
    const BackupName name{
        backup, fmt::format("{:0{}}-{:0{}x}", number, SEQUENCE_DIGITS, std::random_device()(), RANDOM_DIGITS), ""};
    clientFor(backup).put(keyOf(name, KEY_VERSION), bodyOf(backup, bundle));
    return name.id;
}

// The store does not say if it had nothing to remove: it is asked before.
void ObjectStore::remove(const BackupName& backup) {
    look(backup);
    clientFor(backup).remove(keyOf(backup, KEY_VERSION));
}

void ObjectStore::pin(const BackupName& backup, bool isPinned) {
    look(backup);
    if (isPinned) {
        clientFor(backup).put(keyOf(backup, PIN), bodyOf(std::string("pinned\n")));
    } else {
        clientFor(backup).remove(keyOf(backup, PIN));
    }
}

StoreContent ObjectStore::contentOf(const std::string& account) const {
    StoreContent content;
    std::set<std::string> pinned;  // their paths
    m_client->prefer(account);
    m_client->list(m_prefix + account + (account.empty() ? "" : "/"), PAGE_SIZE,
                   [&](const ObjectClient::Object& object) {
                       if (std::optional<BackupName> name = nameIn(object, KEY_VERSION)) {
                           content.backups.push_back(std::move(*name));
                       } else if (const std::optional<BackupName> pin = nameIn(object, PIN)) {
                           pinned.insert(pin->path());
                       } else {
                           content.foreign.push_back(object.key);
                       }
                       return true;
                   });
    for (BackupName& name : content.backups) {
        name.isPinned = pinned.count(name.path()) > 0;
    }
    // The listing has the newest of a category first.
    for (auto first = content.backups.begin(); first != content.backups.end();) {
        const auto last = std::find_if(first, content.backups.end(),
                                       [&](const BackupName& name) { return folderOf(name) != folderOf(*first); });
        std::reverse(first, last);
        first = last;
    }
    return content;
}

// The header of nearly every backup is small: one short request reads it.
StoredBackup ObjectStore::look(const BackupName& name) const {
    ObjectReader reader(name, "");
    return described(*this, name, reader, [&] {
        clientFor(name).get(keyOf(name, KEY_VERSION), TYPICAL_HEADER_BYTES, reader.sink());
        if (!reader.hasHeader()) {
            clientFor(name).get(keyOf(name, KEY_VERSION), MAX_HEADER_BYTES, reader.sink());
        }
    });
}

StoredBackup ObjectStore::fetch(const BackupName& name, const fs::path& folder) const {
    ObjectReader reader(name, folder);
    return described(*this, name, reader, [&] { clientFor(name).get(keyOf(name, KEY_VERSION), 0, reader.sink()); });
}

}  // namespace sim
