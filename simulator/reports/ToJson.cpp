#include "simulator/reports/ToJson.h"

#include <fmt/format.h>

#include "simulator/base/Text.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/Words.h"

namespace sim {

namespace {

// A text of JSON is UTF-8, whatever a foreign database holds.
Json::Value text(std::string_view any) {
    return toUtf8(any);
}

template <typename Value>
Json::Value orNull(const std::optional<Value>& value) {
    return value ? Json::Value(*value) : Json::Value();
}

Json::Value number(std::uint64_t value) {
    return Json::Value::UInt64(value);
}

// A value of a service's column.
Json::Value cell(int value) {
    return value;
}
Json::Value cell(std::uint64_t value) {
    return number(value);
}
Json::Value cell(const std::string& value) {
    return text(value);
}

template <typename Enum>
Json::Value coded(Enum code) {
    Json::Value value;
    value["code"] = codeOf(code);
    value["name"] = text(nameOf(code));
    return value;
}

Json::Value toJson(const Viewing& viewing) {
    Json::Value value;
    value["antennaMode"] = coded(viewing.mode.antenna);
    value["serviceMode"] = coded(viewing.mode.service);
    value["serviceId"] = number(viewing.serviceId);
    value["source"] = coded(viewing.source);
    value["category"] = coded(viewing.category.kind);
    value["categoryParam"] = number(viewing.category.param);
    value["sort"] = coded(viewing.category.sort);
    return value;
}

Json::Value toJson(const ItemVerdict& item) {
    Json::Value value;
    value["item"] = text(nameOf(item.item));
    value["state"] = text(nameOf(item.state));
    value["isWell"] = isWell(item.state);
    value["detail"] = text(item.detail);
    return value;
}

Json::Value toJson(const ServicePair& pair) {
    Json::Value value;
    value["left"] = toJson(pair.left);
    value["right"] = toJson(pair.right);
    value["columns"] = Json::Value(Json::arrayValue);
    for (const ServiceColumn* column : pair.columns) {
        Json::Value changed;
        changed["column"] = column->label;
        changed["left"] = text(textOf(*column, pair.left));
        changed["right"] = text(textOf(*column, pair.right));
        value["columns"].append(changed);
    }
    return value;
}

Json::Value toJson(const ItemDifference& item) {
    Json::Value value;
    value["item"] = text(nameOf(item.item));
    value["isSame"] = item.isSame;
    value["left"] = text(item.left);
    value["right"] = text(item.right);
    value["detail"] = text(item.detail);
    return value;
}

Json::Value toJson(const UnpackedEntry& entry) {
    Json::Value value;
    value["name"] = text(entry.name);
    value["bytes"] = number(entry.size);
    value["crc32"] = fmt::format("{:08x}", entry.crc);
    value["problem"] = text(entry.problem);
    return value;
}

Json::Value toJson(const CallRecord& call) {
    Json::Value value;
    value["name"] = text(call.name);
    value["arguments"] = text(call.arguments);
    value["result"] = text(call.result);
    value["fault"] = call.fault ? Json::Value(Json::Int64(*call.fault)) : Json::Value();
    return value;
}

Json::Value toJson(const LogRecord& log) {
    Json::Value value;
    value["sink"] = text(nameOf(log.sink));
    value["priority"] = log.priority;
    value["tag"] = text(log.tag);
    value["file"] = text(log.file);
    value["function"] = text(log.function);
    value["line"] = log.line;
    value["message"] = text(log.message);
    return value;
}

Json::Value toJson(const Metadata& metadata) {
    Json::Value value;
    value["version"] = text(metadata.version);
    value["antennaMask"] = metadata.antenna;
    const std::optional<std::set<int>> inputs = application::antennaInputsOf(metadata.antenna);
    value["antenna"] = inputs ? text(antennaWords(*inputs)) : Json::Value();
    value["viewing"] = toJson(metadata.viewing);
    value["problems"] = sim::toJson(metadata.problems);
    return value;
}

}  // namespace

Json::Value toJson(const std::vector<std::string>& texts) {
    Json::Value array(Json::arrayValue);
    for (const std::string& each : texts) {
        array.append(text(each));
    }
    return array;
}

Json::Value toJson(const Service& service) {
    Json::Value value;
    for (const ServiceColumn& column : SERVICE_COLUMNS) {
        if (*column.json != '\0') {
            std::visit([&](auto member) { value[column.json] = cell(service.*member); }, column.member);
        }
    }
    return value;
}

Json::Value toJson(const TvReport& report) {
    Json::Value value;
    value["home"] = text(report.home);
    value["account"] = text(report.account);
    value["now"] = report.fixedTime.empty() ? Json::Value() : text(report.fixedTime);
    value["services"] = number(report.counts.services);
    value["radios"] = number(report.counts.radios);
    value["groups"] = number(report.counts.groups);
    value["watching"] = report.watching ? toJson(*report.watching) : Json::Value();
    value["viewing"] = toJson(report.viewing);
    value["antenna"] = Json::Value(Json::arrayValue);
    for (const int input : report.antenna) {
        value["antenna"].append(coded(static_cast<AntennaInput>(input)));
    }
    value["isScanning"] = report.isScanning;
    value["favourites"] = toJson(report.favourites);
    value["iss"] = Json::Value(Json::objectValue);
    for (const auto& [key, entry] : report.iss) {
        value["iss"][toUtf8(key)] = text(entry);
    }
    value["ciFiles"] = Json::Value(Json::objectValue);
    for (const auto& [name, size] : report.ciFiles) {
        value["ciFiles"][toUtf8(name)] = number(size);
    }
    value["ipServicesBytes"] = number(report.ipServices);
    value["leftovers"] = toJson(report.leftovers);
    return value;
}

Json::Value toJson(const RunReport& report) {
    const Run& run = report.run;
    Json::Value value;
    value["run"] = Json::Int64(run.id);
    value["started"] = text(run.started);
    value["operation"] = text(nameOf(run.operation));
    value["outcome"] = text(nameOf(report.verdict.outcome));
    value["cause"] = text(nameOf(report.verdict.cause));
    value["why"] = text(report.verdict.why);
    value["items"] = Json::Value(Json::arrayValue);
    for (const ItemVerdict& item : report.verdict.items) {
        value["items"].append(toJson(item));
    }
    value["backup"] = run.backup.empty() ? Json::Value() : text(run.backup);
    value["response"] = run.response ? coded(*run.response) : Json::Value();
    value["reported"] = text(nameOf(run.reported));
    value["replyRequested"] = run.replyRequested;
    value["reply"] = orNull(run.reply);
    value["end"] = text(nameOf(run.ended));
    value["endDetail"] = text(run.detail);
    return value;
}

Json::Value toJson(const Moment& moment) {
    Json::Value value;
    value["seq"] = moment.seq;
    value["atMs"] = Json::Int64(moment.at);
    value["isDecisive"] = moment.isDecisive;
    value["call"] = moment.call ? toJson(*moment.call) : Json::Value();
    value["log"] = moment.log ? toJson(*moment.log) : Json::Value();
    return value;
}

Json::Value toJson(const Difference& difference) {
    const ServiceDifference& services = difference.services;
    const auto pairs = [](const std::vector<ServicePair>& list) {
        Json::Value array(Json::arrayValue);
        for (const ServicePair& pair : list) {
            array.append(toJson(pair));
        }
        return array;
    };
    Json::Value value;
    value["isSame"] = difference.isSame();
    value["services"]["isSame"] = services.isSame();
    value["services"]["leftCount"] = number(services.leftCount);
    value["services"]["rightCount"] = number(services.rightCount);
    value["services"]["removed"] = toJson(services.removed);
    value["services"]["added"] = toJson(services.added);
    value["services"]["renamed"] = pairs(services.renamed);
    value["services"]["changed"] = pairs(services.changed);
    value["services"]["moved"] = pairs(services.moved);
    value["services"]["renumbered"] = pairs(services.renumbered);
    value["items"] = Json::Value(Json::arrayValue);
    for (const ItemDifference& item : difference.items) {
        value["items"].append(toJson(item));
    }
    return value;
}

Json::Value toJson(const Bundle& bundle) {
    Json::Value value;
    value["isWhole"] = bundle.isWhole();
    value["problems"] = toJson(bundle.problems());
    value["ambiguities"] = toJson(bundle.ambiguities());
    value["entries"] = Json::Value(Json::arrayValue);
    for (const UnpackedEntry& entry : bundle.entries()) {
        value["entries"].append(toJson(entry));
    }
    value["items"] = Json::Value(Json::arrayValue);
    for (const Name<Item>& item : NAMES<Item>) {
        const BundlePart& part = bundle.part(item.value);
        Json::Value each;
        each["item"] = text(item.name);
        each["state"] = text(nameOf(part.state));
        each["problem"] = text(part.problem);
        value["items"].append(each);
    }
    value["metadata"] = bundle.metadataText() ? toJson(bundle.metadata()) : Json::Value();
    value["channels"] = Json::Value();
    if (bundle.setup().services) {
        const ChannelCounts counts = countChannels(*bundle.setup().services);
        const auto count = [&](const char* name, const std::map<std::string, std::uint64_t>& by) {
            value["channels"][name] = Json::Value(Json::objectValue);
            for (const auto& [key, services] : by) {
                value["channels"][name][toUtf8(key)] = number(services);
            }
        };
        value["channels"]["services"] = number(counts.services);
        count("byType", counts.byType);
        count("byGroup", counts.byGroup);
        count("byProvider", counts.byProvider);
    }
    return value;
}

Json::Value toJson(const Prospect& prospect) {
    Json::Value value;
    value["isPossible"] = prospect.isPossible;
    value["cause"] = text(nameOf(prospect.cause));
    value["why"] = text(prospect.why);
    value["leftovers"] = toJson(prospect.left);
    return value;
}

Json::Value toJson(const StoredBackup& backup) {
    Json::Value value;
    value["id"] = text(backup.id);
    value["account"] = text(backup.account);
    value["clientId"] = text(backup.clientId);
    value["category"] = text(backup.category);
    value["time"] = text(backup.time);
    value["name"] = text(backup.name);
    value["bytes"] = number(backup.size);
    value["set"] = text(backup.device);
    value["antenna"] = text(antennaOf(backup));
    value["services"] = backup.services ? number(*backup.services) : Json::Value();
    value["damage"] = text(backup.damage);
    return value;
}

Json::Value toJson(const FaultRule& rule) {
    Json::Value value;
    value["rule"] = Json::Int64(rule.id);
    value["call"] = text(rule.call);
    value["failure"] = text(toText(rule.failure));
    value["nth"] = rule.nth;
    value["times"] = rule.times;
    value["fired"] = rule.fired;
    return value;
}

Json::Value toJson(const PlatformCall& call) {
    Json::Value value;
    value["call"] = text(call.name);
    value["item"] = call.item.empty() ? Json::Value() : text(call.item);
    value["failures"] = toJson(call.failureList());
    return value;
}

}  // namespace sim
