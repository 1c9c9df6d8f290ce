#include "simulator/cloud/ObjectClient.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <ctime>
#include <exception>
#include <pugixml.hpp>
#include <random>
#include <thread>
#include <utility>

#include "simulator/base/Descriptor.h"
#include "simulator/base/Digest.h"
#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/base/Text.h"
#include "simulator/cloud/Curl.h"
#include "simulator/cloud/Refusal.h"

namespace sim {

namespace {

constexpr long CONNECT_TIMEOUT_SECONDS = 5;
constexpr long LEAST_BYTES_A_SECOND = 10;
// A store that waits with its "100 Continue" would cost as long at each PUT; the body goes out without it then.
constexpr long CONTINUE_TIMEOUT_MS = 100;
constexpr std::size_t MIN_TRIES = 3;
constexpr std::chrono::seconds MAX_RETRY_AFTER{30};
constexpr std::size_t MAX_RESPONSE_BYTES = 8U << 20;  // of a response that is kept in memory
// Far more than the accounts of a test lab store; a listing without end comes to one of them.
constexpr std::size_t MAX_PAGES = 2'000;
constexpr std::size_t MAX_KEYS = 1'000'000;

constexpr char DEFAULT_REGION[] = "us-east-1";

constexpr long STATUS_PARTIAL = 206;
constexpr long STATUS_REQUEST_TIMEOUT = 408;
constexpr long STATUS_RANGE_NOT_SATISFIABLE = 416;  // the object is empty: all ranges here begin with its first byte
constexpr long STATUS_TOO_MANY_REQUESTS = 429;
constexpr long STATUS_SERVER_ERROR = 500;
constexpr long STATUS_NOT_IMPLEMENTED = 501;

// What stays as it is in a URL; the signature demands that everything else is encoded.
constexpr std::string_view PATH_CHARACTERS = "/ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.~";
constexpr std::string_view QUERY_CHARACTERS = PATH_CHARACTERS.substr(1);

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
    explicit Upload(const ObjectClient::Body& body) : m_body(body) {
        if (!body.file.empty()) {
            m_file = openFile(body.file, O_RDONLY);
        }
    }

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
        const ssize_t got =
            copied > 0 || !upload->m_file.isOpen() ? 0 : ::read(upload->m_file.get(), bytes, size * count);
        return got < 0 ? CURL_READFUNC_ABORT : copied + static_cast<std::size_t>(got);
    }

    // A connection that was kept may turn out to be closed: then libcurl opens another one and begins again.
    static int seek(void* self, curl_off_t offset, int /*origin*/) {
        auto* upload = static_cast<Upload*>(self);
        upload->m_sent = 0;
        const bool isAtStart = !upload->m_file.isOpen() || ::lseek(upload->m_file.get(), 0, SEEK_SET) == 0;
        return offset == 0 && isAtStart ? CURL_SEEKFUNC_OK : CURL_SEEKFUNC_FAIL;
    }

    const ObjectClient::Body& m_body;
    std::size_t m_sent = 0;  // of the header
    Descriptor m_file;
};

// Tries again, of the whole process. While a store is overloaded, they must not multiply what it has to refuse.
class TriesAgain {
public:
    // One more request earns a fifth of a try again.
    void earn() {
        if (m_fifths < MOST * FIFTHS) {
            ++m_fifths;
        }
    }

    bool take() {
        int fifths = m_fifths;
        while (fifths >= FIFTHS) {
            if (m_fifths.compare_exchange_weak(fifths, fifths - FIFTHS)) {
                return true;
            }
        }
        return false;
    }

private:
    static constexpr int FIFTHS = 5;
    static constexpr int MOST = 10;
    std::atomic<int> m_fifths{MOST * FIFTHS};
};

TriesAgain& triesAgain() {
    static TriesAgain tries;
    return tries;
}

// libcurl goes by way of a proxy that the environment names, whose failures look like those of the store.
std::string proxyBehind(const std::string& detail, const std::string& endpoint) {
    const std::size_t host = endpoint.find("://") + 3;
    if (detail.find(endpoint.substr(host, endpoint.find_first_of(":/", host) - host)) != std::string::npos) {
        return "";
    }
    const bool isEncrypted = endpoint.compare(0, host, "https://") == 0;
    for (const char* name : {isEncrypted ? "https_proxy" : "http_proxy", isEncrypted ? "HTTPS_PROXY" : "http_proxy",
                             "all_proxy", "ALL_PROXY"}) {
        if (!environment(name).empty()) {
            return fmt::format(", by way of the proxy that {} names", name);
        }
    }
    return "";
}

// Of a header: Sun, 06 Nov 1994 08:49:37 GMT
std::optional<std::time_t> timeOf(const std::string& text) {
    std::tm parts = {};
    return ::strptime(text.c_str(), "%a, %d %b %Y %H:%M:%S GMT", &parts) != nullptr ? std::optional(::timegm(&parts))
                                                                                    : std::nullopt;
}

std::chrono::milliseconds randomUpTo(std::chrono::milliseconds most) {
    std::random_device random;
    return std::chrono::milliseconds(
        std::uniform_int_distribution<std::chrono::milliseconds::rep>(0, most.count())(random));
}

// Returns what keeps the keys of a page from being those that follow `after`; empty if nothing does.
std::string takeKeys(const pugi::xml_node& page, const std::string& prefix, const std::string& after,
                     std::vector<ObjectClient::Object>& objects) {
    std::string last = after;
    for (const pugi::xml_node& each : page.children("Contents")) {
        const std::string key = percentDecoded(each.child("Key").text().get());
        if (key.compare(0, prefix.size(), prefix) != 0) {
            return fmt::format("its list has the key '{}', which was not asked for", shown(key));
        }
        if (key <= last) {
            return fmt::format("its list does not move on: the key '{}' comes after '{}'", shown(key), shown(last));
        }
        objects.push_back({key, each.child("ETag").text().get()});
        last = key;
    }
    return "";
}

}  // namespace

struct ObjectClient::Request {
    const char* method;
    std::string summary;  // for the observer
    std::string key;      // empty: the bucket
    std::string query;    // sorted and encoded, as the signature demands
    const Body* body = nullptr;
    std::uint64_t maxBytes = 0;  // 0: all
    const Sink* sink = nullptr;
    // Of a response of success: why it is none all the same; empty if it is one.
    std::function<std::string(const Response&)> flawOf = nullptr;
    const char* wellCode = nullptr;  // of a refusal that is as good as success
    const char* header = nullptr;    // one more
};

struct ObjectClient::Response {
    CURL* handle = nullptr;
    const Request* request = nullptr;
    CURLcode transfer = CURLE_OK;
    long status = 0;
    bool hasEtag = false;
    std::optional<std::time_t> date;
    std::optional<std::uint64_t> objectSize;
    std::uint64_t taken = 0;         // bytes that went to the sink
    std::string text;                // what does not go there
    std::optional<Refusal> refusal;  // if the status is one
    std::string detail;              // of a failed transfer, in libcurl's words
    std::string flaw;                // what is wrong with a response of success
    std::chrono::seconds retryAfter{0};
    std::exception_ptr thrown;  // by the sink

    bool has(const char* code) const { return refusal && code != nullptr && refusal->code == code; }

    bool isSuccess() const {
        return transfer == CURLE_OK && (status / 100 == 2 || has(request->wellCode)) && flaw.empty();
    }

    // Whether another try may succeed. A digest that does not match tells of a damaged transfer.
    bool isTransient() const {
        return flaw.empty() &&
               (transfer != CURLE_OK || status == STATUS_REQUEST_TIMEOUT || status == STATUS_TOO_MANY_REQUESTS ||
                (status >= STATUS_SERVER_ERROR && status != STATUS_NOT_IMPLEMENTED) ||
                has("XAmzContentSHA256Mismatch") || has("BadDigest") || has("RequestTimeout"));
    }

    // Whether a request to the same address would cost its time again.
    bool isDown() const {
        return transfer == CURLE_COULDNT_CONNECT || transfer == CURLE_COULDNT_RESOLVE_HOST ||
               transfer == CURLE_OPERATION_TIMEDOUT;
    }

    Error::Kind kind() const {
        if (status == STATUS_RANGE_NOT_SATISFIABLE) {
            return Error::Kind::Damaged;
        }
        return has("NoSuchKey") ? Error::Kind::Missing : Error::Kind::Denied;
    }

    static std::size_t takeHeader(char* bytes, std::size_t size, std::size_t count, void* self) {
        auto* response = static_cast<Response*>(self);
        const std::string_view line(bytes, size * count);
        const std::size_t colon = line.find(':');
        std::string name(line.substr(0, colon));
        std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
        if (name == "etag") {
            response->hasEtag = true;
        } else if (name == "date") {
            response->date =
                timeOf(std::string(line.substr(std::min(line.find_first_not_of(" :", colon), line.size()))));
        } else if (name == "content-range") {  // bytes 0-99/1000
            const std::size_t begin = line.find('/') + 1;
            response->objectSize =
                toNumber<std::uint64_t>(line.substr(begin, line.find_last_not_of("\r\n") + 1 - begin));
        }
        return size * count;
    }

    // An exception must not pass through libcurl, which is C: it waits here for the end of the transfer.
    static std::size_t take(char* bytes, std::size_t size, std::size_t count, void* self) {
        auto* response = static_cast<Response*>(self);
        const std::string_view piece(bytes, size * count);
        curl().easy_getinfo(response->handle, CURLINFO_RESPONSE_CODE, &response->status);
        // The body of a refusal is XML, and no part of the object.
        if (response->request->sink == nullptr || response->status / 100 != 2) {
            return response->keep(piece) ? piece.size() : 0;
        }
        try {
            return response->pass(piece) ? piece.size() : 0;
        } catch (...) {
            response->thrown = std::current_exception();
            return 0;
        }
    }

    // These return false if the transfer shall end.

    bool keep(std::string_view piece) {
        if (text.size() + piece.size() > MAX_RESPONSE_BYTES) {
            flaw = fmt::format("its response has more than {} bytes", MAX_RESPONSE_BYTES);
            return false;
        }
        text += piece;
        return true;
    }

    bool pass(std::string_view piece) {
        if (taken == 0) {
            request->sink->begin(sizeOfObject());
        }
        request->sink->take(piece);
        taken += piece.size();
        return !isEnough();
    }

    // Some stores send the whole object if a part is asked for, and others more than that part. One that sends just the
    // part keeps its connection.
    bool isEnough() const {
        return request->maxBytes > 0 && taken >= request->maxBytes + (status == STATUS_PARTIAL ? 1 : 0);
    }

    // Without it, a body without an end could not be told from one that is long.
    std::uint64_t sizeOfObject() const {
        curl_off_t length = -1;
        curl().easy_getinfo(handle, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
        if (status != STATUS_PARTIAL && length >= 0) {
            return static_cast<std::uint64_t>(length);
        }
        if (status != STATUS_PARTIAL || !objectSize) {
            throw Error(Error::Kind::Denied, "the store does not say how long the object is");
        }
        return *objectSize;
    }
};

ObjectClient::ObjectClient(std::string bucket, RequestObserver observer, std::filesystem::path notes)
    : ObjectClient(std::move(bucket), std::move(observer), readObjectSettings(), std::move(notes)) {}

ObjectClient::ObjectClient(std::string bucket, RequestObserver observer, ObjectSettings settings,
                           std::filesystem::path notes)
    : m_bucket(std::move(bucket)),
      m_observer(std::move(observer)),
      m_settings(std::move(settings)),
      m_endpoints(m_settings.endpoints, std::move(notes)),
      m_handle(curl().easy_init(), curl().easy_cleanup) {}

// A reset handle keeps its connection. libcurl copies the texts that it is given.
void ObjectClient::prepare(const Request& request, const std::string& endpoint, std::chrono::milliseconds limit) {
    CURL* handle = m_handle.get();
    curl().easy_reset(handle);
    std::string url = endpoint + "/" + percentEncoded(m_bucket, PATH_CHARACTERS);
    url += request.key.empty() ? "" : "/" + percentEncoded(request.key, PATH_CHARACTERS);
    url += request.query.empty() ? "" : "?" + request.query;
    curl().easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl().easy_setopt(handle, CURLOPT_PATH_AS_IS, 1L);  // else a key with ".." would lead to another bucket
    curl().easy_setopt(handle, CURLOPT_CUSTOMREQUEST, request.method);
    curl().easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    const std::string region = m_settings.region.empty() ? DEFAULT_REGION : m_settings.region;
    curl().easy_setopt(handle, CURLOPT_AWS_SIGV4, fmt::format("aws:amz:{}:s3", region).c_str());
    curl().easy_setopt(handle, CURLOPT_USERNAME, m_settings.key.c_str());
    curl().easy_setopt(handle, CURLOPT_PASSWORD, m_settings.secret.c_str());
    curl().easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);  // timeouts without SIGALRM, which threads would share
    curl().easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, CONNECT_TIMEOUT_SECONDS);
    curl().easy_setopt(handle, CURLOPT_EXPECT_100_TIMEOUT_MS, CONTINUE_TIMEOUT_MS);
    curl().easy_setopt(handle, CURLOPT_LOW_SPEED_LIMIT, LEAST_BYTES_A_SECOND);
    curl().easy_setopt(handle, CURLOPT_LOW_SPEED_TIME, static_cast<long>(m_settings.stall.count()));
    curl().easy_setopt(handle, CURLOPT_TIMEOUT_MS, static_cast<long>(limit.count()));
    if (!m_settings.certificates.empty()) {
        curl().easy_setopt(handle, CURLOPT_CAINFO, m_settings.certificates.c_str());
    }
    if (request.maxBytes > 0) {
        curl().easy_setopt(handle, CURLOPT_RANGE, fmt::format("0-{}", request.maxBytes - 1).c_str());
    }
}

ObjectClient::Response ObjectClient::attempt(const Request& request, const std::string& endpoint,
                                             std::chrono::milliseconds limit) {
    prepare(request, endpoint, limit);
    CURL* handle = m_handle.get();
    const std::string digest =
        fmt::format("x-amz-content-sha256: {}", request.body != nullptr ? request.body->sha256 : "UNSIGNED-PAYLOAD");
    std::unique_ptr<curl_slist, decltype(Curl::slist_free_all)> headers(curl().slist_append(nullptr, digest.c_str()),
                                                                        curl().slist_free_all);
    if (!m_settings.token.empty()) {
        // The list keeps its first element.
        curl().slist_append(headers.get(), fmt::format("x-amz-security-token: {}", m_settings.token).c_str());
    }
    if (request.header != nullptr) {
        curl().slist_append(headers.get(), request.header);
    }
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
    response.request = &request;
    curl().easy_setopt(handle, CURLOPT_HEADERFUNCTION, &Response::takeHeader);
    curl().easy_setopt(handle, CURLOPT_HEADERDATA, &response);
    curl().easy_setopt(handle, CURLOPT_WRITEFUNCTION, &Response::take);
    curl().easy_setopt(handle, CURLOPT_WRITEDATA, &response);
    std::array<char, CURL_ERROR_SIZE> detail = {};
    curl().easy_setopt(handle, CURLOPT_ERRORBUFFER, detail.data());
    response.transfer = curl().easy_perform(handle);
    // The handle stays, and the buffer goes.
    curl().easy_setopt(handle, CURLOPT_ERRORBUFFER, nullptr);
    complete(response, detail.data());
    return response;
}

// What is known of a response once it has ended.
void ObjectClient::complete(Response& response, const char* detail) {
    curl().easy_getinfo(response.handle, CURLINFO_RESPONSE_CODE, &response.status);
    curl_off_t seconds = 0;
    curl().easy_getinfo(response.handle, CURLINFO_RETRY_AFTER, &seconds);
    response.retryAfter = std::chrono::seconds(seconds);
    response.detail = detail;
    if (response.date) {
        m_clockAhead = std::chrono::seconds(*response.date - std::time(nullptr));
    }
    if (response.thrown) {
        std::rethrow_exception(response.thrown);
    }
    if (response.transfer == CURLE_WRITE_ERROR && response.isEnough()) {
        response.transfer = CURLE_OK;
    }
    if (response.transfer == CURLE_OK && response.status / 100 != 2) {
        response.refusal.emplace(response.status, response.text);
    }
    if (response.isSuccess() && response.request->flawOf) {
        response.flaw = response.request->flawOf(response);
    }
}

std::string ObjectClient::outcomeOf(const Response& response, const std::string& endpoint) {
    if (response.isDown()) {
        m_endpoints.markDown(endpoint);
    }
    return response.isSuccess() ? std::to_string(response.status)
                                : fmt::format("{}: {}", endpoint, failureOf(response, endpoint));
}

// What went wrong, in words that tell what to do.
std::string ObjectClient::failureOf(const Response& response, const std::string& endpoint) const {
    if (!response.flaw.empty()) {
        return response.flaw;
    }
    if (response.transfer == CURLE_OPERATION_TIMEDOUT) {
        const bool isSlow = response.detail.find("too slow") != std::string::npos;
        return isSlow ? fmt::format("it did not answer in time: it has sent less than {} bytes a second for {} s",
                                    LEAST_BYTES_A_SECOND, m_settings.stall.count())
                      : "it did not answer in time";
    }
    if (response.transfer == CURLE_PEER_FAILED_VERIFICATION) {
        return fmt::format("its certificate is not trusted: {}; trusted are the authorities {}", response.detail,
                           m_settings.certificates.empty() ? "of this machine (AWS_CA_BUNDLE can name others)"
                                                           : "in " + m_settings.certificates);
    }
    if (response.transfer != CURLE_OK) {
        return curl().easy_strerror(response.transfer) + proxyBehind(response.detail, endpoint);
    }
    return words(*response.refusal, m_bucket) +
           (response.retryAfter > MAX_RETRY_AFTER
                ? fmt::format("; it asks for a pause of {} s", response.retryAfter.count())
                : "");
}

// The pause before another try; nothing if the store asks for a longer one than makes sense. An endpoint that has not
// been asked yet needs none.
std::optional<std::chrono::milliseconds> ObjectClient::pauseAfter(const Response& response, std::size_t tries,
                                                                  std::size_t endpoints) const {
    if (response.retryAfter > MAX_RETRY_AFTER) {
        return std::nullopt;
    }
    const std::chrono::milliseconds most =
        tries < endpoints ? std::chrono::seconds(0) : m_settings.pause * (1U << (tries - endpoints));
    return response.retryAfter + randomUpTo(std::max<std::chrono::milliseconds>(most, response.retryAfter));
}

void ObjectClient::perform(const Request& request) {
    const auto deadline = std::chrono::steady_clock::now() + m_settings.limit;
    const auto left = [&] {
        return std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    };
    const std::vector<std::string> endpoints = m_endpoints.orderFor(m_account);
    const std::size_t most = std::max(MIN_TRIES, endpoints.size());
    triesAgain().earn();
    std::string outcome;
    std::size_t tries = 0;
    for (bool isOver = false; !isOver;) {
        const std::string& endpoint = endpoints[tries % endpoints.size()];
        const Response response = attempt(request, endpoint, std::max(left(), std::chrono::milliseconds(1)));
        ++tries;
        outcome = outcomeOf(response, endpoint);
        if (m_observer) {
            m_observer(request.summary + (tries == 1 ? "" : fmt::format(", try {}", tries)), outcome);
        }
        if (response.isSuccess()) {
            return;
        }
        if (!response.isTransient()) {
            throw Error(response.kind(), outcome);
        }
        const std::optional<std::chrono::milliseconds> pause = pauseAfter(response, tries, endpoints.size());
        isOver = tries == most || !pause || *pause >= left() || !triesAgain().take();
        if (!isOver) {
            std::this_thread::sleep_for(*pause);
        }
    }
    throw Error(Error::Kind::Unreachable, fmt::format("{} ({})", outcome, plural(tries, "try", "tries")));
}

void ObjectClient::list(const std::string& prefix, int pageSize, const std::function<bool(const Object&)>& visit) {
    const auto deadline = std::chrono::steady_clock::now() + m_settings.limit;
    const auto require = [&](bool isWithin, const std::string& what) {
        if (!isWithin) {
            throw Error(Error::Kind::Denied, fmt::format("the listing of {}* has no end: {}", prefix, what));
        }
    };
    std::string after;
    std::size_t keys = 0;
    std::size_t pages = 0;
    for (bool hasMore = true; hasMore;) {
        require(++pages <= MAX_PAGES, fmt::format("it has more than {} pages", MAX_PAGES));
        const Page found = page(prefix, after, pageSize);
        for (const Object& object : found.objects) {
            if (!visit(object)) {
                return;
            }
        }
        keys += found.objects.size();
        require(keys <= MAX_KEYS, fmt::format("it has more than {} keys", MAX_KEYS));
        hasMore = found.hasMore;
        require(!hasMore || std::chrono::steady_clock::now() < deadline,
                fmt::format("it takes longer than {} s ({})", m_settings.limit.count(), LIMIT_VARIABLE));
        after = found.objects.empty() ? "" : found.objects.back().key;
    }
}

// Keys are asked for in URL encoding: XML cannot hold all of their characters.
ObjectClient::Page ObjectClient::page(const std::string& prefix, const std::string& after, int maxKeys) {
    Page page;
    Request request{"GET", fmt::format("LIST {}*{}", prefix, after.empty() ? "" : " after " + after), "", ""};
    request.query = fmt::format("encoding-type=url&list-type=2&max-keys={}&prefix={}&start-after={}", maxKeys,
                                percentEncoded(prefix, QUERY_CHARACTERS), percentEncoded(after, QUERY_CHARACTERS));
    request.flawOf = [&](const Response& response) -> std::string {
        pugi::xml_document document;
        const bool isXml = document.load_buffer(response.text.data(), response.text.size());
        const pugi::xml_node result = document.child("ListBucketResult");
        if (!isXml || !result) {
            return fmt::format(
                "the response is not a list of objects, but {}; check that AWS_ENDPOINT_URL names an object store",
                startOfPage(response.text));
        }
        page.hasMore = result.child("IsTruncated").text().as_bool();
        std::string flaw = takeKeys(result, prefix, after, page.objects);
        return flaw.empty() && page.hasMore && page.objects.empty()
                   ? "its list does not move on: it has more, and shows nothing"
                   : flaw;
    };
    perform(request);
    return page;
}

// A page of something in between has no ETag.
void ObjectClient::put(const std::string& key, const Body& body) {
    Request request{"PUT", "PUT " + key, key, "", &body};
    request.flawOf = [](const Response& response) {
        return response.hasEtag
                   ? ""
                   : "the response is not that of an object store: it has no ETag, but " + startOfPage(response.text);
    };
    perform(request);
}

bool ObjectClient::putIfAbsent(const std::string& key, const Body& body) {
    Request request{"PUT", "PUT if absent " + key, key, "", &body};
    request.header = "If-None-Match: *";
    bool isThere = false;
    request.flawOf = [&](const Response& response) {
        isThere = response.refusal.has_value();
        return "";
    };
    request.wellCode = "PreconditionFailed";
    try {
        perform(request);
    } catch (const Error& error) {
        if (error.kind() != Error::Kind::Denied) {
            throw;
        }
        return false;
    }
    return !isThere;
}

std::string ObjectClient::configuration(const std::string& name) {
    std::string word;
    Request request{"GET", fmt::format("GET {} of the bucket", name), "", name + "="};
    request.flawOf = [&](const Response& response) {
        pugi::xml_document document;
        document.load_buffer(response.text.data(), response.text.size());
        word = document.first_child().first_child().text().get();
        return "";
    };
    try {
        perform(request);
    } catch (const Error& error) {
        if (error.kind() != Error::Kind::Denied) {
            throw;
        }
    }
    return word.empty() ? "none" : shown(word);
}

void ObjectClient::get(const std::string& key, std::uint64_t maxBytes, const Sink& sink) {
    const std::string summary = fmt::format("GET {}{}", maxBytes > 0 ? "the header of " : "", key);
    perform({"GET", summary, key, "", nullptr, maxBytes, &sink});
}

void ObjectClient::remove(const std::string& key) {
    perform({"DELETE", "DELETE " + key, key, ""});
}

void ObjectClient::makeBucket() {
    Body body;
    if (!m_settings.region.empty() && m_settings.region != DEFAULT_REGION) {
        body.header = fmt::format(
            "<CreateBucketConfiguration xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\"><LocationConstraint>{}"
            "</LocationConstraint></CreateBucketConfiguration>",
            m_settings.region);
    }
    body.size = body.header.size();
    body.sha256 = Digest().addBytes(body.header).hex();
    Request request{"PUT", "PUT the bucket " + m_bucket, "", "", &body};
    request.wellCode = "BucketAlreadyOwnedByYou";
    perform(request);
}

}  // namespace sim
