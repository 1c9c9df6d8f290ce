// The application's line to the TV's services.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "simulator/base/Process.h"
#include "simulator/wire/Channel.h"

namespace client {

// One for the process. The thread that uses it is the main one.
class Connection {
public:
    // Opened at the first use, which may be before main(). Its services are those that have launched the process, or
    // are started as another one: halcyon-tv beside this program. If they refuse to serve, the process ends with a
    // message and exit_code::USAGE, UNUSABLE or BUSY.
    static Connection& current();

    // Opens it for the application itself: what it prints goes to the services, its environment is cleared, and it is
    // confined if the services want that.
    static void openForApplication(int argc, char** argv);

    // Ends it, and waits for services that it has started. The next use begins another run.
    static void close();

    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Makes a platform call. Throws std::runtime_error if a fault rule says that the call throws, and what the
    // application throws if it is called back meanwhile.
    template <wire::CallId id>
    typename wire::Call<id>::Answer call(const typename wire::Call<id>::Arguments& arguments) {
        const std::string answer = request(static_cast<std::uint16_t>(id), encoded(arguments));
        return std::get<0>(wire::decode<std::tuple<typename wire::Call<id>::Answer>>(answer));
    }

    // Makes a platform call that has no result, and does not wait.
    template <wire::CallId id>
    void notify(const typename wire::Call<id>::Arguments& arguments) {
        send(wire::Kind::Notice, static_cast<std::uint16_t>(id), encoded(arguments));
    }

    template <typename Record>
    void log(wire::Kind kind, const Record& record) {
        send(kind, 0, wire::encode(record));
    }

private:
    Connection(bool isApplication, const std::vector<std::string>& words);

    template <typename Arguments>
    static std::string encoded(const Arguments& arguments) {
        return std::apply([](const auto&... each) { return wire::encode(each...); }, arguments);
    }

    void send(wire::Kind kind, std::uint16_t id, const std::string& body);
    std::string request(std::uint16_t id, const std::string& body);
    wire::Message receive();
    void startServices(bool isApplication);
    void greet(bool isApplication, const std::vector<std::string>& words);
    int end();
    [[noreturn]] static void recordCrash();

    std::unique_ptr<const sim::Process> m_services;  // that this process has started
    std::unique_ptr<wire::Channel> m_channel;
};

template <wire::CallId id>
typename wire::Call<id>::Answer call(const typename wire::Call<id>::Arguments& arguments) {
    return Connection::current().call<id>(arguments);
}

template <wire::CallId id>
void notify(const typename wire::Call<id>::Arguments& arguments) {
    Connection::current().notify<id>(arguments);
}

// A text as the wire carries it.
inline wire::Text text(const char* text) {
    return text != nullptr ? wire::Text(text) : std::nullopt;
}

// Gives out what a call gives out, and returns its result.
template <typename Result, typename Value, typename Out>
Result give(const wire::Answer<Result, Value>& answer, Out* out) {
    if (answer.out) {
        *out = *answer.out;
    }
    return answer.result;
}

}  // namespace client
