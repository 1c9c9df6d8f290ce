#include "simulator/cloud/Examination.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <random>

#include "simulator/base/Digest.h"
#include "simulator/base/Error.h"
#include "simulator/cloud/ObjectClient.h"

namespace sim {

namespace {

// A signature that is older, or younger, is refused.
constexpr std::chrono::minutes MAX_SKEW{15};
constexpr int OBJECTS = 3;

class Examination {
public:
    Examination(std::string bucket, const std::string& prefix, const ObjectSettings& settings)
        : m_bucket(std::move(bucket)),
          m_settings(settings),
          m_prefix(fmt::format("{}~check-{:08x}/", prefix, std::random_device()())),
          m_client(m_bucket, {}, settings) {}

    std::vector<StoreTrial> examine() {
        for (const std::string& address : m_settings.endpoints) {
            find(fmt::format("address {}", address), [&] { return askAddress(address); });
        }
        find("signature", [&] { return refuseWrongSecret(); });
        find("writing and reading", [&] { return writeAndRead(); });
        find("listing", [&] { return listByPages(); });
        find("removing", [&] { return removeAll(); });
        find("conditional writing", [&] { return writeTwice(); });
        find("versions", [&] { return m_client.configuration("versioning"); });
        find("object lock", [&] { return m_client.configuration("object-lock"); });
        return std::move(m_trials);
    }

private:
    // `act` returns what it has found out, and throws Error if the store is not fit.
    void find(const std::string& what, const std::function<std::string()>& act) {
        try {
            m_trials.push_back({what, true, act()});
        } catch (const Error& error) {
            m_trials.push_back({what, false, error.what()});
        }
    }

    [[noreturn]] static void fail(const char* why) { throw Error(Error::Kind::Denied, why); }

    std::string askAddress(const std::string& address) const {
        ObjectSettings alone = m_settings;
        alone.endpoints = {address};
        ObjectClient client(m_bucket, {}, alone);
        client.list(m_prefix, 1, [](const ObjectClient::Object&) { return false; });
        const std::optional<std::chrono::seconds> ahead = client.clockAhead();
        if (ahead && std::chrono::abs(*ahead) > MAX_SKEW) {
            fail("its clock and that of this machine differ too much");
        }
        return ahead ? fmt::format("answers; its clock is {} s from this machine's", ahead->count()) : "answers";
    }

    std::string refuseWrongSecret() const {
        ObjectSettings wrong = m_settings;
        wrong.secret += "x";
        try {
            ObjectClient(m_bucket, {}, wrong).list(m_prefix, 1, [](const ObjectClient::Object&) { return false; });
        } catch (const Error& error) {
            if (error.kind() == Error::Kind::Denied) {
                return "a wrong secret is refused";
            }
            throw;
        }
        fail("it takes a wrong secret: everybody can read and remove the backups");
    }

    std::string keyOf(int number) const { return fmt::format("{}{} +ä", m_prefix, number); }

    static ObjectClient::Body bodyOf(const std::string& text) {
        return {text, "", text.size(), Digest().addBytes(text).hex()};
    }

    std::string read(int number, std::uint64_t maxBytes) {
        std::string text;
        m_client.get(keyOf(number), maxBytes,
                     {[&] { text.clear(); }, [](std::uint64_t) {}, [&](std::string_view piece) { text += piece; }});
        return text;
    }

    std::string writeAndRead() {
        for (int i = 0; i < OBJECTS; ++i) {
            m_client.put(keyOf(i), bodyOf(fmt::format("object {}", i)));
        }
        if (read(1, 0) != "object 1") {
            fail("what is read is not what was written");
        }
        return read(1, 3) == "obj" ? "objects come back, and parts of them" : "objects come back, but only as a whole";
    }

    std::string listByPages() {
        int count = 0;
        m_client.list(m_prefix, 1, [&](const ObjectClient::Object& object) {
            count += object.key == keyOf(count) ? 1 : 0;
            return true;
        });
        if (count != OBJECTS) {
            fail("it does not list what was just written, page by page and in order");
        }
        return "what was just written is listed, page by page and in order";
    }

    std::string removeAll() {
        for (int i = 0; i < OBJECTS; ++i) {
            m_client.remove(keyOf(i));
        }
        m_client.list(m_prefix, 1, [](const ObjectClient::Object&) -> bool { fail("it lists what was removed"); });
        return "what was removed is listed no more";
    }

    // Backups have keys of their own, and need no condition.
    std::string writeTwice() {
        const bool isFirstWritten = m_client.putIfAbsent(keyOf(0), bodyOf("1"));
        const bool isSecondWritten = isFirstWritten && m_client.putIfAbsent(keyOf(0), bodyOf("2"));
        m_client.remove(keyOf(0));
        return isFirstWritten && !isSecondWritten ? "yes" : "no; backups do not need it";
    }

    std::string m_bucket;
    const ObjectSettings& m_settings;
    std::string m_prefix;
    ObjectClient m_client;
    std::vector<StoreTrial> m_trials;
};

}  // namespace

std::vector<StoreTrial> examineObjectStore(const std::string& bucket, const std::string& prefix,
                                           const ObjectSettings& settings) {
    return Examination(bucket, prefix, settings).examine();
}

}  // namespace sim
