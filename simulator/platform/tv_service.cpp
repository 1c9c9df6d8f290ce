#include "platform/tv_service.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <functional>
#include <optional>
#include <vector>

#include "simulator/platform/Device.h"

namespace {

using sim::Device;
using sim::Failure;
using sim::Given;
using sim::platformCall;
using sim::platformNotice;
using sim::Viewing;
using namespace std::chrono_literals;

constexpr int FIELD_SERVICE_ID = 12;
constexpr int FIELD_ANTENNA_MODE = 13;
constexpr auto SIGNAL_SCAN_STOPPED = static_cast<ESignalType>(18);
constexpr auto SCAN_STOP_TAKES = 800ms;

std::string toText(TSTvMode mode) {
    return fmt::format("{}/{}", mode.antennaMode, mode.serviceMode);
}

std::string toText(const CCNavigationModeInfo& info) {
    return fmt::format("{}/{}/{}", info.category, info.param, info.sortMode);
}

class Util final : public IUtil {
public:
    int GetServiceDb(const std::string& path) override {
        return platformCall(
            "IUtil::GetServiceDb", path,
            [&] {
                Device::current().tv.serviceDb().snapshot(path);
                return 1;
            },
            [&](const std::string& how) { sim::damageFile(path, how); });
    }

    int ReplaceServiceDb(const std::string& path, int* status) override {
        return platformCall("IUtil::ReplaceServiceDb", path, [&](Given& given) {
            const std::optional<sim::ReplaceStatus> problem = Device::current().tv.serviceDb().replace(path);
            if (problem) {
                *status = static_cast<int>(*problem);
                given.text = fmt::format("status {}", *status);
                return 0;
            }
            return 1;
        });
    }

    int Reserved1() override { return 0; }
    int Reserved2() override { return 0; }

    int GetIssDbArchive(const std::string& path) override {
        return platformCall(
            "IUtil::GetIssDbArchive", path,
            [&] {
                try {
                    Device::current().tv.issDb().snapshot(path);
                    return 1;
                } catch (const std::exception&) {
                    return 0;  // a negative result would be success here
                }
            },
            [&](const std::string& how) { sim::damageFile(path, how); });
    }

    int RestoreIssDbArchive(const std::string& path) override {
        return platformCall("IUtil::RestoreIssDbArchive", path,
                            [&] { return Device::current().tv.issDb().restore(path) ? 1 : 0; });
    }
};

class TunerControl final : public ITunerControl {
public:
    int GetAntennaConnectionStatus(std::set<int>& statuses) override {
        return platformCall("ITunerControl::GetAntennaConnectionStatus", "", [&](Given& given) {
            statuses.merge(Device::current().tv.antenna());
            given.text = fmt::format("{{{}}}", fmt::join(statuses, ", "));
            return 1;
        });
    }
};

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
        return platformCall("IServiceNavigation::GetTvMode", "", [&](Given& given) {
            const Viewing viewing = Device::current().tv.viewing();
            mode.antennaMode = static_cast<EAntennaMode>(viewing.antennaMode);
            mode.serviceMode = static_cast<EServiceMode>(viewing.serviceMode);
            given.text = toText(mode);
            return 1;
        });
    }

    int SetTvMode(TSTvMode mode, int option) override {
        return platformCall("IServiceNavigation::SetTvMode", fmt::format("{}, {}", toText(mode), option), [&] {
            return change(Device::current().tv.hasMode(mode.antennaMode, mode.serviceMode), [&](Viewing& viewing) {
                viewing.antennaMode = mode.antennaMode;
                viewing.serviceMode = mode.serviceMode;
            });
        });
    }

    int GetCurrentServiceInfo(TSTvMode mode, const TCCriteriaHelper& criteria, TCServiceData& data) override {
        return platformCall("IServiceNavigation::GetCurrentServiceInfo", toText(mode), [&](Given& given) {
            sim::Tv& tv = Device::current().tv;
            const Viewing viewing = tv.viewing();
            if (!tv.serviceDb().exists(viewing.serviceId)) {
                return 0;
            }
            if (criteria.IsFetched(FIELD_SERVICE_ID)) {
                data.SetField(FIELD_SERVICE_ID, viewing.serviceId);
                given.text = fmt::format("service {}", viewing.serviceId);
            }
            if (criteria.IsFetched(FIELD_ANTENNA_MODE)) {
                data.SetField(FIELD_ANTENNA_MODE, static_cast<std::uint64_t>(viewing.antennaMode));
            }
            return 1;
        });
    }

    int SetCurrentServiceInfo(TSTvMode mode, const std::uint64_t& serviceId) override {
        return platformCall("IServiceNavigation::SetCurrentServiceInfo", fmt::format("{}, {}", toText(mode), serviceId),
                            [&] {
                                return change(Device::current().tv.serviceDb().exists(serviceId),
                                              [&](Viewing& viewing) { viewing.serviceId = serviceId; });
                            });
    }

    int ResetCurrentServiceInfo() override {
        return platformCall("IServiceNavigation::ResetCurrentServiceInfo", "", [&] {
            return change(
                true, [](Viewing& viewing) { viewing.serviceId = Device::current().tv.serviceDb().firstService(); });
        });
    }
};

class SourceControl final : public ISourceControl {
public:
    int GetCurrentSourceInfo(std::int32_t& source) override {
        return platformCall("ISourceControl::GetCurrentSourceInfo", "", [&](Given& given) {
            source = Device::current().tv.viewing().source;
            given.text = std::to_string(source);
            return 1;
        });
    }

    int SetSource(std::int32_t source, std::uint64_t serviceId, std::string option) override {
        return platformCall("ISourceControl::SetSource", fmt::format("{}, {}, \"{}\"", source, serviceId, option), [&] {
            const sim::Tv& tv = Device::current().tv;
            return change(tv.hasSource(source) && (source != 0 || tv.serviceDb().exists(serviceId)),
                          [&](Viewing& viewing) { viewing.source = source; });
        });
    }
};

class ScanData final : public IScanData {
public:
    int IsScanActivated(bool& activated, int option) override {
        return platformCall("IScanData::IsScanActivated", std::to_string(option), [&](Given& given) {
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
        return platformCall("ISignalSubscriber::Subscribe", fmt::format("{}, {}, {}", type, profile, option), [&] {
            if (!calls(callback) || m_subscription) {
                return 0;
            }
            m_subscription = Subscription{type, static_cast<EProfile>(profile), appData};
            Device::current().awaited.insert(name());
            return 1;
        });
    }

    int Unsubscribe(ESignalType type, int profile, int option, SignalCallback callback) override {
        return platformCall("ISignalSubscriber::Unsubscribe", fmt::format("{}, {}, {}", type, profile, option), [&] {
            if (!calls(callback) || !m_subscription || m_subscription->type != type ||
                m_subscription->profile != profile) {
                return 0;
            }
            forget();
            return 1;
        });
    }

    // Calls the subscriber if it waits for signals of `type`; a fault may let another type arrive.
    void signal(ESignalType type, const std::optional<sim::FaultInjector::Hit>& hit) {
        if (!m_subscription || m_subscription->type != type) {
            return;
        }
        const Subscription subscription = *m_subscription;
        const ESignalType arriving =
            hit && hit->failure.kind == Failure::Kind::Result ? static_cast<ESignalType>(hit->failure.number) : type;
        const bool isNull = hit && hit->failure.kind == Failure::Kind::Null;
        Device::current().record.call("tv_signal", std::to_string(arriving), "",
                                      hit ? std::optional(hit->rule) : std::nullopt);
        m_callback(arriving, subscription.profile, 0, TSSignalData{0}, isNull ? nullptr : subscription.appData);
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

void signalScanStopped(const std::optional<sim::FaultInjector::Hit>& hit) {
    Device::current().tv.setScanning(false);
    const std::vector<SignalSubscriber*> present = subscribers();
    for (SignalSubscriber* subscriber : present) {
        const auto& now = subscribers();
        if (std::find(now.begin(), now.end(), subscriber) != now.end()) {  // a callback may have destroyed it
            subscriber->signal(SIGNAL_SCAN_STOPPED, hit);
        }
    }
}

class ScanControl final : public IScanControl {
public:
    int StopAutoScan(int option) override {
        return platformCall("IScanControl::StopAutoScan", std::to_string(option), [&] {
            Device& device = Device::current();
            if (!device.tv.isScanning()) {
                return 0;
            }
            const std::optional<sim::FaultInjector::Hit> hit = sim::nextFailure(device, "tv_signal", "");
            if (hit && hit->failure.kind == Failure::Kind::Lost) {
                return 1;
            }
            sim::EventLoop::Milliseconds due = SCAN_STOP_TAKES;
            if (hit && hit->failure.kind == Failure::Kind::Delay) {
                due += sim::EventLoop::Milliseconds(hit->failure.number);
            }
            device.loop.post(due, [hit] { signalScanStopped(hit); });
            return 1;
        });
    }
};

class CategoryUtil final : public CCCategoryUtil {
public:
    bool GetCurrentCategory(TSTvMode mode, CCNavigationModeInfo& info) override {
        return platformCall("CCCategoryUtil::GetCurrentCategory", toText(mode), [&](Given& given) {
            const Viewing viewing = Device::current().tv.viewing();
            info.category = static_cast<ECategory>(viewing.category);
            info.param = viewing.categoryParam;
            info.sortMode = static_cast<ESortMode>(viewing.sortMode);
            given.text = toText(info);
            return true;
        });
    }

    bool SetCurrentCategory(TSTvMode mode, CCNavigationModeInfo info) override {
        return platformCall("CCCategoryUtil::SetCurrentCategory", fmt::format("{}, {}", toText(mode), toText(info)),
                            [&] {
                                const sim::Tv& tv = Device::current().tv;
                                const bool isKnown = tv.hasCategory(info.category, info.param, info.sortMode);
                                return change(isKnown, [&](Viewing& viewing) {
                                           viewing.category = info.category;
                                           viewing.categoryParam = info.param;
                                           viewing.sortMode = info.sortMode;
                                       }) > 0;
                            });
    }
};

std::string profileAndOption(EProfile profile, int option) {
    return fmt::format("{}, {}", profile, option);
}

}  // namespace

TSTvMode::TSTvMode(EAntennaMode antenna, EServiceMode service) : antennaMode(antenna), serviceMode(service) {}

CCNavigationModeInfo::CCNavigationModeInfo(ECategory shown, std::uint64_t shownParam, ESortMode sort)
    : category(shown), param(shownParam), sortMode(sort) {}

TCCriteriaHelper::TCCriteriaHelper() = default;

TCCriteriaHelper::~TCCriteriaHelper() = default;

void TCCriteriaHelper::Fetch(int field) {
    m_fields.insert(field);
}

bool TCCriteriaHelper::IsFetched(int field) const {
    return m_fields.count(field) != 0;
}

TCServiceData::TCServiceData() = default;

TCServiceData::~TCServiceData() = default;

bool TCServiceData::GetField(int field, std::uint64_t& value) const {
    const auto found = m_fields.find(field);
    if (found == m_fields.end()) {
        return false;
    }
    value = found->second;
    return true;
}

void TCServiceData::SetField(int field, std::uint64_t value) {
    m_fields[field] = value;
}

int TVServiceAPI::CreateUtil(IUtil** util) {
    return platformCall("TVServiceAPI::CreateUtil", "", [&] {
        *util = new Util;
        return 0;
    });
}

void TVServiceAPI::Destroy(IUtil* util) {
    platformNotice("TVServiceAPI::Destroy", "");
    delete static_cast<Util*>(util);
}

int TVServiceAPI::CreateTunerControl(EProfile profile, int option, ITunerControl** tuner) {
    return platformCall("TVServiceAPI::CreateTunerControl", profileAndOption(profile, option), [&] {
        static TunerControl control;
        *tuner = &control;
        return 0;
    });
}

int TVServiceAPI::CreateSignalSubscriber(SignalCallback callback, ISignalSubscriber** subscriber) {
    return platformCall("TVServiceAPI::CreateSignalSubscriber", "", [&] {
        if (findSubscriber(callback) == subscribers().end()) {
            subscribers().push_back(new SignalSubscriber(callback));
        }
        *subscriber = *findSubscriber(callback);
        return 0;
    });
}

int TVServiceAPI::DestroySignalSubscriber(SignalCallback callback) {
    return platformCall("TVServiceAPI::DestroySignalSubscriber", "", [&] {
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
    platformNotice("CTVSApiWrapper::CTVSApiWrapper", "");
}

CTVSApiWrapper::~CTVSApiWrapper() {
    platformNotice("CTVSApiWrapper::~CTVSApiWrapper", "");
    delete m_impl;
}

IServiceNavigation* CTVSApiWrapper::CreateServiceNavigation(EProfile profile, int option) {
    return platformCall("CTVSApiWrapper::CreateServiceNavigation", profileAndOption(profile, option),
                        [&]() -> IServiceNavigation* { return &m_impl->serviceNavigation; });
}

ISourceControl* CTVSApiWrapper::CreateSourceControl(EProfile profile, int option) {
    return platformCall("CTVSApiWrapper::CreateSourceControl", profileAndOption(profile, option),
                        [&]() -> ISourceControl* { return &m_impl->sourceControl; });
}

IScanData* CTVSApiWrapper::CreateScanData(EProfile profile, int option) {
    return platformCall("CTVSApiWrapper::CreateScanData", profileAndOption(profile, option),
                        [&]() -> IScanData* { return &m_impl->scanData; });
}

IScanControl* CTVSApiWrapper::CreateScanControl(EProfile profile, int option) {
    return platformCall("CTVSApiWrapper::CreateScanControl", profileAndOption(profile, option),
                        [&]() -> IScanControl* { return &m_impl->scanControl; });
}

CCCategoryUtil* CCCategoryUtil::GetInstance() {
    static CategoryUtil util;
    return platformCall("CCCategoryUtil::GetInstance", "", []() -> CCCategoryUtil* { return &util; });
}
