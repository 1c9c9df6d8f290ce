// A TV in operation, for one run of the application. The services share it; each header of platform/ has a source here.
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
    // The process's device, opened at the first use, which may be before main(). If there is no TV, or if another run
    // is under way on it, the process ends with a message and exit_code::UNUSABLE or exit_code::BUSY.
    static Device& current();

    // Makes the process confine itself when the device is opened.
    static void confineWhenOpened();

    // Closes the device. The next use opens it again and begins a new run.
    static void close();

    ~Device();

private:
    FolderLock m_lock;  // of the TV home, taken before anything there is opened; nothing if the parent process holds it

public:
    Tv tv;
    std::unique_ptr<CloudStore> cloud;
    EventLoop loop;
    Recorder record;
    FaultInjector faults;
    LaunchOptions launch;                // the defaults until the command line is read
    std::multiset<std::string> awaited;  // sessions and subscriptions that the application has left open
    std::string bundleName;              // file name of the last bundle that was stored or restored
    std::string bundleMetadata;          // its metadata

    void noLongerAwaited(const std::string& what);

    // Writes the metadata beside that bundle if the application has kept it in its failure folder.
    void keepMetadata() const;

private:
    explicit Device(const std::filesystem::path& home);

    void confine() const;
};

}  // namespace sim
