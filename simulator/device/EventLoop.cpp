#include "simulator/device/EventLoop.h"

#include <algorithm>
#include <utility>

namespace sim {

void EventLoop::post(Milliseconds delay, Event event) {
    m_events.emplace(m_now + std::max(delay, Milliseconds::zero()), std::move(event));
}

bool EventLoop::run() {
    while (!m_quit && !m_events.empty()) {
        // Taken out before it runs, as it may post others.
        auto next = m_events.extract(m_events.begin());
        if (m_wait) {
            m_wait(next.key() - m_now);
        }
        m_now = next.key();
        next.mapped()();
    }
    return m_quit;
}

}  // namespace sim
