// What happens in a lab, as server-sent events. One thread watches for all readers.
//   hello   the list of TVs; the reader knows nothing yet, or has missed events
//   lab     the list of TVs, which has changed
//   tv      the state of a TV, which has changed
//   run     new records of a run, and whether it is still open
//   cloud   the backups have changed
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "simulator/web/FolderWatch.h"
#include "simulator/web/Job.h"
#include "simulator/web/Lab.h"

namespace sim {

// The changes since the last look. For one thread.
class Watch {
public:
    explicit Watch(const Lab& lab);

    // The events since the last call, each as the text that is sent; waits for at most `patience`.
    std::vector<std::string> next(std::chrono::milliseconds patience);

    // The list of all TVs.
    Json::Value list() const;

private:
    // What is known of a TV.
    struct Seen {
        std::string state;
        Json::Value entry;
        std::string list;
        std::int64_t run = 0;             // the newest
        std::map<int, std::string> told;  // of its records, by sequence number
        bool isOpen = false;
        std::chrono::steady_clock::time_point ended;  // of a run that nobody has judged yet
    };

    void lookAround(std::vector<std::string>& events);
    void lookAtTv(const std::string& name, std::vector<std::string>& events);
    void lookAtRun(const std::string& name, const Tv& tv, Seen& seen, std::vector<std::string>& events);
    void lookAtCloud(std::vector<std::string>& events);
    void askCloud(std::vector<std::string>& events);
    void followCloud(const std::filesystem::path& folder);
    bool isRunOpen() const;

    const Lab& m_lab;
    FolderWatch m_folders;
    std::map<std::string, Seen> m_seen;
    bool m_isRemote;
    std::unique_ptr<Job> m_job;  // that asks for the backups
    std::string m_cloud;         // its last answer
    std::chrono::steady_clock::time_point m_nextRequest;
};

class Events {
public:
    explicit Events(const Lab& lab);
    ~Events();
    Events(const Events&) = delete;
    Events& operator=(const Events&) = delete;

    // What a reader has got: the id of its last event, "" before the first.
    using Place = std::string;

    // The events after a place, which is moved behind them, as one text; waits for at most `patience`. Any place that
    // this object does not know gets a "hello".
    std::string after(Place& place, std::chrono::milliseconds patience);

private:
    void run();
    void add(std::vector<std::string> events);

    Watch m_watch;
    std::string m_name;  // of this object, in ids
    std::mutex m_mutex;
    std::condition_variable m_isNew;
    std::deque<std::string> m_events;
    std::size_t m_bytes = 0;
    std::uint64_t m_first = 1;  // number of the first in the queue
    std::string m_list;         // of all TVs
    std::atomic<bool> m_isEnding{false};
    std::thread m_thread;
};

}  // namespace sim
