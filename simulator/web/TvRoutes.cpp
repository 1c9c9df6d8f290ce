// The TVs: their state, their channels, what can be set, their fault rules.
#include "simulator/base/Error.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/Codes.h"
#include "simulator/reports/ToJson.h"
#include "simulator/tv/Settable.h"
#include "simulator/tv/Snapshot.h"
#include "simulator/web/Routes.h"

namespace sim {

namespace {

Json::Value showLab(const Lab& lab, const ApiRequest& /*request*/) {
    Json::Value tvs(Json::arrayValue);
    for (const auto& [name, home] : lab.tvs()) {
        tvs.append(object({{"name", name}, {"home", home.string()}}));
    }
    return object({{"version", HALCYON_VERSION}, {"cloud", lab.cloud()}, {"tvs", std::move(tvs)}});
}

Json::Value showTv(const Lab& lab, const ApiRequest& request) {
    const Tv tv = lab.look(request.parts[0]);
    Json::Value value = toJson(reportTv(tv));
    value["serial"] = toJson(tv.serial());
    value["run"] = tv.runs().newest();
    return value;
}

// An array for each channel, as a list may have 50,000 of them: id, number, name, kind, group, provider, identity.
Json::Value showChannels(const Lab& lab, const ApiRequest& request) {
    Json::Value rows(Json::arrayValue);
    lab.look(request.parts[0]).services().forEach([&](const Service& service) {
        Json::Value row(Json::arrayValue);
        row.append(service.id);
        row.append(service.number);
        for (const std::string& text :
             {service.name, serviceKind(service), service.groupName, service.provider, service.identity}) {
            row.append(toJson(text));
        }
        rows.append(std::move(row));
    });
    return object({{"channels", std::move(rows)}});
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
    return toJson(reportTv(lab.look(request.parts[0])));
}

Json::Value listCalls(const Lab& /*lab*/, const ApiRequest& /*request*/) {
    return object({{"calls", callsThatCanFail()}});
}

// The names of an enum, each at the index of its code.
template <typename Enum>
Json::Value namesOf() {
    Json::Value names;
    for (const Name<Enum>& each : NAMES<Enum>) {
        names[codeOf(each.value)] = toJson(each.name);
    }
    return names;
}

// What a TV can be set to.
Json::Value listWords(const Lab& /*lab*/, const ApiRequest& /*request*/) {
    return object({{"antennaModes", namesOf<AntennaMode>()},
                   {"antennaInputs", namesOf<AntennaInput>()},
                   {"serviceModes", namesOf<ServiceMode>()},
                   {"sorts", namesOf<SortMode>()}});
}

Json::Value rulesOf(const Tv& tv) {
    return object({{"rules", tv.faults().list()}});
}

Json::Value listFaults(const Lab& lab, const ApiRequest& request) {
    return rulesOf(lab.look(request.parts[0]));
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
