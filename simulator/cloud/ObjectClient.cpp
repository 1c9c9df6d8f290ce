#include "simulator/cloud/ObjectClient.h"

#include <curl/curl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <optional>
#include <pugixml.hpp>
#include <thread>
#include <utility>

#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/base/Text.h"

namespace sim {

namespace {

constexpr long CONNECT_SECONDS = 5;
constexpr long STALL_SECONDS = 20;
constexpr std::size_t TRIES = 3;  // at least; each endpoint gets one
constexpr std::chrono::milliseconds FIRST_PAUSE{250};
constexpr std::size_t MOST_BYTES_OF_AN_ANSWER = 8U << 20;

constexpr long NO_SUCH_THING = 404;
constexpr long EMPTY = 416;  // there is no first byte to begin a range with
constexpr long REQUEST_TIMEOUT = 408;
constexpr long FIRST_SERVER_ERROR = 500;
constexpr long NOT_IMPLEMENTED = 501;

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
        if (!hasScheme || endpoint.find('@') != std::string::npos) {
            throw Error(
                fmt::format("AWS_ENDPOINT_URL: {} is no address such as http://127.0.0.1:8000; several are "
                            "separated by commas",
                            inQuotes(endpoint)));
        }
    }
    return endpoints;
}

// As the signature wants it.
std::string escaped(std::string_view text, bool isPath) {
    constexpr std::string_view PLAIN = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.~";
    std::string result;
    for (const char c : text) {
        if (PLAIN.find(c) != std::string_view::npos || (isPath && c == '/')) {
            result += c;
        } else {
            result += fmt::format("%{:02X}", static_cast<unsigned char>(c));
        }
    }
    return result;
}

std::string unescaped(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto code = text[i] == '%' ? toNumber<unsigned>(std::string_view(text).substr(i + 1, 2), 16)
                                         : std::optional<unsigned>();
        result += code ? static_cast<char>(*code) : (text[i] == '+' ? ' ' : text[i]);
        i += code ? 2U : 0U;
    }
    return result;
}

// What is read is what was there when its digest was taken: a file that has changed is cut or refused by the store.
class Upload {
public:
    explicit Upload(const ObjectClient::Body& body)
        : m_body(body), m_file(std::fopen(body.file.c_str(), "rb"), &std::fclose) {
        if (!m_file) {
            throw Error(kindOfErrno(errno),
                        fmt::format("{}: cannot read: {}", body.file.string(), std::strerror(errno)));
        }
    }

    std::size_t read(char* bytes, std::size_t size) {
        const std::size_t count = m_body.head.copy(bytes, size, m_taken);
        m_taken += count;
        return count > 0 ? count : std::fread(bytes, 1, size, m_file.get());
    }

    void rewind() {
        m_taken = 0;
        std::rewind(m_file.get());
    }

private:
    const ObjectClient::Body& m_body;
    std::size_t m_taken = 0;  // of the head
    std::unique_ptr<std::FILE, decltype(&std::fclose)> m_file;
};

std::size_t readUpload(char* bytes, std::size_t size, std::size_t count, void* upload) {
    return static_cast<Upload*>(upload)->read(bytes, size * count);
}

int rewindUpload(void* upload, curl_off_t offset, int /*origin*/) {
    if (offset != 0) {
        return CURL_SEEKFUNC_FAIL;
    }
    static_cast<Upload*>(upload)->rewind();
    return CURL_SEEKFUNC_OK;
}

void global() {
    static const CURLcode done = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (done != CURLE_OK) {
        throw Error(fmt::format("libcurl: {}", curl_easy_strerror(done)));
    }
}

}  // namespace

struct ObjectClient::Request {
    const char* method;
    std::string about;  // as a person reads it
    std::string key;    // empty: the bucket
    std::string query;  // sorted and escaped
    const Body* body = nullptr;
    std::uint64_t most = 0;
    const Sink* sink = nullptr;
};

struct ObjectClient::Answer {
    CURLcode transfer = CURLE_OK;
    long status = 0;
    std::string text;          // of what goes to no sink
    std::string code;          // of a refusal
    std::string detail;        // of a failed transfer, in the library's words
    std::exception_ptr error;  // that the sink has thrown

    Error::Kind kind() const {
        if (status == EMPTY) {
            return Error::Kind::Damaged;
        }
        return status == NO_SUCH_THING && code != "NoSuchBucket" ? Error::Kind::Missing : Error::Kind::Denied;
    }
    bool isWell() const { return transfer == CURLE_OK && status / 100 == 2; }
    // Whether another try may help.
    bool isPassing() const {
        return transfer != CURLE_OK || status == REQUEST_TIMEOUT ||
               (status >= FIRST_SERVER_ERROR && status != NOT_IMPLEMENTED) || code == "XAmzContentSHA256Mismatch" ||
               code == "BadDigest" || code == "RequestTimeout";
    }
};

void ObjectClient::Free::operator()(void* handle) const {
    curl_easy_cleanup(handle);
}

ObjectClient::ObjectClient(std::string bucket, TellRequest tell)
    : m_bucket(std::move(bucket)),
      m_tell(std::move(tell)),
      m_endpoints(endpointsIn(
          required("AWS_ENDPOINT_URL", "give the object store's address there, such as http://127.0.0.1:8000"))),
      m_key(required("AWS_ACCESS_KEY_ID", "give the object store's access key there")),
      m_secret(required("AWS_SECRET_ACCESS_KEY", "give the secret of the access key there")),
      m_region(environment("AWS_REGION")),
      m_authorities(environment("AWS_CA_BUNDLE")),
      m_stall(toNumber<long>(environment(STALL_VARIABLE)).value_or(STALL_SECONDS)) {
    if (m_region.empty()) {
        m_region = "us-east-1";
    }
    if (!m_authorities.empty() && ::access(m_authorities.c_str(), R_OK) != 0) {
        throw Error(fmt::format("AWS_CA_BUNDLE: {}: cannot read: {}", m_authorities, std::strerror(errno)));
    }
    global();
    m_handle.reset(curl_easy_init());
}

ObjectClient::~ObjectClient() = default;

// What comes: the body of a success for the sink, or a text.
struct ObjectClient::Receiver {
    CURL* handle;
    const Sink* sink;
    Answer& answer;

    std::size_t take(std::string_view bytes) {
        long status = 0;
        curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
        try {
            if (sink != nullptr && status / 100 == 2) {
                sink->take(bytes);
                return bytes.size();
            }
        } catch (...) {  // not through the library
            answer.error = std::current_exception();
            return 0;
        }
        if (answer.text.size() + bytes.size() > MOST_BYTES_OF_AN_ANSWER) {
            return 0;
        }
        answer.text += bytes;
        return bytes.size();
    }

    static std::size_t receive(char* bytes, std::size_t size, std::size_t count, void* receiver) {
        return static_cast<Receiver*>(receiver)->take({bytes, size * count});
    }
};

// The connection of the last request stays.
void ObjectClient::prepare() {
    CURL* handle = m_handle.get();
    curl_easy_reset(handle);
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(handle, CURLOPT_AWS_SIGV4, fmt::format("aws:amz:{}:s3", m_region).c_str());
    curl_easy_setopt(handle, CURLOPT_USERNAME, m_key.c_str());
    curl_easy_setopt(handle, CURLOPT_PASSWORD, m_secret.c_str());
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, CONNECT_SECONDS);
    curl_easy_setopt(handle, CURLOPT_LOW_SPEED_LIMIT, 1L);  // bytes a second
    curl_easy_setopt(handle, CURLOPT_LOW_SPEED_TIME, m_stall);
    if (!m_authorities.empty()) {
        curl_easy_setopt(handle, CURLOPT_CAINFO, m_authorities.c_str());
    }
}

ObjectClient::Answer ObjectClient::attempt(const Request& request, const std::string& endpoint) {
    prepare();
    CURL* handle = m_handle.get();
    const std::string path = escaped(m_bucket + (request.key.empty() ? "" : "/" + request.key), true);
    const std::string url = endpoint + "/" + path + (request.query.empty() ? "" : "?" + request.query);
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, request.method);
    const std::string digest =
        fmt::format("x-amz-content-sha256: {}", request.body != nullptr ? request.body->digest : "UNSIGNED-PAYLOAD");
    const std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headers(
        curl_slist_append(nullptr, digest.c_str()), &curl_slist_free_all);
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers.get());
    if (request.most > 0) {
        curl_easy_setopt(handle, CURLOPT_RANGE, fmt::format("0-{}", request.most - 1).c_str());
    }
    std::optional<Upload> upload;
    if (request.body != nullptr) {
        upload.emplace(*request.body);
        curl_easy_setopt(handle, CURLOPT_UPLOAD, 1L);
        curl_easy_setopt(handle, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(request.body->size));
        curl_easy_setopt(handle, CURLOPT_READFUNCTION, &readUpload);
        curl_easy_setopt(handle, CURLOPT_READDATA, &*upload);
        curl_easy_setopt(handle, CURLOPT_SEEKFUNCTION, &rewindUpload);
        curl_easy_setopt(handle, CURLOPT_SEEKDATA, &*upload);
    }
    if (request.sink != nullptr) {
        request.sink->restart();
    }
    Answer answer;
    Receiver receiver{handle, request.sink, answer};
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &Receiver::receive);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &receiver);
    std::array<char, CURL_ERROR_SIZE> detail = {};
    curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, detail.data());
    answer.transfer = curl_easy_perform(handle);
    answer.detail = detail.data();
    curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, nullptr);
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &answer.status);
    if (answer.error) {
        std::rethrow_exception(answer.error);
    }
    if (!answer.isWell()) {
        pugi::xml_document document;
        document.load_buffer(answer.text.data(), answer.text.size());
        answer.code = document.child("Error").child("Code").text().get();
    }
    return answer;
}

std::string ObjectClient::refusal(const Answer& answer) const {
    if (answer.transfer == CURLE_OPERATION_TIMEDOUT) {
        return "it did not answer in time";
    }
    if (answer.transfer == CURLE_PEER_FAILED_VERIFICATION) {
        return fmt::format("its certificate is not trusted: {}; authorities: {}", answer.detail,
                           m_authorities.empty() ? "the machine's; AWS_CA_BUNDLE can name others" : m_authorities);
    }
    if (answer.transfer != CURLE_OK) {
        return curl_easy_strerror(answer.transfer);
    }
    const std::pair<const char*, std::string> words[] = {
        {"SignatureDoesNotMatch", "the signature is wrong: AWS_SECRET_ACCESS_KEY is not the key's secret"},
        {"InvalidAccessKeyId", "it does not know the key that AWS_ACCESS_KEY_ID names"},
        {"RequestTimeTooSkewed", "the clocks of this machine and of the store differ too much; set this one"},
        {"NoSuchBucket", fmt::format("there is no bucket {}; make it with: halcyon-tv --cloud s3://{} cloud create",
                                     m_bucket, m_bucket)},
        {"InvalidRange", "what is there is empty"},
        {"NoSuchKey", "there is no such object"},
        {"AccessDenied", "the key that AWS_ACCESS_KEY_ID names may not do this"},
        {"XAmzContentSHA256Mismatch", "what arrived is not what was sent"},
        {"BadDigest", "what arrived is not what was sent"},
        {"QuotaExceeded", "the account has no room left"},
        {"BucketAlreadyExists", fmt::format("the bucket {} is somebody else's; take another name", m_bucket)},
        {"InvalidBucketName", fmt::format("{} is no name for a bucket there", m_bucket)}};
    for (const auto& [code, meaning] : words) {
        if (answer.code == code) {
            return fmt::format("{} ({})", meaning, code);
        }
    }
    return answer.code.empty() ? fmt::format("status {}", answer.status)
                               : fmt::format("{} (status {})", inQuotes(answer.code), answer.status);
}

std::string ObjectClient::perform(const Request& request) {
    const std::size_t tries = std::max(TRIES, m_endpoints.size());
    std::string last;
    for (std::size_t i = 0; i < tries; ++i) {
        if (i >= m_endpoints.size()) {  // all have been asked: give them time
            std::this_thread::sleep_for(FIRST_PAUSE * (1U << (i - m_endpoints.size())));
        }
        const std::string& endpoint = m_endpoints[m_current];
        Answer answer = attempt(request, endpoint);
        const std::string number = i == 0 ? "" : fmt::format(", try {}", i + 1);
        if (answer.isWell()) {
            if (m_tell) {
                m_tell(request.about + number, fmt::format("{}", answer.status));
            }
            return std::move(answer.text);
        }
        last = fmt::format("{}: {}", endpoint, refusal(answer));
        if (m_tell) {
            m_tell(request.about + number, last);
        }
        if (!answer.isPassing()) {
            throw Error(answer.kind(), last);
        }
        m_current = (m_current + 1) % m_endpoints.size();
    }
    throw Error(Error::Kind::Unreachable, fmt::format("{} ({} tries)", last, tries));
}

ObjectClient::Page ObjectClient::list(const std::string& prefix, const std::string& after, int maxKeys) {
    Request request{
        "GET", fmt::format("LIST {}* after {}", prefix, after.substr(std::min(prefix.size(), after.size()))), "", ""};
    request.query = fmt::format("encoding-type=url&list-type=2&max-keys={}&prefix={}&start-after={}", maxKeys,
                                escaped(prefix, false), escaped(after, false));
    const std::string text = perform(request);
    pugi::xml_document document;
    const pugi::xml_node result =
        document.load_buffer(text.data(), text.size()) ? document.child("ListBucketResult") : pugi::xml_node();
    if (!result) {
        throw Error(Error::Kind::Denied, fmt::format("{}: its answer is no list of objects; is it an object store?",
                                                     m_endpoints[m_current]));
    }
    Page page;
    page.hasMore = result.child("IsTruncated").text().as_bool();
    for (const pugi::xml_node& each : result.children("Contents")) {
        page.objects.push_back({unescaped(each.child("Key").text().get()), each.child("Size").text().as_ullong(),
                                each.child("ETag").text().get()});
    }
    return page;
}

void ObjectClient::put(const std::string& key, const Body& body) {
    Request request{"PUT", "PUT " + key, key, ""};
    request.body = &body;
    perform(request);
}

void ObjectClient::get(const std::string& key, std::uint64_t most, const Sink& sink) {
    Request request{"GET", (most > 0 ? "GET the head of " : "GET ") + key, key, ""};
    request.most = most;
    request.sink = &sink;
    perform(request);
}

void ObjectClient::remove(const std::string& key) {
    perform({"DELETE", "DELETE " + key, key, ""});
}

void ObjectClient::makeBucket() {
    perform({"PUT", "PUT the bucket " + m_bucket, "", ""});
}

}  // namespace sim
