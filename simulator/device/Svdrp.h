// A connection to VDR by SVDRP, its line protocol.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "simulator/base/Descriptor.h"

namespace sim {

// Waits until a descriptor has one of poll()'s events. Returns false if the time is over first.
bool waitForDescriptor(const Descriptor& descriptor, short events, std::chrono::steady_clock::time_point end);

// What arrives is bounded in lines, in bytes and in time. Every function throws Error if VDR does not answer as it
// should.
class Svdrp {
public:
    struct Answer {
        int code = 0;
        std::vector<std::string> lines;  // one at least; any bytes
    };

    // The address is HOST:PORT.
    explicit Svdrp(const std::string& address);
    ~Svdrp();
    Svdrp(const Svdrp&) = delete;
    Svdrp& operator=(const Svdrp&) = delete;

    Answer ask(const std::string& command);

    bool isLocal() const { return m_isLocal; }  // by the loopback

private:
    void connect();
    Answer receive();
    std::string line(std::chrono::steady_clock::time_point end);

    std::string m_address;
    Descriptor m_socket;
    bool m_isLocal = false;
    std::string m_received;  // that no line was made of
};

}  // namespace sim
