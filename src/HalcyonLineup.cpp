#include "HalcyonLineup.h"

#include <json/value.h>
#include <json/writer.h>

#include <chrono>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <list>
#include <memory>
#include <sstream>
#include <system_error>

#include "FileUtil.h"
#include "Log.h"
#include "PlatformText.h"
#include "TvProfile.h"
#include "ZipUtil.h"
#include "platform/ci_service.h"
#include "platform/json_util.h"
#include "platform/path_resolver.h"
#include "platform/settings_store.h"

namespace fs = std::filesystem;

// The order of these three is the order of the process's start. 61 and 78 are the platform's numbers for the folders of
// application data and of temporary data.
const char* CHANNEL_MAP_DIR_PATH = platform_path_resolve(61, "com.kestrel.tv.halcyon-lineup/data/");
const char* CHANNEL_MAP_DIR_PATH_TMP = platform_path_resolve(78, "halcyon-lineup/");
CJsonSchema CHalcyonLineup::m_jsonSchema;

ISignalSubscriber* CHalcyonLineup::m_pSubscriber = nullptr;
app_control_s* CHalcyonLineup::m_appCaller = nullptr;
int CHalcyonLineup::sm_bnrHandler = 0;
bool CHalcyonLineup::m_bScanActivated = false;

namespace {

// The cloud finds an account's backups by these two.
constexpr char BNR_ID[] = "Qr7tLw2ZkA";
constexpr char BNR_CATEGORY[] = "OOBERFChannelList";
constexpr int BNR_POSTPONED = 6;

constexpr auto SIGNAL_SCAN_STOPPED = static_cast<ESignalType>(18);

// By number, because the names in the service's enumeration are the SDK's own, and the numbers the protocol's.
enum Response : int {
    RESPONSE_UNHANDLED = 0,
    RESPONSE_BACKUP_COMPLETED = 101,
    RESPONSE_RESTORE_DATA = 102,
    RESPONSE_LIST_DEVICES_COMPLETED = 103,
    RESPONSE_ERROR = 500,
    RESPONSE_BACKUP_SCHEMA_ERROR = 502,
    RESPONSE_SERVER_NOT_RESPONDING = 503,
    RESPONSE_DUPLICATED_DATA = 504,
};

enum SettingsType : std::int32_t {
    SETTING_INT = 0,
    SETTING_STRING = 1,
    SETTING_BOOL = 2,
    SETTING_DOUBLE = 3,
    SETTING_INT_TOO = 4,  // no different from 0
};

struct UtilDestroyer {
    void operator()(IUtil* util) const { TVServiceAPI::Destroy(util); }
};
using Util = std::unique_ptr<IUtil, UtilDestroyer>;

// Null when the TV service gives none.
Util CreateUtil() {
    IUtil* util = nullptr;
    return Util(TVServiceAPI::CreateUtil(&util) == 0 ? util : nullptr);
}

bool FetchServiceDb(const std::string& archive) {
    Util util = CreateUtil();
    if (util == nullptr) {
        LOG_IN("Backup", FAILURE, "TVServiceAPI::CreateUtil fail");
        return false;
    }
    if (util->GetServiceDb(archive) <= 0) {
        LOG_IN("Backup", FAILURE, "IUtil::GetServiceDb(%s) fail", archive.c_str());
        return false;
    }
    util.reset();  // the record of the success comes after the release
    LOG_IN("Backup", PROGRESS, "IUtil::GetServiceDb(%s) success", archive.c_str());
    return true;
}

// Rewrites the archive without the IP services, which belong to this set only.
bool FilterServiceDb(CZipUtil& zip, const std::string& archive, const std::string& folder) {
    if (!zip.UnzipFile(archive, folder)) {
        LOG_IN("Backup", FAILURE, "Unzip(%s, %s) Fail", archive.c_str(), folder.c_str());
        return false;
    }
    const std::string excluded = folder + "ipsrv";
    std::error_code error;  // one that cannot be asked for counts as missing
    if (fs::exists(fs::status(excluded, error))) {
        CFileUtil::Remove(excluded);
    }
    // Packing removes the folder, which would otherwise go into the bundle.
    if (!zip.CreateZipFile(folder, archive)) {
        LOG_IN("Backup", FAILURE, "CreateZipFile(%s, %s)) fail", folder.c_str(), archive.c_str());
        return false;
    }
    LOG_IN("Backup", PROGRESS, "Create Zip File success");
    return true;
}

bool PackBundle(CZipUtil& zip, const std::string& stagingFolder, const std::string& bundle) {
    if (!zip.CreateZipFile(stagingFolder, bundle)) {
        LOG_IN("Backup", FAILURE, "CreateZipFile(%s, %s)) for update file fail", stagingFolder.c_str(), bundle.c_str());
        return false;
    }
    // The error level is deliberate.
    LOG_IN("Backup", FAILURE, "CreateZipFile(%s, %s)) for update file success", stagingFolder.c_str(), bundle.c_str());
    return true;
}

// True when the service accepted the bundle. A postponed hand-over is a failed one.
bool HandOver(const std::string& bundle) {
    CJsonSchema schema;  // the TV as it is now, not at the process's start
    const std::string metadata = schema.StringJson();
    const int status = bnr_backup(BNR_ID, metadata.c_str(), bundle.c_str());
    switch (status) {
        case 0:
            LOG_IN("Backup", PROGRESS, "bnr_backup(%s, %s) success", metadata.c_str(), bundle.c_str());
            CFileUtil::Remove(bundle);
            return true;
        case BNR_POSTPONED:
            LOG_IN("Backup", PROGRESS, "bnr_backup(%s, %s) is postponded [%d]", metadata.c_str(), bundle.c_str(),
                   status);
            CFileUtil::Remove(bundle);
            return false;
        default:
            LOG_IN("Backup", FAILURE, "bnr_backup(%s, %s) fail [%d]", metadata.c_str(), bundle.c_str(), status);
            CFileUtil::Move(bundle, CHANNEL_MAP_DIR_PATH_TMP);
            return false;
    }
}

bool ReadScanActivated(app_control_s* request) {
    char* extra = nullptr;
    app_control_get_extra_data(request, "scan_activated", &extra);  // the text alone tells
    const PlatformText value(extra);
    // Only "0" says no: "00" and the empty text say yes.
    const bool activated = value != nullptr && std::strcmp(value.get(), "0") != 0;
    LOG_IN("Restore", DETAIL, "pScanActivated=[%s], m_bScanActivated=[%d]", value != nullptr ? value.get() : "(null)",
           activated);
    return activated;
}

// True when the service accepted the request.
bool RequestBackup() {
    if (!CFileUtil::CreateDirectories(CHANNEL_MAP_DIR_PATH)) {
        LOG_IN("Restore", FAILURE, "m_CreateDirectories(%s) fail", CHANNEL_MAP_DIR_PATH);
        return false;
    }
    const int requested = bnr_restore(BNR_ID, CHANNEL_MAP_DIR_PATH);
    if (requested != 0) {
        LOG_IN("Restore", FAILURE, "bnr_restore(%s, %s) error [%d]", BNR_ID, CHANNEL_MAP_DIR_PATH, requested);
        return false;
    }
    LOG_IN("Restore", PROGRESS, "Restore requested successfully.");
    return true;
}

// The responses that end a run with a record and nothing else.
void LogResponse(int code, bnr_resp_data_s* data) {
    switch (code) {
        case RESPONSE_UNHANDLED:
            LOG_IN("sm_BnrCallback", FAILURE, "Unhandled response");
            break;
        case RESPONSE_BACKUP_COMPLETED:
            LOG_IN("sm_BnrCallback", PROGRESS, "Backup is completed %p", static_cast<void*>(data));
            break;
        case RESPONSE_LIST_DEVICES_COMPLETED:
            LOG_IN("sm_BnrCallback", PROGRESS, "ListDevices is completed");
            break;
        case RESPONSE_ERROR:
            LOG_IN("sm_BnrCallback", FAILURE, "Error happened");
            break;
        case RESPONSE_BACKUP_SCHEMA_ERROR:
            LOG_IN("sm_BnrCallback", FAILURE, "Backup Schema error");
            break;
        case RESPONSE_SERVER_NOT_RESPONDING:
            LOG_IN("sm_BnrCallback", FAILURE, "Server is not responding. Try again later.");
            break;
        case RESPONSE_DUPLICATED_DATA:
            LOG_IN("sm_BnrCallback", FAILURE, "Duplicated data error");
            break;
        default:  // 501 too, deliberately
            LOG_IN("sm_BnrCallback", FAILURE, "INVALID value[%d]", code);
    }
}

void FinishOnResponse() {
    LOG_IN("sm_BnrCallback", PROGRESS, "response came. Finish app");
    ui_app_exit();
}

bool Accept(CJsonSchema& schema) {
    if (!schema.CheckMetaData()) {
        LOG_IN("m_Restore", FAILURE, "m_CheckMetaData fail");
        return false;
    }
    return true;
}

bool Unpack(const std::string& archive, const std::string& folder) {
    if (!CZipUtil().UnzipFile(archive, folder)) {
        LOG_IN("m_Restore", FAILURE, "Unzip file fail");
        return false;
    }
    return true;
}

bool ReplaceServiceDb(IUtil* util, const std::string& archive) {
    if (util == nullptr) {
        LOG_IN("m_Restore", FAILURE, "TVServiceAPI::CreateUtil fail");
        return false;
    }
    int status = 0;
    if (util->ReplaceServiceDb(archive, &status) < 1) {
        LOG_IN("m_Restore", FAILURE, "ReplaceServiceDb fail. status=[%d]", status);
        return false;
    }
    LOG_IN("m_Restore", PROGRESS, "ReplaceServiceDb(%s) success", archive.c_str());
    return true;
}

bool Exists(const std::string& path) {
    std::error_code error;
    return fs::exists(path, error);
}

// Keeps the archive of a failed restore.
bool GiveUp(const std::string& archivePath) {
    CFileUtil::Move(archivePath, CHANNEL_MAP_DIR_PATH_TMP);
    LOG_IN("m_Restore", FAILURE, "m_Restore fail");
    return false;
}

// What was last read of each kind. The results of reads are ignored: one that fails leaves the value of the one before.
struct LastRead {
    int integer = 0;
    int boolean = 0;
    double real = 0;
};

// All kinds that the file's format knows; only SETTING_STRING is in the list of m_PrepareVconfVector() today.
void ReadSetting(const SSettingsEntry& entry, LastRead& last, Json::Value& element) {
    const char* key = entry.key.c_str();
    switch (entry.type) {
        case SETTING_INT:
        case SETTING_INT_TOO:
            vconf_get_int(key, &last.integer);
            // Sign-extended, then unsigned: the form that the file has always had. A negative one cannot be read back.
            element["value"] = static_cast<Json::UInt64>(last.integer);
            LOG_IN("m_BackupVconf", DETAIL, "CHalcyonLineup::m_BackupVconf vconf_get_int %s value %d \n", key,
                   last.integer);
            break;
        case SETTING_STRING: {
            const PlatformText text(vconf_get_str(key));
            // A failed read is not guarded against: null raises the JSON library's error.
            element["value"] = text.get();
            LOG_IN("m_BackupVconf", DETAIL, "CHalcyonLineup::m_BackupVconf vconf_get_str %s value %s \n", key,
                   text.get());
            break;
        }
        case SETTING_BOOL:
            vconf_get_bool(key, &last.boolean);
            element["value"] = last.boolean != 0 ? 1 : 0;
            LOG_IN("m_BackupVconf", DETAIL, "CHalcyonLineup::m_BackupVconf vconf_get_bool %s value %s \n", key,
                   last.boolean != 0 ? "true" : "false");
            break;
        case SETTING_DOUBLE:
            vconf_get_dbl(key, &last.real);
            element["value"] = last.real;
            LOG_IN("m_BackupVconf", DETAIL, "CHalcyonLineup::m_BackupVconf vconf_get_dbl %s value %lf \n", key,
                   last.real);
            break;
        default:
            LOG_IN("m_BackupVconf", DETAIL, "CHalcyonLineup::m_BackupVconf DEFAULT \n");
    }
}

// Wrong JSON types are not guarded against: they raise the JSON library's error. Texts are read with asCString(),
// because asString() would take a missing one for an empty one. A setting that cannot be set stops no other.
void WriteSetting(const Json::Value& element) {
    const char* key = element["path"].asCString();
    LOG_IN("m_RestoreVconf", PROGRESS, "vconf_path: %s", key);
    const Json::Value& value = element["value"];
    switch (element["type"].asInt()) {
        case SETTING_INT:
        case SETTING_INT_TOO:
            if (vconf_set_int(key, value.asInt()) != 0) {
                LOG_IN("m_RestoreVconf", PROGRESS, "vconf_set_int of %s failed!", key);
            }
            break;
        case SETTING_STRING:
            if (vconf_set_str(key, value.asCString()) != 0) {
                LOG_IN("m_RestoreVconf", PROGRESS, "vconf_set_str of %s failed!", key);
            }
            break;
        case SETTING_BOOL:
            if (vconf_set_bool(key, value.asBool() ? 1 : 0) != 0) {
                LOG_IN("m_RestoreVconf", PROGRESS, "vconf_set_bool of %s failed!", key);
            }
            break;
        case SETTING_DOUBLE:
            if (vconf_set_dbl(key, value.asDouble()) != 0) {
                LOG_IN("m_RestoreVconf", PROGRESS, "vconf_set_dbl of %s failed!", key);
            }
            break;
        default:
            LOG_IN("m_RestoreVconf", FAILURE, "unrecognized type\n");
    }
}

}  // namespace

CHalcyonLineup::CHalcyonLineup() = default;

CHalcyonLineup::~CHalcyonLineup() = default;

bool CHalcyonLineup::Backup() {
    if (!m_BnrInitialize()) {
        LOG(FAILURE, "m_BnrInitialize() fail");
        return false;
    }
    const std::string base = CHANNEL_MAP_DIR_PATH + m_GenerateUniqueName();
    const std::string stagingFolder = base + "/";
    CFileUtil::CreateDirectories(stagingFolder);  // if it fails, so does what is put there

    CZipUtil zip;
    const std::string serviceDb = stagingFolder + "ServiceDB.zip";
    if (!FetchServiceDb(serviceDb) || !FilterServiceDb(zip, serviceDb, stagingFolder + "service-db/")) {
        m_BnrDeinitialize();
        return false;
    }
    // Best effort: an item that fails is left out of the bundle.
    m_BackupVconf(stagingFolder);
    m_BackupCiFile(stagingFolder + "ci/");
    m_BackupIssDB(stagingFolder + "issDB.zip");

    const std::string bundle = base + ".zip";
    if (!PackBundle(zip, stagingFolder, bundle) || !HandOver(bundle)) {
        m_BnrDeinitialize();
        return false;
    }
    return true;  // the session stays open for the response
}

bool CHalcyonLineup::Restore(app_control_s* request) {
    if (request == nullptr) {
        LOG(FAILURE, "appCaller == nullptr");
        return false;
    }
    const int cloned = app_control_clone(&m_appCaller, request);
    if (cloned != 0) {
        LOG(FAILURE, "app_control_clone fail[%d]", cloned);
        return false;
    }
    m_bScanActivated = ReadScanActivated(m_appCaller);
    if (!m_BnrInitialize()) {
        LOG(FAILURE, "m_BnrInitialize() fail");
        m_SendMessageToCaller(false);
        return false;
    }
    if (!RequestBackup()) {
        m_BnrDeinitialize();
        m_SendMessageToCaller(false);
        return false;
    }
    return true;  // the session stays open for the response
}

// An exception of the JSON or the file-system library that a damaged item raises may leave through here: the platform
// calls back from its main loop, nothing catches it there, and it ends the process.
void CHalcyonLineup::sm_BnrCallback(bnr_response_e response, bnr_resp_data_s* data, void* pThis) {
    const int code = response;
    LOG(PROGRESS, "BNR Callback called [%d]", code);
    if (pThis == nullptr) {
        // Without the instance, the session cannot be closed, nor the caller answered.
        bnr_report_failure(BNR_ID);
        LOG(FAILURE, "pThis==nullptr");
        FinishOnResponse();
        return;
    }
    auto* self = static_cast<CHalcyonLineup*>(pThis);
    if (code != RESPONSE_RESTORE_DATA) {
        LogResponse(code, data);
    } else if (self->m_Restore(data)) {
        bnr_report_success(BNR_ID);
        self->m_BnrDeinitialize();
        if (!m_bScanActivated) {
            // Deliberately without an exit: the framework reclaims the application.
            m_jsonSchema.RestoreServiceSetting();
        } else if (!self->m_StopScan()) {
            FinishOnResponse();
        }
        return;  // a stopped scan's signal goes on
    } else {
        LOG(FAILURE, "m_Restore fail");
        bnr_report_failure(BNR_ID);
    }
    self->m_BnrDeinitialize();
    self->m_SendMessageToCaller(false);
    FinishOnResponse();
}

int CHalcyonLineup::sm_SignalCallback(ESignalType type, EProfile, unsigned short, TSSignalData, void* pAppData) {
    LOG_FUNC_BEGIN();
    if (pAppData == nullptr) {
        LOG_ASSERTION_FAILED(0 && "pAppData");
        return -1;
    }
    if (type == SIGNAL_SCAN_STOPPED) {
        m_jsonSchema.RestoreServiceSetting();
    }
    // Any signal ends the run, and the subscription goes with the process.
    LOG(PROGRESS, "signal came. Finish app");
    ui_app_exit();
    return 0;
}

bool CHalcyonLineup::m_BnrInitialize() {
    const int initialized = bnr_init(BNR_ID, BNR_CATEGORY);
    if (initialized != 0) {
        LOG(FAILURE, "bnr_init fail[%d]", initialized);
        return false;
    }
    LOG(DETAIL, "bnr init success");
    const int registered = bnr_callback_register(BNR_ID, sm_BnrCallback, this, &sm_bnrHandler);
    if (registered != 0) {
        LOG(FAILURE, "Failed to set bnr callback [%d]", registered);
        bnr_deinit(BNR_ID);
        return false;
    }
    LOG(DETAIL, "bnr callback register success. Handler=[%d]", sm_bnrHandler);
    return true;
}

// Takes both steps, whatever becomes of the first: the run is over.
void CHalcyonLineup::m_BnrDeinitialize() {
    const int deregistered = bnr_callback_deregister(sm_bnrHandler);
    if (deregistered != 0) {
        LOG(FAILURE, "Failed to unset bnr callback [%d]", deregistered);
    } else {
        LOG(PROGRESS, "bnr_callback_deregister success. Handler=[%d]", sm_bnrHandler);
    }
    const int deinitialized = bnr_deinit(BNR_ID);
    if (deinitialized != 0) {
        LOG(FAILURE, "Failed bnr_deinit [%d]", deinitialized);
    } else {
        LOG(PROGRESS, "bnr_deinit success");
    }
}

bool CHalcyonLineup::m_Restore(const bnr_resp_data_s* data) {
    if (data == nullptr) {
        LOG(FAILURE, "bnr_resp_data_s *respdata is nullptr");
        return false;
    }
    LOG(PROGRESS, "RestoreData download json schema[%s] filePath[%s]", data->jsonSchema, data->filePath);
    const std::string archivePath = data->filePath;
    const std::string unpackFolder = CHANNEL_MAP_DIR_PATH + std::string("temp/");
    CJsonSchema schema(data->jsonSchema);
    if (!Accept(schema) || !Unpack(archivePath, unpackFolder)) {
        return GiveUp(archivePath);
    }

    Util util = CreateUtil();
    const bool replaced = ReplaceServiceDb(util.get(), unpackFolder + "ServiceDB.zip");
    if (replaced) {
        m_SendMessageToCaller(true);
        // Best effort from here on: the channels are back, and the caller knows.
        if (Exists(unpackFolder + "vconf.json")) {
            m_RestoreVconf(unpackFolder + "vconf.json");
        }
        if (Exists(unpackFolder + "issDB.zip")) {
            m_RestoreIssDB(unpackFolder + "issDB.zip");
        }
        m_RestoreCiFile(unpackFolder + "ci/");
    }
    util.reset();
    CFileUtil::RemoveAll(unpackFolder);
    if (!replaced) {
        return GiveUp(archivePath);
    }
    CFileUtil::Remove(archivePath);
    m_jsonSchema = schema;
    LOG(PROGRESS, "m_Restore success");
    return true;
}

bool CHalcyonLineup::m_StopScan() {
    LOG_FUNC_BEGIN();
    CTVSApiWrapper wrapper;
    IScanData* scanData = wrapper.CreateScanData(PROFILE, NO_OPTION);
    if (scanData == nullptr) {
        LOG_ASSERTION_FAILED(0 && "pScanData");
        return false;
    }
    bool activated = false;
    if (scanData->IsScanActivated(activated, NO_OPTION) < 1 || !activated) {
        LOG(PROGRESS, "Scan is not activated");
        return false;
    }
    TVServiceAPI::CreateSignalSubscriber(sm_SignalCallback, &m_pSubscriber);  // the subscriber alone tells
    if (m_pSubscriber == nullptr) {
        LOG_ASSERTION_FAILED(0 && "m_pSubscriber");
        return false;
    }
    // Until the stop itself fails, the subscriber is left as it is: the run is about to end.
    if (m_pSubscriber->Subscribe(SIGNAL_SCAN_STOPPED, this, PROFILE, NO_OPTION, sm_SignalCallback) <= 0) {
        return false;
    }
    IScanControl* scanControl = wrapper.CreateScanControl(PROFILE, NO_OPTION);
    if (scanControl == nullptr) {
        LOG_ASSERTION_FAILED(0 && "pScanControl");
        return false;
    }
    if (scanControl->StopAutoScan(NO_OPTION) <= 0) {
        m_UnsubscribeSignal();
        LOG(FAILURE, "StopAutoScan fail");
        return false;
    }
    LOG(PROGRESS, "StopAutoScan success");
    return true;
}

void CHalcyonLineup::m_UnsubscribeSignal() {
    LOG_FUNC_BEGIN();
    if (m_pSubscriber != nullptr) {
        m_pSubscriber->Unsubscribe(SIGNAL_SCAN_STOPPED, PROFILE, NO_OPTION, sm_SignalCallback);
        TVServiceAPI::DestroySignalSubscriber(sm_SignalCallback);
        m_pSubscriber = nullptr;
    }
}

void CHalcyonLineup::m_SendMessageToCaller(bool ok) {
    if (m_appCaller == nullptr) {
        LOG(FAILURE, "m_appCaller == nullptr");
        return;
    }
    bool requested = false;
    const int asked = app_control_is_reply_requested(m_appCaller, &requested);
    if (asked != 0) {
        LOG(FAILURE, "app_control_is_reply_requested fail[%d]", asked);
        app_control_destroy(m_appCaller);
        return;
    }
    if (!requested) {
        LOG(PROGRESS, "Caller app did not request a reply");
        app_control_destroy(m_appCaller);
        return;
    }
    const int code = ok ? 0 : -1;
    app_control_s* reply = nullptr;
    app_control_create(&reply);  // if it fails, so does the next call
    const int sent = app_control_reply_to_launch_request(reply, m_appCaller, code);
    if (sent != 0) {
        LOG(FAILURE, "app_control_reply_to_launch_request(%d) fail[%d]", code, sent);
    } else {
        LOG(PROGRESS, "app_control_reply_to_launch_request(%d) success", code);
    }
    app_control_destroy(reply);
    // Not reset: a run replies once, so that nobody uses the handle again.
    app_control_destroy(m_appCaller);
}

std::string CHalcyonLineup::m_GenerateUniqueName() {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm local = {};
    localtime_r(&seconds, &local);
    std::ostringstream stream;
    stream << std::put_time(&local, "%d%m%Y_%H%M%S");
    std::string name = stream.str();
    LOG(PROGRESS, "unique name[%s]", name.c_str());
    return name;
}

std::vector<SSettingsEntry> CHalcyonLineup::m_PrepareVconfVector() {
    LOG(DETAIL, "ChannelListCloudUtil::m_PrepareVconfVector ENTER");
    return {
        {"db/menu/broadcasting/channel_manager/favname1", SETTING_STRING},
        {"db/menu/broadcasting/channel_manager/favname2", SETTING_STRING},
        {"db/menu/broadcasting/channel_manager/favname3", SETTING_STRING},
        {"db/menu/broadcasting/channel_manager/favname4", SETTING_STRING},
        {"db/menu/broadcasting/channel_manager/favname5", SETTING_STRING},
    };
}

void CHalcyonLineup::m_BackupVconf(const std::string& stagingFolder) {
    const std::string filePath = stagingFolder + "vconf.json";
    const std::vector<SSettingsEntry> entries = m_PrepareVconfVector();
    LOG(PROGRESS, "CHalcyonLineup::m_BackupVconf prepare json parameters \n");
    Json::Value root;
    root["encoding"] = "UTF-8";
    root["version"] = "0.1";
    root["module"] = "VCONF";
    root["dataSize"] = static_cast<Json::UInt>(entries.size());
    LastRead last;
    for (const SSettingsEntry& entry : entries) {
        Json::Value& element = root["data"].append(Json::Value());
        element["path"] = entry.key;
        element["type"] = entry.type;
        ReadSetting(entry, last, element);
    }
    LOG(PROGRESS, "CHalcyonLineup::m_BackupVconf open file for writing \n");
    std::ofstream file(filePath);
    if (!file) {
        LOG(PROGRESS, "CHalcyonLineup::m_BackupVconf problem with opening file \n");
        return;
    }
    LOG(PROGRESS, "CHalcyonLineup::m_BackupVconf file opened \n");
    file << root;  // in the library's default style, with tabs
}

bool CHalcyonLineup::m_RestoreVconf(const std::string& filePath) {
    std::ifstream file(filePath, std::ios::binary);
    if (!file) {
        LOG(FAILURE, "ChannelListCloudUtil::m_RestoreVconf(): ERROR with opening file.\n");
        return false;
    }
    Json::Value parsed;
    JsonUtil::StreamToJson(file, parsed);  // what is no JSON becomes null, which counts no settings
    file.close();
    const Json::Value& root = parsed;            // const: a look-up adds no members
    const int count = root["dataSize"].asInt();  // decides, whatever the array holds
    for (int i = 0; i < count; ++i) {
        WriteSetting(root["data"][i]);
    }
    return true;
}

void CHalcyonLineup::m_BackupCiFile(const std::string& ciFolder) {
    CIM::ICIGeneral* ci = CIM::TCCIService::CIGeneralInstance();
    if (ci == nullptr) {
        return;  // a TV without CI: nothing to say
    }
    std::list<std::string> paths;
    if (ci->GetBackupFilePaths(paths) != 1 || paths.empty()) {
        LOG(FAILURE, "CIM::ICIGeneral::GetBackupFilePaths fail");
        return;
    }
    for (const std::string& path : paths) {
        if (!CFileUtil::Copy(path, ciFolder)) {
            LOG(FAILURE, "Copy file[%s] to directory[%s] fail", path.c_str(), ciFolder.c_str());
            return;  // what was copied before stays
        }
        LOG(PROGRESS, "Copy file[%s] to directory[%s] success", path.c_str(), ciFolder.c_str());
    }
}

void CHalcyonLineup::m_RestoreCiFile(const std::string& ciFolder) {
    std::error_code error;
    if (!fs::is_directory(fs::status(ciFolder, error))) {
        return;
    }
    // Whatever is there: the CI service decides what it takes.
    std::list<std::string> paths;
    for (const fs::directory_entry& member : fs::directory_iterator(ciFolder)) {
        paths.push_back(member.path().string());
    }
    if (paths.empty()) {
        return;
    }
    CIM::ICIGeneral* ci = CIM::TCCIService::CIGeneralInstance();
    if (ci == nullptr) {
        return;
    }
    if (ci->BackupFileDone(paths) == 1) {
        LOG(PROGRESS, "CIM::ICIGeneral::BackupFileDone success");
    } else {
        LOG(FAILURE, "CIM::ICIGeneral::BackupFileDone fail");
    }
}

void CHalcyonLineup::m_BackupIssDB(const std::string& archivePath) {
    const Util util = CreateUtil();
    if (util == nullptr) {
        LOG(FAILURE, "CHalcyonLineup::%s Failed to create pUtil!", __func__);
        return;
    }
    // Any non-zero result is success here, and only a positive one in m_RestoreIssDB(): deliberate.
    if (util->GetIssDbArchive(archivePath) != 0) {
        LOG(DETAIL, "Succesfully get zip archive with iss database! Path=%s", archivePath.c_str());
    } else {
        LOG(FAILURE, "Failed to get zip archive with iss database!");
    }
}

bool CHalcyonLineup::m_RestoreIssDB(const std::string& archivePath) {
    const Util util = CreateUtil();
    if (util == nullptr) {
        LOG(FAILURE, "CHalcyonLineup::%s Failed to create pUtil!", __func__);
        return false;
    }
    const bool restored = util->RestoreIssDbArchive(archivePath) > 0;
    if (restored) {
        LOG(DETAIL, "Succesfully restored iss database!");
    } else {
        LOG(FAILURE, "Failed to restore iss database!");
    }
    return restored;
}
