// The TV as the application's process sees it: what all platform services share.
#pragma once

#include <filesystem>
#include <memory>
#include <set>
#include <string>

#include "simulator/base/FolderLock.h"
#include "simulator/cloud/CloudStore.h"
#include "simulator/device/EventLoop.h"
#include "simulator/device/FaultInjector.h"
#include "simulator/device/Recorder.h"
#include "simulator/tv/Tv.h"

namespace sim {

class Device {
public:
    // The process's device, opened at the first use, which may be before main(). Where there is no TV, or another run
    // is under way on it, that use ends the process with a message and EXIT_NO_TV or EXIT_BUSY.
    static Device& current();

    // Lets the process confine itself when the device is opened.
    static void confineWhenOpened();

    // Closes it: the next use opens anew, and begins a new run.
    static void close();

    static constexpr int EXIT_NO_TV = 3;
    static constexpr int EXIT_BUSY = 8;

    ~Device();

    FolderLock lock;  // of the TV home; holds nothing where who launched this process has it
    Tv tv;
    std::unique_ptr<CloudStore> cloud;
    EventLoop loop;
    Recorder record;
    FaultInjector faults;
    // Of the bundle that was handed over or out last: its file name and its metadata.
    std::string bundleName;
    std::string bundleMetadata;
    std::string chosenBackup;            // id of the backup that a restore shall get; empty: the newest
    bool refusesDuplicates = false;      // whether the cloud takes no bundle that it has as its newest
    std::multiset<std::string> awaited;  // what the application is still bound to: open sessions, subscriptions

    void noLongerAwaited(const std::string& what);

    // Puts the metadata beside that bundle, where the application has kept it among those of failed operations.
    void keepMetadata() const;

private:
    explicit Device(const std::filesystem::path& home);

    void confine() const;
};

}  // namespace sim
