#include "simulator/wire/Channel.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace wire {

namespace {

// A list of the paths of 100,000 files takes a fifth.
constexpr std::uint32_t MAX_MESSAGE_BYTES = 64U << 20;

struct Header {
    std::uint32_t size;  // of the body
    Kind kind;
    std::uint16_t id;
};
static_assert(sizeof(Header) == 8, "no padding: it would send what is in memory");

}  // namespace

void Channel::send(Kind kind, std::uint16_t id, std::string_view body) {
    if (body.size() > MAX_MESSAGE_BYTES) {
        throw ProtocolError{"a message is too long"};
    }
    Header header{static_cast<std::uint32_t>(body.size()), kind, id};
    // Both in one call, and the body without a copy.
    std::array<iovec, 2> parts = {{{&header, sizeof header}, {const_cast<char*>(body.data()), body.size()}}};
    msghdr message = {};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    for (std::size_t left = sizeof header + body.size(); left > 0;) {
        // Without SIGPIPE, which would end the process: what is to be done if the other side is gone is for the caller.
        const ssize_t sent = ::sendmsg(m_socket.get(), &message, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent <= 0) {
            throw Closed();
        }
        left -= static_cast<std::size_t>(sent);
        // A long message can go in parts: what has been sent is taken off the front.
        std::size_t done = static_cast<std::size_t>(sent);
        for (iovec& part : parts) {
            const std::size_t step = std::min(done, part.iov_len);
            part.iov_base = static_cast<char*>(part.iov_base) + step;
            part.iov_len -= step;
            done -= step;
        }
    }
}

std::optional<Message> Channel::next() {
    const std::string_view received = std::string_view(m_received).substr(m_taken);
    if (received.size() < sizeof(Header)) {
        return std::nullopt;
    }
    Header header{};
    std::memcpy(&header, received.data(), sizeof header);
    // Before memory is taken for a body of that size.
    if (header.size > MAX_MESSAGE_BYTES) {
        throw ProtocolError{"a message is too long"};
    }
    if (received.size() - sizeof header < header.size) {
        return std::nullopt;
    }
    Message message{header.kind, header.id, std::string(received.substr(sizeof header, header.size))};
    m_taken += sizeof header + header.size;
    return message;
}

bool Channel::receiveNow() {
    return receive(MSG_DONTWAIT);
}

bool Channel::receive(int flags) {
    // Once for all messages that were taken: after each of them, all that follow would be moved.
    m_received.erase(0, m_taken);
    m_taken = 0;
    std::array<char, 64U << 10> buffer;
    ssize_t size = 0;
    do {
        size = ::recv(m_socket.get(), buffer.data(), buffer.size(), flags);
    } while (size < 0 && errno == EINTR);
    if (size < 0 && errno == EAGAIN) {
        return false;
    }
    if (size <= 0) {
        throw Closed();
    }
    m_received.append(buffer.data(), static_cast<std::size_t>(size));
    return true;
}

}  // namespace wire
