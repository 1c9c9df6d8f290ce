#include "simulator/web/Routes.h"

#include <fmt/format.h>

#include "simulator/base/Error.h"
#include "simulator/base/Text.h"

namespace sim {

std::string textIn(const Json::Value& body, const char* member) {
    if (!body.isObject() || !body[member].isString()) {
        throw Error(fmt::format("the body has no text {}", inQuotes(member)));
    }
    return body[member].asString();
}

std::string textIn(const Json::Value& body, const char* member, const std::string& absent) {
    return body.isObject() && !body.isMember(member) ? absent : textIn(body, member);
}

}  // namespace sim
