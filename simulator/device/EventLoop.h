// The main loop's events, each with a due time. The clock is the loop's own: it jumps from one event to the next.
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

    // Waits for each event's due time in the person's time too.
    void setRealtime(bool realtime) { m_realtime = realtime; }

    // Time since the loop was made.
    Milliseconds now() const { return m_now; }

    void post(Milliseconds delay, Event event);
    void quit() { m_quit = true; }

    // Runs the events in the order of their due times, until quit() is called or none is left. True: quit() was called.
    bool run();

private:
    bool m_realtime = false;
    bool m_quit = false;
    Milliseconds m_now{0};
    std::uint64_t m_posted = 0;
    std::map<std::pair<Milliseconds, std::uint64_t>, Event> m_events;  // equal due times: in the order they were posted
};

}  // namespace sim
