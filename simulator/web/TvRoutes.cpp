// The TVs: their state, their channels, what can be set, their fault rules.
#include "simulator/base/Error.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/Codes.h"
#include "simulator/lineup/Difference.h"
#include "simulator/lineup/Words.h"
#include "simulator/reports/ToJson.h"
#include "simulator/tv/Settable.h"
#include "simulator/tv/Snapshot.h"
#include "simulator/web/Routes.h"

namespace sim {

namespace {

Json::Value showTv(const Lab& lab, const ApiRequest& request) {
    return stateOf(request.parts[0], lab.look(request.parts[0]));
}

// Texts that recur, each written once.
class Words {
public:
    Json::UInt indexOf(const std::string& word) {
        const auto [known, isNew] = m_indices.emplace(word, m_indices.size());
        if (isNew) {
            m_words.append(toJson(word));
        }
        return known->second;
    }
    const Json::Value& all() const { return m_words; }

private:
    std::map<std::string, Json::UInt> m_indices;
    Json::Value m_words = Json::Value(Json::arrayValue);
};

// What the restore has done to a service: the kind of the difference, and what it was before.
struct Mark {
    std::string_view kind;
    std::string was;
};

// By the id that a service has now. Those that are gone come in a row of their own.
struct Marks {
    std::map<std::uint64_t, Mark> marks;
    std::vector<Service> gone;
};

Marks marksOf(const Tv& tv) {
    Marks result;
    if (runOfSnapshot(tv) == 0) {
        return result;
    }
    const Tv before(snapshotPath(tv.home(), BEFORE_RUN), Database::Access::Look);
    const ServiceDifference difference(before.services(), tv.services());
    const auto mark = [&](Change change, const std::function<std::string(const Service&)>& was) {
        difference.forEach(change, [&](const ServicePair& pair) {
            result.marks[pair.right->id] = {nameOf(change), pair.left != nullptr ? was(*pair.left) : ""};
        });
    };
    const auto nothing = [](const Service&) { return std::string(); };
    const auto number = [](const Service& service) { return std::to_string(service.number); };
    mark(Change::Added, nothing);
    mark(Change::Customised, nothing);
    mark(Change::Changed, nothing);
    mark(Change::Renumbered, number);
    mark(Change::Moved, number);
    mark(Change::Renamed, [](const Service& service) { return service.name; });
    difference.forEach(Change::Removed, [&](const ServicePair& pair) { result.gone.push_back(*pair.left); });
    return result;
}

// Its places in the favourite lists, and all of it in words; 0 if there is nothing.
Json::Value choicesOf(const Service& service) {
    const std::string inWords = choiceWords(service);
    if (inWords.empty()) {
        return 0;
    }
    Json::Value choices;
    for (const auto place : FAVOURITE_PLACES) {
        choices.append(service.*place);
    }
    choices.append(toJson(inWords));
    return choices;
}

// An array for each channel, as a list may have 50,000 of them: id, number, name, the indices of its kind, group and
// provider, and what its owner has set; of one that the newest restore has changed, also how, and what it was.
Json::Value showChannels(const Lab& lab, const ApiRequest& request) {
    const Tv tv = lab.look(request.parts[0]);
    const Marks marks = marksOf(tv);
    Words words;
    Json::Value rows(Json::arrayValue);
    const auto add = [&](const Service& service) -> Json::Value& {
        Json::Value row(Json::arrayValue);
        row.append(service.id);
        row.append(service.number);
        row.append(toJson(service.name));
        for (const std::string& text : {serviceKind(service), service.groupName, service.provider}) {
            row.append(words.indexOf(text));
        }
        row.append(choicesOf(service));
        return rows.append(std::move(row));
    };
    tv.services().forEach([&](const Service& service) {
        Json::Value& row = add(service);
        if (const auto mark = marks.marks.find(service.id); mark != marks.marks.end()) {
            row.append(toJson(mark->second.kind));
            row.append(toJson(mark->second.was));
        }
    });
    for (const Service& service : marks.gone) {
        add(service).append("gone");
    }
    return object({{"list", stateOf(request.parts[0], tv)["list"]},
                   {"run", runOfSnapshot(tv)},
                   {"words", words.all()},
                   {"channels", std::move(rows)}});
}

Json::Value setOnTv(const Lab& lab, const ApiRequest& request) {
    const std::filesystem::path home = lab.homeOf(request.parts[0]);
    const FolderLock lock = lockTv(home, std::chrono::seconds(0));
    Tv tv(home);
    setByName(tv, textIn(request.body, "name"), textIn(request.body, "value"));
    return object({});
}

Json::Value resetTv(const Lab& lab, const ApiRequest& request) {
    const std::filesystem::path home = lab.homeOf(request.parts[0]);
    const FolderLock lock = lockTv(home, std::chrono::seconds(0));
    resetTo(home, textIn(request.body, "name", INIT_SNAPSHOT));
    return object({});
}

Json::Value makeSnapshot(const Lab& lab, const ApiRequest& request) {
    const std::filesystem::path home = lab.homeOf(request.parts[0]);
    const FolderLock lock = lockTv(home, std::chrono::seconds(0));
    saveSnapshot(home, textIn(request.body, "name"));
    return object({});
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

int numberIn(const Json::Value& body, const char* member, int absent) {
    return body[member].isInt() ? body[member].asInt() : absent;
}

Json::Value addFault(const Lab& lab, const ApiRequest& request) {
    Tv tv(lab.homeOf(request.parts[0]));
    FaultRule rule = makeRule(textIn(request.body, "call"), textIn(request.body, "failure"));
    rule.times = numberIn(request.body, "times", rule.times);
    rule.nth = numberIn(request.body, "nth", rule.nth);
    return object({{"rule", tv.faults().add(rule)}});
}

Json::Value removeFault(const Lab& lab, const ApiRequest& request) {
    Tv tv(lab.homeOf(request.parts[0]));
    if (!tv.faults().remove(toNumber<std::int64_t>(request.parts[1]).value_or(0))) {
        throw Error(Error::Kind::Missing, "there is no such fault rule any more");
    }
    return object({});
}

Json::Value clearFaults(const Lab& lab, const ApiRequest& request) {
    Tv(lab.homeOf(request.parts[0])).faults().clear();
    return object({});
}

}  // namespace

std::vector<Route> tvRoutes() {
    return {{"GET", "calls", &listCalls},
            {"GET", "words", &listWords},
            {"GET", "tvs/*", &showTv},
            {"GET", "tvs/*/channels", &showChannels, Route::Kind::Heavy},
            {"POST", "tvs/*/set", &setOnTv},
            {"POST", "tvs/*/reset", &resetTv},
            {"POST", "tvs/*/snapshots", &makeSnapshot},
            {"POST", "tvs/*/faults", &addFault},
            {"DELETE", "tvs/*/faults", &clearFaults},
            {"DELETE", "tvs/*/faults/*", &removeFault}};
}

}  // namespace sim
