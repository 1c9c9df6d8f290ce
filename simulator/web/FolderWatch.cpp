#include "simulator/web/FolderWatch.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <thread>

namespace sim {

namespace {

constexpr std::uint32_t CHANGES =
    IN_MODIFY | IN_ATTRIB | IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;

// Readers of a database make and remove these files, too: only what is written to a log is a change.
bool isByReader(const inotify_event& event) {
    const std::string_view name = event.len > 0 ? event.name : "";
    const auto endsWith = [&](std::string_view end) {
        return name.size() >= end.size() && name.substr(name.size() - end.size()) == end;
    };
    return endsWith("-shm") || (endsWith("-wal") && (event.mask & IN_MODIFY) == 0);
}

}  // namespace

FolderWatch::FolderWatch() : m_inotify(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)), m_isBlind(!m_inotify.isOpen()) {}

void FolderWatch::add(const std::filesystem::path& folder, const std::string& name) {
    m_all.insert(name);
    const int watch = ::inotify_add_watch(m_inotify.get(), folder.c_str(), CHANGES | IN_ONLYDIR);
    if (watch >= 0) {
        // A folder has one watch, whatever it is watched for: that of the lab may be where the cloud is expected, too.
        m_names[watch].insert(name);
    } else if (errno != ENOENT && errno != ENOTDIR) {
        m_isBlind = true;
    }
}

std::set<std::string> FolderWatch::wait(std::chrono::milliseconds patience) {
    if (m_isBlind) {
        std::this_thread::sleep_for(patience);
        return m_all;
    }
    std::set<std::string> changed;
    pollfd poll = {m_inotify.get(), POLLIN, 0};
    if (::poll(&poll, 1, static_cast<int>(patience.count())) > 0) {
        readEvents(changed);
    }
    return changed;
}

void FolderWatch::readEvents(std::set<std::string>& changed) {
    alignas(inotify_event) std::array<char, 16U << 10> buffer;
    for (ssize_t size = 0; (size = ::read(m_inotify.get(), buffer.data(), buffer.size())) > 0;) {
        for (const char* at = buffer.data(); at < buffer.data() + size;) {
            const auto& event = *reinterpret_cast<const inotify_event*>(at);
            at += sizeof event + event.len;
            if ((event.mask & IN_Q_OVERFLOW) != 0) {
                // Events were lost: any folder may have changed.
                changed = m_all;
            } else if ((event.mask & IN_IGNORED) != 0) {
                // The folder is gone, and the kernel has removed its watch.
                m_names.erase(event.wd);
            } else if (const auto name = m_names.find(event.wd); name != m_names.end() && !isByReader(event)) {
                changed.insert(name->second.begin(), name->second.end());
            }
        }
    }
}

}  // namespace sim
