// What the TV service shows: mode, service, source and category; and the scan with the signal of its end.
#include <map>
#include <optional>

#include "platform/tv_service.h"
#include "simulator/client/Connection.h"
#include "simulator/client/Events.h"

namespace {

using client::call;
using client::give;
using wire::CallId;
using wire::Handle;

constexpr int FIELD_SERVICE_ID = 12;

wire::TvMode wired(const TSTvMode& mode) {
    return {mode.antennaMode, mode.serviceMode};
}

class ServiceNavigation final : public IServiceNavigation {
public:
    int GetTvMode(TSTvMode& mode) override {
        const auto answer = call<CallId::get_tv_mode>({});
        if (answer.out) {
            mode = TSTvMode(static_cast<EAntennaMode>(answer.out->antenna),
                            static_cast<EServiceMode>(answer.out->service));
        }
        return answer.result;
    }

    int SetTvMode(TSTvMode mode, int option) override {
        return call<CallId::set_tv_mode>({wired(mode), option}).result;
    }

    int GetCurrentServiceInfo(TSTvMode mode, const TCCriteriaHelper& criteria, TCServiceData& data) override {
        const auto answer =
            call<CallId::get_current_service_info>({wired(mode), {criteria.IsFetched(FIELD_SERVICE_ID)}});
        if (answer.out) {
            data.SetField(FIELD_SERVICE_ID, *answer.out);
        }
        return answer.result;
    }

    int SetCurrentServiceInfo(TSTvMode mode, const std::uint64_t& serviceId) override {
        return call<CallId::set_current_service_info>({wired(mode), serviceId}).result;
    }

    int ResetCurrentServiceInfo() override { return call<CallId::reset_current_service_info>({}).result; }
};

class SourceControl final : public ISourceControl {
public:
    int GetCurrentSourceInfo(std::int32_t& source) override {
        return give(call<CallId::get_current_source_info>({}), &source);
    }

    int SetSource(std::int32_t source, std::uint64_t serviceId, std::string option) override {
        return call<CallId::set_source>({source, serviceId, option}).result;
    }
};

class ScanData final : public IScanData {
public:
    int IsScanActivated(bool& activated, int option) override {
        return give(call<CallId::is_scan_activated>({option}), &activated);
    }
};

class ScanControl final : public IScanControl {
public:
    int StopAutoScan(int option) override { return call<CallId::stop_auto_scan>({option}).result; }
};

class CategoryUtil final : public CCCategoryUtil {
public:
    bool GetCurrentCategory(TSTvMode mode, CCNavigationModeInfo& info) override {
        const auto answer = call<CallId::get_current_category>({wired(mode)});
        if (answer.out) {
            info.category = static_cast<ECategory>(answer.out->kind);
            info.param = answer.out->param;
            info.sortMode = static_cast<ESortMode>(answer.out->sort);
        }
        return answer.result;
    }

    bool SetCurrentCategory(TSTvMode mode, CCNavigationModeInfo info) override {
        return call<CallId::set_current_category>({wired(mode), {info.category, info.param, info.sortMode}}).result;
    }
};

// The subscriber of one callback. Its subscription is with the services; what the callback is handed is here.
class SignalSubscriber final : public ISignalSubscriber {
public:
    SignalSubscriber(Handle number, SignalCallback callback) : m_number(number), m_callback(callback) {}

    int Subscribe(ESignalType type, void* appData, int profile, int option, SignalCallback callback) override {
        const int result = call<CallId::subscribe>({numberFor(callback), type, profile, option}).result;
        if (result > 0) {
            m_appData = appData;
        }
        return result;
    }

    int Unsubscribe(ESignalType type, int profile, int option, SignalCallback callback) override {
        return call<CallId::unsubscribe>({numberFor(callback), type, profile, option}).result;
    }

    Handle number() const { return m_number; }

    void signal(int code, int profile, bool hasUserData) const {
        m_callback(static_cast<ESignalType>(code), static_cast<EProfile>(profile), 0, TSSignalData{0},
                   hasUserData ? m_appData : nullptr);
    }

private:
    // None if it is another's callback.
    Handle numberFor(SignalCallback callback) const { return callback == m_callback ? m_number : Handle{}; }

    Handle m_number;
    SignalCallback m_callback;
    void* m_appData = nullptr;
};

std::map<SignalCallback, SignalSubscriber>& subscribers() {
    static std::map<SignalCallback, SignalSubscriber> subscribers;
    return subscribers;
}

}  // namespace

// The callback may destroy its subscriber.
wire::None client::onSignal(Handle number, std::int32_t code, std::int32_t profile, bool hasUserData) {
    for (const auto& each : subscribers()) {
        if (each.second.number().value == number.value) {
            const SignalSubscriber subscriber = each.second;
            subscriber.signal(code, profile, hasUserData);
            break;
        }
    }
    return {};
}

int TVServiceAPI::CreateSignalSubscriber(SignalCallback callback, ISignalSubscriber** subscriber) {
    static std::uint32_t last = 0;
    // The number is chosen here: the callback itself means nothing in the services' process.
    const auto found = subscribers().find(callback);
    const Handle number = found != subscribers().end() ? found->second.number() : Handle{++last};
    const auto answer = call<CallId::create_signal_subscriber>({number});
    if (answer.out) {
        *subscriber = &subscribers().try_emplace(callback, number, callback).first->second;
    }
    return answer.result;
}

int TVServiceAPI::DestroySignalSubscriber(SignalCallback callback) {
    const auto found = subscribers().find(callback);
    const Handle number = found != subscribers().end() ? found->second.number() : Handle{};
    const int result = call<CallId::destroy_signal_subscriber>({number}).result;
    if (result == 1 && found != subscribers().end()) {
        subscribers().erase(found);
    }
    return result;
}

struct CTVSApiWrapper::Impl {
    ServiceNavigation serviceNavigation;
    SourceControl sourceControl;
    ScanData scanData;
    ScanControl scanControl;
};

CTVSApiWrapper::CTVSApiWrapper() : m_impl(new Impl) {
    client::notify<CallId::make_wrapper>({});
}

CTVSApiWrapper::~CTVSApiWrapper() {
    client::notify<CallId::destroy_wrapper>({});
    delete m_impl;
}

IServiceNavigation* CTVSApiWrapper::CreateServiceNavigation(EProfile profile, int option) {
    return call<CallId::create_service_navigation>({profile, option}).result.isThere ? &m_impl->serviceNavigation
                                                                                     : nullptr;
}

ISourceControl* CTVSApiWrapper::CreateSourceControl(EProfile profile, int option) {
    return call<CallId::create_source_control>({profile, option}).result.isThere ? &m_impl->sourceControl : nullptr;
}

IScanData* CTVSApiWrapper::CreateScanData(EProfile profile, int option) {
    return call<CallId::create_scan_data>({profile, option}).result.isThere ? &m_impl->scanData : nullptr;
}

IScanControl* CTVSApiWrapper::CreateScanControl(EProfile profile, int option) {
    return call<CallId::create_scan_control>({profile, option}).result.isThere ? &m_impl->scanControl : nullptr;
}

CCCategoryUtil* CCCategoryUtil::GetInstance() {
    static CategoryUtil util;
    return call<CallId::get_category_util>({}).result.isThere ? &util : nullptr;
}
