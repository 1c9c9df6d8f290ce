// What is found out, as JSON: the same values that the text is printed from. Names stay as they are; docs/json.md lists
// them.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "simulator/cloud/CloudStore.h"
#include "simulator/lineup/Bundle.h"
#include "simulator/lineup/ChannelList.h"
#include "simulator/lineup/Difference.h"
#include "simulator/reports/CloudReport.h"
#include "simulator/reports/RunReport.h"
#include "simulator/reports/TvReport.h"

namespace sim {

Json::Value toJson(const Service& service);
Json::Value toJson(const TvReport& report);
Json::Value toJson(const RunReport& report);
Json::Value toJson(const Moment& moment);
Json::Value toJson(const Difference& difference);
Json::Value toJson(const Bundle& bundle);
Json::Value toJson(const Prospect& prospect);
Json::Value toJson(const StoredBackup& backup);
Json::Value toJson(const FaultRule& rule);
Json::Value toJson(const PlatformCall& call);

template <typename Element>
Json::Value toJson(const std::vector<Element>& elements) {
    Json::Value array(Json::arrayValue);
    for (const Element& element : elements) {
        array.append(toJson(element));
    }
    return array;
}

Json::Value toJson(const std::vector<std::string>& texts);

}  // namespace sim
