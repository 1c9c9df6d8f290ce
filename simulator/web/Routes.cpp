#include "simulator/web/Routes.h"

#include <fmt/format.h>

#include "simulator/base/Error.h"
#include "simulator/base/Text.h"

namespace sim {

namespace {

const std::vector<Route>& routes() {
    static const std::vector<Route> all = [] {
        std::vector<Route> table;
        for (const auto& group : {tvRoutes(), runRoutes(), cloudRoutes()}) {
            table.insert(table.end(), group.begin(), group.end());
        }
        return table;
    }();
    return all;
}

bool fits(const Route& route, const std::string& method, const std::vector<std::string>& path,
          std::vector<std::string>& open) {
    const std::vector<std::string> pattern = split(route.pattern, '/');
    if (route.method != method || pattern.size() != path.size()) {
        return false;
    }
    open.clear();
    for (std::size_t i = 0; i < path.size(); ++i) {
        if (pattern[i] == "*") {
            open.push_back(path[i]);
        } else if (pattern[i] != path[i]) {
            return false;
        }
    }
    return true;
}

}  // namespace

Json::Value route(const Lab& lab, const std::string& method, const std::string& path, ApiRequest request) {
    const std::vector<std::string> parts = split(path, '/');
    for (const Route& each : routes()) {
        if (fits(each, method, parts, request.parts)) {
            return each.answer(lab, request);
        }
    }
    throw Error(Error::Kind::Missing, fmt::format("there is nothing at {} {}", method, inQuotes(path)));
}

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
