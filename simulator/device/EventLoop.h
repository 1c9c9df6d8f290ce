// The main loop: events, each with a due time. The loop has a clock of its own, which jumps from one event to the next.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <utility>

namespace sim {

class EventLoop {
public:
    using Milliseconds = std::chrono::milliseconds;
    using Event = std::function<void()>;

    // Whether to sleep until each event is due instead of running it at once.
    void setRealtime(bool realtime) { m_realtime = realtime; }

    // Time since the loop was made.
    Milliseconds now() const { return m_now; }

    // Adds an event that is due `delay` from now. A delay below zero is none: the clock never goes back.
    void post(Milliseconds delay, Event event);

    // Lets run() return when the present event has.
    void quit() { m_quit = true; }

    // Runs events by due time until quit() is called (true) or none is left (false). What an event throws goes through.
    bool run();

private:
    bool m_realtime = false;
    bool m_quit = false;
    Milliseconds m_now{0};
    std::uint64_t m_posted = 0;
    std::map<std::pair<Milliseconds, std::uint64_t>, Event> m_events;  // equal due times: in the order they were posted
};

}  // namespace sim
