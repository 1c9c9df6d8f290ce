#include "simulator/web/Routes.h"

#include <fmt/format.h>
#include <sys/prctl.h>

#include <csignal>

#include "simulator/base/Files.h"
#include "simulator/base/Json.h"
#include "simulator/base/Text.h"
#include "simulator/reports/ToJson.h"

namespace sim {

namespace {

const std::vector<Route>& allRoutes() {
    static const std::vector<Route> all = [] {
        std::vector<Route> routes;
        for (const auto& some : {tvRoutes(), runRoutes(), cloudRoutes()}) {
            routes.insert(routes.end(), some.begin(), some.end());
        }
        return routes;
    }();
    return all;
}

// The parts that stand for the pattern's stars; nothing if the path is another.
std::optional<std::vector<std::string>> match(const std::string& pattern, const std::string& path) {
    const std::vector<std::string> wanted = split(pattern, '/');
    const std::vector<std::string> given = split(path, '/');
    std::vector<std::string> parts;
    for (std::size_t i = 0; i < wanted.size() && wanted.size() == given.size(); ++i) {
        if (wanted[i] == "*" && !given[i].empty()) {
            parts.push_back(given[i]);
        } else if (wanted[i] != given[i]) {
            return std::nullopt;
        }
    }
    return wanted.size() == given.size() ? std::optional(parts) : std::nullopt;
}

// Without the folders that bundles are put into to be read, which nobody else knows.
std::string withoutScratch(std::string answer) {
    constexpr std::string_view SCRATCH = "/halcyon-building-";  // how the name of a ScratchFolder begins
    for (std::size_t at = 0; (at = answer.find(SCRATCH, at)) != std::string::npos;) {
        const std::size_t begin = answer.find_last_of(" \"'", at) + 1;
        const std::size_t end = answer.find('/', at + SCRATCH.size());
        answer.erase(begin, end == std::string::npos ? end : end + 1 - begin);
        at = begin;
    }
    return answer;
}

}  // namespace

std::optional<FoundRoute> findRoute(const std::string& method, const std::string& path) {
    for (const Route& route : allRoutes()) {
        if (method == route.method) {
            if (std::optional<std::vector<std::string>> parts = match(route.pattern, path)) {
                return FoundRoute{route, std::move(*parts)};
            }
        }
    }
    return std::nullopt;
}

// Paths and values may be any bytes, and words of a command line cannot hold a NUL: all are as in an address.
std::string wordsOf(const std::string& method, const std::string& path, const ApiRequest& request) {
    Json::Value query(Json::objectValue);
    for (const auto& [name, value] : request.query) {
        query[toUtf8(name)] = keyOf(value);
    }
    return writeJson(object({{"method", method},
                             {"path", keyOf(path)},
                             {"query", std::move(query)},
                             {"file", keyOf(request.file.string())}}));
}

int answerAsProcess(const Lab& lab, const std::string& words) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // nobody waits for the answer if the server is gone
    // Not checked: a server of this program has written these words.
    Json::Value asked;
    parseJson(words, asked);
    ApiRequest request;
    request.file = nameOfKey(textIn(asked, "file"));
    for (const std::string& name : asked["query"].getMemberNames()) {
        request.query[name] = nameOfKey(asked["query"][name].asString());
    }
    Json::Value answer;
    bool isRefused = true;
    try {
        std::optional<FoundRoute> found = findRoute(textIn(asked, "method"), nameOfKey(textIn(asked, "path")));
        if (!found) {
            throw Error(Error::Kind::Missing, "there is no such route");
        }
        request.parts = std::move(found->parts);
        answer = found->route.answer(lab, request);
        isRefused = false;
    } catch (const Error& error) {
        answer = refusal(statusOf(error.kind()), error.what());
    }
    fmt::print("{}", withoutScratch(writeJson(answer)));
    return isRefused ? 1 : 0;
}

Json::Value refusal(int status, const std::string& message) {
    return object({{"error", message}, {"status", status}});
}

int statusOf(Error::Kind kind) {
    switch (kind) {
        case Error::Kind::Missing:
            return 404;
        case Error::Kind::Locked:
            return 409;
        case Error::Kind::Damaged:
            return 422;
        case Error::Kind::Full:
            return 507;
        case Error::Kind::Unreachable:
        case Error::Kind::Denied:
            // Neither the page's fault nor this server's: the store behind it fails.
            return 502;
        default:
            return 400;
    }
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

std::string inQuery(const ApiRequest& request, const char* name) {
    const auto found = request.query.find(name);
    if (found == request.query.end()) {
        throw Error(fmt::format("the address has no {}", name));
    }
    return found->second;
}

std::string inQuery(const ApiRequest& request, const char* name, const std::string& absent) {
    return request.query.count(name) == 0 ? absent : inQuery(request, name);
}

}  // namespace sim
