#include "simulator/device/EventLoop.h"

#include <algorithm>
#include <thread>

namespace sim {

void EventLoop::post(Milliseconds delay, Event event) {
    m_events.emplace(std::make_pair(m_now + std::max(delay, Milliseconds::zero()), m_posted++), std::move(event));
}

bool EventLoop::run() {
    while (!m_quit && !m_events.empty()) {
        auto next = m_events.extract(m_events.begin());
        const Milliseconds due = next.key().first;
        if (m_realtime) {
            std::this_thread::sleep_for(due - m_now);
        }
        m_now = due;
        next.mapped()();
    }
    return m_quit;
}

}  // namespace sim
