// What is found out, as JSON: the same values that the text is printed from. docs/json.md lists the names, which never
// change.
#pragma once

#include <json/value.h>

#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "simulator/base/JsonDocument.h"
#include "simulator/base/Text.h"
#include "simulator/cloud/CloudStore.h"
#include "simulator/lineup/Bundle.h"
#include "simulator/lineup/Difference.h"
#include "simulator/reports/CloudCare.h"
#include "simulator/reports/CloudReport.h"
#include "simulator/reports/Foresight.h"
#include "simulator/reports/Remedy.h"
#include "simulator/reports/RunDifference.h"
#include "simulator/reports/RunReport.h"
#include "simulator/reports/TvReport.h"

namespace sim {

// Any text becomes UTF-8, whatever a foreign database holds.
Json::Value toJson(std::string_view text);

template <typename Number, std::enable_if_t<std::is_arithmetic_v<Number>, int> = 0>
Json::Value toJson(Number number) {
    return number;
}

// Null if there is none.
template <typename Value>
Json::Value toJson(const std::optional<Value>& value) {
    return value ? toJson(*value) : Json::Value();
}

template <typename Element>
Json::Value toJson(const std::vector<Element>& elements) {
    Json::Value array(Json::arrayValue);
    for (const Element& element : elements) {
        array.append(toJson(element));
    }
    return array;
}

template <typename Value>
Json::Value toJson(const std::map<std::string, Value>& values) {
    Json::Value object(Json::objectValue);
    for (const auto& [key, value] : values) {
        object[toUtf8(key)] = toJson(value);
    }
    return object;
}

Json::Value toJson(const Service& service);
Json::Value toJson(const Viewing& viewing);
Json::Value toJson(const Metadata& metadata);
Json::Value toJson(const Reception& reception);
Json::Value toJson(const ScanResult& result);
Json::Value toJson(const UnpackedEntry& entry);
Json::Value toJson(const ChannelCounts& counts);
Json::Value toJson(const Bundle& bundle);
Json::Value toJson(const Foresight& foresight);
Json::Value toJson(const StoredBackup& backup);
Json::Value toJson(const StoreTrial& trial);
Json::Value toJson(const DamagedBackup& damaged);
Json::Value toJson(const ItemDifference& item);
Json::Value toJson(const Difference& difference);
Json::Value toJson(const TvReport& report);
Json::Value toJson(const ItemVerdict& item);
Json::Value toJson(const FiredFault& fault);
Json::Value toJson(const RunReport& report);
Json::Value toJson(const Remedy& remedy);
Json::Value toJson(const CallRecord& call);
Json::Value toJson(const LogRecord& log);
Json::Value toJson(const Moment& moment);
Json::Value toJson(const VerdictDifference& part);
Json::Value toJson(const RunDifference& difference);
Json::Value toJson(const FaultRule& rule);
Json::Value toJson(const PlatformCall& call);

// A member of an object, made of anything above.
struct Member {
    Member(const char* key, Json::Value json) : name(key), value(std::move(json)) {}
    template <typename Any>
    Member(const char* key, const Any& any) : Member(key, toJson(any)) {}

    const char* name;
    mutable Json::Value value;  // is moved from, as it may be large, though the elements of a list are constant
};
Json::Value object(std::initializer_list<Member> members);

// The same as toJson(), with lists of any length. They read what was handed over here, which must outlive them.
JsonDocument toDocument(const Difference& difference);
JsonDocument toDocument(const TvReport& report, const Services& channels);

}  // namespace sim
