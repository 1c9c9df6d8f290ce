#include "platform/cloud_backup.h"

#include <map>

#include "simulator/client/Connection.h"
#include "simulator/client/Events.h"

namespace {

using client::call;
using client::text;
using wire::CallId;

struct Handler {
    bnr_response_cb callback;
    void* userData;
};

// By the numbers that the services give them.
std::map<int, Handler>& handlers() {
    static std::map<int, Handler> handlers;
    return handlers;
}

const char* textOf(const wire::Text& text) {
    return text ? text->c_str() : nullptr;
}

}  // namespace

wire::None client::onResponse(std::int32_t number, std::int32_t code, bool hasUserData, const wire::Text& metadata,
                              const wire::Text& file) {
    const auto found = handlers().find(number);
    if (found == handlers().end()) {
        return {};
    }
    const Handler handler = found->second;  // the callback may deregister itself
    bnr_resp_data_s data = {textOf(metadata), textOf(file)};
    handler.callback(static_cast<bnr_response_e>(code), file ? &data : nullptr,
                     hasUserData ? handler.userData : nullptr);
    return {};
}

int bnr_init(const char* id, const char* category) {
    return call<CallId::bnr_init>({text(id), text(category)}).result;
}

int bnr_deinit(const char* id) {
    return call<CallId::bnr_deinit>({text(id)}).result;
}

int bnr_callback_register(const char* id, bnr_response_cb callback, void* userData, int* handlerId) {
    const auto answer = call<CallId::bnr_callback_register>({text(id)});
    if (answer.out) {
        handlers()[*answer.out] = {callback, userData};
    }
    return client::give(answer, handlerId);
}

int bnr_callback_deregister(int handlerId) {
    const int result = call<CallId::bnr_callback_deregister>({handlerId}).result;
    if (result == 0) {
        handlers().erase(handlerId);
    }
    return result;
}

int bnr_backup(const char* id, const char* metadata, const char* filePath) {
    return call<CallId::bnr_backup>({text(id), text(metadata), text(filePath)}).result;
}

int bnr_restore(const char* id, const char* folder) {
    return call<CallId::bnr_restore>({text(id), text(folder)}).result;
}

int bnr_report_success(const char* id) {
    return call<CallId::bnr_report_success>({text(id)}).result;
}

int bnr_report_failure(const char* id) {
    return call<CallId::bnr_report_failure>({text(id)}).result;
}
