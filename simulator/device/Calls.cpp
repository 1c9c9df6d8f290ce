#include "simulator/device/Calls.h"

#include <cstdio>
#include <stdexcept>

#include "simulator/base/Text.h"
#include "simulator/device/LogPrinter.h"
#include "simulator/lineup/Application.h"

namespace sim {

const std::string& detail::checked(const wire::Text& text) {
    if (!text) {
        // A std::exception, by which the call fails like one whose file cannot be used.
        throw std::invalid_argument("null is no text");
    }
    return *text;
}

Calls::Calls(Device& served) : device(served) {
    addAppCalls(*this);
    addSettingsCalls(*this);
    addCloudCalls(*this);
    addDatabaseCalls(*this);
    addViewingCalls(*this);
    addCiCalls(*this);
}

void Calls::addBefore(wire::CallId id, const Handler& first) {
    Handler& handler = m_handlers.at(static_cast<std::size_t>(id));
    handler = [first, then = std::move(handler)](std::string_view body, bool isAnswered) {
        first(body, isAnswered);
        then(body, isAnswered);
    };
}

void Calls::dispatch(const wire::Message& message) {
    if (message.kind == wire::Kind::SystemLog) {
        const auto [log] = wire::decode<std::tuple<wire::SystemLog>>(message.body);
        printLog(device, log);
        device.record.systemLog(log.priority, log.tag, log.text);
    } else if (message.kind == wire::Kind::Logger) {
        const auto [log] = wire::decode<std::tuple<wire::Logger>>(message.body);
        device.record.logger(log.file, log.function, log.line, log.message);
    } else if (message.kind == wire::Kind::Crash) {
        const auto [detail] = wire::decode<std::tuple<std::string>>(message.body);
        std::fprintf(stderr, "%s crashed: %s\n", application::NAME, shown(detail).c_str());
        device.record.ended(RunEnd::Crashed, detail);
        // The application waits for it before it aborts, so that its end is on record before its process is gone.
        device.session.send(wire::Kind::Answer, 0, "");
    } else {
        const bool isAnswered = message.kind == wire::Kind::Call;
        if ((!isAnswered && message.kind != wire::Kind::Notice) || message.id >= m_handlers.size() ||
            !m_handlers[message.id]) {
            throw wire::ProtocolError{"there is no such call"};
        }
        try {
            m_handlers[message.id](message.body, isAnswered);
        } catch (const Failed& failed) {
            // It is to be thrown on the other side of the socket.
            device.session.send(wire::Kind::Exception, message.id, wire::encode(failed.what));
        }
    }
}

void Calls::answer(wire::CallId id, std::string_view body) {
    device.session.send(wire::Kind::Answer, static_cast<std::uint16_t>(id), body);
}

std::optional<Hit> Calls::nextFailure(const PlatformCall& call, const std::string& arguments) {
    std::optional<Hit> hit = device.faults.next(call);
    if (fails(hit, Failure::Kind::Throw)) {
        device.record.call(call.name, arguments, "exception", hit->rule);
        throw Failed{fmt::format("{} failed on demand", call.name)};
    }
    return hit;
}

void postEvent(Calls& calls, const PlatformCall& event, const std::string& about, std::chrono::milliseconds delay,
               int code, const std::function<void(const Arrival&)>& deliver) {
    Device& device = calls.device;
    // Decided when the event is sent: the nth is the nth that was sent, whatever delays do to the order.
    const std::optional<Hit> hit = calls.nextFailure(event, about);
    if (fails(hit, Failure::Kind::Lost)) {
        device.record.call(event.name, about, "lost", hit->rule);
        return;
    }
    if (fails(hit, Failure::Kind::Delay)) {
        delay += std::chrono::milliseconds(hit->failure.number);
    }
    Arrival arrival;
    arrival.code = fails(hit, Failure::Kind::Result) ? hit->failure.number : code;
    arrival.hasUserData = !fails(hit, Failure::Kind::Null);
    arrival.hasData = !fails(hit, Failure::Kind::NoData);
    if (fails(hit, Failure::Kind::Damage)) {
        arrival.damage = hit->failure.damage;
    }
    arrival.fault = hit ? std::optional(hit->rule) : std::nullopt;
    device.loop.post(delay, [arrival, deliver] { deliver(arrival); });
}

}  // namespace sim
