// The API of the page: the same values and actions as the commands have.
#pragma once

#include <json/value.h>

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "simulator/base/Error.h"
#include "simulator/web/Lab.h"

namespace sim {

struct ApiRequest {
    std::vector<std::string> parts;  // of the path, for the stars in the route's pattern
    std::map<std::string, std::string> query;
    Json::Value body;            // an object; of a request without one: null
    std::filesystem::path file;  // with the body, of a route that takes a zip
};

struct Route {
    enum class Kind {
        Quick,  // answered by the server itself
        Heavy,  // takes time and memory that depend on what it reads: a process of its own, ended if nobody waits for
                // it
        Zip,    // like Heavy, with a body that is a zip
    };
    const char* method;   // "GET", "POST" or "DELETE"
    const char* pattern;  // "tvs/*/runs": a star stands for one part of the path
    std::function<Json::Value(const Lab&, const ApiRequest&)> answer;  // throws Error
    Kind kind = Kind::Quick;
};
std::vector<Route> tvRoutes();
std::vector<Route> runRoutes();
std::vector<Route> cloudRoutes();

// The route of a request, with the parts of its path; nothing if there is none. `path` begins behind "/api/".
struct FoundRoute {
    const Route& route;
    std::vector<std::string> parts;
};
std::optional<FoundRoute> findRoute(const std::string& method, const std::string& path);

// A request as a text, and its answer on standard output: for a process that answers one request. Returns the exit
// code: 0, or 1 if the answer is a refusal.
std::string wordsOf(const std::string& method, const std::string& path, const ApiRequest& request);
int answerAsProcess(const Lab& lab, const std::string& words);

// A refusal as JSON: "error", and "status", as HTTP numbers it.
Json::Value refusal(int status, const std::string& message);
int statusOf(Error::Kind kind);

// A text in a body, or `absent` if there is no such member. Throw Error if it is of another type, or missing.
std::string textIn(const Json::Value& body, const char* member);
std::string textIn(const Json::Value& body, const char* member, const std::string& absent);

// A value in the query. Throw Error if it is missing and no other is given.
std::string inQuery(const ApiRequest& request, const char* name);
std::string inQuery(const ApiRequest& request, const char* name, const std::string& absent);

}  // namespace sim
