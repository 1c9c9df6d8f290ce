#include "platform/app_framework.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "simulator/base/Text.h"
#include "simulator/device/Journal.h"
#include "simulator/device/LaunchOptions.h"
#include "simulator/lineup/Application.h"

struct app_control_s {
    std::string caller;
    std::map<std::string, std::string> extras;
    bool replyRequested = false;
};

namespace {

using sim::Device;

constexpr int USAGE_ERROR = 2;
constexpr int BAD_HANDLE = -1;
constexpr int NOT_THERE = -2;

// The handles that the application may use. A handle that was destroyed is refused, not followed.
std::set<app_control_s*>& live() {
    static std::set<app_control_s*> handles;
    return handles;
}

bool isLive(app_control_s* control) {
    return live().count(control) != 0;
}

app_control_s* make(app_control_s control) {
    return *live().insert(new app_control_s(std::move(control))).first;
}

// Releases what the application has left of its controls.
void takeBack() {
    for (app_control_s* control : live()) {
        delete control;
    }
    live().clear();
}

// The launch request on the command line. An exit code instead: there is nothing to launch.
std::optional<int> parse(int argc, char** argv, app_control_s& request, bool& pause) {
    Device& device = Device::current();
    CLI::App app;
    sim::LaunchOptions options;
    sim::describe(app, options);
    try {
        app.parse(argc, argv);
        for (const std::string& extra : options.extras) {
            const std::size_t equals = extra.find('=');
            if (equals == std::string::npos || equals == 0) {
                throw CLI::ValidationError(extra, "not of the form key=value");
            }
            request.extras[extra.substr(0, equals)] = extra.substr(equals + 1);
        }
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "halcyon-lineup: %s; see: halcyon-lineup --help\n", sim::shown(error.what()).c_str());
        return USAGE_ERROR;
    }
    request.caller = options.caller;
    request.replyRequested = options.replyRequested;
    device.chosenBackup = options.backup;
    device.refusesDuplicates = options.refuseDuplicates;
    device.loop.setRealtime(options.realtime);
    pause = options.pause;
    return std::nullopt;
}

std::string operationOf(const app_control_s& request) {
    const auto operation = request.extras.find(sim::application::OPERATION);
    const bool isRestore = operation != request.extras.end() && sim::application::isRestore(operation->second);
    return isRestore ? "restore" : "backup";
}

// The extra values as they are given on the command line.
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

int run(int argc, char** argv, const ui_app_callbacks& callbacks, void* userData) {
    Device& device = Device::current();
    app_control_s launch;
    bool pause = false;
    if (const std::optional<int> refused = parse(argc, argv, launch, pause)) {
        device.record.ended(sim::RunEnd::Refused, "command line");
        return *refused;
    }
    device.record.launched(operationOf(launch), launch.replyRequested);
    sim::platformNotice(sim::calls::app_create);
    if (!callbacks.create(userData)) {
        device.record.ended(sim::RunEnd::Refused, "create");
        return 0;
    }
    app_control_s* request = make(launch);
    sim::platformNotice(sim::calls::app_control, extrasOf(launch));
    callbacks.control(request, userData);
    live().erase(request);
    delete request;
    if (pause) {
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
    takeBack();
    return 0;
}

// A call that gives a text of `control` out.
template <typename Arguments>
int giveText(const sim::PlatformCall& call, const Arguments& arguments, app_control_s* control, char** out,
             const std::optional<std::string>& text) {
    return sim::platformCall(call, arguments, [&](sim::Given& given) {
        if (!isLive(control)) {
            return BAD_HANDLE;
        }
        if (!text) {
            return NOT_THERE;
        }
        *out = ::strdup(text->c_str());
        given.text = sim::toJournal(*out);
        return 0;
    });
}

}  // namespace

int ui_app_main(int argc, char** argv, const ui_app_callbacks* callbacks, void* userData) {
    Device& device = Device::current();
    if (const auto hit = sim::nextFailure(device, sim::calls::ui_app_main, "")) {
        device.record.call(sim::calls::ui_app_main.name, "", sim::toJournal(hit->failure.number), hit->rule);
        device.record.ended(sim::RunEnd::Refused, "main loop");
        return hit->failure.number;
    }
    sim::platformNotice(sim::calls::ui_app_main);
    return run(argc, argv, *callbacks, userData);
}

void ui_app_exit() {
    sim::platformNotice(sim::calls::ui_app_exit);
    Device::current().loop.quit();
}

int app_control_get_caller(app_control_s* request, char** callerId) {
    return giveText(sim::calls::app_control_get_caller, std::tuple(), request, callerId,
                    isLive(request) ? std::optional(request->caller) : std::nullopt);
}

int app_control_get_extra_data(app_control_s* request, const char* key, char** value) {
    std::optional<std::string> text;
    if (isLive(request) && request->extras.count(key) != 0) {
        text = request->extras.at(key);
    }
    return giveText(sim::calls::app_control_get_extra_data, std::tuple(key), request, value, text);
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
    return sim::platformCall(sim::calls::app_control_is_reply_requested, std::tuple(), [&](sim::Given& given) {
        if (!isLive(request)) {
            return BAD_HANDLE;
        }
        *requested = request->replyRequested;
        given.text = sim::toJournal(*requested);
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
    return sim::platformCall(sim::calls::app_control_reply_to_launch_request, std::tuple(result), [&] {
        if (!isLive(reply) || !isLive(request)) {
            return BAD_HANDLE;
        }
        if (!request->replyRequested) {
            return NOT_THERE;
        }
        Device::current().record.replied(result);
        return 0;
    });
}

int app_control_destroy(app_control_s* control) {
    return sim::platformCall(sim::calls::app_control_destroy, std::tuple(), [&] {
        if (live().erase(control) == 0) {
            return BAD_HANDLE;
        }
        delete control;
        return 0;
    });
}
