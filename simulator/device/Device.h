// A TV in operation, for one run of the application: what its services, a source per header of platform/, share.
#pragma once

#include <filesystem>
#include <memory>
#include <set>
#include <string>

#include "simulator/base/FolderLock.h"
#include "simulator/cloud/CloudStore.h"
#include "simulator/device/EventLoop.h"
#include "simulator/device/FaultInjector.h"
#include "simulator/device/LaunchOptions.h"
#include "simulator/device/Recorder.h"
#include "simulator/tv/Tv.h"

namespace sim {

class Device {
public:
    // The process's device, opened at the first use, which may be before main(). If there is no TV, or another run is
    // under way on it, that use ends the process with a message and exit_code::UNUSABLE or exit_code::BUSY.
    static Device& current();

    // Makes the process confine itself when the device is opened.
    static void confineWhenOpened();

    // Closes it: the next use opens anew, and begins a new run.
    static void close();

    ~Device();

private:
    FolderLock m_lock;  // of the TV home, before anything there is opened; nothing if the parent process holds it

public:
    Tv tv;
    std::unique_ptr<CloudStore> cloud;
    EventLoop loop;
    Recorder record;
    FaultInjector faults;
    LaunchOptions launch;                // the defaults until the command line is read
    std::multiset<std::string> awaited;  // what the application has left open: sessions, subscriptions
    std::string bundleName;              // of the bundle that the cloud took or handed out last: its file name
    std::string bundleMetadata;          // and its metadata

    void noLongerAwaited(const std::string& what);

    // Puts the metadata beside that bundle if the application has kept the bundle as one of a failed operation.
    void keepMetadata() const;

private:
    explicit Device(const std::filesystem::path& home);

    void confine() const;
};

}  // namespace sim
