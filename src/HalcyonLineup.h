// The central class: the backup and restore operations, and the items that a bundle holds.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "JsonSchema.h"
#include "platform/app_framework.h"
#include "platform/cloud_backup.h"
#include "platform/tv_service.h"

// Working folder of both operations, and the folder that keeps the archives of failed ones. Both end in '/'. Resolved
// before main() and never changed.
extern const char* CHANNEL_MAP_DIR_PATH;
extern const char* CHANNEL_MAP_DIR_PATH_TMP;

// A value of the settings store that belongs to the channel setup.
struct SSettingsEntry {
    std::string key;
    std::int32_t type;  // 0 and 4 integer, 1 string, 2 boolean, 3 double
};

// All state is class-wide and lives for the process: one process performs one operation.
class CHalcyonLineup {
public:
    CHalcyonLineup();
    virtual ~CHalcyonLineup();

    // Saves the channel setup to the cloud. True: the bundle was handed over, and the service's response ends the run.
    // False: the run is over, and the caller ends the application.
    bool Backup();

    // Asks the cloud for the backup. True: the request was accepted, and the service's response goes on with it.
    // False: the run is over; the sender of `request` has had its reply, unless the request could not be kept.
    bool Restore(app_control_s* request);

    // The response of the cloud service. `pThis` is the instance that opened the session.
    static void sm_BnrCallback(bnr_response_e response, bnr_resp_data_s* data, void* pThis);

    // The signal of a stopped channel scan: restores the viewing state and ends the application. 0, or -1 when
    // `pAppData`, the instance that subscribed, is null.
    static int sm_SignalCallback(ESignalType type, EProfile profile, unsigned short, TSSignalData data, void* pAppData);

private:
    // Opens and closes the session with the cloud service.
    bool m_BnrInitialize();
    void m_BnrDeinitialize();

    // Applies the downloaded backup. True when the channel database was replaced: the sender of the request has had its
    // reply then. The archive is removed on success, kept in the failure folder otherwise.
    bool m_Restore(const bnr_resp_data_s* data);

    // True: a running scan was asked to stop, and the signal will come.
    bool m_StopScan();
    void m_UnsubscribeSignal();

    // Replies to the sender of the restore request, if it asked for that, and releases the kept request. At most once a
    // run. A backup run has no request to reply to: this logs a failure then, and that is all.
    void m_SendMessageToCaller(bool ok);

    // The local time to the second; names a backup's folder and bundle.
    std::string m_GenerateUniqueName();

    // The items. On backup each puts its files at the given place, on restore it takes them from there.
    std::vector<SSettingsEntry> m_PrepareVconfVector();
    void m_BackupVconf(const std::string& stagingFolder);
    bool m_RestoreVconf(const std::string& filePath);
    void m_BackupCiFile(const std::string& ciFolder);
    void m_RestoreCiFile(const std::string& ciFolder);
    void m_BackupIssDB(const std::string& archivePath);
    bool m_RestoreIssDB(const std::string& archivePath);

    static CJsonSchema m_jsonSchema;          // the TV's state at process start; after a restore, the restored one
    static ISignalSubscriber* m_pSubscriber;  // set while a scan stop is awaited
    static app_control_s* m_appCaller;        // the kept restore request, still set when it has been released
    static int sm_bnrHandler;
    static bool m_bScanActivated;
};
