#include <string_view>

#include "HalcyonLineup.h"
#include "Log.h"
#include "PlatformText.h"
#include "platform/app_framework.h"

namespace {

bool app_create(void*) {
    LOG_FUNC_BEGIN();
    return true;
}

void app_terminate(void*) {
    LOG_FUNC_BEGIN();
}

void app_pause(void*) {
    LOG_FUNC_BEGIN();
}

void app_resume(void*) {
    LOG_FUNC_BEGIN();
}

// Starts the operation that the request asks for. True: it goes on when its response comes. The text asked for is freed
// on return, before anything is done about a failure.
bool StartOperation(app_control_s* request) {
    // Static: the cloud and the TV service hold its address after the handler has returned.
    static CHalcyonLineup lineup;
    char* extra = nullptr;
    const bool isRead = app_control_get_extra_data(request, "operation", &extra) == 0;
    const PlatformText owner(extra);
    const std::string_view operation = isRead && extra != nullptr ? extra : "";
    if (operation == "restore" || operation == "RESTORE") {
        LOG_IN("app_control", PROGRESS, "Do restore");
        return lineup.Restore(request);
    }
    LOG_IN("app_control", PROGRESS, "Do backup");
    return lineup.Backup();
}

void app_control(app_control_s* request, void*) {
    LOG_FUNC_BEGIN();
    char* callerId = nullptr;
    app_control_get_caller(request, &callerId);  // the id alone tells
    if (const PlatformText owner(callerId); owner != nullptr) {
        LOG(DETAIL, "app_control_get_caller success. callerID=[%s]", callerId);
    }
    if (!StartOperation(request)) {
        LOG(PROGRESS, "operation fail");
        ui_app_exit();
    }
    LOG(DETAIL, "Last line");
}

}  // namespace

int main(int argc, char** argv) {
    LOG(PROGRESS, "halcyon-lineup main start");
    const ui_app_callbacks callbacks = {app_create, app_terminate, app_pause, app_resume, app_control};
    const int result = ui_app_main(argc, argv, &callbacks, nullptr);
    if (result != 0) {
        LOG(FAILURE, "ui_app_main() is failed. err=%d", result);
    }
    LOG(PROGRESS, "main function,ret=%d", result);
    return result;
}
