// Messages over a stream socket.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "simulator/base/Descriptor.h"
#include "simulator/wire/Calls.h"

namespace wire {

// The other side has ended. Not a std::exception either.
struct Closed {};

struct Message {
    Kind kind{};
    std::uint16_t id = 0;  // of a call or an event
    std::string body;
};

class Channel {
public:
    explicit Channel(sim::Descriptor socket) : m_socket(std::move(socket)) {}

    int descriptor() const { return m_socket.get(); }

    // Throws Closed; ProtocolError if the message is too long.
    void send(Kind kind, std::uint16_t id, std::string_view body);

    // The next message, if it has come as a whole; nothing if more must be received first. Throws ProtocolError.
    std::optional<Message> next();

    // Receives more, and waits for it. Throws Closed.
    void receive() { receive(0); }

    // The same without waiting. Returns false if there is nothing.
    bool receiveNow();

    // Ends the other side's wait: its next receive() throws Closed.
    void close() { m_socket.reset(); }

private:
    bool receive(int flags);

    sim::Descriptor m_socket;
    std::string m_received;
    std::size_t m_taken = 0;  // of these bytes
};

}  // namespace wire
