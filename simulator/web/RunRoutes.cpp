// Runs: launching the application, its verdict and its timeline.
#include <fmt/format.h>

#include "simulator/base/Error.h"
#include "simulator/base/Text.h"
#include "simulator/cloud/OpenCloud.h"
#include "simulator/launch/Launch.h"
#include "simulator/lineup/Application.h"
#include "simulator/reports/CloudReport.h"
#include "simulator/reports/ToJson.h"
#include "simulator/tv/Snapshot.h"
#include "simulator/web/Routes.h"

namespace sim {

namespace {

Json::Value withTimeline(const Tv& tv, const CloudStore& store, const RunReport& report) {
    Json::Value value = toJson(report);
    value["remedies"] = toJson(remediesOf(tv, store, report));
    value["timeline"] = toJson(timelineOf(tv, report, {}));
    return value;
}

// Without their items and timelines.
Json::Value listRuns(const Lab& lab, const ApiRequest& request) {
    const Tv tv = lab.look(request.parts[0]);
    Json::Value runs = toJson(reportRuns(tv, openLater(lab.cloud())));
    for (Json::Value& run : runs) {
        run.removeMember("items");
    }
    return object({{"runs", std::move(runs)}});
}

Json::Value showRun(const Lab& lab, const ApiRequest& request) {
    const Tv tv = lab.look(request.parts[0]);
    const std::optional<std::int64_t> id = toNumber<std::int64_t>(request.parts[1]);
    const std::optional<Run> run = id ? tv.runs().find(*id) : std::nullopt;
    if (!run) {
        throw Error(Error::Kind::Missing, fmt::format("there is no run {}", inQuotes(request.parts[1])));
    }
    const std::unique_ptr<CloudStore> store = openCloud(lab.cloud());
    return withTimeline(tv, *store, reportRun(tv, opened(*store), *run));
}

bool flag(const Json::Value& body, const char* member) {
    return body[member].isBool() && body[member].asBool();
}

RunRequest requestIn(const Json::Value& body, const CloudStore& store, const std::string& account) {
    RunRequest request;
    const std::string operation = textIn(body, "operation");
    if (operation != "backup" && operation != "restore") {
        throw Error(fmt::format("the operation is backup or restore, not {}", inQuotes(operation)));
    }
    request.replyRequested = flag(body, "reply");
    request.realtime = flag(body, "realtime");
    if (operation == "restore") {
        request.extras = {fmt::format("{}=restore", application::OPERATION),
                          fmt::format("{}={}", application::SCAN_ACTIVATED, flag(body, "scan") ? 1 : 0)};
        const std::string backup = textIn(body, "backup", "");
        request.backup = backup.empty() ? "" : chooseBackup(store, backup, account).id;
    }
    return request;
}

Json::Value launch(const Lab& lab, const ApiRequest& request) {
    const std::filesystem::path home = lab.homeOf(request.parts[0]);
    const std::unique_ptr<CloudStore> store = openCloud(lab.cloud());
    RunRequest wanted = requestIn(request.body, *store, lab.look(request.parts[0]).account());
    // Before the snapshot: no other run may change the TV between that and the restore.
    const FolderLock lock = lockTv(home, std::chrono::seconds(0));
    if (request.body["operation"] == "restore") {
        saveSnapshot(home, BEFORE_RUN);
    }
    Tv tv(home);
    wanted.isBeforeKept = true;
    return withTimeline(tv, *store, launchAndJudge(wanted, tv, lab.cloud(), *store, lock, &execute));
}

}  // namespace

std::vector<Route> runRoutes() {
    return {{"GET", "tvs/*/runs", &listRuns}, {"GET", "tvs/*/runs/*", &showRun}, {"POST", "tvs/*/runs", &launch}};
}

}  // namespace sim
