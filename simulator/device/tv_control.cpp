// What the TV service shows: mode, service, source and category; and the scan with the signal of its end.
#include <fmt/format.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>

#include "platform/tv_service.h"
#include "simulator/device/Journal.h"

// In the arguments' own namespace, so that the journal finds them by their arguments.
static std::string toJournal(const TSTvMode& mode) {
    return fmt::format("{}/{}", mode.antennaMode, mode.serviceMode);
}

static std::string toJournal(const CCNavigationModeInfo& info) {
    return fmt::format("{}/{}/{}", info.category, info.param, info.sortMode);
}

namespace {

using sim::Device;
using sim::Given;
namespace calls = sim::calls;
using sim::platformCall;
using sim::platformNotice;
using sim::Viewing;
using namespace std::chrono_literals;

constexpr int FIELD_SERVICE_ID = 12;
constexpr auto SIGNAL_SCAN_STOPPED = static_cast<ESignalType>(18);
constexpr auto SCAN_STOP_DURATION = 800ms;

sim::TvMode modeOf(const TSTvMode& mode) {
    return {static_cast<sim::AntennaMode>(mode.antennaMode), static_cast<sim::ServiceMode>(mode.serviceMode)};
}

sim::Category categoryOf(const CCNavigationModeInfo& info) {
    return {static_cast<sim::CategoryKind>(info.category), info.param, static_cast<sim::SortMode>(info.sortMode)};
}

// Changes the viewing state. Returns the result of a call that succeeds.
int change(Device& device, const std::function<void(Viewing&)>& action) {
    device.tv.changeViewing(action);
    return 1;
}

class ServiceNavigation final : public IServiceNavigation {
public:
    int GetTvMode(TSTvMode& mode) override {
        return platformCall(calls::get_tv_mode, std::tuple(), [&](Device& device, Given& given) {
            const Viewing viewing = device.tv.viewing();
            mode.antennaMode = static_cast<EAntennaMode>(viewing.mode.antenna);
            mode.serviceMode = static_cast<EServiceMode>(viewing.mode.service);
            given = toJournal(mode);
            return 1;
        });
    }

    int SetTvMode(TSTvMode mode, int option) override {
        return platformCall(calls::set_tv_mode, std::tuple(mode, option), [&](Device& device) {
            return device.tv.has(modeOf(mode)) ? change(device, [&](Viewing& viewing) { viewing.mode = modeOf(mode); })
                                               : 0;
        });
    }

    int GetCurrentServiceInfo(TSTvMode mode, const TCCriteriaHelper& criteria, TCServiceData& data) override {
        return platformCall(calls::get_current_service_info, std::tuple(mode), [&](Device& device, Given& given) {
            const Viewing viewing = device.tv.viewing();
            if (!device.tv.services().find(viewing.serviceId)) {
                return 0;
            }
            if (criteria.IsFetched(FIELD_SERVICE_ID)) {
                data.SetField(FIELD_SERVICE_ID, viewing.serviceId);
                given = fmt::format("service {}", viewing.serviceId);
            }
            return 1;
        });
    }

    int SetCurrentServiceInfo(TSTvMode mode, const std::uint64_t& serviceId) override {
        return platformCall(calls::set_current_service_info, std::tuple(mode, serviceId), [&](Device& device) {
            return device.tv.services().find(serviceId)
                       ? change(device, [&](Viewing& viewing) { viewing.serviceId = serviceId; })
                       : 0;
        });
    }

    int ResetCurrentServiceInfo() override {
        return platformCall(calls::reset_current_service_info, std::tuple(), [](Device& device) {
            return change(device, [&](Viewing& viewing) { viewing.serviceId = device.tv.services().first(); });
        });
    }
};

class SourceControl final : public ISourceControl {
public:
    int GetCurrentSourceInfo(std::int32_t& source) override {
        return platformCall(calls::get_current_source_info, std::tuple(), [&](Device& device, Given& given) {
            source = static_cast<std::int32_t>(device.tv.viewing().source);
            given = std::to_string(source);
            return 1;
        });
    }

    int SetSource(std::int32_t source, std::uint64_t serviceId, std::string option) override {
        return platformCall(calls::set_source, std::tuple(source, serviceId, option), [&](Device& device) {
            const auto selected = static_cast<sim::Source>(source);
            const bool isShowable = selected != sim::Source::Tuner || device.tv.services().find(serviceId);
            return device.tv.has(selected) && isShowable
                       ? change(device, [&](Viewing& viewing) { viewing.source = selected; })
                       : 0;
        });
    }
};

class ScanData final : public IScanData {
public:
    int IsScanActivated(bool& activated, int option) override {
        return platformCall(calls::is_scan_activated, std::tuple(option), [&](Device& device, Given& given) {
            activated = device.tv.isScanning();
            given = sim::toJournal(activated);
            return 1;
        });
    }
};

// The subscriber of one callback, with its subscription.
class SignalSubscriber final : public ISignalSubscriber {
public:
    explicit SignalSubscriber(SignalCallback callback) : m_callback(callback) {}

    int Subscribe(ESignalType type, void* appData, int profile, int option, SignalCallback callback) override {
        return platformCall(calls::subscribe, std::tuple(type, profile, option), [&](Device& device) {
            if (callback != m_callback || m_subscription) {
                return 0;
            }
            m_subscription = Subscription{type, static_cast<EProfile>(profile), appData};
            device.awaited.insert(name());
            return 1;
        });
    }

    int Unsubscribe(ESignalType type, int profile, int option, SignalCallback callback) override {
        return platformCall(calls::unsubscribe, std::tuple(type, profile, option), [&](Device& device) {
            if (callback != m_callback || !m_subscription || m_subscription->type != type ||
                m_subscription->profile != profile) {
                return 0;
            }
            end(device);
            return 1;
        });
    }

    void end(Device& device) {
        if (m_subscription) {
            device.noLongerAwaited(name());
            m_subscription.reset();
        }
    }

    // Calls back if the subscription is to signals of `type`; a fault may let another type arrive. The callback may end
    // the subscription or destroy this object.
    void signal(Device& device, ESignalType type, const sim::Arrival& arrival) const {
        if (!m_subscription || m_subscription->type != type) {
            return;
        }
        const Subscription subscription = *m_subscription;
        device.record.call(calls::tv_signal.name, sim::toJournal(std::tuple(arrival.code)), "", arrival.fault);
        m_callback(static_cast<ESignalType>(arrival.code), subscription.profile, 0, TSSignalData{0},
                   arrival.hasUserData ? subscription.appData : nullptr);
    }

private:
    struct Subscription {
        ESignalType type;
        EProfile profile;
        void* appData;
    };

    std::string name() const { return fmt::format("signal {} of the TV service", m_subscription->type); }

    SignalCallback m_callback;
    std::optional<Subscription> m_subscription;
};

std::map<SignalCallback, SignalSubscriber>& subscribers() {
    static std::map<SignalCallback, SignalSubscriber> subscribers;
    return subscribers;
}

void signalScanStopped(Device& device, const sim::Arrival& arrival) {
    device.tv.setScanning(false);
    const std::map<SignalCallback, SignalSubscriber> before = subscribers();  // a callback may destroy any of them
    for (const auto& each : before) {
        if (const auto found = subscribers().find(each.first); found != subscribers().end()) {
            found->second.signal(device, SIGNAL_SCAN_STOPPED, arrival);
        }
    }
}

class ScanControl final : public IScanControl {
public:
    int StopAutoScan(int option) override {
        return platformCall(calls::stop_auto_scan, std::tuple(option), [](Device& device) {
            if (!device.tv.isScanning()) {
                return 0;
            }
            sim::platformEvent(device, calls::tv_signal, "", SCAN_STOP_DURATION, SIGNAL_SCAN_STOPPED,
                               [&device](const sim::Arrival& arrival) { signalScanStopped(device, arrival); });
            return 1;
        });
    }
};

class CategoryUtil final : public CCCategoryUtil {
public:
    bool GetCurrentCategory(TSTvMode mode, CCNavigationModeInfo& info) override {
        return platformCall(calls::get_current_category, std::tuple(mode), [&](Device& device, Given& given) {
            const Viewing viewing = device.tv.viewing();
            info.category = static_cast<ECategory>(viewing.category.kind);
            info.param = viewing.category.param;
            info.sortMode = static_cast<ESortMode>(viewing.category.sort);
            given = toJournal(info);
            return true;
        });
    }

    bool SetCurrentCategory(TSTvMode mode, CCNavigationModeInfo info) override {
        return platformCall(calls::set_current_category, std::tuple(mode, info), [&](Device& device) {
            const sim::Category category = categoryOf(info);
            return device.tv.has(category) &&
                   change(device, [&](Viewing& viewing) { viewing.category = category; }) > 0;
        });
    }
};

}  // namespace

int TVServiceAPI::CreateSignalSubscriber(SignalCallback callback, ISignalSubscriber** subscriber) {
    return platformCall(calls::create_signal_subscriber, std::tuple(), [&] {
        *subscriber = &subscribers().try_emplace(callback, callback).first->second;
        return 0;
    });
}

int TVServiceAPI::DestroySignalSubscriber(SignalCallback callback) {
    return platformCall(calls::destroy_signal_subscriber, std::tuple(), [&](Device& device) {
        const auto found = subscribers().find(callback);
        if (found == subscribers().end()) {
            return 0;
        }
        found->second.end(device);
        subscribers().erase(found);
        return 1;
    });
}

struct CTVSApiWrapper::Impl {
    ServiceNavigation serviceNavigation;
    SourceControl sourceControl;
    ScanData scanData;
    ScanControl scanControl;
};

CTVSApiWrapper::CTVSApiWrapper() : m_impl(new Impl) {
    platformNotice(calls::make_wrapper);
}

CTVSApiWrapper::~CTVSApiWrapper() {
    platformNotice(calls::destroy_wrapper);
    delete m_impl;
}

IServiceNavigation* CTVSApiWrapper::CreateServiceNavigation(EProfile profile, int option) {
    return platformCall(calls::create_service_navigation, std::tuple(profile, option),
                        [&]() -> IServiceNavigation* { return &m_impl->serviceNavigation; });
}

ISourceControl* CTVSApiWrapper::CreateSourceControl(EProfile profile, int option) {
    return platformCall(calls::create_source_control, std::tuple(profile, option),
                        [&]() -> ISourceControl* { return &m_impl->sourceControl; });
}

IScanData* CTVSApiWrapper::CreateScanData(EProfile profile, int option) {
    return platformCall(calls::create_scan_data, std::tuple(profile, option),
                        [&]() -> IScanData* { return &m_impl->scanData; });
}

IScanControl* CTVSApiWrapper::CreateScanControl(EProfile profile, int option) {
    return platformCall(calls::create_scan_control, std::tuple(profile, option),
                        [&]() -> IScanControl* { return &m_impl->scanControl; });
}

CCCategoryUtil* CCCategoryUtil::GetInstance() {
    static CategoryUtil util;
    return platformCall(calls::get_category_util, std::tuple(), []() -> CCCategoryUtil* { return &util; });
}
