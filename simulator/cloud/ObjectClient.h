// Signed requests to an object store that speaks S3. Requests that fail for a passing reason are tried again.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/cloud/CloudStore.h"
#include "simulator/cloud/Endpoints.h"
#include "simulator/cloud/ObjectSettings.h"

namespace sim {

// What comes from the store is not trusted: responses have bounds, and a list must be one.
//
// A try ends after 5 seconds without a connection, or `stall` with less than ten bytes a second. Each endpoint is
// tried, and at least three tries are made, within `limit`. Once every endpoint has failed, a random pause comes first,
// and the one that the store asks for, up to half a minute. Of all requests of a process, about one in five is tried
// again; the first ten are.
//
// Every request throws Error: Unreachable if all tries failed, Missing if there is no such object, Damaged if the start
// of an empty object was asked for, Denied if the store refuses for any other reason, which the message says.
class ObjectClient {
public:
    // For `notes`, see Endpoints. Throws Error if the settings lack something.
    ObjectClient(std::string bucket, RequestObserver observer, std::filesystem::path notes = {});
    ObjectClient(std::string bucket, RequestObserver observer, ObjectSettings settings,
                 std::filesystem::path notes = {});

    const ObjectSettings& settings() const { return m_settings; }

    // The requests that follow are for an account: it decides which endpoint is asked first.
    void prefer(const std::string& account) { m_account = account; }

    struct Object {
        std::string key;
        std::string etag;
    };

    // Visits the objects whose key begins with `prefix`, sorted by the bytes of their keys, until `visit` returns
    // false. Asks for `pageSize` (1 to 1000) at a time.
    void list(const std::string& prefix, int pageSize, const std::function<bool(const Object&)>& visit);

    // The object's bytes: `header`, followed by those of `file`, if it is not empty.
    struct Body {
        std::string header;
        std::filesystem::path file;
        std::uint64_t size = 0;  // of both together
        std::string sha256;      // of both together, in hexadecimal digits
    };

    // Stores an object, whole or not at all, replacing one of the same key.
    void put(const std::string& key, const Body& body);

    // The same, but only if there is no object of the key. Returns false if there is one, or if the store cannot tell.
    bool putIfAbsent(const std::string& key, const Body& body);

    // What receives an object: before each try `restart` is called, then `begin` with the size of the whole object,
    // then `take` for each piece. What they throw ends the request and comes out of it.
    struct Sink {
        std::function<void()> restart;
        std::function<void(std::uint64_t)> begin;
        std::function<void(std::string_view)> take;
    };

    // Reads an object: its first `maxBytes` and perhaps some more, or all of it if that is 0.
    void get(const std::string& key, std::uint64_t maxBytes, const Sink& sink);

    // Removes an object. The store does not say whether there was one.
    void remove(const std::string& key);

    // Creates the bucket, in the region of the settings, if there is none yet.
    void makeBucket();

    // How the bucket is set up, in a word such as "Enabled"; "none" if it is not. `name` is that of a part of the
    // interface, such as "versioning".
    std::string configuration(const std::string& name);

    // How far the store's clock was ahead of this machine's at the last response; nothing if it did not say.
    std::optional<std::chrono::seconds> clockAhead() const { return m_clockAhead; }

private:
    struct Request;
    struct Response;
    struct Page {
        std::vector<Object> objects;
        bool hasMore = false;
    };

    Page page(const std::string& prefix, const std::string& after, int maxKeys);
    void perform(const Request& request);
    void prepare(const Request& request, const std::string& endpoint, std::chrono::milliseconds limit);
    Response attempt(const Request& request, const std::string& endpoint, std::chrono::milliseconds limit);
    void complete(Response& response, const char* detail);
    std::string outcomeOf(const Response& response, const std::string& endpoint);
    std::string failureOf(const Response& response, const std::string& endpoint) const;
    std::optional<std::chrono::milliseconds> pauseAfter(const Response& response, std::size_t tries,
                                                        std::size_t endpoints) const;

    std::string m_bucket;
    RequestObserver m_observer;
    ObjectSettings m_settings;
    Endpoints m_endpoints;
    std::string m_account;
    std::optional<std::chrono::seconds> m_clockAhead;
    std::unique_ptr<void, void (*)(void*)> m_handle;  // of libcurl; keeps its connection from one request to the next
};

}  // namespace sim
