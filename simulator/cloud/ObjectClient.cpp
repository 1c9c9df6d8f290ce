#include "simulator/cloud/ObjectClient.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <optional>
#include <pugixml.hpp>
#include <thread>
#include <utility>

#include "simulator/base/Descriptor.h"
#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/base/Text.h"
#include "simulator/cloud/Curl.h"

namespace sim {

namespace {

constexpr long CONNECT_TIMEOUT_SECONDS = 5;
constexpr long STALL_SECONDS = 20;
constexpr std::size_t MIN_TRIES = 3;
constexpr std::chrono::milliseconds FIRST_PAUSE{250};  // doubled before each further try
constexpr std::size_t MAX_RESPONSE_BYTES = 8U << 20;   // of a response that is kept in memory

constexpr long STATUS_NOT_FOUND = 404;
constexpr long STATUS_REQUEST_TIMEOUT = 408;
constexpr long STATUS_RANGE_NOT_SATISFIABLE = 416;  // the object is empty: all ranges here begin with its first byte
constexpr long STATUS_SERVER_ERROR = 500;
constexpr long STATUS_NOT_IMPLEMENTED = 501;

// What stays as it is in a URL; the signature demands that everything else is encoded.
constexpr std::string_view PATH_CHARACTERS = "/ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.~";
constexpr std::string_view QUERY_CHARACTERS = PATH_CHARACTERS.substr(1);

std::string required(const char* name, const char* what) {
    std::string value = environment(name);
    if (value.empty()) {
        throw Error(fmt::format("{} is not set: {}", name, what));
    }
    return value;
}

std::vector<std::string> endpointsIn(const std::string& text) {
    std::vector<std::string> endpoints = split(text, ',');
    for (std::string& endpoint : endpoints) {
        endpoint.erase(0, endpoint.find_first_not_of(' '));
        endpoint.erase(endpoint.find_last_not_of(" /") + 1);
        const bool hasScheme = endpoint.compare(0, 7, "http://") == 0 || endpoint.compare(0, 8, "https://") == 0;
        // In front of an '@' is a user with a password, which messages about the address would show.
        if (!hasScheme || endpoint.find('@') != std::string::npos) {
            throw Error(
                fmt::format("AWS_ENDPOINT_URL: {} is not an address such as http://127.0.0.1:8000; separate several "
                            "with commas",
                            inQuotes(endpoint)));
        }
    }
    return endpoints;
}

std::string percentEncoded(std::string_view text, std::string_view plain) {
    std::string result;
    for (const char c : text) {
        result += plain.find(c) != std::string_view::npos ? std::string(1, c)
                                                          : fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
    return result;
}

// Stores encode a blank in a listing as %20 or as '+'.
std::string percentDecoded(std::string text) {
    std::replace(text.begin(), text.end(), '+', ' ');
    int size = 0;
    const std::unique_ptr<char, decltype(Curl::free)> decoded(
        curl().easy_unescape(nullptr, text.c_str(), static_cast<int>(text.size()), &size), curl().free);
    return {decoded.get(), static_cast<std::size_t>(size)};
}

// Hands libcurl the bytes of a body. If the file has changed since its digest was taken, the store refuses it.
class Upload {
public:
    explicit Upload(const ObjectClient::Body& body) : m_body(body), m_file(openFile(body.file, O_RDONLY)) {}

    void attachTo(CURL* handle) {
        curl().easy_setopt(handle, CURLOPT_UPLOAD, 1L);
        curl().easy_setopt(handle, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(m_body.size));
        curl().easy_setopt(handle, CURLOPT_READFUNCTION, &Upload::read);
        curl().easy_setopt(handle, CURLOPT_READDATA, this);
        curl().easy_setopt(handle, CURLOPT_SEEKFUNCTION, &Upload::seek);
        curl().easy_setopt(handle, CURLOPT_SEEKDATA, this);
    }

private:
    static std::size_t read(char* bytes, std::size_t size, std::size_t count, void* self) {
        auto* upload = static_cast<Upload*>(self);
        const std::size_t copied = upload->m_body.header.copy(bytes, size * count, upload->m_sent);
        upload->m_sent += copied;
        const ssize_t got = copied > 0 ? 0 : ::read(upload->m_file.get(), bytes, size * count);
        return got < 0 ? CURL_READFUNC_ABORT : copied + static_cast<std::size_t>(got);
    }

    // A connection that was kept may turn out to be closed: then libcurl opens another one and begins again.
    static int seek(void* self, curl_off_t offset, int /*origin*/) {
        auto* upload = static_cast<Upload*>(self);
        upload->m_sent = 0;
        return offset == 0 && ::lseek(upload->m_file.get(), 0, SEEK_SET) == 0 ? CURL_SEEKFUNC_OK : CURL_SEEKFUNC_FAIL;
    }

    const ObjectClient::Body& m_body;
    std::size_t m_sent = 0;  // of the header
    Descriptor m_file;
};

}  // namespace

struct ObjectClient::Request {
    const char* method;
    std::string summary;  // for the observer
    std::string key;      // empty: the bucket
    std::string query;    // sorted and encoded, as the signature demands
    const Body* body = nullptr;
    std::uint64_t maxBytes = 0;  // 0: all
    const Sink* sink = nullptr;
};

struct ObjectClient::Response {
    CURL* handle = nullptr;
    const Sink* sink = nullptr;
    CURLcode transfer = CURLE_OK;
    long status = 0;
    std::string text;           // what does not go to the sink
    std::string code;           // of a refusal, such as NoSuchKey
    std::string detail;         // of a failed transfer, in libcurl's words
    std::exception_ptr thrown;  // by the sink

    bool isSuccess() const { return transfer == CURLE_OK && status / 100 == 2; }

    // Whether another try may succeed. A digest that does not match tells of a damaged transfer.
    bool isTransient() const {
        return transfer != CURLE_OK || status == STATUS_REQUEST_TIMEOUT ||
               (status >= STATUS_SERVER_ERROR && status != STATUS_NOT_IMPLEMENTED) ||
               code == "XAmzContentSHA256Mismatch" || code == "BadDigest" || code == "RequestTimeout";
    }

    Error::Kind kind() const {
        if (status == STATUS_RANGE_NOT_SATISFIABLE) {
            return Error::Kind::Damaged;
        }
        return status == STATUS_NOT_FOUND && code != "NoSuchBucket" ? Error::Kind::Missing : Error::Kind::Denied;
    }

    // An exception must not pass through libcurl, which is C: it waits here for the end of the transfer.
    static std::size_t take(char* bytes, std::size_t size, std::size_t count, void* self) {
        auto* response = static_cast<Response*>(self);
        const std::string_view piece(bytes, size * count);
        curl().easy_getinfo(response->handle, CURLINFO_RESPONSE_CODE, &response->status);
        // The body of a refusal is XML, and no part of the object.
        if (response->sink == nullptr || response->status / 100 != 2) {
            if (response->text.size() + piece.size() > MAX_RESPONSE_BYTES) {
                return 0;
            }
            response->text += piece;
            return piece.size();
        }
        try {
            response->sink->take(piece);
            return piece.size();
        } catch (...) {
            response->thrown = std::current_exception();
            return 0;
        }
    }
};

ObjectClient::ObjectClient(std::string bucket, RequestObserver observer)
    : m_bucket(std::move(bucket)),
      m_observer(std::move(observer)),
      m_endpoints(endpointsIn(
          required("AWS_ENDPOINT_URL", "set it to the object store's address, such as http://127.0.0.1:8000"))),
      m_key(required("AWS_ACCESS_KEY_ID", "set it to the object store's access key")),
      m_secret(required("AWS_SECRET_ACCESS_KEY", "set it to the secret of the access key")),
      m_region(environment("AWS_REGION", "us-east-1")),
      m_certificates(environment("AWS_CA_BUNDLE")),
      m_stallSeconds(toNumber<long>(environment(STALL_VARIABLE)).value_or(STALL_SECONDS)),
      m_handle(nullptr, curl().easy_cleanup) {
    if (!m_certificates.empty() && ::access(m_certificates.c_str(), R_OK) != 0) {
        throw Error::ofSystem("AWS_CA_BUNDLE: " + m_certificates, "cannot read");
    }
    m_handle.reset(curl().easy_init());
}

// A reset handle keeps its connection. libcurl copies the texts that it is given.
void ObjectClient::prepare(const Request& request, const std::string& endpoint) {
    CURL* handle = m_handle.get();
    curl().easy_reset(handle);
    std::string url = endpoint + "/" + percentEncoded(m_bucket, PATH_CHARACTERS);
    url += request.key.empty() ? "" : "/" + percentEncoded(request.key, PATH_CHARACTERS);
    url += request.query.empty() ? "" : "?" + request.query;
    curl().easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl().easy_setopt(handle, CURLOPT_CUSTOMREQUEST, request.method);
    curl().easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    curl().easy_setopt(handle, CURLOPT_AWS_SIGV4, fmt::format("aws:amz:{}:s3", m_region).c_str());
    curl().easy_setopt(handle, CURLOPT_USERNAME, m_key.c_str());
    curl().easy_setopt(handle, CURLOPT_PASSWORD, m_secret.c_str());
    curl().easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);  // timeouts without SIGALRM, which threads would share
    curl().easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, CONNECT_TIMEOUT_SECONDS);
    // No limit on the whole transfer: a large bundle on a slow line takes its time, as long as it moves at all.
    curl().easy_setopt(handle, CURLOPT_LOW_SPEED_LIMIT, 1L);  // bytes a second
    curl().easy_setopt(handle, CURLOPT_LOW_SPEED_TIME, m_stallSeconds);
    if (!m_certificates.empty()) {
        curl().easy_setopt(handle, CURLOPT_CAINFO, m_certificates.c_str());
    }
    if (request.maxBytes > 0) {
        curl().easy_setopt(handle, CURLOPT_RANGE, fmt::format("0-{}", request.maxBytes - 1).c_str());
    }
}

ObjectClient::Response ObjectClient::attempt(const Request& request, const std::string& endpoint) {
    prepare(request, endpoint);
    CURL* handle = m_handle.get();
    const std::string digest =
        fmt::format("x-amz-content-sha256: {}", request.body != nullptr ? request.body->sha256 : "UNSIGNED-PAYLOAD");
    const std::unique_ptr<curl_slist, decltype(Curl::slist_free_all)> headers(
        curl().slist_append(nullptr, digest.c_str()), curl().slist_free_all);
    curl().easy_setopt(handle, CURLOPT_HTTPHEADER, headers.get());
    std::optional<Upload> upload;
    if (request.body != nullptr) {
        upload.emplace(*request.body).attachTo(handle);
    }
    if (request.sink != nullptr) {
        request.sink->restart();
    }
    Response response;
    response.handle = handle;
    response.sink = request.sink;
    curl().easy_setopt(handle, CURLOPT_WRITEFUNCTION, &Response::take);
    curl().easy_setopt(handle, CURLOPT_WRITEDATA, &response);
    std::array<char, CURL_ERROR_SIZE> detail = {};
    curl().easy_setopt(handle, CURLOPT_ERRORBUFFER, detail.data());
    response.transfer = curl().easy_perform(handle);
    // The handle stays, and the buffer goes.
    curl().easy_setopt(handle, CURLOPT_ERRORBUFFER, nullptr);
    curl().easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &response.status);
    if (response.thrown) {
        std::rethrow_exception(response.thrown);
    }
    response.detail = detail.data();
    if (!response.isSuccess()) {
        pugi::xml_document document;
        document.load_buffer(response.text.data(), response.text.size());
        response.code = document.child("Error").child("Code").text().get();
    }
    return response;
}

// What went wrong, in words that tell what to do.
std::string ObjectClient::failureOf(const Response& response) const {
    if (response.transfer == CURLE_OPERATION_TIMEDOUT) {
        return "it did not answer in time";
    }
    if (response.transfer == CURLE_PEER_FAILED_VERIFICATION) {
        return fmt::format(
            "its certificate is not trusted: {}; trusted are the authorities {}", response.detail,
            m_certificates.empty() ? "of this machine (AWS_CA_BUNDLE can name others)" : "in " + m_certificates);
    }
    if (response.transfer != CURLE_OK) {
        return curl().easy_strerror(response.transfer);
    }
    const std::pair<const char*, std::string> meanings[] = {
        {"SignatureDoesNotMatch", "AWS_SECRET_ACCESS_KEY is not the secret of the access key in AWS_ACCESS_KEY_ID"},
        {"InvalidAccessKeyId", "it does not know the access key in AWS_ACCESS_KEY_ID"},
        {"RequestTimeTooSkewed", "the clocks of this machine and of the store differ too much; set this machine's"},
        {"NoSuchBucket", fmt::format("there is no bucket {}; make it with: halcyon-tv --cloud s3://{} cloud create",
                                     m_bucket, m_bucket)},
        {"InvalidRange", "the object is empty"},
        {"NoSuchKey", "there is no such object"},
        {"AccessDenied", "the access key in AWS_ACCESS_KEY_ID has no permission for this"},
        {"XAmzContentSHA256Mismatch", "what arrived is not what was sent"},
        {"BadDigest", "what arrived is not what was sent"},
        {"QuotaExceeded", "the quota is used up; remove backups with: halcyon-tv cloud remove"},
        {"BucketAlreadyExists", fmt::format("the bucket {} belongs to somebody else; choose another name", m_bucket)},
        {"InvalidBucketName",
         fmt::format("the store does not accept {} as the name of a bucket; choose another one", m_bucket)}};
    for (const auto& [code, meaning] : meanings) {
        if (response.code == code) {
            return fmt::format("{} ({})", meaning, code);
        }
    }
    return response.code.empty() ? fmt::format("status {}", response.status)
                                 : fmt::format("{} (status {})", inQuotes(response.code), response.status);
}

std::string ObjectClient::perform(const Request& request) {
    const std::size_t tries = std::max(MIN_TRIES, m_endpoints.size());
    std::string outcome;
    for (std::size_t i = 0; i < tries; ++i) {
        if (i >= m_endpoints.size()) {  // every endpoint has failed: give them time
            std::this_thread::sleep_for(FIRST_PAUSE * (1U << (i - m_endpoints.size())));
        }
        // The one that answered last: an endpoint that is down costs its time once, and not at each request.
        const std::string& endpoint = m_endpoints[m_current];
        Response response = attempt(request, endpoint);
        outcome = response.isSuccess() ? std::to_string(response.status)
                                       : fmt::format("{}: {}", endpoint, failureOf(response));
        if (m_observer) {
            m_observer(request.summary + (i == 0 ? "" : fmt::format(", try {}", i + 1)), outcome);
        }
        if (response.isSuccess()) {
            return std::move(response.text);
        }
        if (!response.isTransient()) {
            throw Error(response.kind(), outcome);
        }
        m_current = (m_current + 1) % m_endpoints.size();
    }
    throw Error(Error::Kind::Unreachable, fmt::format("{} ({} tries)", outcome, tries));
}

// Keys are asked for in URL encoding: XML cannot hold all of their characters.
ObjectClient::Page ObjectClient::list(const std::string& prefix, const std::string& after, int maxKeys) {
    const std::string summary = fmt::format("LIST {}*{}", prefix, after.empty() ? "" : " after " + after);
    const std::string query =
        fmt::format("encoding-type=url&list-type=2&max-keys={}&prefix={}&start-after={}", maxKeys,
                    percentEncoded(prefix, QUERY_CHARACTERS), percentEncoded(after, QUERY_CHARACTERS));
    const std::string text = perform({"GET", summary, "", query});
    pugi::xml_document document;
    const pugi::xml_node result =
        document.load_buffer(text.data(), text.size()) ? document.child("ListBucketResult") : pugi::xml_node();
    if (!result) {
        throw Error(Error::Kind::Denied,
                    fmt::format("{}: the response is not a list of objects; check that AWS_ENDPOINT_URL names an "
                                "object store",
                                m_endpoints[m_current]));
    }
    Page page;
    page.hasMore = result.child("IsTruncated").text().as_bool();
    for (const pugi::xml_node& each : result.children("Contents")) {
        page.objects.push_back({percentDecoded(each.child("Key").text().get()), each.child("ETag").text().get()});
    }
    return page;
}

void ObjectClient::put(const std::string& key, const Body& body) {
    perform({"PUT", "PUT " + key, key, "", &body});
}

void ObjectClient::get(const std::string& key, std::uint64_t maxBytes, const Sink& sink) {
    const std::string summary = fmt::format("GET {}{}", maxBytes > 0 ? "the header of " : "", key);
    perform({"GET", summary, key, "", nullptr, maxBytes, &sink});
}

void ObjectClient::remove(const std::string& key) {
    perform({"DELETE", "DELETE " + key, key, ""});
}

void ObjectClient::makeBucket() {
    perform({"PUT", "PUT the bucket " + m_bucket, "", ""});
}

}  // namespace sim
