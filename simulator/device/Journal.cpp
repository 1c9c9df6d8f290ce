#include "simulator/device/Journal.h"

#include <stdexcept>

namespace sim {

std::optional<FaultRule> nextFailure(Device& device, const PlatformCall& call, const std::string& arguments) {
    std::optional<FaultRule> hit = device.faults.next(call);
    if (fails(hit, Failure::Kind::Throw)) {
        device.record.call(call.name, arguments, "exception", hit->id);
        throw std::runtime_error(fmt::format("{} failed on demand", call.name));
    }
    return hit;
}

void platformEvent(Device& device, const PlatformCall& event, const std::string& about, std::chrono::milliseconds delay,
                   int code, const std::function<void(const Arrival&)>& deliver) {
    const std::optional<FaultRule> hit = nextFailure(device, event, about);
    if (fails(hit, Failure::Kind::Lost)) {
        device.record.call(event.name, about, "lost", hit->id);
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
    arrival.fault = hit ? std::optional(hit->id) : std::nullopt;
    device.loop.post(delay, [arrival, deliver] { deliver(arrival); });
}

}  // namespace sim
