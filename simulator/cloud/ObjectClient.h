// Signed requests to an object store that speaks S3. Requests that fail for a passing reason are tried again.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/cloud/CloudStore.h"

namespace sim {

// Configured by the environment: AWS_ACCESS_KEY_ID, AWS_SECRET_ACCESS_KEY, AWS_REGION, AWS_ENDPOINT_URL (several
// addresses, separated by commas, are tried in turn) and AWS_CA_BUNDLE.
//
// A try ends after 5 seconds without a connection, or about 20 ($HALCYON_CLOUD_STALL) without a byte. Each endpoint is
// tried, and at least three tries are made, with a pause once every endpoint has failed.
//
// Every request throws Error: Unreachable if all tries failed, Missing if there is no such object, Damaged if the start
// of an empty object was asked for, Denied if the store refuses for any other reason, which the message says.
class ObjectClient {
public:
    // Throws Error if the environment lacks something.
    ObjectClient(std::string bucket, RequestObserver observer);

    struct Object {
        std::string key;
        std::string etag;
    };
    struct Page {
        std::vector<Object> objects;  // sorted by the bytes of their keys
        bool hasMore = false;
    };

    // The first objects whose key begins with `prefix` and comes after `after`, at most `maxKeys` (1 to 1000).
    Page list(const std::string& prefix, const std::string& after, int maxKeys);

    // The object's bytes: `header`, followed by those of `file`.
    struct Body {
        std::string header;
        std::filesystem::path file;
        std::uint64_t size = 0;  // of both together
        std::string sha256;      // of both together, in hexadecimal digits
    };

    // Stores an object, whole or not at all, replacing one of the same key.
    void put(const std::string& key, const Body& body);

    // What receives an object: `restart` is called before each try, `take` for each piece. What they throw ends the
    // request and comes out of it.
    struct Sink {
        std::function<void()> restart;
        std::function<void(std::string_view)> take;
    };

    // Reads an object: its first `maxBytes`, or all of it if that is 0.
    void get(const std::string& key, std::uint64_t maxBytes, const Sink& sink);

    // Removes an object. The store does not say whether there was one.
    void remove(const std::string& key);

    // Creates the bucket.
    void makeBucket();

private:
    struct Request;
    struct Response;

    std::string perform(const Request& request);
    void prepare(const Request& request, const std::string& endpoint);
    Response attempt(const Request& request, const std::string& endpoint);
    std::string failureOf(const Response& response) const;

    std::string m_bucket;
    RequestObserver m_observer;
    std::vector<std::string> m_endpoints;
    std::size_t m_current = 0;  // index of the endpoint that answered last
    std::string m_key;
    std::string m_secret;
    std::string m_region;
    std::string m_certificates;  // file of trusted authorities; empty: those of the machine
    long m_stallSeconds = 0;
    std::unique_ptr<void, void (*)(void*)> m_handle;  // of libcurl; keeps its connection from one request to the next
};

}  // namespace sim
