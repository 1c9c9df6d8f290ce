// The cloud and bundles: lists, checks, comparisons, and imports.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Text.h"
#include "simulator/cloud/OpenCloud.h"
#include "simulator/reports/CloudReport.h"
#include "simulator/reports/ToJson.h"
#include "simulator/web/Routes.h"

namespace sim {

namespace {

Json::Value listAll(const Lab& lab, const ApiRequest& /*request*/) {
    return object({{"cloud", lab.cloud()}, {"backups", lab.backups()}});
}

// [ACCOUNT/]CLIENT/CATEGORY/ID.
std::string pathIn(const ApiRequest& request) {
    return fmt::format("{}", fmt::join(request.parts, "/"));
}

Json::Value verified(const Lab& lab, const Bundle& bundle, const std::string& tv) {
    Json::Value value = toJson(bundle);
    value["restore"] = tv.empty() ? Json::Value() : toJson(foresee(bundle, lab.look(nameOfKey(tv))));
    return value;
}

Json::Value showBackup(const Lab& lab, const ApiRequest& request) {
    const std::unique_ptr<CloudStore> store = openCloud(lab.cloud());
    const FetchedBackup fetched = fetchBundle(*store, chooseBackup(*store, pathIn(request), ""));
    Json::Value value = verified(lab, fetched.bundle, inQuery(request, "tv", ""));
    value["backup"] = toJson(fetched.backup);
    return value;
}

Json::Value removeBackup(const Lab& lab, const ApiRequest& request) {
    const std::unique_ptr<CloudStore> store = openCloud(lab.cloud());
    removeUnpinned(*store, chooseBackup(*store, pathIn(request), ""));
    return listAll(lab, request);
}

// "tv:KEY" or "backup:ID".
Setup sideOf(const Lab& lab, const std::string& name) {
    const std::size_t colon = name.find(':');
    const std::string kind = name.substr(0, colon);
    const std::string rest = colon == std::string::npos ? "" : name.substr(colon + 1);
    if (kind == "tv") {
        return lab.look(nameOfKey(rest)).setup();
    }
    if (kind == "backup") {
        const std::unique_ptr<CloudStore> store = openCloud(lab.cloud());
        return fetchBundle(*store, chooseBackup(*store, rest, "")).bundle.setup();
    }
    throw Error(fmt::format("{} is neither tv:KEY nor backup:ID", inQuotes(name)));
}

// A page shows some of the services of each kind, and how many there are.
constexpr std::size_t MAX_SHOWN = 100;

Json::Value toShow(const Difference& difference) {
    const JsonDocument document = toDocument(difference);
    Json::Value value = document.object;
    for (const auto& [place, list] : document.lists) {
        list([shown = &Json::Path(place).make(value)](const Json::Value& element) {
            if (shown->size() < MAX_SHOWN) {
                shown->append(element);
            }
        });
    }
    Json::Value& counts = value["counts"];
    for (const Name<Change>& change : NAMES<Change>) {
        counts[std::string(change.name)] = toJson(difference.services.count(change.value));
    }
    return value;
}

Json::Value showDifference(const Lab& lab, const ApiRequest& request) {
    const std::string left = inQuery(request, "left");
    const std::string right = inQuery(request, "right");
    Json::Value value = toShow(compare(sideOf(lab, left), sideOf(lab, right)));
    value["left"] = toJson(left);
    value["right"] = toJson(right);
    return value;
}

// The bundle that the browser has sent, with the metadata that it may have sent, too.
Bundle sentBundle(const ApiRequest& request) {
    const std::string metadata = inQuery(request, "metadata", "");
    return {request.file, metadata.empty() ? std::nullopt : std::optional(metadata)};
}

Json::Value inspect(const Lab& lab, const ApiRequest& request) {
    const Bundle bundle = sentBundle(request);
    const std::string tv = inQuery(request, "tv");
    Json::Value value = verified(lab, bundle, tv);
    value["difference"] = toShow(compare(lab.look(nameOfKey(tv)).setup(), bundle.setup()));
    return value;
}

Json::Value import(const Lab& lab, const ApiRequest& request) {
    const Tv tv = lab.look(nameOfKey(inQuery(request, "tv")));
    return object(
        {{"backup", importBundle(*openCloud(lab.cloud()), sentBundle(request), request.file, tv.account(), &tv)}});
}

}  // namespace

std::vector<Route> cloudRoutes() {
    using Kind = Route::Kind;
    return {{"GET", "cloud", &listAll},
            {"GET", "cloud/*/*/*", &showBackup, Kind::Heavy},
            {"DELETE", "cloud/*/*/*", &removeBackup},
            {"GET", "cloud/*/*/*/*", &showBackup, Kind::Heavy},
            {"DELETE", "cloud/*/*/*/*", &removeBackup},
            {"GET", "diff", &showDifference, Kind::Heavy},
            {"POST", "bundles/inspect", &inspect, Kind::Zip},
            {"POST", "bundles/import", &import, Kind::Zip}};
}

}  // namespace sim
