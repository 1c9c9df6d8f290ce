#include "simulator/device/Svdrp.h"

#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "simulator/base/Error.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Text.h"

namespace sim {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto CONNECT_LIMIT = 5s;
constexpr auto ANSWER_LIMIT = 20s;

bool isLoopback(const sockaddr* address) {
    if (address->sa_family == AF_INET6) {
        return IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr);
    }
    return (ntohl(reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr) >> 24U) == IN_LOOPBACKNET;
}

// Returns the error number, or 0.
int connectTo(const addrinfo& place, const Descriptor& socket) {
    if (::connect(socket.get(), place.ai_addr, place.ai_addrlen) != 0 && errno != EINPROGRESS) {
        return errno;
    }
    if (!waitForDescriptor(socket, POLLOUT, Clock::now() + CONNECT_LIMIT)) {
        return ETIMEDOUT;
    }
    int error = 0;
    socklen_t size = sizeof error;
    return ::getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

}  // namespace

bool waitForDescriptor(const Descriptor& descriptor, short events, Clock::time_point end) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    pollfd place = {descriptor.get(), events, 0};
    return ::poll(&place, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0))) > 0;
}

Svdrp::Svdrp(const std::string& address) : m_address(address) {
    connect();
    const Answer greeting = receive();
    if (greeting.code != 220) {
        throw Error(
            fmt::format("{}: VDR does not let this machine in: {}", m_address, inQuotes(greeting.lines.front())));
    }
}

Svdrp::~Svdrp() {
    constexpr std::string_view QUIT = "QUIT\r\n";
    static_cast<void>(::send(m_socket.get(), QUIT.data(), QUIT.size(), MSG_NOSIGNAL));
}

Svdrp::Answer Svdrp::ask(const std::string& command) {
    // An identity may come from a bundle.
    if (command.find_first_of("\r\n") != std::string::npos) {
        throw Error(fmt::format("{}: VDR cannot be asked for {}", m_address, inQuotes(command)));
    }
    const std::string line = command + "\r\n";
    if (::send(m_socket.get(), line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size())) {
        throw Error::ofSystem(m_address, "VDR has closed the connection");
    }
    return receive();
}

void Svdrp::connect() {
    const std::size_t colon = m_address.rfind(':');
    const std::string port = m_address.substr(std::min(colon, m_address.size() - 1) + 1);
    if (colon == std::string::npos || toNumber<std::uint16_t>(port).value_or(0) == 0) {
        throw Error(fmt::format("{} is not HOST:PORT, such as localhost:6419", inQuotes(m_address)));
    }
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const std::string host = m_address.substr(0, colon);
    if (const int code = ::getaddrinfo(host.c_str(), port.c_str(), &hints, &found); code != 0) {
        throw Error(fmt::format("{}: {}; give the host that VDR runs on", m_address, ::gai_strerror(code)));
    }
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(found, &::freeaddrinfo);
    int error = 0;
    for (const addrinfo* each = found; each != nullptr; each = each->ai_next) {
        m_socket = Descriptor(::socket(each->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        error = connectTo(*each, m_socket);
        if (error == 0) {
            m_isLocal = isLoopback(each->ai_addr);
            return;
        }
    }
    throw Error::ofSystem(m_address, "VDR cannot be reached; start it, or give the place of its SVDRP with --vdr",
                          error);
}

Svdrp::Answer Svdrp::receive() {
    const Clock::time_point end = Clock::now() + ANSWER_LIMIT;
    Answer answer;
    std::uint64_t bytes = 0;
    for (bool isLast = false; !isLast;) {
        const std::string text = line(end);
        const std::optional<int> code = toNumber<int>(text.substr(0, 3));
        if (text == "Access denied!") {
            throw Error(fmt::format("{}: VDR does not let this machine in; add its address to VDR's svdrphosts.conf",
                                    m_address));
        }
        if (!code || text.size() < 4 || (text[3] != '-' && text[3] != ' ')) {
            throw Error(fmt::format("{}: what answers is no VDR: {}; give the place of its SVDRP with --vdr", m_address,
                                    inQuotes(text)));
        }
        bytes += text.size();
        limits::require("bytes of VDR's answer", bytes, limits::CHANNEL_LIST_BYTES);
        answer.code = *code;
        answer.lines.push_back(text.substr(4));
        isLast = text[3] == ' ';
    }
    return answer;
}

// Without its end.
std::string Svdrp::line(Clock::time_point end) {
    for (std::size_t at = 0;;) {
        const std::size_t newline = m_received.find('\n', at);
        if (newline != std::string::npos) {
            std::string line = m_received.substr(0, newline);
            m_received.erase(0, newline + 1);
            return line.substr(0, line.find_last_not_of('\r') + 1);
        }
        limits::require("bytes of a line of VDR's", m_received.size(), limits::CHANNEL_LINE_BYTES);
        at = m_received.size();
        char buffer[4096];
        if (!waitForDescriptor(m_socket, POLLIN, end)) {
            throw Error(fmt::format("{}: no answer in {} seconds; is it VDR's SVDRP?", m_address,
                                    std::chrono::seconds(ANSWER_LIMIT).count()));
        }
        const ssize_t count = ::recv(m_socket.get(), buffer, sizeof buffer, 0);
        if (count <= 0) {
            throw Error(fmt::format("{}: VDR has closed the connection", m_address));
        }
        m_received.append(buffer, static_cast<std::size_t>(count));
    }
}

}  // namespace sim
