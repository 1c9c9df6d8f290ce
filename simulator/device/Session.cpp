#include "simulator/device/Session.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "simulator/base/Text.h"
#include "simulator/lineup/Application.h"

namespace sim {

namespace {

// A line that has no end is shown in parts.
constexpr std::size_t MAX_LINE_BYTES = 16U << 10;

void showLine(std::string_view line) {
    std::fprintf(stderr, "%s printed: %s\n", application::NAME, shown(line).c_str());
}

}  // namespace

void Printed::show() {
    std::array<char, 4096> buffer;
    for (;;) {
        const ssize_t size = ::read(m_pipe.get(), buffer.data(), buffer.size());
        if (size < 0 && errno == EAGAIN) {
            return;
        }
        if (size <= 0) {  // nobody can print into it any more
            m_pipe.reset();
            return;
        }
        m_line.append(buffer.data(), static_cast<std::size_t>(size));
        std::size_t begin = 0;
        for (std::size_t end = m_line.find('\n'); end != std::string::npos; end = m_line.find('\n', begin)) {
            showLine(std::string_view(m_line).substr(begin, end - begin));
            begin = end + 1;
        }
        m_line.erase(0, begin);
        if (m_line.size() > MAX_LINE_BYTES) {
            finish();
        }
    }
}

void Printed::finish() {
    if (!m_line.empty()) {
        showLine(m_line);
        m_line.clear();
    }
}

Session::Session(Descriptor socket, std::vector<Descriptor> pipes) : m_channel(std::move(socket)) {
    for (Descriptor& pipe : pipes) {
        // show() reads until there is no more, and must not wait for what the application may print later.
        ::fcntl(pipe.get(), F_SETFL, O_NONBLOCK);
        m_printed.emplace_back(std::move(pipe));
    }
}

wire::Message Session::receive() {
    for (;;) {
        if (std::optional<wire::Message> message = m_channel.next()) {
            return std::move(*message);
        }
        if (!m_channel.receiveNow()) {
            waitForMessage(std::nullopt);
        }
    }
}

void Session::serve() {
    for (;;) {
        m_dispatch(receive());
    }
}

std::string Session::callBack(std::uint16_t event, const std::string& body) {
    // The TV's time jumps from event to event and stands in between, so it is told here alone.
    if (const auto time = m_clock ? m_clock() : std::nullopt) {
        m_channel.send(wire::Kind::Time, 0, wire::encode(static_cast<std::int64_t>(time->count())));
    }
    m_channel.send(wire::Kind::Event, event, body);
    for (;;) {
        wire::Message message = receive();
        if (message.kind == wire::Kind::Returned) {
            return std::move(message.body);
        }
        m_dispatch(message);
    }
}

void Session::pause(std::chrono::milliseconds duration) {
    // While the application waits for an event it sends nothing: all that can come is its end.
    if (waitForMessage(duration)) {
        m_channel.receiveNow();
    }
}

void Session::finish() {
    for (Printed& printed : m_printed) {
        // What was printed last can still be in the pipe.
        if (printed.descriptor() >= 0) {
            printed.show();
        }
        printed.finish();
    }
}

bool Session::waitForMessage(std::optional<std::chrono::milliseconds> duration) {
    const auto end = std::chrono::steady_clock::now() + duration.value_or(std::chrono::milliseconds(0));
    for (;;) {
        // A pipe that has ended has the descriptor -1, which poll() passes over.
        std::vector<pollfd> places = {{m_channel.descriptor(), POLLIN, 0}};
        for (const Printed& printed : m_printed) {
            places.push_back({printed.descriptor(), POLLIN, 0});
        }
        int patience = -1;
        if (duration) {
            // Rounded up: with less than a millisecond left, poll(0) would be called again and again.
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
            patience = static_cast<int>(std::max(left, std::chrono::milliseconds(0)).count());
        }
        if (::poll(places.data(), static_cast<nfds_t>(places.size()), patience) == 0) {
            return false;
        }
        for (std::size_t i = 0; i < m_printed.size(); ++i) {
            if (places[i + 1].revents != 0) {
                m_printed[i].show();
            }
        }
        if (places.front().revents != 0) {
            return true;
        }
    }
}

}  // namespace sim
