// The main loop: events, each with a due time. The loop has its own clock, which jumps from one event to the next.
#pragma once

#include <chrono>
#include <functional>
#include <map>

namespace sim {

class EventLoop {
public:
    using Milliseconds = std::chrono::milliseconds;
    using Event = std::function<void()>;
    using Wait = std::function<void(Milliseconds)>;

    // What run() does until the next event is due. Without it, run() goes on at once.
    void setWait(Wait wait) { m_wait = std::move(wait); }

    // Time since the loop was made.
    Milliseconds now() const { return m_now; }

    // Adds an event that is due `delay` from now. A negative delay counts as 0: the clock never goes back.
    void post(Milliseconds delay, Event event);

    // Makes run() return after the current event.
    void quit() { m_quit = true; }

    // Runs events by due time. Returns true after quit(), false if no event is left. Exceptions of events leave it.
    bool run();

private:
    Wait m_wait;
    bool m_quit = false;
    Milliseconds m_now{0};
    std::multimap<Milliseconds, Event> m_events;  // by due time; equal ones stay in the order they were posted
};

}  // namespace sim
