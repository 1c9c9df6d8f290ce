#include "simulator/cloud/ObjectStore.h"

#include <fmt/format.h>
#include <json/value.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>
#include <utility>

#include "simulator/base/Clock.h"
#include "simulator/base/Digest.h"
#include "simulator/base/Error.h"
#include "simulator/base/Json.h"
#include "simulator/base/Text.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr char SCHEME[] = "s3://";
constexpr std::size_t SEQUENCE_DIGITS = 8;
constexpr std::size_t RANDOM_DIGITS = 8;
constexpr std::uint64_t MAX_SEQUENCE = 99'999'999;
constexpr std::string_view KEY_VERSION = "v2-";
constexpr int PAGE_SIZE = 1000;
constexpr int SHORT_PAGE_SIZE = 100;  // of a listing that is read for its first names
constexpr std::string_view MARK = "halcyon backup 1 ";
constexpr std::size_t DIGEST_DIGITS = 64;
constexpr std::size_t FIRST_LINE = MARK.size() + DIGEST_DIGITS + 1;
constexpr std::uint64_t MOST_OF_A_HEAD = 256U << 10;
constexpr std::uint64_t USUAL_HEAD = 8U << 10;

bool consistsOf(std::string_view text, std::size_t size, const char* characters) {
    return text.size() == size && text.find_first_not_of(characters) == std::string_view::npos;
}

bool isId(const std::string& id) {
    const std::string_view text = id;
    return text.size() == SEQUENCE_DIGITS + 1 + RANDOM_DIGITS && text[SEQUENCE_DIGITS] == '-' &&
           consistsOf(text.substr(0, SEQUENCE_DIGITS), SEQUENCE_DIGITS, "0123456789") &&
           consistsOf(text.substr(SEQUENCE_DIGITS + 1), RANDOM_DIGITS, "0123456789abcdef");
}

std::uint64_t numberOf(const std::string& id) {
    return toNumber<std::uint64_t>(std::string_view(id).substr(0, SEQUENCE_DIGITS)).value_or(0);
}

std::string textOf(std::uint64_t number) {
    return fmt::format("{:0{}}", number, SEQUENCE_DIGITS);
}

// An id counted down, as the name of its object has it; or such a name counted up again.
std::string mirrored(const std::string& id) {
    return textOf(MAX_SEQUENCE - numberOf(id)) + id.substr(SEQUENCE_DIGITS);
}

[[noreturn]] void refusePlace(const std::string& place, const char* why) {
    throw Error(fmt::format("{} is no cloud: {}; give a folder, or s3://BUCKET[/PREFIX]", inQuotes(place), why));
}

// Reads an object as it comes: its head, and what follows into a file.
class ObjectReader {
public:
    // Without a folder for it, the bundle is not looked at.
    explicit ObjectReader(fs::path folder) : m_folder(std::move(folder)) {}

    void restart() { *this = ObjectReader(m_folder); }

    void take(std::string_view bytes) {
        if (!m_hasHead) {
            m_head += bytes;
            if (!readHead()) {
                return;
            }
            bytes = std::string_view(m_head).substr(m_headSize);
        } else {
            m_digest.addBytes(bytes);
        }
        m_taken += bytes.size();
        if (!m_folder.empty()) {
            requireNoMoreThanStored();
            write(bytes);
        }
    }

    // Of the whole object, or of its head where there is no folder. Throws Error (Damaged).
    void finish() {
        if (!m_hasHead) {
            throw Error(Error::Kind::Damaged, "what is there is no backup, or is cut off");
        }
        if (m_folder.empty()) {
            return;
        }
        if (m_taken != m_size) {
            throw Error(Error::Kind::Damaged, fmt::format("{} of {} bytes of the bundle are there", m_taken, m_size));
        }
        if (m_digest.hex() != m_expected) {
            throw Error(Error::Kind::Damaged, "its bytes are not those that were stored (SHA-256)");
        }
        if (m_file && std::fflush(m_file.get()) != 0) {
            fail();
        }
    }

    bool hasHead() const { return m_hasHead; }
    const Json::Value& info() const { return m_info; }
    std::uint64_t size() const { return m_size; }
    const fs::path& target() const { return m_target; }  // empty: nothing was written
    const std::string& name() const { return m_name; }
    const std::string& metadata() const { return m_metadata; }

private:
    bool readHead() {
        const std::size_t end = m_head.find('\n', std::min(FIRST_LINE, m_head.size()));
        if (m_head.size() > MOST_OF_A_HEAD ||
            (m_head.size() >= FIRST_LINE && m_head.compare(0, MARK.size(), MARK) != 0)) {
            throw Error(Error::Kind::Damaged, "what is there is no backup");
        }
        if (end == std::string::npos) {
            return false;
        }
        const bool isWhole = parseJson(m_head.substr(FIRST_LINE, end - FIRST_LINE), m_info) && m_info.isObject() &&
                             m_info["time"].isString() && m_info["name"].isString() && m_info["sha256"].isString() &&
                             m_info["metadata"].isUInt64() && m_info["bundle"].isUInt64() &&
                             m_info["metadata"].asUInt64() < MOST_OF_A_HEAD;
        if (!isWhole) {
            throw Error(Error::Kind::Damaged, "its head is not what a backup has there");
        }
        m_headSize = end + 1 + static_cast<std::size_t>(m_info["metadata"].asUInt64());
        if (m_head.size() < m_headSize) {
            return false;
        }
        m_metadata = m_head.substr(end + 1, m_headSize - end - 1);
        m_name = bundleName(m_info["name"].asString());
        m_size = m_info["bundle"].asUInt64();
        m_expected = m_head.substr(MARK.size(), DIGEST_DIGITS);
        m_digest.addBytes(std::string_view(m_head).substr(FIRST_LINE));
        m_hasHead = true;
        return true;
    }

    void requireNoMoreThanStored() const {
        if (m_taken > m_size) {
            throw Error(Error::Kind::Damaged, fmt::format("it is longer than its {} bytes", m_size));
        }
    }

    void write(std::string_view bytes) {
        if (!m_file) {
            m_target = m_folder / m_name;
            std::error_code ignored;
            fs::remove(m_target, ignored);  // or a link there would lead the bundle elsewhere
            m_file.reset(std::fopen(m_target.c_str(), "wbx"));
        }
        if (!m_file || std::fwrite(bytes.data(), 1, bytes.size(), m_file.get()) != bytes.size()) {
            fail();
        }
    }

    [[noreturn]] void fail() const {
        throw Error(kindOfErrno(errno), fmt::format("{}: cannot write: {}", m_target.string(), std::strerror(errno)));
    }

    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    fs::path m_folder;
    fs::path m_target;
    std::string m_head;
    std::size_t m_headSize = 0;
    bool m_hasHead = false;
    Json::Value m_info;
    std::string m_name;
    std::string m_metadata;
    std::string m_expected;
    Digest m_digest;
    std::uint64_t m_size = 0;  // of the bundle
    std::uint64_t m_taken = 0;
    std::unique_ptr<std::FILE, Close> m_file;
};

StoredBackup described(const BackupName& name, const ObjectReader& reader) {
    StoredBackup backup;
    static_cast<BackupName&>(backup) = name;
    backup.time = reader.info()["time"].asString();
    backup.name = reader.name();
    backup.metadata = reader.metadata();
    backup.size = reader.size();
    backup.device = reader.info()["device"].isString() ? reader.info()["device"].asString() : "";
    if (reader.info()["services"].isUInt64()) {
        backup.services = reader.info()["services"].asUInt64();
    }
    return backup;
}

StoredBackup damaged(const BackupName& name, const std::string& damage) {
    StoredBackup backup;
    static_cast<BackupName&>(backup) = name;
    backup.damage = damage;
    return backup;
}

}  // namespace

ObjectStore::ObjectStore(const std::string& place, RequestObserver observer) : m_place(place) {
    if (place.compare(0, sizeof SCHEME - 1, SCHEME) != 0) {
        refusePlace(place, "its scheme is not s3");
    }
    const std::string rest = place.substr(sizeof SCHEME - 1);
    const std::size_t slash = rest.find('/');
    const std::string bucket = rest.substr(0, slash);
    constexpr std::size_t SHORTEST = 3;
    constexpr std::size_t LONGEST = 63;
    if (bucket.size() < SHORTEST || bucket.size() > LONGEST || bucket.front() == '-' || bucket.front() == '.' ||
        bucket.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789.-") != std::string::npos) {
        refusePlace(place, "a bucket's name is 3 to 63 lower-case letters, digits, '-' and '.'");
    }
    if (slash != std::string::npos) {
        m_prefix = rest.substr(slash + 1);
        m_prefix.erase(m_prefix.find_last_not_of('/') + 1);
    }
    if (m_prefix.find("//") != std::string::npos || (!m_prefix.empty() && m_prefix.front() == '/')) {
        refusePlace(place, "the prefix has an empty part");
    }
    m_place = SCHEME + bucket + (m_prefix.empty() ? "" : "/" + m_prefix);
    m_prefix += m_prefix.empty() ? "" : "/";
    m_client = std::make_unique<ObjectClient>(bucket, std::move(observer));
}

std::string ObjectStore::folderOf(const Address& address) const {
    return fmt::format("{}{}/{}/{}/", m_prefix, address.account, address.clientId, address.category);
}

std::string ObjectStore::keyOf(const BackupName& name) const {
    if (!isId(name.id)) {
        throw Error(Error::Kind::Missing, fmt::format("{} holds no backup {}", m_place, name.path()));
    }
    return fmt::format("{}{}{}", folderOf(name), KEY_VERSION, mirrored(name.id));
}

std::optional<BackupName> ObjectStore::nameIn(const ObjectClient::Object& object) const {
    const std::vector<std::string> parts = split(std::string_view(object.key).substr(m_prefix.size()), '/');
    constexpr std::size_t PARTS = 4;
    if (parts.size() != PARTS || parts[3].compare(0, KEY_VERSION.size(), KEY_VERSION) != 0 ||
        std::any_of(parts.begin(), parts.end(), [](const std::string& part) { return part.empty(); })) {
        return std::nullopt;
    }
    const std::string countedDown = parts[3].substr(KEY_VERSION.size());
    return isId(countedDown)
               ? std::optional(BackupName{{parts[0], parts[1], parts[2]}, mirrored(countedDown), object.etag})
               : std::nullopt;
}

void ObjectStore::create() {
    m_client->makeBucket();
}

// Visits the objects whose key begins with `prefix`, sorted by key, until `visit` returns false.
void ObjectStore::forEachObject(const std::string& prefix, int pageSize,
                                const std::function<bool(const ObjectClient::Object&)>& visit) const {
    std::string after;
    for (bool hasMore = true; hasMore;) {
        const ObjectClient::Page page = m_client->list(prefix, after, pageSize);
        for (const ObjectClient::Object& object : page.objects) {
            if (!visit(object)) {
                return;
            }
        }
        hasMore = page.hasMore && !page.objects.empty();
        after = page.objects.empty() ? "" : page.objects.back().key;
    }
}

// The first object is the newest backup, unless foreign ones sort before it.
std::optional<BackupName> ObjectStore::newest(const Address& address) const {
    std::optional<BackupName> newest;
    forEachObject(folderOf(address), SHORT_PAGE_SIZE, [&](const ObjectClient::Object& object) {
        newest = nameIn(object);
        return !newest;
    });
    return newest;
}

std::string ObjectStore::put(const NewBackup& backup, const fs::path& bundle) {
    const std::optional<BackupName> before = newest(backup);
    const std::uint64_t number = before ? numberOf(before->id) + 1 : 1;
    if (number > MAX_SEQUENCE) {
        throw Error(Error::Kind::Denied, fmt::format("{} is full", folderOf(backup)));
    }
    Json::Value info;
    info["time"] = utcNow();
    info["name"] = toUtf8(bundle.filename().string());
    info["device"] = toUtf8(backup.device);
    info["sha256"] = digestOf(bundle);
    info["metadata"] = Json::Value::UInt64(backup.metadata.size());
    info["bundle"] = Json::Value::UInt64(fs::file_size(bundle));
    if (backup.services) {
        info["services"] = Json::Value::UInt64(*backup.services);
    }
    if (backup.refuseDuplicate && before) {
        ObjectReader reader("");
        // The digest of a head alone is not checked; one that is damaged refuses nothing.
        const ObjectClient::Sink sink{[&] { reader.restart(); }, [&](std::string_view bytes) { reader.take(bytes); }};
        try {
            m_client->get(keyOf(*before), USUAL_HEAD, sink);
            reader.finish();
        } catch (const Error& error) {
            if (error.kind() != Error::Kind::Damaged && error.kind() != Error::Kind::Missing) {
                throw;
            }
        }
        if (reader.hasHead() && reader.info()["sha256"] == info["sha256"]) {
            throw Error(Error::Kind::Duplicate, fmt::format("backup {} has the very same bundle", before->id));
        }
    }
    const std::string rest = writeJson(info) + "\n" + backup.metadata;
    ObjectClient::Body body;
    body.file = bundle;
    body.header = fmt::format("{}{}\n", MARK, Digest().addBytes(rest).addFile(bundle).hex()) + rest;
    body.size = body.header.size() + info["bundle"].asUInt64();
    body.sha256 = Digest().addBytes(body.header).addFile(bundle).hex();
    BackupName name{backup, fmt::format("{}-{:08x}", textOf(number), std::random_device()()), ""};
    m_client->put(keyOf(name), body);
    return name.id;
}

// The store does not say if it had nothing to remove: it is asked before.
void ObjectStore::remove(const BackupName& backup) {
    look(backup);
    m_client->remove(keyOf(backup));
}

StoreContent ObjectStore::content() const {
    StoreContent content;
    forEachObject(m_prefix, PAGE_SIZE, [&](const ObjectClient::Object& object) {
        if (std::optional<BackupName> name = nameIn(object)) {
            content.backups.push_back(std::move(*name));
        } else {
            content.foreign.push_back(object.key);
        }
        return true;
    });
    // The listing has the newest of a category first.
    for (auto first = content.backups.begin(); first != content.backups.end();) {
        const auto last = std::find_if(first, content.backups.end(),
                                       [&](const BackupName& name) { return folderOf(name) != folderOf(*first); });
        std::reverse(first, last);
        first = last;
    }
    return content;
}

StoredBackup ObjectStore::look(const BackupName& name) const {
    ObjectReader reader("");
    const ObjectClient::Sink sink{[&] { reader.restart(); }, [&](std::string_view bytes) { reader.take(bytes); }};
    try {
        m_client->get(keyOf(name), USUAL_HEAD, sink);
        if (!reader.hasHead()) {
            m_client->get(keyOf(name), MOST_OF_A_HEAD, sink);
        }
        reader.finish();
        return described(name, reader);
    } catch (const Error& error) {
        if (error.kind() != Error::Kind::Damaged) {
            throw;
        }
        return damaged(name, error.what());
    }
}

StoredBackup ObjectStore::fetch(const BackupName& name, const fs::path& folder) const {
    ObjectReader reader(folder);
    try {
        m_client->get(keyOf(name), 0, {[&] { reader.restart(); }, [&](std::string_view bytes) { reader.take(bytes); }});
        reader.finish();
        return described(name, reader);
    } catch (const Error& error) {
        std::error_code ignored;
        fs::remove(reader.target(), ignored);
        if (error.kind() != Error::Kind::Damaged) {
            throw;
        }
        return damaged(name, error.what());
    }
}

}  // namespace sim
