#include "simulator/cloud/Endpoints.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <tuple>
#include <utility>

#include "simulator/base/Clock.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Text.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr std::chrono::minutes MEMORY{1};
constexpr std::uint64_t NOTES_BYTES = 64U << 10;

// When each address was last found to be down, in milliseconds; of all stores of the process.
class DownAddresses {
public:
    void add(const std::string& address, std::int64_t when) {
        const std::lock_guard guard(m_mutex);
        m_times[address] = std::max(m_times[address], when);
    }

    std::map<std::string, std::int64_t> all() const {
        const std::lock_guard guard(m_mutex);
        return m_times;
    }

private:
    mutable std::mutex m_mutex;
    std::map<std::string, std::int64_t> m_times;
};

DownAddresses& downAddresses() {
    static DownAddresses addresses;
    return addresses;
}

// A line each: the time, and the address. What cannot be read was not noted.
void readNotes(const fs::path& notes) {
    if (notes.empty() || !isRegularFile(notes)) {
        return;
    }
    try {
        for (const std::string& line : split(readFile(notes, NOTES_BYTES), '\n')) {
            const std::size_t blank = line.find(' ');
            const std::optional<std::int64_t> when = toNumber<std::int64_t>(line.substr(0, blank));
            if (when && blank != std::string::npos) {
                downAddresses().add(line.substr(blank + 1), *when);
            }
        }
    } catch (const Error&) {
    }
}

}  // namespace

Endpoints::Endpoints(std::vector<std::string> addresses, fs::path notes)
    : m_addresses(std::move(addresses)), m_notes(std::move(notes)) {}

std::vector<std::string> Endpoints::orderFor(const std::string& account) const {
    if (m_addresses.size() == 1) {
        return m_addresses;
    }
    readNotes(m_notes);
    const std::map<std::string, std::int64_t> down = downAddresses().all();
    const std::int64_t now = machineTime().count();
    // A time ahead of the clock, which was set back, is none.
    const auto isDown = [&](const std::string& address) {
        const auto found = down.find(address);
        return found != down.end() && found->second <= now &&
               now - found->second < std::chrono::milliseconds(MEMORY).count();
    };
    std::vector<std::tuple<bool, std::size_t, std::string>> ranked;
    ranked.reserve(m_addresses.size());
    for (std::size_t i = 0; i < m_addresses.size(); ++i) {
        const std::size_t rank = std::hash<std::string>()(account + " " + std::to_string(i));
        ranked.emplace_back(isDown(m_addresses[i]), rank, m_addresses[i]);
    }
    std::sort(ranked.begin(), ranked.end());
    std::vector<std::string> order;
    order.reserve(ranked.size());
    for (const auto& [isLast, rank, address] : ranked) {
        order.push_back(address);
    }
    return order;
}

void Endpoints::markDown(const std::string& address) {
    downAddresses().add(address, machineTime().count());
    if (m_notes.empty() || m_addresses.size() == 1 || !isFolder(m_notes.parent_path())) {
        return;
    }
    std::string text;
    for (const auto& [each, when] : downAddresses().all()) {
        text += fmt::format("{} {}\n", when, each);
    }
    try {
        writeFile(m_notes, text);
    } catch (const Error&) {  // the next process finds it out by itself
    }
}

}  // namespace sim
