// The TV service's databases and tuner, and the types that its calls use.
#include "platform/tv_service.h"

#include <fmt/format.h>

#include <exception>
#include <optional>

#include "simulator/device/Journal.h"

namespace {

using sim::Device;
using sim::Given;
namespace calls = sim::calls;
using sim::platformCall;
using sim::platformNotice;

class Util final : public IUtil {
public:
    int GetServiceDb(const std::string& path) override {
        return platformCall(
            calls::get_service_db, std::tuple(path),
            [&](Device& device) {
                device.tv.serviceDb().snapshot(path, device.tv.now());
                return 1;
            },
            [&](sim::Damage damage) { sim::damageFile(path, damage); });
    }

    int ReplaceServiceDb(const std::string& path, int* status) override {
        return platformCall(calls::replace_service_db, std::tuple(path), [&](Device& device, Given& given) {
            const std::optional<sim::ReplaceStatus> problem = device.tv.serviceDb().replace(path);
            if (problem) {
                *status = static_cast<int>(*problem);
                given = fmt::format("status {}", *status);
                return 0;
            }
            return 1;
        });
    }

    int Reserved1() override { return 0; }
    int Reserved2() override { return 0; }

    int GetIssDbArchive(const std::string& path) override {
        return platformCall(
            calls::get_iss_db_archive, std::tuple(path),
            [&](Device& device) {
                try {
                    device.tv.issDb().snapshot(path, device.tv.now());
                    return 1;
                } catch (const std::exception&) {
                    return 0;  // a negative result would be success here
                }
            },
            [&](sim::Damage damage) { sim::damageFile(path, damage); });
    }

    int RestoreIssDbArchive(const std::string& path) override {
        return platformCall(calls::restore_iss_db_archive, std::tuple(path),
                            [&](Device& device) { return device.tv.issDb().restore(path) ? 1 : 0; });
    }
};

class TunerControl final : public ITunerControl {
public:
    int GetAntennaConnectionStatus(std::set<int>& statuses) override {
        return platformCall(calls::get_antenna_connection_status, std::tuple(), [&](Device& device, Given& given) {
            statuses.merge(device.tv.antenna());
            given = fmt::format("{{{}}}", fmt::join(statuses, ", "));
            return 1;
        });
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
    return platformCall(calls::create_util, std::tuple(), [&] {
        *util = new Util;
        return 0;
    });
}

void TVServiceAPI::Destroy(IUtil* util) {
    platformNotice(calls::destroy_util);
    delete static_cast<Util*>(util);
}

int TVServiceAPI::CreateTunerControl(EProfile profile, int option, ITunerControl** tuner) {
    return platformCall(calls::create_tuner_control, std::tuple(profile, option), [&] {
        static TunerControl control;
        *tuner = &control;
        return 0;
    });
}
