// The conversation with the application, which runs in a process of its own: it makes platform calls, and is called
// back while it waits for an answer.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "simulator/base/Descriptor.h"
#include "simulator/wire/Channel.h"

namespace sim {

// What the application prints, by way of a pipe. It is shown as the application's own, line by line, and escaped.
class Printed {
public:
    explicit Printed(Descriptor pipe) : m_pipe(std::move(pipe)) {}

    int descriptor() const { return m_pipe.get(); }  // -1: it prints on its own

    // Shows what there is, without waiting.
    void show();

    // Shows the last line if it has no end.
    void finish();

private:
    Descriptor m_pipe;
    std::string m_line;
};

class Session {
public:
    // Takes any message but those that end an event.
    using Dispatch = std::function<void(const wire::Message&)>;

    // `pipes` are what the application prints into.
    Session(Descriptor socket, std::vector<Descriptor> pipes);

    // Sets what becomes of the application's messages.
    void setDispatch(Dispatch dispatch) { m_dispatch = std::move(dispatch); }

    // Sets what tells the TV's time. It is told to the application before each event; nothing if it is the machine's.
    using Clock = std::function<std::optional<std::chrono::milliseconds>()>;
    void setClock(Clock clock) { m_clock = std::move(clock); }

    // Waits for the application's next message. Like all that follows throws wire::Closed when the application has
    // ended, and wire::ProtocolError if it sends what is none of this protocol.
    wire::Message receive();

    // Receives and dispatches messages until the application has ended.
    void serve();

    void send(wire::Kind kind, std::uint16_t id, std::string_view body) { m_channel.send(kind, id, body); }

    // Calls the application, which may make platform calls before it returns.
    template <wire::EventId id, typename... Values>
    auto deliver(const Values&... values) {
        const typename wire::EventCall<id>::Arguments arguments(values...);
        const std::string body = std::apply([](const auto&... each) { return wire::encode(each...); }, arguments);
        return std::get<0>(wire::decode<std::tuple<typename wire::EventCall<id>::Answer>>(
            callBack(static_cast<std::uint16_t>(id), body)));
    }

    // Waits, for a person who wants to watch. Throws wire::Closed.
    void pause(std::chrono::milliseconds duration);

    // Shows what the application has printed until it ended.
    void finish();

private:
    std::string callBack(std::uint16_t event, const std::string& body);

    // Waits until the application sends something, or for the duration, and shows meanwhile what it prints. Returns
    // false if the time is up.
    bool waitForMessage(std::optional<std::chrono::milliseconds> duration);

    wire::Channel m_channel;
    std::vector<Printed> m_printed;
    Dispatch m_dispatch;
    Clock m_clock;
};

}  // namespace sim
