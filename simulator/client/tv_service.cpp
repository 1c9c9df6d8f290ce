// The TV service's databases and tuner, and the types that its calls use.
#include "platform/tv_service.h"

#include "simulator/client/Connection.h"

namespace {

using client::call;
using wire::CallId;

class Util final : public IUtil {
public:
    int GetServiceDb(const std::string& path) override { return call<CallId::get_service_db>({path}).result; }

    int ReplaceServiceDb(const std::string& path, int* status) override {
        return client::give(call<CallId::replace_service_db>({path}), status);
    }

    int Reserved1() override { return 0; }
    int Reserved2() override { return 0; }

    int GetIssDbArchive(const std::string& path) override { return call<CallId::get_iss_db_archive>({path}).result; }

    int RestoreIssDbArchive(const std::string& path) override {
        return call<CallId::restore_iss_db_archive>({path}).result;
    }
};

class TunerControl final : public ITunerControl {
public:
    int GetAntennaConnectionStatus(std::set<int>& statuses) override {
        auto answer = call<CallId::get_antenna_connection_status>({});
        if (answer.out) {
            statuses.merge(*answer.out);
        }
        return answer.result;
    }
};

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
    const auto answer = call<CallId::create_util>({});
    if (answer.out) {
        *util = new Util;
    }
    return answer.result;
}

void TVServiceAPI::Destroy(IUtil* util) {
    client::notify<CallId::destroy_util>({});
    // The destructor of IUtil is protected and not virtual: only this class can be deleted.
    delete static_cast<Util*>(util);
}

int TVServiceAPI::CreateTunerControl(EProfile profile, int option, ITunerControl** tuner) {
    static TunerControl control;
    const auto answer = call<CallId::create_tuner_control>({profile, option});
    if (answer.out) {
        *tuner = &control;
    }
    return answer.result;
}
