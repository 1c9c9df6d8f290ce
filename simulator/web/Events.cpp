#include "simulator/web/Events.h"

#include <fmt/format.h>

#include "simulator/base/Error.h"
#include "simulator/base/Json.h"
#include "simulator/base/Text.h"
#include "simulator/cloud/OpenCloud.h"
#include "simulator/reports/ToJson.h"

namespace sim {

namespace {

constexpr std::chrono::seconds REQUEST_INTERVAL{2};

std::string event(const char* name, const Json::Value& data) {
    return fmt::format("event: {}\ndata: {}\n\n", name, writeJson(data));
}

}  // namespace

std::string Watch::next() {
    std::string events;
    for (const auto& [name, home] : m_lab.tvs()) {
        try {
            watchTv(name, home, events);
        } catch (const Error&) {  // it is being replaced; the next call finds it again
        }
    }
    watchCloud(events);
    m_isFirst = false;
    return events;
}

// A remote store is not asked at each call.
void Watch::watchCloud(std::string& events) {
    const auto now = std::chrono::steady_clock::now();
    if (now < m_nextLook) {
        return;
    }
    std::string cloud;
    try {
        if (!m_store) {
            m_store = openCloud(m_lab.cloud());
        }
        for (const BackupName& name : m_store->content().backups) {
            cloud += name.path() + " " + name.etag + "\n";
        }
    } catch (const Error& error) {  // is told to who asks for the backups
        cloud = error.what();
    }
    if (m_store && m_store->isRemote()) {
        m_nextLook = now + REQUEST_INTERVAL;
    }
    if (cloud != m_cloud && !m_isFirst) {
        events += event("cloud", object({}));
    }
    m_cloud = cloud;
}

void Watch::watchTv(const std::string& name, const std::filesystem::path& home, std::string& events) {
    const Tv tv(home, Database::Access::Look);
    Seen& seen = m_seen[name];
    std::string status = writeJson(object({{"status", reportTv(tv)}, {"faults", tv.faults().list()}}));
    if (status != seen.status && !m_isFirst) {
        events += event("tv", object({{"tv", name}}));
    }
    seen.status = std::move(status);
    watchRun(name, tv, seen, events);
}

void Watch::watchRun(const std::string& name, const Tv& tv, Seen& seen, std::string& events) {
    const std::int64_t newest = tv.runs().newest();
    if (m_isFirst || newest < seen.run) {  // a reset has brought older runs back
        seen.run = newest;
        seen.isOpen = false;
        return;
    }
    if (newest > seen.run) {
        seen.run = newest;
        seen.seq = 0;
        seen.isOpen = true;
    }
    const std::optional<Run> run = seen.isOpen ? tv.runs().find(seen.run) : std::nullopt;
    if (!run) {
        return;
    }
    RunReport report;
    report.run = *run;
    Json::Value moments(Json::arrayValue);
    for (const Moment& moment : timelineOf(tv, report, {})) {
        if (moment.seq > seen.seq) {
            moments.append(toJson(moment));
            seen.seq = moment.seq;
        }
    }
    seen.isOpen = run->ended == RunEnd::Running || !tv.runs().record(run->id).verdict();
    if (!moments.empty() || !seen.isOpen) {
        events += event("run", object({{"tv", name},
                                       {"run", run->id},
                                       {"operation", nameOf(run->operation)},
                                       {"moments", std::move(moments)},
                                       {"isOpen", seen.isOpen}}));
    }
}

}  // namespace sim
