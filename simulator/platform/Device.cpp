#include "simulator/platform/Device.h"

#include <cxxabi.h>
#include <fmt/format.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <stdexcept>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Places.h"

namespace sim {

namespace {

// Inside a function, because the device is opened before main(), where the order of initialisation is open.
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

// An exception that has left the application ends it; the record says which it was.
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
    std::fprintf(stderr, "halcyon-lineup crashed: %s\n", detail.c_str());
    if (slot()) {
        slot()->record.ended(RunEnd::Crashed, detail);
    }
    std::abort();
}

void cutPowerWhereRuled() {
    if (slot() && slot()->faults.next(calls::disk)) {
        slot()->record.call(calls::disk.name, "", "power cut", std::nullopt);
        std::raise(SIGKILL);
    }
}

}  // namespace

Device::Device(const std::filesystem::path& home)
    : tv(home), cloud(openCloud(defaultCloud(home))), record(tv.runs()), faults(tv.faults()) {
    onDiskStep(&cutPowerWhereRuled);
    std::set_terminate(&recordCrash);
    std::signal(SIGPIPE, SIG_IGN);  // a reader of the log that goes away does not end the application
}

Device& Device::current() {
    if (!slot()) {
        try {
            slot().reset(new Device(defaultHome()));
        } catch (const std::exception& error) {
            std::fprintf(stderr, "halcyon-lineup: %s\n", error.what());
            std::_Exit(EXIT_NO_TV);
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

void Device::close() {
    slot().reset();
}

}  // namespace sim
