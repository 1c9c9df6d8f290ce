// The addresses of an object store: which of them to ask, and which are down.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace sim {

class Endpoints {
public:
    // `notes` is a file that other processes learn from that an address is down; empty: none.
    Endpoints(std::vector<std::string> addresses, std::filesystem::path notes);

    // All addresses, in the order in which to ask them for an account: each account has an order of its own, which
    // depends on their places in the list, so that accounts spread evenly. Those that were down within the last minute
    // come last.
    std::vector<std::string> orderFor(const std::string& account) const;

    // Remembers, for this process and in the notes, that an address could not be reached.
    void markDown(const std::string& address);

private:
    std::vector<std::string> m_addresses;
    std::filesystem::path m_notes;
};

}  // namespace sim
