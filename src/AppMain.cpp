#include <cstdlib>
#include <cstring>

#include "HalcyonLineup.h"
#include "Log.h"
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

void app_control(app_control_s* request, void*) {
    LOG_FUNC_BEGIN();
    char* callerId = nullptr;
    app_control_get_caller(request, &callerId);
    if (callerId != nullptr) {
        LOG(DETAIL, "app_control_get_caller success. callerID=[%s]", callerId);
        std::free(callerId);
    }

    // Static: the cloud and the TV service hold its address after this handler has returned.
    static CHalcyonLineup lineup;
    char* operation = nullptr;
    const bool isRead = app_control_get_extra_data(request, "operation", &operation) == 0 && operation != nullptr;
    bool started = false;
    if (isRead && (std::strcmp(operation, "restore") == 0 || std::strcmp(operation, "RESTORE") == 0)) {
        LOG(PROGRESS, "Do restore");
        started = lineup.Restore(request);
    } else {
        LOG(PROGRESS, "Do backup");
        started = lineup.Backup();
    }
    std::free(operation);
    if (!started) {
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
