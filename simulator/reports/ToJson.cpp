#include "simulator/reports/ToJson.h"

#include <fmt/format.h>

#include "simulator/lineup/Application.h"
#include "simulator/lineup/Words.h"

namespace sim {

namespace {

template <typename Enum>
Json::Value coded(Enum code) {
    return object({{"code", codeOf(code)}, {"name", nameOf(code)}});
}

// Of metadata, which may not have it: -1 then.
template <typename Enum>
Json::Value codedIfKnown(Enum code) {
    return code == Enum{-1} ? Json::Value() : coded(code);
}

Json::Value nullIfEmpty(std::string_view text) {
    return text.empty() ? Json::Value() : toJson(text);
}

Json::Value toJson(const ServicePair& pair) {
    if (pair.left == nullptr || pair.right == nullptr) {
        return toJson(pair.left != nullptr ? *pair.left : *pair.right);
    }
    Json::Value columns(Json::arrayValue);
    for (const ServiceColumn* column : pair.columns()) {
        columns.append(object({{"column", column->label},
                               {"left", textOf(*column, *pair.left)},
                               {"right", textOf(*column, *pair.right)}}));
    }
    return object({{"left", *pair.left}, {"right", *pair.right}, {"columns", std::move(columns)}});
}

}  // namespace

Json::Value object(std::initializer_list<Member> members) {
    Json::Value object(Json::objectValue);
    for (const Member& member : members) {
        object[member.name] = std::move(member.value);
    }
    return object;
}

Json::Value toJson(std::string_view text) {
    return toUtf8(text);
}

Json::Value toJson(const Service& service) {
    Json::Value value;
    for (const ServiceColumn& column : SERVICE_COLUMNS) {
        // What says only how a list was written is nothing that scripts should rely on. What the owner may set is left
        // out if he has not: in most lists, of nearly all services.
        if (*column.json != '\0' && !(isOptional(column) && isEmpty(column, service))) {
            std::visit([&](auto member) { value[column.json] = toJson(service.*member); }, column.member);
        }
    }
    return value;
}

Json::Value toJson(const Viewing& viewing) {
    return object({{"antennaMode", codedIfKnown(viewing.mode.antenna)},
                   {"serviceMode", codedIfKnown(viewing.mode.service)},
                   {"serviceId", viewing.serviceId == UINT64_MAX ? Json::Value() : toJson(viewing.serviceId)},
                   {"source", codedIfKnown(viewing.source)},
                   {"category", codedIfKnown(viewing.category.kind)},
                   {"categoryParam", viewing.category.param},
                   {"sort", codedIfKnown(viewing.category.sort)}});
}

Json::Value toJson(const Metadata& metadata) {
    const std::optional<std::set<int>> inputs = application::antennaInputsOf(metadata.antenna);
    return object({{"version", metadata.version},
                   {"antennaMask", metadata.antenna},
                   {"antenna", inputs ? toJson(antennaWords(*inputs)) : Json::Value()},
                   {"viewing", metadata.viewing},
                   {"problems", metadata.problems}});
}

Json::Value toJson(const Reception& reception) {
    return object({{"onAir", reception.onAir},
                   {"moved", reception.moved},
                   {"gone", reception.gone},
                   {"missing", reception.missing}});
}

Json::Value toJson(const ScanResult& result) {
    return object({{"services", result.services},
                   {"gone", result.gone},
                   {"added", result.added},
                   {"renamed", result.renamed},
                   {"ownNames", result.ownNames},
                   {"moved", result.moved},
                   {"retuned", result.retuned},
                   {"changed", result.changed}});
}

Json::Value toJson(const UnpackedEntry& entry) {
    return object({{"name", entry.name},
                   {"bytes", entry.size},
                   {"crc32", fmt::format("{:08x}", entry.crc)},
                   {"problem", entry.problem}});
}

Json::Value toJson(const ChannelCounts& counts) {
    return object({{"services", counts.services},
                   {"byType", counts.byType},
                   {"byGroup", counts.byGroup},
                   {"byProvider", counts.byProvider},
                   {"favourites", counts.favourites},
                   {"locked", counts.locked},
                   {"hidden", counts.hidden},
                   {"renamed", counts.renamed}});
}

Json::Value toJson(const Bundle& bundle) {
    Json::Value items(Json::arrayValue);
    Json::Value favourites(Json::arrayValue);
    for (const Name<Item>& item : NAMES<Item>) {
        const BundlePart& part = bundle.part(item.value);
        items.append(object({{"item", item.name}, {"state", nameOf(part.state)}, {"problem", part.problem}}));
        if (const std::optional<int> list = favouriteList(item.value)) {
            favourites.append(part.state == PartState::Whole ? toJson(bundle.setup().favourite(*list)) : Json::Value());
        }
    }
    const std::optional<Services>& services = bundle.setup().services;
    return object({{"isWhole", bundle.isWhole()},
                   {"problems", bundle.problems()},
                   {"ambiguities", bundle.ambiguities()},
                   {"entries", bundle.entries()},
                   {"items", std::move(items)},
                   {"favourites", std::move(favourites)},
                   {"metadata", bundle.metadataText() ? toJson(bundle.metadata()) : Json::Value()},
                   {"channels", services ? toJson(countChannels(*services)) : Json::Value()}});
}

Json::Value toJson(const Foresight& foresight) {
    const bool isPossible = foresight.outcome == Outcome::Done || foresight.outcome == Outcome::DoneInPart;
    return object({{"isPossible", isPossible},
                   {"outcome", nameOf(foresight.outcome)},
                   {"cause", nameOf(foresight.cause)},
                   {"why", foresight.why},
                   {"items", foresight.items},
                   {"leftovers", foresight.leftovers},
                   {"reception", foresight.reception}});
}

Json::Value toJson(const StoredBackup& backup) {
    return object({{"id", backup.id},
                   {"account", backup.account},
                   {"clientId", backup.clientId},
                   {"category", backup.category},
                   {"time", backup.time},
                   {"name", backup.name},
                   {"bytes", backup.size},
                   {"set", backup.device},
                   {"antenna", antennaOf(backup)},
                   {"services", backup.services},
                   {"isPinned", backup.isPinned},
                   {"damage", backup.damage}});
}

Json::Value toJson(const StoreTrial& trial) {
    return object({{"what", trial.what}, {"isFit", trial.isFit}, {"detail", trial.detail}});
}

Json::Value toJson(const DamagedBackup& damaged) {
    return object({{"backup", damaged.name.path()},
                   {"why", damaged.why},
                   {"whole", damaged.whole ? toJson(damaged.whole->path()) : Json::Value()}});
}

Json::Value toJson(const ItemDifference& item) {
    return object({{"item", nameOf(item.item)},
                   {"isSame", item.isSame},
                   {"left", item.left},
                   {"right", item.right},
                   {"detail", item.detail}});
}

Json::Value toJson(const Difference& difference) {
    const JsonDocument document = toDocument(difference);
    Json::Value value = document.object;
    for (const auto& [place, list] : document.lists) {
        list([&, array = &Json::Path(place).make(value)](const Json::Value& element) { array->append(element); });
    }
    return value;
}

JsonDocument toDocument(const Difference& difference) {
    const ServiceDifference& services = difference.services;
    JsonDocument document;
    Json::Value lists = object(
        {{"isSame", services.isSame()}, {"leftCount", services.leftCount()}, {"rightCount", services.rightCount()}});
    for (const Name<Change>& change : NAMES<Change>) {
        lists[std::string(change.name)] = Json::arrayValue;
        document.lists[fmt::format("services.{}", change.name)] = [&services, what = change.value](const auto& take) {
            services.forEach(what, [&](const ServicePair& pair) { take(toJson(pair)); });
        };
    }
    document.object =
        object({{"isSame", difference.isSame()}, {"services", std::move(lists)}, {"items", difference.items}});
    return document;
}

JsonDocument toDocument(const TvReport& report, const Services& channels) {
    JsonDocument document{toJson(report), {}};
    document.object["channels"] = Json::arrayValue;
    document.lists["channels"] = [&channels](const auto& take) {
        channels.forEach([&](const Service& service) { take(toJson(service)); });
    };
    return document;
}

Json::Value toJson(const TvReport& report) {
    Json::Value antenna(Json::arrayValue);
    for (const int input : report.antenna) {
        antenna.append(coded(static_cast<AntennaInput>(input)));
    }
    return object({{"home", report.home},
                   {"account", report.account},
                   {"now", nullIfEmpty(report.now)},
                   {"isClockStill", report.isClockStill},
                   {"zone", nullIfEmpty(report.zone)},
                   {"services", report.counts.services},
                   {"radios", report.counts.radios},
                   {"groups", report.counts.groups},
                   {"watching", report.watching},
                   {"viewing", report.viewing},
                   {"antenna", std::move(antenna)},
                   {"isScanning", report.isScanning},
                   {"favourites", report.favourites},
                   {"iss", report.iss},
                   {"ciFiles", report.ciFiles},
                   {"ipServicesBytes", report.ipServices},
                   {"leftovers", report.leftovers}});
}

Json::Value toJson(const ItemVerdict& item) {
    return object({{"item", nameOf(item.item)},
                   {"state", nameOf(item.state)},
                   {"isWell", isWell(item.state)},
                   {"detail", item.detail}});
}

Json::Value toJson(const FiredFault& fault) {
    return object({{"rule", fault.rule}, {"call", fault.call}, {"nth", fault.nth}, {"fired", fault.fired}});
}

Json::Value toJson(const RunReport& report) {
    const Run& run = report.run;
    return object({{"run", run.id},
                   {"started", run.started},
                   {"operation", nameOf(run.operation)},
                   {"outcome", nameOf(report.verdict.outcome)},
                   {"cause", nameOf(report.verdict.cause)},
                   {"why", report.verdict.why},
                   {"warning", report.verdict.warning},
                   {"reception", report.verdict.reception},
                   {"items", report.verdict.items},
                   {"faults", report.verdict.faults},
                   {"backup", nullIfEmpty(run.backup)},
                   {"response", run.response ? coded(*run.response) : Json::Value()},
                   {"reported", nameOf(run.reported)},
                   {"replyRequested", run.replyRequested},
                   {"reply", run.reply},
                   {"end", nameOf(run.ended)},
                   {"endDetail", run.detail}});
}

Json::Value toJson(const Remedy& remedy) {
    return object({{"kind", nameOf(remedy.kind)},
                   {"rules", remedy.rules},
                   {"name", nullIfEmpty(remedy.name)},
                   {"value", nullIfEmpty(remedy.value)}});
}

Json::Value toJson(const CallRecord& call) {
    return object({{"name", call.name}, {"arguments", call.arguments}, {"result", call.result}, {"fault", call.fault}});
}

Json::Value toJson(const LogRecord& log) {
    return object({{"sink", nameOf(log.sink)},
                   {"priority", log.priority},
                   {"tag", log.tag},
                   {"file", log.file},
                   {"function", log.function},
                   {"line", log.line},
                   {"message", log.message}});
}

Json::Value toJson(const Moment& moment) {
    return object({{"seq", moment.seq},
                   {"atMs", moment.at},
                   {"isDecisive", moment.isDecisive},
                   {"call", moment.call},
                   {"log", moment.log}});
}

Json::Value toJson(const VerdictDifference& part) {
    return object({{"what", part.what}, {"left", part.left}, {"right", part.right}});
}

Json::Value toJson(const RunDifference& difference) {
    Json::Value timeline(Json::arrayValue);
    std::uint64_t both = 0;
    const auto fold = [&] {
        if (both > 0) {
            timeline.append(object({{"both", both}}));
        }
        both = 0;
    };
    for (const MomentPair& pair : difference.timeline) {
        if (pair.isOfBoth()) {
            ++both;
            continue;
        }
        fold();
        timeline.append(object({{pair.left ? "left" : "right", difference.momentOf(pair)}}));
    }
    fold();
    return object({{"isSame", difference.isSame()},
                   {"left", difference.left.report},
                   {"right", difference.right.report},
                   {"verdict", difference.verdict},
                   {"timeline", std::move(timeline)}});
}

Json::Value toJson(const FaultRule& rule) {
    return object({{"rule", rule.id},
                   {"call", rule.call},
                   {"failure", toText(rule.failures)},
                   {"nth", rule.nth},
                   {"times", rule.times},
                   {"run", rule.run == 0 ? Json::Value() : toJson(rule.run)},
                   {"fired", rule.fired}});
}

Json::Value toJson(const PlatformCall& call) {
    return object({{"call", call.name}, {"item", nullIfEmpty(call.item)}, {"failures", call.failureList()}});
}

}  // namespace sim
