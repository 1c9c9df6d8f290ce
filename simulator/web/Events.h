// What happens in a lab while somebody watches, as server-sent events: records of runs as they are written, and that
// something has changed.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "simulator/cloud/CloudStore.h"
#include "simulator/web/Lab.h"

namespace sim {

class Watch {
public:
    explicit Watch(const Lab& lab) : m_lab(lab) {}

    // The events since the last call, as their text; empty: nothing has happened.
    std::string next();

private:
    // How far a TV has been watched.
    struct Seen {
        std::string status;
        std::int64_t run = 0;
        int seq = 0;
        bool isOpen = false;
    };

    void watchCloud(std::string& events);
    void watchTv(const std::string& name, std::string& events);
    void watchRun(const std::string& name, class Tv& tv, Seen& seen, std::string& events);

    const Lab& m_lab;
    std::map<std::string, Seen> m_seen;
    std::unique_ptr<CloudStore> m_store;
    std::string m_cloud;
    std::chrono::steady_clock::time_point m_nextLook;
    bool m_isFirst = true;
};

}  // namespace sim
