// The TVs: how each stands, its channels, what can be set, its fault rules.
#include <algorithm>

#include "simulator/base/Error.h"
#include "simulator/base/Text.h"
#include "simulator/base/Version.h"
#include "simulator/lineup/Codes.h"
#include "simulator/reports/ToJson.h"
#include "simulator/tv/Settable.h"
#include "simulator/tv/Snapshot.h"
#include "simulator/web/Routes.h"

namespace sim {

namespace {

Tv look(const Lab& lab, const ApiRequest& request) {
    return Tv(lab.homeOf(request.parts.at(0)), Database::Access::Look);
}

Json::Value showLab(const Lab& lab, const ApiRequest& /*request*/) {
    Json::Value value;
    value["version"] = VERSION;
    value["cloud"] = toUtf8(lab.cloud());
    value["tvs"] = Json::Value(Json::arrayValue);
    for (const std::string& name : lab.names()) {
        Json::Value tv;
        tv["name"] = toUtf8(name);
        tv["home"] = toUtf8(lab.homeOf(name).string());
        value["tvs"].append(tv);
    }
    return value;
}

Json::Value showTv(const Lab& lab, const ApiRequest& request) {
    const Tv tv = look(lab, request);
    Json::Value value = toJson(reportTv(tv));
    value["serial"] = toUtf8(tv.serial());
    value["run"] = Json::Int64(tv.runs().newest());
    return value;
}

// A row a channel, because a list may have 50,000 of them: id, number, name, kind, group, provider, identity.
Json::Value showChannels(const Lab& lab, const ApiRequest& request) {
    Json::Value rows(Json::arrayValue);
    look(lab, request).services().forEach([&](const Service& service) {
        Json::Value row(Json::arrayValue);
        row.append(Json::Value::UInt64(service.id));
        row.append(service.number);
        row.append(toUtf8(service.name));
        row.append(serviceKind(service));
        row.append(toUtf8(service.groupName));
        row.append(toUtf8(service.provider));
        row.append(toUtf8(service.identity));
        rows.append(row);
    });
    Json::Value value;
    value["channels"] = rows;
    return value;
}

Json::Value setOnTv(const Lab& lab, const ApiRequest& request) {
    Tv tv(lab.homeOf(request.parts[0]));
    setByName(tv, textIn(request.body, "name"), textIn(request.body, "value"));
    return toJson(reportTv(tv));
}

Json::Value resetTv(const Lab& lab, const ApiRequest& request) {
    const std::filesystem::path home = lab.homeOf(request.parts[0]);
    const FolderLock lock = lockTv(home, std::chrono::seconds(0));
    resetTo(home, textIn(request.body, "name", INIT_SNAPSHOT));
    return toJson(reportTv(Tv(home, Database::Access::Look)));
}

Json::Value listCalls(const Lab& /*lab*/, const ApiRequest& /*request*/) {
    Json::Value value;
    value["calls"] = Json::Value(Json::arrayValue);
    for (const PlatformCall* call : platformCalls()) {
        if (!call->failures.empty()) {
            value["calls"].append(toJson(*call));
        }
    }
    return value;
}

// The names of a closed set, each at the place of its code.
template <typename Enum>
Json::Value namesOf() {
    Json::Value names;
    for (const Name<Enum>& each : NAMES<Enum>) {
        names[codeOf(each.value)] = std::string(each.name);
    }
    return names;
}

// What a TV can be set to.
Json::Value listWords(const Lab& /*lab*/, const ApiRequest& /*request*/) {
    Json::Value value;
    value["antennaModes"] = namesOf<AntennaMode>();
    value["antennaInputs"] = namesOf<AntennaInput>();
    value["serviceModes"] = namesOf<ServiceMode>();
    value["sorts"] = namesOf<SortMode>();
    return value;
}

Json::Value rulesOf(const Tv& tv) {
    Json::Value value;
    value["rules"] = toJson(tv.faults().list());
    return value;
}

Json::Value listFaults(const Lab& lab, const ApiRequest& request) {
    return rulesOf(look(lab, request));
}

Json::Value addFault(const Lab& lab, const ApiRequest& request) {
    Tv tv(lab.homeOf(request.parts[0]));
    FaultRule rule = makeRule(textIn(request.body, "call"), textIn(request.body, "failure"));
    rule.times = request.body["times"].isInt() ? request.body["times"].asInt() : rule.times;
    rule.nth = request.body["nth"].isInt() ? request.body["nth"].asInt() : rule.nth;
    tv.faults().add(rule);
    return rulesOf(tv);
}

Json::Value removeFault(const Lab& lab, const ApiRequest& request) {
    Tv tv(lab.homeOf(request.parts[0]));
    if (!tv.faults().remove(toNumber<std::int64_t>(request.parts[1]).value_or(0))) {
        throw Error(Error::Kind::Missing, "there is no such fault rule any more");
    }
    return rulesOf(tv);
}

}  // namespace

std::vector<Route> tvRoutes() {
    return {{"GET", "lab", &showLab},
            {"GET", "calls", &listCalls},
            {"GET", "words", &listWords},
            {"GET", "tvs/*", &showTv},
            {"GET", "tvs/*/channels", &showChannels},
            {"POST", "tvs/*/set", &setOnTv},
            {"POST", "tvs/*/reset", &resetTv},
            {"GET", "tvs/*/faults", &listFaults},
            {"POST", "tvs/*/faults", &addFault},
            {"DELETE", "tvs/*/faults/*", &removeFault}};
}

}  // namespace sim
