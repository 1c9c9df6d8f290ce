// What happens in a lab, as server-sent events: "run" brings the records of a run as they are written, "tv" and "cloud"
// say that something has changed.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "simulator/web/Lab.h"

namespace sim {

class Watch {
public:
    explicit Watch(const Lab& lab) : m_lab(lab) {}

    // The text of the events since the last call; empty if nothing has happened.
    std::string next();

private:
    // What is known of a TV.
    struct Seen {
        std::string status;
        std::int64_t run = 0;  // the newest
        int seq = 0;           // of its last record that was told
        bool isOpen = false;
    };

    void watchCloud(std::string& events);
    void watchTv(const std::string& name, const std::filesystem::path& home, std::string& events);
    void watchRun(const std::string& name, const Tv& tv, Seen& seen, std::string& events);

    const Lab& m_lab;
    std::map<std::string, Seen> m_seen;
    std::unique_ptr<CloudStore> m_store;
    std::string m_cloud;
    std::chrono::steady_clock::time_point m_nextLook;
    bool m_isFirst = true;
};

}  // namespace sim
