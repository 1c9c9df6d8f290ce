#include "simulator/device/Service.h"

#include <fcntl.h>

#include <csignal>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/base/ExitCodes.h"
#include "simulator/base/Sandbox.h"
#include "simulator/base/Text.h"
#include "simulator/device/Calls.h"
#include "simulator/device/Device.h"
#include "simulator/device/LaunchOptions.h"
#include "simulator/device/OwnPath.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

using wire::Kind;

// The application ends these services, and nothing else: a signal for all that runs in a terminal reaches it too.
// Neither a closed pipe behind the log nor a limit on file sizes may end them.
void ignoreSignals() {
    for (const int signal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ}) {
        std::signal(signal, SIG_IGN);
    }
}

// What was handed down to this process is for no program that it starts in turn.
void keepForItself(int descriptor) {
    ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
}

void confineServices(const Device& device) {
    // Landlock allows places that are there: a folder that is made later could not be written to.
    std::vector<fs::path> folders = device.cloud->makeLocalFolders();
    folders.push_back(device.tv.home());
    if (device.keeper) {
        const std::vector<fs::path> others = device.keeper->folders();
        folders.insert(folders.end(), others.begin(), others.end());
    }
    confineWritingTo(folders);
}

wire::Welcome welcomeOn(const Device& device, bool isConfined) {
    wire::Welcome welcome;
    welcome.isConfined = isConfined;
    for (const fs::path& folder : foldersOfApplication(device.tv.home())) {
        welcome.writable.push_back(folder);
    }
    // The CI module names files of this folder, and the application packs them itself.
    welcome.readable.push_back(device.tv.home() / "ci");
    welcome.zone = device.tv.clock().zone;
    return welcome;
}

// Serves until the application has ended.
void serve(Session& session, Device& device) {
    Calls calls(device);
    session.setDispatch([&](const wire::Message& message) { calls.dispatch(message); });
    try {
        session.serve();
    } catch (const wire::ProtocolError& error) {
        device.record.ended(RunEnd::Crashed, fmt::format("what it sent to the TV makes no sense: {}", error.what));
    }
}

int dismiss(Session& session, int code) {
    session.send(Kind::Dismissal, 0, wire::encode(code));
    return code;
}

// Nothing if what the process sends is no greeting.
std::optional<wire::Hello> greeting(const wire::Message& message) {
    if (message.kind != Kind::Hello) {
        return std::nullopt;
    }
    const auto [hello] = wire::decode<std::tuple<wire::Hello>>(message.body);
    return hello.version == wire::VERSION ? std::optional(hello) : std::nullopt;
}

ServiceOptions optionsOfEnvironment() {
    ServiceOptions options;
    options.home = defaultHome();
    options.cloud = cloudOf(options.home);
    options.lock = toNumber<int>(environment(LOCK_VARIABLE));
    keepForItself(options.lock.value_or(-1));
    options.patience = std::chrono::seconds(toNumber<int>(environment(WAIT_VARIABLE)).value_or(0));
    options.keep = toNumber<int>(environment(KEEP_VARIABLE)).value_or(limits::RUNS_KEPT);
    options.isConfined = environment(SANDBOX_VARIABLE) != "off";
    return options;
}

// `confine` confines this process, if it is for nothing else.
int welcomeAndServe(Session& session, const std::function<ServiceOptions()>& wanted,
                    const std::function<void(const Device&)>& confine) {
    const std::optional<wire::Hello> hello = greeting(session.receive());
    if (!hello) {
        complain("it was built with another version of the simulator; build it again");
        return dismiss(session, exit_code::UNUSABLE);
    }
    // Before the TV is opened: who asks for help may have none.
    if (answersHelp(hello->words)) {
        return dismiss(session, exit_code::DONE);
    }
    ServiceOptions options;
    std::optional<Device> device;
    try {
        options = wanted();
        device.emplace(options, session, hello->process);
        if (!options.isConfined) {
            complain("it is not confined (--no-sandbox or --wrap): names in a bundle may lead out of the TV");
        } else if (confine) {
            confine(*device);
        }
    } catch (const Error& error) {
        complain(error.what());
        return dismiss(session, error.kind() == Error::Kind::Locked ? exit_code::BUSY : exit_code::UNUSABLE);
    }
    // From here on the application runs: whatever can be refused has been.
    session.send(Kind::Welcome, 0, wire::encode(welcomeOn(*device, options.isConfined)));
    try {
        serve(session, *device);
    } catch (const wire::Closed&) {
    }
    session.finish();
    return exit_code::DONE;
}

int openAndServe(const std::function<ServiceOptions()>& wanted, ServiceWires wires,
                 const std::function<void(const Device&)>& confine) {
    std::vector<Descriptor> pipes;
    for (Descriptor* pipe : {&wires.output, &wires.errors}) {
        if (pipe->isOpen()) {
            pipes.push_back(std::move(*pipe));
        }
    }
    Session session(std::move(wires.socket), std::move(pipes));
    try {
        return welcomeAndServe(session, wanted, confine);
    } catch (const wire::Closed&) {  // it ended before it had begun
        session.finish();
        return exit_code::DONE;
    } catch (const wire::ProtocolError& error) {
        complain(fmt::format("what it sent to the TV makes no sense: {}", error.what));
        return exit_code::UNUSABLE;
    }
}

}  // namespace

int serveApplication(const ServiceOptions& options, ServiceWires wires) {
    return openAndServe([&] { return options; }, std::move(wires), nullptr);
}

int serveApplicationAlone(ServiceWires wires) {
    ignoreSignals();
    for (const Descriptor* wire : {&wires.socket, &wires.output, &wires.errors}) {
        keepForItself(wire->get());
    }
    return openAndServe(&optionsOfEnvironment, std::move(wires), &confineServices);
}

}  // namespace sim
