#include "JsonSchema.h"

#include <json/value.h>

#include <cstdlib>
#include <set>

#include "Log.h"
#include "TvProfile.h"
#include "platform/json_util.h"

namespace {

constexpr char JSON_SCHEMA_VERSION[] = "0.3";

constexpr int SOURCE_TV = 0;
constexpr int FIELD_SERVICE_ID = 12;
constexpr int FIELD_BESIDE_SERVICE_ID = 13;  // asked for, never read

// The member of an object; null when there is none, or no object.
const Json::Value& Member(const Json::Value& parent, const char* key) {
    return parent.isObject() ? parent[key] : Json::Value::nullSingleton();
}

// A member as the JSON library converts it; `absent` if there is none, or none that can be converted. A record is read
// as far as it goes.
template <typename Value>
Value Read(const Json::Value& parent, const char* key, Value (Json::Value::*convert)() const, Value absent) {
    if (!parent.isObject() || !parent.isMember(key)) {
        return absent;
    }
    try {
        return (parent[key].*convert)();
    } catch (const Json::Exception&) {
        return absent;
    }
}

int ReadInt(const Json::Value& parent, const char* key) {
    return Read(parent, key, &Json::Value::asInt, -1);
}

// Digits, because many a JSON reader keeps only 53 bits of a number. Texts are taken as strtoull() takes them: "007x"
// is 7, "-1" is all ones.
std::uint64_t ReadDigits(const Json::Value& parent, const char* key, std::uint64_t absent) {
    const Json::Value& value = Member(parent, key);
    return value.isString() ? std::strtoull(value.asCString(), nullptr, 10) : absent;
}

void CaptureNavigation(CTVSApiWrapper& wrapper, TSTvMode& mode, std::uint64_t& serviceId, CCNavigationModeInfo& info) {
    IServiceNavigation* navigation = wrapper.CreateServiceNavigation(PROFILE, NO_OPTION);
    if (navigation == nullptr) {
        return;
    }
    TCCriteriaHelper criteria;
    criteria.Fetch(FIELD_SERVICE_ID);
    criteria.Fetch(FIELD_BESIDE_SERVICE_ID);
    TCServiceData serviceData;
    if (navigation->GetTvMode(mode) <= 0) {
        LOG_IN("CJsonSchema", FAILURE, "GetTvMode fail");
        return;  // service and category are asked for by the mode
    }
    if (navigation->GetCurrentServiceInfo(mode, criteria, serviceData) <= 0) {
        LOG_IN("CJsonSchema", FAILURE, "GetCurrentServiceInfo fail");
    } else if (!serviceData.GetField(FIELD_SERVICE_ID, serviceId)) {
        serviceId = UINT64_MAX;
    }
    // A call that fails may have changed the record; what it left there stays.
    CCCategoryUtil* category = CCCategoryUtil::GetInstance();
    if (category != nullptr && !category->GetCurrentCategory(mode, info)) {
        LOG_IN("CJsonSchema", FAILURE, "GetCurrentCategory fail");
    }
}

int AntennaBits(int status) {
    switch (status) {
        case 0:
            return 0x01;
        case 1:
            return 0x02;
        case 2:
            return 0x04;
        case 3:
            return 0x08;
        case 4:
            return 0x99;  // deliberately not a bit of its own: backups hold this mask, and it is compared whole
        default:
            LOG_IN("m_GetAntennaStatus", FAILURE, "Wrong connection status[%d]", status);
            return 0;
    }
}

void RestoreService(IServiceNavigation& navigation, TSTvMode mode, const std::uint64_t& id) {
    const unsigned long long serviceId = id;  // what %llu takes, on every processor
    if (navigation.SetCurrentServiceInfo(mode, id) > 0) {
        LOG_IN("RestoreServiceSetting", PROGRESS, "SetCurrentServiceInfo[%d/%d %llu] success", mode.antennaMode,
               mode.serviceMode, serviceId);
        return;
    }
    LOG_IN("RestoreServiceSetting", FAILURE, "SetCurrentServiceInfo[%d/%d %llu] fail", mode.antennaMode,
           mode.serviceMode, serviceId);
    if (navigation.ResetCurrentServiceInfo() > 0) {
        // The error level is deliberate: the service that was asked for is not the one that is on.
        LOG_IN("RestoreServiceSetting", FAILURE, "ResetCurrentServiceInfo success");
    } else {
        LOG_IN("RestoreServiceSetting", FAILURE, "ResetCurrentServiceInfo fail");
    }
}

void RestoreSource(CTVSApiWrapper& wrapper, int source, unsigned long long serviceId) {
    ISourceControl* control = wrapper.CreateSourceControl(PROFILE, NO_OPTION);
    if (control != nullptr && control->SetSource(source, serviceId, "") > 0) {
        LOG_IN("RestoreServiceSetting", PROGRESS, "SetSource(%d, %llu) success", source, serviceId);
    } else {
        LOG_IN("RestoreServiceSetting", FAILURE, "SetSource(%d, %llu) fail", source, serviceId);
    }
}

void RestoreCategory(TSTvMode mode, const CCNavigationModeInfo& info) {
    if (info.category == -1) {
        return;  // unknown when the backup was taken: no failure
    }
    const unsigned long long param = info.param;
    CCCategoryUtil* category = CCCategoryUtil::GetInstance();
    if (category != nullptr && category->SetCurrentCategory(mode, info)) {
        LOG_IN("RestoreServiceSetting", PROGRESS, "SetCurrentCategory[%d/%llu/%d] success", info.category, param,
               info.sortMode);
    } else {
        LOG_IN("RestoreServiceSetting", FAILURE, "SetCurrentCategory[%d/%llu/%d] fail", info.category, param,
               info.sortMode);
    }
}

}  // namespace

CJsonSchema::CJsonSchema() : m_strVersion(JSON_SCHEMA_VERSION) {
    LOG_FUNC_BEGIN();
    m_nAntennaStatus = m_GetAntennaStatus();

    CTVSApiWrapper wrapper;
    CaptureNavigation(wrapper, m_tvMode, m_ullServiceId, m_navigationModeInfo);
    ISourceControl* source = wrapper.CreateSourceControl(PROFILE, NO_OPTION);
    if (source != nullptr && source->GetCurrentSourceInfo(m_nSource) <= 0) {
        LOG(FAILURE, "GetCurrentSourceInfo fail");
    }
}

CJsonSchema::CJsonSchema(const std::string& json) {
    LOG_FUNC_BEGIN();
    Json::Value root;
    if (!JsonUtil::StringToJson(json, root)) {
        LOG(FAILURE, "Json parse fail");
        return;
    }
    m_strVersion = Read(root, "version", &Json::Value::asString, std::string());
    const Json::Value& setting = Member(root, "setting");
    if (!setting.isObject()) {
        LOG(FAILURE, "Check json schema from server");
        return;
    }
    m_nAntennaStatus = ReadInt(setting, "antenna");
    const Json::Value& tvMode = Member(setting, "tvmode");
    m_tvMode.antennaMode = static_cast<EAntennaMode>(ReadInt(tvMode, "antenna_mode"));
    m_tvMode.serviceMode = static_cast<EServiceMode>(ReadInt(tvMode, "service_mode"));
    m_ullServiceId = ReadDigits(setting, "service_id", UINT64_MAX);
    m_nSource = ReadInt(setting, "source");
    const Json::Value& category = Member(setting, "category");
    m_navigationModeInfo.category = static_cast<ECategory>(ReadInt(category, "mode"));
    m_navigationModeInfo.param = ReadDigits(category, "param", 0);
    m_navigationModeInfo.sortMode = static_cast<ESortMode>(ReadInt(category, "sort"));
}

CJsonSchema& CJsonSchema::operator=(const CJsonSchema& other) = default;

CJsonSchema::~CJsonSchema() = default;

std::string CJsonSchema::StringJson() {
    LOG_FUNC_BEGIN();
    Json::Value setting;
    setting["antenna"] = m_nAntennaStatus;
    setting["tvmode"]["antenna_mode"] = m_tvMode.antennaMode;
    setting["tvmode"]["service_mode"] = m_tvMode.serviceMode;
    setting["source"] = m_nSource;
    setting["service_id"] = std::to_string(m_ullServiceId);
    setting["category"]["mode"] = m_navigationModeInfo.category;
    setting["category"]["param"] = std::to_string(m_navigationModeInfo.param);
    setting["category"]["sort"] = m_navigationModeInfo.sortMode;

    Json::Value root;
    root["version"] = JSON_SCHEMA_VERSION;  // not the member: what is written now is of this version
    root["setting"] = setting;
    std::string text = JsonUtil::JsonToString(root);
    LOG(PROGRESS, "%s", text.c_str());
    return text;
}

bool CJsonSchema::CheckMetaData() {
    LOG_FUNC_BEGIN();
    if (m_strVersion != JSON_SCHEMA_VERSION) {
        LOG(FAILURE, "json schema version mismatch [%s]!=[%s]", m_strVersion.c_str(), JSON_SCHEMA_VERSION);
        return false;
    }
    // Compared whole: two that could not be read, -1 both, are equal as well.
    const int antennaStatus = m_GetAntennaStatus();
    if (antennaStatus != m_nAntennaStatus) {
        LOG(FAILURE, "Current antenna status=[0x%x] != Backup antenna status=[0x%x]",
            static_cast<unsigned int>(antennaStatus), static_cast<unsigned int>(m_nAntennaStatus));
        return false;
    }
    return true;
}

void CJsonSchema::RestoreServiceSetting() {
    const unsigned long long serviceId = m_ullServiceId;
    const unsigned long long categoryParam = m_navigationModeInfo.param;
    LOG(DETAIL, "tvMode[%d/%d], service id[%llu], source[%d], category[%d/%llu/%d]", m_tvMode.antennaMode,
        m_tvMode.serviceMode, serviceId, m_nSource, m_navigationModeInfo.category, categoryParam,
        m_navigationModeInfo.sortMode);
    if (m_tvMode.antennaMode == -1 || m_tvMode.serviceMode == -1) {
        return;
    }
    CTVSApiWrapper wrapper;
    IServiceNavigation* navigation = wrapper.CreateServiceNavigation(PROFILE, NO_OPTION);
    if (navigation == nullptr || navigation->SetTvMode(m_tvMode, NO_OPTION) <= 0) {
        LOG(FAILURE, "SetTvMode[%d/%d] fail", m_tvMode.antennaMode, m_tvMode.serviceMode);
        return;
    }
    // The mode stays set; services and categories are the tuner's alone.
    if (m_nSource != SOURCE_TV) {
        LOG(PROGRESS, "Cannot set non-TV type source [%d]", m_nSource);
        return;
    }
    LOG(PROGRESS, "SetTvMode[%d/%d] success", m_tvMode.antennaMode, m_tvMode.serviceMode);
    RestoreService(*navigation, m_tvMode, m_ullServiceId);
    RestoreSource(wrapper, m_nSource, serviceId);
    RestoreCategory(m_tvMode, m_navigationModeInfo);
}

int CJsonSchema::m_GetAntennaStatus() {
    ITunerControl* tuner = nullptr;
    TVServiceAPI::CreateTunerControl(PROFILE, NO_OPTION, &tuner);  // the tuner alone tells; nobody releases it
    std::set<int> statuses;
    if (tuner == nullptr || tuner->GetAntennaConnectionStatus(statuses) <= 0) {
        LOG(FAILURE, "pTunerControl==nullptr or ITunerControl::GetAntennaConnectionStatus error");
        return -1;
    }
    int mask = 0;
    for (const int status : statuses) {
        mask |= AntennaBits(status);
    }
    LOG(PROGRESS, "[OUT]antennaStatus=[%d]", mask);
    return mask;
}
