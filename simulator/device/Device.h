// A TV in operation, for one run of the application. Its services share it.
#pragma once

#include <chrono>
#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "simulator/base/FolderLock.h"
#include "simulator/cloud/CloudStore.h"
#include "simulator/device/EventLoop.h"
#include "simulator/device/FaultInjector.h"
#include "simulator/device/LaunchOptions.h"
#include "simulator/device/ListKeeper.h"
#include "simulator/device/Recorder.h"
#include "simulator/device/ServiceOptions.h"
#include "simulator/device/Session.h"
#include "simulator/tv/Tv.h"

namespace sim {

class Device {
public:
    // Opens the TV and begins the run of an application, a process. Throws Error, of the kind Locked if another run is
    // under way.
    Device(const ServiceOptions& options, Session& session, int application);
    ~Device();
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

private:
    FolderLock m_lock;  // of the TV home, taken before anything there is opened; nothing if the parent process holds it

public:
    Session& session;
    const int application;
    Tv tv;
    std::unique_ptr<ListKeeper> keeper;  // of the TV's channel list; null: the TV alone
    std::string lastOutcome;             // of a request to a remote cloud, as recorded
    std::unique_ptr<CloudStore> cloud;
    EventLoop loop;
    Recorder record;
    FaultInjector faults;
    LaunchOptions launch;                // the defaults until the command line is read
    std::multiset<std::string> awaited;  // sessions and subscriptions that the application has left open
    std::string bundleName;              // file name of the last bundle that was stored or restored
    std::string bundleMetadata;          // its metadata

    // The TV's time, which goes on with its main loop.
    std::chrono::milliseconds now() const { return m_started + loop.now(); }
    std::time_t seconds() const {
        return static_cast<std::time_t>(std::chrono::floor<std::chrono::seconds>(now()).count());
    }

    // The same for the application, if it is not the machine's.
    std::optional<std::chrono::milliseconds> timeForApplication() const;

    void noLongerAwaited(const std::string& what);

    // Writes the metadata beside that bundle if the application has kept it in its failure folder.
    void keepMetadata() const;

    // Damages a file of the application.
    void damage(const std::string& path, Damage damage);

private:
    void cutPowerIfRuled();

    const std::chrono::milliseconds m_started;  // the TV's time at the start
};

// A message for the person who runs the application.
void complain(const std::string& message);

}  // namespace sim
