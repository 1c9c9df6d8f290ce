#include "platform/app_framework.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "simulator/base/ExitCodes.h"
#include "simulator/base/Text.h"
#include "simulator/device/Journal.h"
#include "simulator/lineup/Application.h"

struct app_control_s {
    std::string caller;
    std::map<std::string, std::string> extras;
    bool replyRequested = false;
};

namespace {

using sim::Device;

constexpr int BAD_HANDLE = -1;
constexpr int NOT_THERE = -2;

// The live controls, by handle: a destroyed handle is refused, not dereferenced.
std::map<app_control_s*, std::unique_ptr<app_control_s>>& controls() {
    static std::map<app_control_s*, std::unique_ptr<app_control_s>> controls;
    return controls;
}

bool isLive(app_control_s* control) {
    return controls().count(control) != 0;
}

app_control_s* make(app_control_s control) {
    auto owner = std::make_unique<app_control_s>(std::move(control));
    app_control_s* handle = owner.get();
    controls()[handle] = std::move(owner);
    return handle;
}

// Reads the command line. Returns false, after a message, if it is wrong.
bool parse(int argc, char** argv, sim::LaunchOptions& options) {
    CLI::App app;
    sim::describe(app, options);
    try {
        app.parse(argc, argv);
        return true;
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "halcyon-lineup: %s; see: halcyon-lineup --help\n", sim::shown(error.what()).c_str());
        return false;
    }
}

app_control_s requestOf(const sim::LaunchOptions& options) {
    app_control_s request{options.caller, {}, options.replyRequested};
    for (const std::string& extra : options.extras) {
        const std::size_t equals = extra.find('=');
        request.extras[extra.substr(0, equals)] = extra.substr(equals + 1);
    }
    return request;
}

sim::Operation operationOf(const app_control_s& request) {
    const auto operation = request.extras.find(sim::application::OPERATION);
    const bool isRestore = operation != request.extras.end() && sim::application::isRestore(operation->second);
    return isRestore ? sim::Operation::Restore : sim::Operation::Backup;
}

// The extra values as on the command line.
std::string extrasOf(const app_control_s& request) {
    std::vector<std::string> extras;
    extras.reserve(request.extras.size());
    for (const auto& [key, value] : request.extras) {
        extras.push_back(fmt::format("{}={}", key, value));
    }
    return fmt::format("{}", fmt::join(extras, " "));
}

// Runs the main loop and records how it ended.
void runLoop(Device& device) {
    if (device.loop.run()) {
        device.record.ended(sim::RunEnd::Exit, "");
    } else if (device.awaited.empty()) {
        device.record.ended(sim::RunEnd::Reclaimed, "");
    } else {
        device.record.ended(sim::RunEnd::Waiting, fmt::format("for {}", fmt::join(device.awaited, ", ")));
    }
}

int run(Device& device, int argc, char** argv, const ui_app_callbacks& callbacks, void* userData) {
    if (!parse(argc, argv, device.launch)) {
        device.record.ended(sim::RunEnd::Refused, "command line");
        return sim::exit_code::USAGE;
    }
    const app_control_s launch = requestOf(device.launch);
    device.loop.setRealtime(device.launch.realtime);
    device.record.launched(operationOf(launch), launch.replyRequested);
    sim::platformNotice(sim::calls::app_create);
    if (!callbacks.create(userData)) {
        device.record.ended(sim::RunEnd::Refused, "create");
        return 0;
    }
    app_control_s* request = make(launch);
    sim::platformNotice(sim::calls::app_control, extrasOf(launch));
    callbacks.control(request, userData);
    controls().erase(request);
    if (device.launch.pause) {
        device.loop.post(sim::EventLoop::Milliseconds(0), [&] {
            sim::platformNotice(sim::calls::app_pause);
            callbacks.pause(userData);
            sim::platformNotice(sim::calls::app_resume);
            callbacks.resume(userData);
        });
    }
    runLoop(device);
    sim::platformNotice(sim::calls::app_terminate);
    callbacks.terminate(userData);
    device.keepMetadata();
    controls().clear();  // those that the application has not destroyed
    return 0;
}

// A call that returns a text of `control`, which `find` looks up; null if there is none.
template <typename Arguments, typename Find>
int giveText(const sim::PlatformCall& call, const Arguments& arguments, app_control_s* control, char** out, Find find) {
    return sim::platformCall(call, arguments, [&](Device&, sim::Given& given) {
        if (!isLive(control)) {
            return BAD_HANDLE;
        }
        const std::string* text = find();
        if (text == nullptr) {
            return NOT_THERE;
        }
        *out = ::strdup(text->c_str());
        given = sim::toJournal(*out);
        return 0;
    });
}

}  // namespace

int ui_app_main(int argc, char** argv, const ui_app_callbacks* callbacks, void* userData) {
    Device& device = Device::current();
    if (const auto hit = sim::nextFailure(device, sim::calls::ui_app_main, "")) {
        device.record.call(sim::calls::ui_app_main.name, "", sim::toJournal(hit->failure.number), hit->id);
        device.record.ended(sim::RunEnd::Refused, "main loop");
        return hit->failure.number;
    }
    sim::platformNotice(sim::calls::ui_app_main);
    return run(device, argc, argv, *callbacks, userData);
}

void ui_app_exit() {
    sim::platformNotice(sim::calls::ui_app_exit);
    Device::current().loop.quit();
}

int app_control_get_caller(app_control_s* request, char** callerId) {
    return giveText(sim::calls::app_control_get_caller, std::tuple(), request, callerId,
                    [&] { return &request->caller; });
}

int app_control_get_extra_data(app_control_s* request, const char* key, char** value) {
    return giveText(sim::calls::app_control_get_extra_data, std::tuple(key), request, value, [&]() -> std::string* {
        const auto extra = request->extras.find(key);
        return extra != request->extras.end() ? &extra->second : nullptr;
    });
}

int app_control_clone(app_control_s** clone, app_control_s* request) {
    return sim::platformCall(sim::calls::app_control_clone, std::tuple(), [&] {
        if (!isLive(request)) {
            return BAD_HANDLE;
        }
        *clone = make(*request);
        return 0;
    });
}

int app_control_is_reply_requested(app_control_s* request, bool* requested) {
    return sim::platformCall(sim::calls::app_control_is_reply_requested, std::tuple(), [&](Device&, sim::Given& given) {
        if (!isLive(request)) {
            return BAD_HANDLE;
        }
        *requested = request->replyRequested;
        given = sim::toJournal(*requested);
        return 0;
    });
}

int app_control_create(app_control_s** control) {
    return sim::platformCall(sim::calls::app_control_create, std::tuple(), [&] {
        *control = make({});
        return 0;
    });
}

int app_control_reply_to_launch_request(app_control_s* reply, app_control_s* request, int result) {
    return sim::platformCall(sim::calls::app_control_reply_to_launch_request, std::tuple(result), [&](Device& device) {
        if (!isLive(reply) || !isLive(request)) {
            return BAD_HANDLE;
        }
        if (!request->replyRequested) {
            return NOT_THERE;
        }
        device.record.replied(result);
        return 0;
    });
}

int app_control_destroy(app_control_s* control) {
    return sim::platformCall(sim::calls::app_control_destroy, std::tuple(),
                             [&] { return controls().erase(control) == 1 ? 0 : BAD_HANDLE; });
}
