#include "simulator/device/Device.h"

#include <cxxabi.h>
#include <fmt/format.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <stdexcept>

#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/base/ExitCodes.h"
#include "simulator/base/Files.h"
#include "simulator/base/Sandbox.h"
#include "simulator/base/Text.h"
#include "simulator/cloud/OpenCloud.h"
#include "simulator/lineup/Application.h"

namespace sim {

namespace {

// Inside a function: static objects of other files open the device before those of this file are initialised.
std::unique_ptr<Device>& slot() {
    static std::unique_ptr<Device> device;
    return device;
}

std::string currentExceptionType() {
    const std::type_info* type = abi::__cxa_current_exception_type();
    if (type == nullptr) {
        return "terminated";
    }
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(abi::__cxa_demangle(type->name(), nullptr, nullptr, &status),
                                                           &std::free);
    return status == 0 ? name.get() : type->name();
}

void complain(const std::string& message) {
    std::fprintf(stderr, "halcyon-lineup: %s\n", shown(message).c_str());
}

// The terminate handler: records the exception that has left the application.
[[noreturn]] void recordCrash() {
    std::string detail = currentExceptionType();
    try {
        if (std::current_exception()) {
            std::rethrow_exception(std::current_exception());
        }
    } catch (const std::exception& exception) {
        detail += fmt::format(": {}", exception.what());
    } catch (...) {
    }
    std::fprintf(stderr, "halcyon-lineup crashed: %s\n", shown(detail).c_str());
    if (slot()) {
        slot()->record.ended(RunEnd::Crashed, detail);
    }
    std::abort();
}

bool isConfinedWhenOpened = false;

// Holds nothing if the parent process has the lock: a second descriptor would wait for the first forever.
FolderLock lockHome(const std::filesystem::path& home) {
    const std::optional<int> inherited = toNumber<int>(environment(LOCK_VARIABLE));
    if (inherited && FolderLock::isOf(home, *inherited)) {
        return {};
    }
    const std::chrono::seconds patience(toNumber<int>(environment(WAIT_VARIABLE)).value_or(0));
    return lockTv(home, patience);
}

void cutPowerIfRuled() {
    if (slot() && slot()->faults.next(calls::disk)) {
        slot()->record.call(calls::disk.name, "", "power cut", std::nullopt);
        std::raise(SIGKILL);
    }
}

}  // namespace

Device::Device(const std::filesystem::path& home)
    : m_lock(lockHome(home)),
      tv(home),
      cloud(openCloud(cloudOf(home),
                      [this](const std::string& request, const std::string& outcome) {
                          record.call(calls::cloud_request.name, request, outcome, std::nullopt);
                      })),
      record(tv, loop),
      faults(tv.faults()) {
    if (isConfinedWhenOpened) {
        confine();
    }
    onDiskStep(&cutPowerIfRuled);
    std::set_terminate(&recordCrash);
    // Neither a closed pipe behind the log nor a limit on file sizes may end the application.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

Device::~Device() {
    if (record.dropped() > 0) {
        complain(fmt::format("{} of this run could not be written: {}",
                             plural(static_cast<std::uint64_t>(record.dropped()), "record"), record.reason()));
    }
}

void Device::confine() const {
    if (environment(SANDBOX_VARIABLE) == "off") {
        return;
    }
    std::vector<std::filesystem::path> folders = cloud->makeLocalFolders();
    folders.push_back(tv.home());
    if (!confineWritingTo(folders)) {
        complain("this kernel cannot confine a process (Landlock): names in a bundle may lead out of the TV");
    }
}

void Device::confineWhenOpened() {
    isConfinedWhenOpened = true;
}

Device& Device::current() {
    if (!slot()) {
        try {
            slot().reset(new Device(defaultHome()));
        } catch (const Error& error) {
            complain(error.what());
            std::_Exit(error.kind() == Error::Kind::Locked ? exit_code::BUSY : exit_code::UNUSABLE);
        }
    }
    return *slot();
}

void Device::noLongerAwaited(const std::string& what) {
    const auto found = awaited.find(what);
    if (found != awaited.end()) {
        awaited.erase(found);
    }
}

void Device::keepMetadata() const {
    const std::filesystem::path kept = tv.home() / application::FAILURE_FOLDER / bundleName;
    if (bundleName.empty() || !isRegularFile(kept)) {
        return;
    }
    try {
        writeFile(kept.string() + application::METADATA_SUFFIX, bundleMetadata);
    } catch (const Error& problem) {
        complain(problem.what());
    }
}

void Device::close() {
    slot().reset();
}

}  // namespace sim
