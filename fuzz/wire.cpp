// What either side of the socket between the application and the TV reads: a message is taken as a whole, and is the
// same when it is written again, or it is refused.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "simulator/base/Descriptor.h"
#include "simulator/wire/Channel.h"

namespace {

template <typename Values>
void check(std::string_view body) {
    try {
        const Values values = wire::decode<Values>(body);
        if (std::apply([](const auto&... each) { return wire::encode(each...); }, values) != body) {
            std::abort();
        }
    } catch (const wire::ProtocolError&) {
    }
}

template <typename Signature>
struct Check {
    static void both(std::string_view body) {
        check<typename wire::Traits<Signature>::Arguments>(body);
        check<std::tuple<typename wire::Traits<Signature>::Answer>>(body);
    }
};
template <>
struct Check<wire::NoCall> {
    static void both(std::string_view /*body*/) {}
};

void checkCall(std::uint16_t id, std::string_view body) {
    std::uint16_t next = 0;
#define PLATFORM_CALL(identifier, ...)                                                   \
    if (id == next++) {                                                                  \
        Check<typename wire::CallSignature<wire::CallId::identifier>::Type>::both(body); \
    }
#include "simulator/wire/PlatformCalls.inc"
#undef PLATFORM_CALL
}

void checkEvent(std::uint16_t id, std::string_view body) {
    std::uint16_t next = 0;
#define EVENT(identifier, ...)                                                             \
    if (id == next++) {                                                                    \
        Check<typename wire::EventSignature<wire::EventId::identifier>::Type>::both(body); \
    }
    WIRE_EVENTS(EVENT)
#undef EVENT
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    sim::DescriptorPair ends = sim::socketPair("the fuzzer");
    wire::Channel channel(std::move(ends[0]));
    static_cast<void>(::send(ends[1].get(), data, size, MSG_DONTWAIT));
    ends[1].reset();
    try {
        for (;;) {
            while (const std::optional<wire::Message> message = channel.next()) {
                checkCall(message->id, message->body);
                checkEvent(message->id, message->body);
                check<std::tuple<wire::Hello>>(message->body);
                check<std::tuple<wire::Welcome>>(message->body);
                check<std::tuple<wire::Logger>>(message->body);
            }
            channel.receive();
        }
    } catch (const wire::Closed&) {
    } catch (const wire::ProtocolError&) {
    }
    return 0;
}
