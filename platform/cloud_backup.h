// Client of the cloud backup service.
//
// A session is opened per client id with bnr_init() and closed with bnr_deinit(). A request that was
// accepted is answered once, on the main loop, through the callback registered for the client id. Every
// int status is 0 on success and non-zero on failure; an out-parameter is left as it was on failure.
#pragma once

enum bnr_response_e : int {
    BNR_RESPONSE_UNHANDLED = 0,
    BNR_RESPONSE_BACKUP_COMPLETED = 101,
    BNR_RESPONSE_RESTORE_DATA = 102,
    BNR_RESPONSE_LIST_DEVICES_COMPLETED = 103,
    BNR_RESPONSE_ERROR = 500,
    BNR_RESPONSE_BACKUP_SCHEMA_ERROR = 502,
    BNR_RESPONSE_SERVER_NOT_RESPONDING = 503,
    BNR_RESPONSE_DUPLICATED_DATA = 504,
};

// The data of a response, valid during the callback only. Neither text is null.
struct bnr_resp_data_s {
    const char* jsonSchema;  // metadata text of the backup
    const char* filePath;    // path of the downloaded archive, which the receiver owns from now on
};

// `response` may be a code without a name above. `data` is null unless the response carries data.
typedef void (*bnr_response_cb)(bnr_response_e response, bnr_resp_data_s* data, void* userData);

extern "C" {

// Opens the session of the client `id`; its requests are about backups of `category`.
int bnr_init(const char* id, const char* category);

// Closes it. A request that is still open is not answered any more.
int bnr_deinit(const char* id);

// Registers the callback for responses to `id`. It gets `userData` as given, which must hold until the callback is
// deregistered by the handler id.
int bnr_callback_register(const char* id, bnr_response_cb callback, void* userData, int* handlerId);
int bnr_callback_deregister(int handlerId);

// Hands the archive at `filePath` over with its metadata text. 0: accepted, a response will come. 6:
// postponed, nothing was taken. Anything else: refused. The service has taken its own copy of the
// archive when the call returns 0: the caller may delete the file at once.
int bnr_backup(const char* id, const char* metadata, const char* filePath);

// Asks for the backup, to be downloaded into `folder`, which must exist. 0: accepted, a response will come.
int bnr_restore(const char* id, const char* folder);

// Tell the service what became of the data it handed out.
int bnr_report_success(const char* id);
int bnr_report_failure(const char* id);

}  // extern "C"
