// Requests to an object store that speaks S3, signed, and repeated where that can help.
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

// The key, the secret, the region and the address come from the environment: AWS_ACCESS_KEY_ID, AWS_SECRET_ACCESS_KEY,
// AWS_REGION, AWS_ENDPOINT_URL (several, separated by commas, are tried in turn) and AWS_CA_BUNDLE.
//
// Every function throws Error: Unreachable where no endpoint has answered in any of several tries, Missing where there
// is no such object, Denied for any other refusal, with what the store has said in words.
class ObjectClient {
public:
    // Throws Error where the environment lacks something.
    ObjectClient(std::string bucket, TellRequest tell);
    ~ObjectClient();

    struct Object {
        std::string key;
        std::uint64_t size = 0;
        std::string tag;
    };
    struct Page {
        std::vector<Object> objects;  // in the order of their keys' bytes
        bool hasMore = false;
    };

    // The first objects whose key begins with `prefix` and comes after `after`, at most `maxKeys` (1 to 1000).
    Page list(const std::string& prefix, const std::string& after, int maxKeys);

    // The bytes are those of `head` and then of the file, with SHA-256 `digest`.
    struct Body {
        std::string head;
        std::filesystem::path file;
        std::uint64_t size = 0;
        std::string digest;
    };
    void put(const std::string& key, const Body& body);

    // Gives an object's bytes to `sink`, the first `most` of them or all (0). A try after one that was cut off begins
    // with `restart`.
    struct Sink {
        std::function<void()> restart;
        std::function<void(std::string_view)> take;
    };
    void get(const std::string& key, std::uint64_t most, const Sink& sink);

    void remove(const std::string& key);

    void makeBucket();

private:
    struct Request;
    struct Answer;
    struct Receiver;

    std::string perform(const Request& request);
    void prepare();
    Answer attempt(const Request& request, const std::string& endpoint);
    std::string refusal(const Answer& answer) const;

    struct Free {
        void operator()(void* handle) const;
    };
    std::string m_bucket;
    TellRequest m_tell;
    std::vector<std::string> m_endpoints;
    std::size_t m_current = 0;  // of the endpoints: the one that has answered last
    std::string m_key;
    std::string m_secret;
    std::string m_region;
    std::string m_authorities;
    long m_stall = 0;
    std::unique_ptr<void, Free> m_handle;
};

}  // namespace sim
