// Launch requests, replies and the main loop; paths and JSON texts, which any application asks for.
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "simulator/base/ExitCodes.h"
#include "simulator/base/Text.h"
#include "simulator/device/Calls.h"
#include "simulator/device/OwnPath.h"
#include "simulator/lineup/Application.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

using wire::CallId;
using wire::EventId;
using wire::Handle;

constexpr int BAD_HANDLE = -1;
constexpr int NOT_THERE = -2;

struct Control {
    std::string caller;
    std::map<std::string, std::string> extras;
    bool replyRequested = false;
};

// The launch request and the replies that the application has not destroyed.
class Controls {
public:
    Handle add(Control control) {
        m_controls[++m_last] = std::move(control);
        return {m_last};
    }

    // Null if it was destroyed.
    Control* find(Handle handle) {
        const auto found = m_controls.find(handle.value);
        return found != m_controls.end() ? &found->second : nullptr;
    }

    bool remove(Handle handle) { return m_controls.erase(handle.value) == 1; }

private:
    std::map<std::uint32_t, Control> m_controls;
    std::uint32_t m_last = 0;
};

constexpr int APPLICATION_DATA = 61;
constexpr int TEMPORARY_DATA = 78;

// The base folder that a path variable stands for.
fs::path baseFolder(const fs::path& home, int variable) {
    const std::vector<fs::path> own = foldersOfApplication(home);
    return variable == APPLICATION_DATA ? own[0]
           : variable == TEMPORARY_DATA ? own[1]
                                        : home / fmt::format("path-{}", variable);
}

Control requestOf(const LaunchOptions& options) {
    Control request{options.caller, {}, options.replyRequested};
    for (const std::string& extra : options.extras) {
        const std::size_t equals = extra.find('=');
        request.extras[extra.substr(0, equals)] = extra.substr(equals + 1);
    }
    return request;
}

// As the application decides it: what does not ask for a restore is a backup.
Operation operationOf(const Control& request) {
    const auto operation = request.extras.find(application::OPERATION);
    const bool isRestore = operation != request.extras.end() && application::isRestore(operation->second);
    return isRestore ? Operation::Restore : Operation::Backup;
}

// The extra values as on the command line.
std::string extrasOf(const Control& request) {
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
        device.record.ended(RunEnd::Exit, "");
    } else if (device.awaited.empty()) {
        device.record.ended(RunEnd::Reclaimed, "");
    } else {
        device.record.ended(RunEnd::Waiting, fmt::format("for {}", fmt::join(device.awaited, ", ")));
    }
}

int run(Device& device, Controls& controls, const std::vector<std::string>& words) {
    if (const std::string mistake = parse(words, device.launch); !mistake.empty()) {
        std::fprintf(stderr, "%s: %s; see: %s --help\n", application::NAME, shown(mistake).c_str(), application::NAME);
        device.record.ended(RunEnd::Refused, "command line");
        return exit_code::USAGE;
    }
    const Control launch = requestOf(device.launch);
    if (device.launch.realtime) {
        device.loop.setWait([&](EventLoop::Milliseconds duration) { device.session.pause(duration); });
    }
    // Recorded before the application is called back: however it ends, the verdict knows what the run was for.
    device.record.launched(operationOf(launch), device.launch);
    note(device, calls::app_create);
    if (!device.session.deliver<EventId::create>()) {
        device.record.ended(RunEnd::Refused, "create");
        return 0;
    }
    const Handle request = controls.add(launch);
    note(device, calls::app_control, extrasOf(launch));
    device.session.deliver<EventId::control>(request);
    // The request is valid during the callback only. One that the application keeps is a bad handle; clones live on.
    controls.remove(request);
    if (device.launch.pause) {
        // By an event, due before any response: the application goes to the background while its request is under way.
        device.loop.post(EventLoop::Milliseconds(0), [&] {
            note(device, calls::app_pause);
            device.session.deliver<EventId::pause>();
            note(device, calls::app_resume);
            device.session.deliver<EventId::resume>();
        });
    }
    runLoop(device);
    note(device, calls::app_terminate);
    device.session.deliver<EventId::terminate>();
    device.keepMetadata();
    return 0;
}

// Its record is written before it does anything, and has no result.
void runMainLoop(Calls& calls, Controls& controls, std::string_view body) {
    Device& device = calls.device;
    const auto [words] = wire::decode<wire::Call<CallId::ui_app_main>::Arguments>(body);
    int result = 0;
    if (const auto hit = calls.nextFailure(calls::ui_app_main, "")) {
        result = hit->failure.number;
        device.record.call(calls::ui_app_main.name, "", toJournal(result), hit->rule);
        device.record.ended(RunEnd::Refused, "main loop");
    } else {
        note(device, calls::ui_app_main);
        result = run(device, controls, words.value);
    }
    calls.answer(CallId::ui_app_main, wire::encode(wire::Answer<int>{result, {}}));
}

// What the application asks of a launch request.
void addRequestCalls(Calls& calls, const std::shared_ptr<Controls>& controls) {
    using Text = wire::Answer<int, wire::Text>;
    calls.add<CallId::app_control_get_caller>([controls](CurrentCall&, Handle request) {
        const Control* control = controls->find(request);
        return control != nullptr ? Text{0, control->caller} : Text{BAD_HANDLE, {}};
    });
    calls.add<CallId::app_control_get_extra_data>([controls](CurrentCall&, Handle request, const std::string& key) {
        const Control* control = controls->find(request);
        if (control == nullptr) {
            return Text{BAD_HANDLE, {}};
        }
        const auto extra = control->extras.find(key);
        return extra != control->extras.end() ? Text{0, extra->second} : Text{NOT_THERE, {}};
    });
    calls.add<CallId::app_control_is_reply_requested>(
        [controls](CurrentCall&, Handle request) -> wire::Answer<int, bool> {
            const Control* control = controls->find(request);
            if (control == nullptr) {
                return {BAD_HANDLE, {}};
            }
            return {0, control->replyRequested};
        });
}

// The copies and replies that it makes.
void addControlCalls(Calls& calls, const std::shared_ptr<Controls>& controls) {
    calls.add<CallId::app_control_clone>([controls](CurrentCall&, Handle request) -> wire::Answer<int, Handle> {
        const Control* control = controls->find(request);
        if (control == nullptr) {
            return {BAD_HANDLE, {}};
        }
        return {0, controls->add(*control)};
    });
    calls.add<CallId::app_control_create>([controls](CurrentCall&) -> wire::Answer<int, Handle> {
        return {0, controls->add({})};
    });
    calls.add<CallId::app_control_reply_to_launch_request>(
        [controls](CurrentCall& call, Handle reply, Handle request, int result) {
            const Control* asked = controls->find(request);
            if (controls->find(reply) == nullptr || asked == nullptr) {
                return BAD_HANDLE;
            }
            // Nobody waits for it.
            if (!asked->replyRequested) {
                return NOT_THERE;
            }
            call.device.record.replied(result);
            return 0;
        });
    calls.add<CallId::app_control_destroy>(
        [controls](CurrentCall&, Handle control) { return controls->remove(control) ? 0 : BAD_HANDLE; });
}

void addPathAndJsonCalls(Calls& calls) {
    calls.add<CallId::platform_path_resolve>([](CurrentCall& call, int variable, const std::string& relative) {
        return wire::Hidden<wire::Text>{(baseFolder(call.device.tv.home(), variable) / relative).string()};
    });
    // The application's side parses and writes the JSON; these calls are there to be recorded and to fail.
    calls.add<CallId::string_to_json>(
        [](CurrentCall&, const std::string&, wire::Hidden<bool> isJson) { return isJson.value; });
    calls.add<CallId::stream_to_json>(
        [](CurrentCall&, const std::string&, wire::Hidden<bool> isJson) { return isJson.value; });
    calls.add<CallId::json_to_string>([](CurrentCall&, const std::string&) { return wire::None(); });
}

}  // namespace

void addAppCalls(Calls& calls) {
    const auto controls = std::make_shared<Controls>();
    calls.addRaw(CallId::ui_app_main,
                 [&calls, controls](std::string_view body, bool) { runMainLoop(calls, *controls, body); });
    calls.add<CallId::ui_app_exit>([](CurrentCall& call) {
        call.device.loop.quit();
        return wire::None();
    });
    addRequestCalls(calls, controls);
    addControlCalls(calls, controls);
    addPathAndJsonCalls(calls);
}

}  // namespace sim
