// What the TV service shows: mode, service, source and category; and the scan with the signal of its end.
#include <fmt/format.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "simulator/device/Calls.h"

namespace sim {

namespace {

using wire::CallId;
using wire::Handle;
using namespace std::chrono_literals;

constexpr int SIGNAL_SCAN_STOPPED = 18;
constexpr auto SCAN_STOP_DURATION = 800ms;

TvMode modeOf(const wire::TvMode& mode) {
    return {static_cast<AntennaMode>(mode.antenna), static_cast<ServiceMode>(mode.service)};
}

Category categoryOf(const wire::Category& category) {
    return {static_cast<CategoryKind>(category.kind), category.param, static_cast<SortMode>(category.sort)};
}

// Changes the viewing state. Returns the result of a call that succeeds.
int change(Device& device, const std::function<void(Viewing&)>& action) {
    device.tv.changeViewing(action);
    return 1;
}

// Makes a service the one that is on.
int show(Device& device, std::uint64_t serviceId) {
    const std::optional<Service> service = device.tv.services().find(serviceId);
    if (!service) {
        return 0;
    }
    if (device.keeper) {
        device.keeper->show(*service);
    }
    return change(device, [&](Viewing& viewing) { viewing.serviceId = serviceId; });
}

// The subscribers, by the numbers that the application's side gives its callbacks.
class Subscribers {
public:
    void create(Handle subscriber) { m_subscribers.try_emplace(subscriber.value); }

    bool destroy(Device& device, Handle subscriber) {
        end(device, subscriber);
        return m_subscribers.erase(subscriber.value) == 1;
    }

    bool subscribe(Device& device, Handle subscriber, int type, int profile) {
        const auto found = m_subscribers.find(subscriber.value);
        // One subscription each: a second one would leave the first without an end.
        if (found == m_subscribers.end() || found->second) {
            return false;
        }
        found->second = Subscription{type, profile};
        device.awaited.insert(nameOf(type));
        return true;
    }

    bool unsubscribe(Device& device, Handle subscriber, int type, int profile) {
        const auto found = m_subscribers.find(subscriber.value);
        if (found == m_subscribers.end() || !found->second || found->second->type != type ||
            found->second->profile != profile) {
            return false;
        }
        end(device, subscriber);
        return true;
    }

    // Calls back who has subscribed to signals of `type`; a fault may let another type arrive. The callback may end any
    // subscription or destroy any subscriber.
    void signal(Device& device, int type, const Arrival& arrival) {
        const std::map<std::uint32_t, std::optional<Subscription>> before = m_subscribers;
        for (const auto& each : before) {
            const auto found = m_subscribers.find(each.first);
            if (found == m_subscribers.end() || !found->second || found->second->type != type) {
                continue;
            }
            device.record.call(calls::tv_signal.name, toJournal(std::tuple(arrival.code)), "", arrival.fault);
            device.session.deliver<wire::EventId::signal>(Handle{each.first}, arrival.code, found->second->profile,
                                                          arrival.hasUserData);
        }
    }

private:
    struct Subscription {
        int type;
        int profile;
    };

    static std::string nameOf(int type) { return fmt::format("signal {} of the TV service", type); }

    void end(Device& device, Handle subscriber) {
        const auto found = m_subscribers.find(subscriber.value);
        if (found != m_subscribers.end() && found->second) {
            device.noLongerAwaited(nameOf(found->second->type));
            found->second.reset();
        }
    }

    std::map<std::uint32_t, std::optional<Subscription>> m_subscribers;
};

void addModeCalls(Calls& calls) {
    calls.add<CallId::get_tv_mode>([](CurrentCall& call) -> wire::Answer<int, wire::TvMode> {
        const TvMode mode = call.device.tv.viewing().mode;
        return {1, wire::TvMode{codeOf(mode.antenna), codeOf(mode.service)}};
    });
    calls.add<CallId::set_tv_mode>([](CurrentCall& call, const wire::TvMode& mode, int) {
        return call.device.tv.has(modeOf(mode))
                   ? change(call.device, [&](Viewing& viewing) { viewing.mode = modeOf(mode); })
                   : 0;
    });
    calls.add<CallId::get_current_category>(
        [](CurrentCall& call, const wire::TvMode&) -> wire::Answer<bool, wire::Category> {
            const Category category = call.device.tv.viewing().category;
            return {true, wire::Category{codeOf(category.kind), category.param, codeOf(category.sort)}};
        });
    calls.add<CallId::set_current_category>([](CurrentCall& call, const wire::TvMode&, const wire::Category& wanted) {
        const Category category = categoryOf(wanted);
        return call.device.tv.has(category) &&
               change(call.device, [&](Viewing& viewing) { viewing.category = category; }) > 0;
    });
}

void addServiceCalls(Calls& calls) {
    calls.add<CallId::get_current_service_info>(
        [](CurrentCall& call, const wire::TvMode&, wire::Hidden<bool> isIdFetched) -> wire::Answer<int, std::uint64_t> {
            const Viewing viewing = call.device.tv.viewing();
            // A restored channel list need not have the service that was on before.
            if (!call.device.tv.services().find(viewing.serviceId)) {
                return {0, {}};
            }
            // The call works, and brings back none of the fields.
            if (!isIdFetched.value) {
                return {1, {}};
            }
            call.given = fmt::format("service {}", viewing.serviceId);
            return {1, viewing.serviceId};
        });
    calls.add<CallId::set_current_service_info>(
        [](CurrentCall& call, const wire::TvMode&, std::uint64_t serviceId) { return show(call.device, serviceId); });
    calls.add<CallId::reset_current_service_info>([](CurrentCall& call) {
        return change(call.device, [&](Viewing& viewing) { viewing.serviceId = call.device.tv.services().first(); });
    });
    calls.add<CallId::get_current_source_info>([](CurrentCall& call) -> wire::Answer<int, std::int32_t> {
        return {1, codeOf(call.device.tv.viewing().source)};
    });
    calls.add<CallId::set_source>([](CurrentCall& call, int source, std::uint64_t serviceId, const std::string&) {
        const auto selected = static_cast<Source>(source);
        // Only the tuner needs a service to show.
        const bool isShowable = selected != Source::Tuner || call.device.tv.services().find(serviceId);
        return call.device.tv.has(selected) && isShowable
                   ? change(call.device, [&](Viewing& viewing) { viewing.source = selected; })
                   : 0;
    });
}

void addScanCalls(Calls& calls) {
    const auto subscribers = std::make_shared<Subscribers>();
    calls.add<CallId::is_scan_activated>([](CurrentCall& call, int) -> wire::Answer<int, bool> {
        return {1, call.device.tv.isScanning()};
    });
    calls.add<CallId::stop_auto_scan>([&calls, subscribers](CurrentCall& call, int) {
        if (!call.device.tv.isScanning()) {
            return 0;
        }
        postEvent(calls, calls::tv_signal, "", SCAN_STOP_DURATION, SIGNAL_SCAN_STOPPED,
                  [&device = call.device, subscribers](const Arrival& arrival) {
                      device.tv.setScanning(false);
                      subscribers->signal(device, SIGNAL_SCAN_STOPPED, arrival);
                  });
        return 1;
    });
    calls.add<CallId::create_signal_subscriber>([subscribers](CurrentCall&, Handle subscriber) {
        subscribers->create(subscriber);
        return OBJECT;
    });
    calls.add<CallId::destroy_signal_subscriber>([subscribers](CurrentCall& call, Handle subscriber) {
        return subscribers->destroy(call.device, subscriber) ? 1 : 0;
    });
    calls.add<CallId::subscribe>([subscribers](CurrentCall& call, Handle subscriber, int type, int profile, int) {
        return subscribers->subscribe(call.device, subscriber, type, profile) ? 1 : 0;
    });
    calls.add<CallId::unsubscribe>([subscribers](CurrentCall& call, Handle subscriber, int type, int profile, int) {
        return subscribers->unsubscribe(call.device, subscriber, type, profile) ? 1 : 0;
    });
}

// The application's side keeps these objects; a call tells whether it gets one.
void addObjectCalls(Calls& calls) {
    const auto there = [](CurrentCall&, auto...) { return wire::Object{true}; };
    calls.add<CallId::make_wrapper>([](CurrentCall&) { return wire::None(); });
    calls.add<CallId::destroy_wrapper>([](CurrentCall&) { return wire::None(); });
    calls.add<CallId::create_service_navigation>(there);
    calls.add<CallId::create_source_control>(there);
    calls.add<CallId::create_scan_data>(there);
    calls.add<CallId::create_scan_control>(there);
    calls.add<CallId::get_category_util>(there);
    calls.add<CallId::create_tuner_control>([](CurrentCall&, int, int) { return OBJECT; });
    calls.add<CallId::get_antenna_connection_status>([](CurrentCall& call) -> wire::Answer<int, std::set<int>> {
        return {1, call.device.tv.antenna()};
    });
}

}  // namespace

void addViewingCalls(Calls& calls) {
    addObjectCalls(calls);
    addModeCalls(calls);
    addServiceCalls(calls);
    addScanCalls(calls);
}

}  // namespace sim
