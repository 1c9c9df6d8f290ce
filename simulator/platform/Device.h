// The TV as the application's process sees it: what all platform services share.
#pragma once

#include <filesystem>
#include <memory>
#include <set>
#include <string>

#include "simulator/cloud/CloudStore.h"
#include "simulator/platform/EventLoop.h"
#include "simulator/platform/FaultInjector.h"
#include "simulator/platform/Recorder.h"
#include "simulator/tv/Tv.h"

namespace sim {

class Device {
public:
    // The process's device, opened at the first use, which may be before main(). Where there is no TV, that use ends
    // the process with a message and EXIT_NO_TV.
    static Device& current();

    // Closes it: the next use opens anew, and begins a new run.
    static void close();

    static constexpr int EXIT_NO_TV = 3;

    Tv tv;
    std::unique_ptr<CloudStore> cloud;
    Recorder record;
    FaultInjector faults;
    EventLoop loop;
    std::string chosenBackup;            // id of the backup that a restore shall get; empty: the newest
    std::multiset<std::string> awaited;  // what the application is still bound to: open sessions, subscriptions

    void noLongerAwaited(const std::string& what);

private:
    explicit Device(const std::filesystem::path& home);
};

}  // namespace sim
