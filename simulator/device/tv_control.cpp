// What the TV service shows and does: mode, service, source, category, scan and the signals that say when it has ended.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "platform/tv_service.h"
#include "simulator/device/Journal.h"

// Found by the journal through their arguments' own namespace.
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
constexpr int FIELD_ANTENNA_MODE = 13;
constexpr auto SIGNAL_SCAN_STOPPED = static_cast<ESignalType>(18);
constexpr auto SCAN_STOP_TAKES = 800ms;

sim::TvMode modeOf(const TSTvMode& mode) {
    return {static_cast<sim::AntennaMode>(mode.antennaMode), static_cast<sim::ServiceMode>(mode.serviceMode)};
}

sim::Category categoryOf(const CCNavigationModeInfo& info) {
    return {static_cast<sim::CategoryKind>(info.category), info.param, static_cast<sim::SortMode>(info.sortMode)};
}

// Changes what is on, if the TV has what is asked for.
int change(bool isKnown, const std::function<void(Viewing&)>& action) {
    if (!isKnown) {
        return 0;
    }
    Device::current().tv.changeViewing(action);
    return 1;
}

class ServiceNavigation final : public IServiceNavigation {
public:
    int GetTvMode(TSTvMode& mode) override {
        return platformCall(calls::get_tv_mode, std::tuple(), [&](Given& given) {
            const Viewing viewing = Device::current().tv.viewing();
            mode.antennaMode = static_cast<EAntennaMode>(viewing.mode.antenna);
            mode.serviceMode = static_cast<EServiceMode>(viewing.mode.service);
            given.text = toJournal(mode);
            return 1;
        });
    }

    int SetTvMode(TSTvMode mode, int option) override {
        return platformCall(calls::set_tv_mode, std::tuple(mode, option), [&] {
            return change(Device::current().tv.has(modeOf(mode)),
                          [&](Viewing& viewing) { viewing.mode = modeOf(mode); });
        });
    }

    int GetCurrentServiceInfo(TSTvMode mode, const TCCriteriaHelper& criteria, TCServiceData& data) override {
        return platformCall(calls::get_current_service_info, std::tuple(mode), [&](Given& given) {
            sim::Tv& tv = Device::current().tv;
            const Viewing viewing = tv.viewing();
            if (!tv.services().find(viewing.serviceId)) {
                return 0;
            }
            if (criteria.IsFetched(FIELD_SERVICE_ID)) {
                data.SetField(FIELD_SERVICE_ID, viewing.serviceId);
                given.text = fmt::format("service {}", viewing.serviceId);
            }
            if (criteria.IsFetched(FIELD_ANTENNA_MODE)) {
                data.SetField(FIELD_ANTENNA_MODE, static_cast<std::uint64_t>(viewing.mode.antenna));
            }
            return 1;
        });
    }

    int SetCurrentServiceInfo(TSTvMode mode, const std::uint64_t& serviceId) override {
        return platformCall(calls::set_current_service_info, std::tuple(mode, serviceId), [&] {
            return change(Device::current().tv.services().find(serviceId).has_value(),
                          [&](Viewing& viewing) { viewing.serviceId = serviceId; });
        });
    }

    int ResetCurrentServiceInfo() override {
        return platformCall(calls::reset_current_service_info, std::tuple(), [&] {
            return change(true, [](Viewing& viewing) { viewing.serviceId = Device::current().tv.services().first(); });
        });
    }
};

class SourceControl final : public ISourceControl {
public:
    int GetCurrentSourceInfo(std::int32_t& source) override {
        return platformCall(calls::get_current_source_info, std::tuple(), [&](Given& given) {
            source = static_cast<std::int32_t>(Device::current().tv.viewing().source);
            given.text = std::to_string(source);
            return 1;
        });
    }

    int SetSource(std::int32_t source, std::uint64_t serviceId, std::string option) override {
        return platformCall(calls::set_source, std::tuple(source, serviceId, option), [&] {
            const sim::Tv& tv = Device::current().tv;
            const auto selected = static_cast<sim::Source>(source);
            const bool isShowable = selected != sim::Source::Tuner || tv.services().find(serviceId).has_value();
            return change(tv.has(selected) && isShowable, [&](Viewing& viewing) { viewing.source = selected; });
        });
    }
};

class ScanData final : public IScanData {
public:
    int IsScanActivated(bool& activated, int option) override {
        return platformCall(calls::is_scan_activated, std::tuple(option), [&](Given& given) {
            activated = Device::current().tv.isScanning();
            given.text = sim::toJournal(activated);
            return 1;
        });
    }
};

// The one subscriber of each callback, with what it subscribed to.
class SignalSubscriber final : public ISignalSubscriber {
public:
    explicit SignalSubscriber(SignalCallback called) : m_callback(called) {}
    ~SignalSubscriber() { forget(); }

    bool calls(SignalCallback callback) const { return callback == m_callback; }

    int Subscribe(ESignalType type, void* appData, int profile, int option, SignalCallback callback) override {
        return platformCall(calls::subscribe, std::tuple(type, profile, option), [&] {
            if (!calls(callback) || m_subscription) {
                return 0;
            }
            m_subscription = Subscription{type, static_cast<EProfile>(profile), appData};
            Device::current().awaited.insert(name());
            return 1;
        });
    }

    int Unsubscribe(ESignalType type, int profile, int option, SignalCallback callback) override {
        return platformCall(calls::unsubscribe, std::tuple(type, profile, option), [&] {
            if (!calls(callback) || !m_subscription || m_subscription->type != type ||
                m_subscription->profile != profile) {
                return 0;
            }
            forget();
            return 1;
        });
    }

    // Calls the subscriber if it waits for signals of `type`; a fault may let another type arrive.
    void signal(ESignalType type, const sim::Arrival& arrival) {
        if (!m_subscription || m_subscription->type != type) {
            return;
        }
        const Subscription subscription = *m_subscription;
        Device::current().record.call(calls::tv_signal.name, sim::toJournal(std::tuple(arrival.code)), "",
                                      arrival.fault);
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

    void forget() {
        if (m_subscription) {
            Device::current().noLongerAwaited(name());
            m_subscription.reset();
        }
    }

    SignalCallback m_callback;
    std::optional<Subscription> m_subscription;
};

std::vector<SignalSubscriber*>& subscribers() {
    static std::vector<SignalSubscriber*> subscribers;
    return subscribers;
}

auto findSubscriber(SignalCallback callback) {
    return std::find_if(subscribers().begin(), subscribers().end(),
                        [&](const SignalSubscriber* each) { return each->calls(callback); });
}

void signalScanStopped(const sim::Arrival& arrival) {
    Device::current().tv.setScanning(false);
    const std::vector<SignalSubscriber*> present = subscribers();
    for (SignalSubscriber* subscriber : present) {
        const auto& now = subscribers();
        if (std::find(now.begin(), now.end(), subscriber) != now.end()) {  // a callback may have destroyed it
            subscriber->signal(SIGNAL_SCAN_STOPPED, arrival);
        }
    }
}

class ScanControl final : public IScanControl {
public:
    int StopAutoScan(int option) override {
        return platformCall(calls::stop_auto_scan, std::tuple(option), [&] {
            if (!Device::current().tv.isScanning()) {
                return 0;
            }
            sim::platformEvent(calls::tv_signal, "", SCAN_STOP_TAKES, SIGNAL_SCAN_STOPPED, &signalScanStopped);
            return 1;
        });
    }
};

class CategoryUtil final : public CCCategoryUtil {
public:
    bool GetCurrentCategory(TSTvMode mode, CCNavigationModeInfo& info) override {
        return platformCall(calls::get_current_category, std::tuple(mode), [&](Given& given) {
            const Viewing viewing = Device::current().tv.viewing();
            info.category = static_cast<ECategory>(viewing.category.kind);
            info.param = viewing.category.param;
            info.sortMode = static_cast<ESortMode>(viewing.category.sort);
            given.text = toJournal(info);
            return true;
        });
    }

    bool SetCurrentCategory(TSTvMode mode, CCNavigationModeInfo info) override {
        return platformCall(calls::set_current_category, std::tuple(mode, info), [&] {
            const sim::Category category = categoryOf(info);
            return change(Device::current().tv.has(category), [&](Viewing& viewing) { viewing.category = category; }) >
                   0;
        });
    }
};

}  // namespace

int TVServiceAPI::CreateSignalSubscriber(SignalCallback callback, ISignalSubscriber** subscriber) {
    return platformCall(calls::create_signal_subscriber, std::tuple(), [&] {
        if (findSubscriber(callback) == subscribers().end()) {
            subscribers().push_back(new SignalSubscriber(callback));
        }
        *subscriber = *findSubscriber(callback);
        return 0;
    });
}

int TVServiceAPI::DestroySignalSubscriber(SignalCallback callback) {
    return platformCall(calls::destroy_signal_subscriber, std::tuple(), [&] {
        const auto found = findSubscriber(callback);
        if (found == subscribers().end()) {
            return 0;
        }
        delete *found;
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
