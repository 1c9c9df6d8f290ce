// Writes the record of the application's run while it happens.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "simulator/cloud/CloudStore.h"
#include "simulator/device/EventLoop.h"
#include "simulator/device/LaunchOptions.h"
#include "simulator/tv/Tv.h"

namespace sim {

// A record that cannot be written, on a full disk say, is dropped and counted: the application must not fail because it
// is watched.
class Recorder {
public:
    // Begins a run of a process, and forgets all but the newest `keep`. Throws Error if that cannot be written.
    Recorder(Tv& tv, const EventLoop& loop, int process, int keep);
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    void launched(Operation operation, const LaunchOptions& launch);
    void replied(int result);
    void responded(int code);
    // The cloud has taken this backup, or handed it out.
    void transferred(const Address& address, const std::string& backup);
    void reported(Reported outcome);
    void ended(RunEnd end, const std::string& detail);

    void call(std::string_view name, const std::string& arguments, const std::string& result,
              const std::optional<std::int64_t>& fault);
    void systemLog(int priority, const std::string& tag, const std::string& text);
    void logger(const std::string& file, const std::string& function, int line, const std::string& message);

    std::int64_t run() const { return m_run.id; }  // its number

    // How many records could not be written, and why the first could not.
    int dropped() const { return m_dropped; }
    const std::string& reason() const { return m_reason; }

private:
    void save();
    template <typename Write>
    void attempt(Write write);

    std::int64_t now() const { return m_loop.now().count(); }

    const Tv& m_tv;
    const EventLoop& m_loop;
    Run m_run;
    RunFile m_record;
    int m_seq = 0;
    int m_dropped = 0;
    std::string m_reason;
};

}  // namespace sim
