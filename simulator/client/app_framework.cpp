#include "platform/app_framework.h"

#include <cstring>
#include <map>
#include <memory>

#include "simulator/client/Connection.h"
#include "simulator/client/Events.h"

// What it stands for is with the TV's services.
struct app_control_s {
    wire::Handle number;
};

namespace {

using client::call;
using client::give;
using wire::CallId;
using wire::Handle;

// The live controls: a destroyed one is refused, not dereferenced.
std::map<app_control_s*, std::unique_ptr<app_control_s>>& controls() {
    static std::map<app_control_s*, std::unique_ptr<app_control_s>> controls;
    return controls;
}

// 0 if there is none.
Handle numberOf(app_control_s* control) {
    return controls().count(control) != 0 ? control->number : Handle{};
}

app_control_s* make(Handle number) {
    auto owner = std::make_unique<app_control_s>(app_control_s{number});
    app_control_s* control = owner.get();
    controls()[control] = std::move(owner);
    return control;
}

int giveControl(const wire::Answer<int, Handle>& answer, app_control_s** control) {
    if (answer.out) {
        *control = make(*answer.out);
    }
    return answer.result;
}

int giveText(const wire::Answer<int, wire::Text>& answer, char** text) {
    if (answer.out) {
        // By malloc(), as the application releases it with free().
        *text = *answer.out ? ::strdup((*answer.out)->c_str()) : nullptr;
    }
    return answer.result;
}

ui_app_callbacks application;
void* applicationData = nullptr;

}  // namespace

bool client::onCreate() {
    return application.create(applicationData);
}

wire::None client::onControl(Handle request) {
    app_control_s* control = make(request);
    application.control(control, applicationData);
    controls().erase(control);
    return {};
}

wire::None client::onPause() {
    application.pause(applicationData);
    return {};
}

wire::None client::onResume() {
    application.resume(applicationData);
    return {};
}

wire::None client::onTerminate() {
    application.terminate(applicationData);
    return {};
}

int ui_app_main(int argc, char** argv, const ui_app_callbacks* callbacks, void* userData) {
    application = *callbacks;
    applicationData = userData;
    const int result = call<CallId::ui_app_main>({{{argv, argv + argc}}}).result;
    controls().clear();  // those that the application has not destroyed
    return result;
}

void ui_app_exit() {
    client::notify<CallId::ui_app_exit>({});
}

int app_control_get_caller(app_control_s* request, char** callerId) {
    return giveText(call<CallId::app_control_get_caller>({numberOf(request)}), callerId);
}

int app_control_get_extra_data(app_control_s* request, const char* key, char** value) {
    return giveText(call<CallId::app_control_get_extra_data>({numberOf(request), client::text(key)}), value);
}

int app_control_clone(app_control_s** clone, app_control_s* request) {
    return giveControl(call<CallId::app_control_clone>({numberOf(request)}), clone);
}

int app_control_is_reply_requested(app_control_s* request, bool* requested) {
    return give(call<CallId::app_control_is_reply_requested>({numberOf(request)}), requested);
}

int app_control_create(app_control_s** control) {
    return giveControl(call<CallId::app_control_create>({}), control);
}

int app_control_reply_to_launch_request(app_control_s* reply, app_control_s* request, int result) {
    return call<CallId::app_control_reply_to_launch_request>({numberOf(reply), numberOf(request), result}).result;
}

int app_control_destroy(app_control_s* control) {
    const int result = call<CallId::app_control_destroy>({numberOf(control)}).result;
    if (result == 0) {
        controls().erase(control);
    }
    return result;
}
