// What the page asks for, and what it lets be done: the same values and the same actions as the commands have.
#pragma once

#include <json/value.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "simulator/web/Lab.h"

namespace sim {

// A request that was let through: the parts of its path that a route left open, its query, and its body.
struct ApiRequest {
    std::vector<std::string> parts;
    std::map<std::string, std::string> query;
    Json::Value body;
};

struct Route {
    std::string method;
    std::string pattern;                                               // "tvs/*/runs": a star stands for one part
    std::function<Json::Value(const Lab&, const ApiRequest&)> answer;  // throws Error
};

// Each group of routes has a source.
std::vector<Route> tvRoutes();
std::vector<Route> runRoutes();
std::vector<Route> cloudRoutes();

// Answers with the route that fits. Throws Error (Missing) where none does.
Json::Value route(const Lab& lab, const std::string& method, const std::string& path, ApiRequest request);

// Members of a body. Throw Error where there is none of that type.
std::string textIn(const Json::Value& body, const char* member);
std::string textIn(const Json::Value& body, const char* member, const std::string& absent);

}  // namespace sim
