// The API of the page: the same values and actions as the commands have.
#pragma once

#include <json/value.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "simulator/web/Lab.h"

namespace sim {

struct ApiRequest {
    std::vector<std::string> parts;  // of the path, for the stars in the route's pattern
    std::map<std::string, std::string> query;
    Json::Value body;  // an object; of a request without a body: null
};

struct Route {
    std::string method;   // "GET", "POST" or "DELETE"
    std::string pattern;  // "tvs/*/runs": a star stands for one part of the path
    std::function<Json::Value(const Lab&, const ApiRequest&)> answer;  // throws Error
};
std::vector<Route> tvRoutes();
std::vector<Route> runRoutes();
std::vector<Route> cloudRoutes();

// A text in a body, or `absent` if there is no such member. Throw Error if it is of another type, or missing.
std::string textIn(const Json::Value& body, const char* member);
std::string textIn(const Json::Value& body, const char* member, const std::string& absent);

}  // namespace sim
