#include "simulator/web/Events.h"

#include <fmt/format.h>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Json.h"
#include "simulator/base/Text.h"
#include "simulator/reports/ToJson.h"
#include "simulator/web/Routes.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds REQUEST_INTERVAL{5};
constexpr std::chrono::milliseconds OPEN_INTERVAL{500};  // between looks at an open run: a kill changes no file
constexpr std::chrono::milliseconds COALESCED{50};       // changes that are told together
constexpr std::chrono::seconds JUDGEMENT{2};             // time for whoever launched a run to judge it
constexpr std::chrono::milliseconds PATIENCE{500};       // until the end of the server is noticed
constexpr std::size_t MAX_BYTES = 1U << 20;              // of events that are kept
constexpr char LAB[] = "lab";
constexpr char CLOUD[] = "cloud";
constexpr std::string_view TV = "tv/";

std::string event(const char* name, const Json::Value& data) {
    return fmt::format("event: {}\ndata: {}\n\n", name, writeJson(data));
}

}  // namespace

Watch::Watch(const Lab& lab) : m_lab(lab), m_isRemote(lab.cloud().find("://") != std::string::npos) {
    // A reader begins with the list, so nothing of this first look is news.
    std::vector<std::string> ignored;
    lookAround(ignored);
    if (!m_isRemote) {
        lookAtCloud(ignored);
    }
}

std::vector<std::string> Watch::next(std::chrono::milliseconds patience) {
    std::vector<std::string> events;
    const bool isOpen = isRunOpen();
    std::set<std::string> changed = m_folders.wait(isOpen ? std::min(patience, OPEN_INTERVAL) : patience);
    if (!changed.empty()) {
        std::this_thread::sleep_for(COALESCED);
        changed.merge(m_folders.wait(std::chrono::milliseconds(0)));
    }
    if (changed.count(LAB) != 0) {
        lookAround(events);
    }
    // Each name is known already, so that lookAtTv() adds none while the loop goes on.
    for (const auto& [name, seen] : m_seen) {
        if (seen.isOpen || changed.count(std::string(TV) + name) != 0) {
            lookAtTv(name, events);
        }
    }
    if (m_isRemote) {
        askCloud(events);
    } else if (changed.count(CLOUD) != 0) {
        lookAtCloud(events);
    }
    return events;
}

Json::Value Watch::list() const {
    Json::Value tvs(Json::arrayValue);
    for (const auto& [name, seen] : m_seen) {
        tvs.append(seen.entry);
    }
    return object({{"version", HALCYON_VERSION},
                   {"folder", m_lab.place().string()},
                   {"cloud", m_lab.cloud()},
                   {"tvs", std::move(tvs)}});
}

bool Watch::isRunOpen() const {
    for (const auto& [name, seen] : m_seen) {
        if (seen.isOpen) {
            return true;
        }
    }
    return false;
}

// Which TVs there are.
void Watch::lookAround(std::vector<std::string>& events) {
    m_folders.add(m_lab.place(), LAB);
    const std::map<std::string, fs::path> tvs = m_lab.tvs();
    bool hasChanged = false;
    for (auto seen = m_seen.begin(); seen != m_seen.end();) {
        const bool isGone = tvs.count(seen->first) == 0;
        hasChanged = hasChanged || isGone;
        seen = isGone ? m_seen.erase(seen) : std::next(seen);
    }
    for (const auto& [name, home] : tvs) {
        if (m_seen.count(name) == 0) {
            hasChanged = true;
            lookAtTv(name, events);
        }
    }
    if (hasChanged) {
        events.push_back(event("lab", list()));
    }
}

void Watch::lookAtTv(const std::string& name, std::vector<std::string>& events) {
    const std::map<std::string, fs::path> tvs = m_lab.tvs();
    const auto home = tvs.find(name);
    if (home == tvs.end()) {
        return;  // lookAround() finds out
    }
    // Each time, as a reset puts other folders in their place. One that is watched already stays so.
    for (const char* folder : {"", "runs", "service-db", "ci", "snapshots"}) {
        m_folders.add(home->second / folder, std::string(TV) + name);
    }
    const bool isNew = m_seen.count(name) == 0;
    Seen& seen = m_seen[name];
    Json::Value state;
    try {
        const sim::Tv tv(home->second, Database::Access::Look);
        if (isNew) {
            const std::optional<Run> run = tv.runs().find(tv.runs().newest());
            seen.run = run ? run->id : 0;
            seen.isOpen = run && run->ended == RunEnd::Running;
        }
        lookAtRun(name, tv, seen, events);
        state = stateOf(name, tv);
        // While a run is open, the list is of one moment after the other: it is read once, at the end.
        seen.list = seen.isOpen && !seen.list.empty() ? seen.list : state["list"].asString();
        state["list"] = seen.list;
    } catch (const Error& error) {
        seen.isOpen = false;
        state = brokenStateOf(name, home->second, error.what());
    }
    for (const char* member : {"tv", "name", "home", "problem", "newest"}) {
        seen.entry[member] = state[member];
    }
    std::string text = event("tv", state);
    if (text != seen.state && !isNew) {
        events.push_back(text);
    }
    seen.state = std::move(text);
}

void Watch::lookAtRun(const std::string& name, const sim::Tv& tv, Seen& seen, std::vector<std::string>& events) {
    const std::int64_t newest = tv.runs().newest();
    if (newest < seen.run) {  // a reset has brought an older state back
        seen.isOpen = false;
    }
    if (newest > seen.run) {
        seen.isOpen = true;
        seen.told.clear();
        seen.ended = {};
    }
    seen.run = newest;
    const std::optional<Run> run = seen.isOpen ? tv.runs().find(newest) : std::nullopt;
    if (!run) {
        return;
    }
    RunReport report;
    report.run = *run;
    // A call is recorded when it returns, behind what it has logged; and the second record of a message changes the
    // first.
    Json::Value moments(Json::arrayValue);
    const std::size_t before = seen.told.size();
    for (const Moment& moment : timelineOf(tv, report, {})) {
        Json::Value json = toJson(moment);
        std::string text = writeJson(json);
        if (std::string& told = seen.told[moment.seq]; told != text) {
            told = std::move(text);
            moments.append(std::move(json));
        }
    }
    if (run->ended != RunEnd::Running && seen.ended == Clock::time_point()) {
        seen.ended = Clock::now();
    }
    // Nobody judges the run of an application that a person has started: the wait for a verdict has an end.
    seen.isOpen = run->ended == RunEnd::Running ||
                  (!tv.runs().record(run->id).verdict() && Clock::now() - seen.ended < JUDGEMENT);
    if (!moments.empty() || !seen.isOpen) {
        events.push_back(event("run", object({{"tv", keyOf(name)},
                                              {"run", run->id},
                                              {"started", run->started},
                                              {"operation", nameOf(run->operation)},
                                              {"before", static_cast<Json::UInt64>(before)},
                                              {"moments", std::move(moments)},
                                              {"isOpen", seen.isOpen}})));
    }
}

// In a folder, also what is written into a backup is a change.
void Watch::lookAtCloud(std::vector<std::string>& events) {
    const fs::path folder = m_lab.cloud();
    if (isFolder(folder)) {
        followCloud(folder);
    } else {
        // The first run makes the store's folder: until then, it is expected in this one.
        m_folders.add(folder.parent_path(), CLOUD);
    }
    events.push_back(event("cloud", object({})));
}

// A store on another machine is asked now and then, by a process: it may never answer.
void Watch::askCloud(std::vector<std::string>& events) {
    if (!m_job && Clock::now() >= m_nextRequest) {
        m_job = std::make_unique<Job>(m_lab, wordsOf("GET", "cloud", {}));
    }
    const std::optional<Job::Answer> answer = m_job ? m_job->answer() : std::nullopt;
    if (!answer) {
        return;
    }
    m_job.reset();
    m_nextRequest = Clock::now() + REQUEST_INTERVAL;
    if (!m_cloud.empty() && answer->json != m_cloud) {
        events.push_back(event("cloud", object({})));
    }
    m_cloud = answer->json;
}

void Watch::followCloud(const fs::path& folder) {
    m_folders.add(folder, CLOUD);
    for (const fs::path& member : membersOf(folder)) {
        if (isFolder(member)) {
            followCloud(member);
        }
    }
}

Events::Events(const Lab& lab)
    : m_watch(lab),
      m_name(fmt::format("{:x}", std::chrono::system_clock::now().time_since_epoch().count())),
      m_list(writeJson(m_watch.list())),
      m_thread([this] { run(); }) {}

Events::~Events() {
    m_isEnding = true;
    m_isNew.notify_all();
    m_thread.join();
}

void Events::run() {
    while (!m_isEnding) {
        std::vector<std::string> events;
        try {
            events = m_watch.next(PATIENCE);
        } catch (const Error&) {  // a folder is being replaced; its next event finds it again
        }
        if (!events.empty()) {
            add(std::move(events));
        }
    }
}

void Events::add(std::vector<std::string> events) {
    {
        const std::lock_guard lock(m_mutex);
        for (std::string& each : events) {
            m_bytes += each.size();
            m_events.push_back(std::move(each));
        }
        while (m_bytes > MAX_BYTES) {
            m_bytes -= m_events.front().size();
            m_events.pop_front();
            ++m_first;
        }
        // Readers get it as a text, because the watch itself is this thread's alone.
        m_list = writeJson(m_watch.list());
    }
    m_isNew.notify_all();
}

std::string Events::after(Place& place, std::chrono::milliseconds patience) {
    std::unique_lock lock(m_mutex);
    const auto end = [&] { return m_first + m_events.size(); };
    const std::size_t dot = place.find('.');
    // A server that was started before had another name: its numbers mean nothing here.
    const auto number = dot == std::string::npos || place.substr(0, dot) != m_name
                            ? std::nullopt
                            : toNumber<std::uint64_t>(place.substr(dot + 1));
    std::string text;
    if (!number || *number + 1 < m_first || *number >= end()) {
        text = fmt::format("event: hello\ndata: {}\n\n", m_list);
    } else {
        m_isNew.wait_for(lock, patience, [&] { return end() > *number + 1 || m_isEnding; });
        for (std::uint64_t each = std::max(*number + 1, m_first); each < end(); ++each) {
            text += m_events[static_cast<std::size_t>(each - m_first)];
        }
    }
    if (!text.empty()) {
        place = fmt::format("{}.{}", m_name, end() - 1);
        // Into the last event, before the blank line that ends it.
        text.insert(text.size() - 1, fmt::format("id: {}\n", place));
    }
    return text;
}

}  // namespace sim
