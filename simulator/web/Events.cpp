#include "simulator/web/Events.h"

#include <fmt/format.h>

#include "simulator/base/Error.h"
#include "simulator/base/Json.h"
#include "simulator/base/Text.h"
#include "simulator/cloud/OpenCloud.h"
#include "simulator/reports/ToJson.h"

namespace sim {

namespace {

constexpr std::chrono::seconds BETWEEN_REQUESTS{2};

std::string event(const char* name, const Json::Value& data) {
    return fmt::format("event: {}\ndata: {}\n\n", name, writeJson(data));
}

Json::Value about(const std::string& tv) {
    Json::Value value;
    value["tv"] = toUtf8(tv);
    return value;
}

}  // namespace

std::string Watch::next() {
    std::string events;
    for (const std::string& name : m_lab.names()) {
        try {
            watchTv(name, events);
        } catch (const Error&) {  // it is being replaced: the next look shows it
        }
    }
    watchCloud(events);
    m_isFirst = false;
    return events;
}

// A store on another machine is not asked at each look.
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
    } catch (const Error& error) {  // who looks at the page's list of backups is told
        cloud = error.what();
    }
    if (m_store && m_store->isRemote()) {
        m_nextLook = now + BETWEEN_REQUESTS;
    }
    if (cloud != m_cloud && !m_isFirst) {
        events += event("cloud", Json::Value(Json::objectValue));
    }
    m_cloud = cloud;
}

void Watch::watchTv(const std::string& name, std::string& events) {
    Tv tv(m_lab.homeOf(name), Database::Access::Look);
    Seen& seen = m_seen[name];
    Json::Value status = toJson(reportTv(tv));
    status["faults"] = toJson(tv.faults().list());
    const std::string text = writeJson(status);
    if (text != seen.status && !m_isFirst) {
        events += event("tv", about(name));
    }
    seen.status = text;
    watchRun(name, tv, seen, events);
}

void Watch::watchRun(const std::string& name, Tv& tv, Seen& seen, std::string& events) {
    const std::int64_t newest = tv.runs().newest();
    if (m_isFirst || newest < seen.run) {  // after a reset, runs are counted anew
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
    Json::Value data = about(name);
    data["run"] = Json::Int64(run->id);
    data["operation"] = std::string(nameOf(run->operation));
    data["moments"] = Json::Value(Json::arrayValue);
    for (const Moment& moment : timelineOf(tv, report, {})) {
        if (moment.seq > seen.seq) {
            data["moments"].append(toJson(moment));
            seen.seq = moment.seq;
        }
    }
    const bool isJudged = tv.runs().record(run->id).verdict().has_value();
    seen.isOpen = run->ended == RunEnd::Running || !isJudged;
    data["isOpen"] = seen.isOpen;
    if (!data["moments"].empty() || !seen.isOpen) {
        events += event("run", data);
    }
}

}  // namespace sim
