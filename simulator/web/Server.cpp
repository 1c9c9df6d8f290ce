#include "simulator/web/Server.h"

#include <fmt/format.h>
#include <httplib.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <memory>
#include <regex>
#include <thread>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Json.h"
#include "simulator/base/Text.h"
#include "simulator/reports/ToJson.h"
#include "simulator/web/Events.h"
#include "simulator/web/Guard.h"
#include "simulator/web/Page.h"
#include "simulator/web/Routes.h"

namespace sim {

namespace {

constexpr char API[] = "/api/";
constexpr char TOKEN_HEADER[] = "X-Halcyon-Token";
constexpr std::size_t MAX_BODY_BYTES = 32U << 20;
constexpr std::size_t THREADS = 64;
constexpr std::chrono::milliseconds POLL_INTERVAL{100};
constexpr std::chrono::seconds KEEPALIVE_INTERVAL{5};

std::atomic<httplib::Server*> running{nullptr};

// What takes longer than a second is cut off, as by a kill, which leaves nothing half made.
void stopRunning(int /*signal*/) {
    if (httplib::Server* server = running.exchange(nullptr)) {
        std::signal(SIGALRM, [](int) { ::_exit(0); });
        ::alarm(1);
        server->stop();
    }
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
            return 502;
        default:
            return 400;
    }
}

void refuse(httplib::Response& response, int status, const std::string& message) {
    response.status = status;
    response.set_content(writeJson(object({{"error", message}})), "application/json");
}

// Through a content provider: the library would compress a plain content, which takes longer than the loopback.
void send(httplib::Response& response, std::string text, const std::string& type) {
    const auto body = std::make_shared<const std::string>(std::move(text));
    response.set_content_provider(body->size(), type, [body](std::size_t offset, std::size_t length, auto& sink) {
        return sink.write(body->data() + offset, length);
    });
}

// The page runs, asks and shows nothing from elsewhere, and no other page frames it.
void addHeaders(httplib::Response& response) {
    response.set_header("Content-Security-Policy",
                        "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
                        "base-uri 'none'; form-action 'none'; frame-ancestors 'none'");
    response.set_header("X-Content-Type-Options", "nosniff");
    response.set_header("Referrer-Policy", "no-referrer");
    response.set_header("Cross-Origin-Opener-Policy", "same-origin");
    response.set_header("Cross-Origin-Resource-Policy", "same-origin");
    response.set_header("Cache-Control", "no-store");
}

class Site {
public:
    Site(const Lab& lab, const ServeOptions& options)
        : m_lab(lab), m_options(options), m_token(tokenIn(lab.tokenFile())) {
        m_server.new_task_queue = [] { return new httplib::ThreadPool(THREADS); };
        m_server.set_payload_max_length(MAX_BODY_BYTES);
        m_server.set_keep_alive_timeout(1);  // seconds that an end has to wait for an idle connection
        m_server.set_pre_routing_handler(
            [this](const httplib::Request& request, httplib::Response& response) { return guard(request, response); });
        m_server.set_exception_handler([](const auto&, httplib::Response& response, const std::exception_ptr&) {
            refuse(response, 500, "the server has failed at this; the terminal that it runs in may say more");
        });
        m_server.set_error_handler([](const httplib::Request& request, httplib::Response& response) {
            if (response.body.empty()) {
                refuse(response, response.status,
                       response.status == 404 ? fmt::format("there is nothing at {}", inQuotes(request.path))
                                              : fmt::format("refused ({})", response.status));
            }
        });
        m_server.Get("/api/events", [this](const auto&, httplib::Response& response) { sendEvents(response); });
        for (const auto& routes : {tvRoutes(), runRoutes(), cloudRoutes()}) {
            for (const Route& route : routes) {
                add(route);
            }
        }
        m_server.Get("/.*", [this](const auto& request, httplib::Response& response) { sendFile(request, response); });
    }

    void run(const std::function<void(const std::string&)>& ready) {
        constexpr char LOOPBACK[] = "127.0.0.1";
        m_port = m_options.port == 0 ? m_server.bind_to_any_port(LOOPBACK)
                                     : (m_server.bind_to_port(LOOPBACK, m_options.port) ? m_options.port : -1);
        if (m_port < 0) {
            throw Error(fmt::format("port {} cannot be had; somebody else may serve there: give another with --port",
                                    m_options.port));
        }
        running = &m_server;
        std::signal(SIGINT, &stopRunning);
        std::signal(SIGTERM, &stopRunning);
        ready(fmt::format("http://{}:{}/#{}", LOOPBACK, m_port, m_token));
        m_server.listen_after_bind();
        running = nullptr;
    }

private:
    using Handled = httplib::Server::HandlerResponse;

    // The page is for anyone on this machine; data and changes are for who has the token.
    Handled guard(const httplib::Request& request, httplib::Response& response) const {
        addHeaders(response);
        if (running.load() == nullptr) {  // the library would answer with a head and no body
            refuse(response, 503, "the server is ending");
            return Handled::Handled;
        }
        if (!isLocalHost(request.get_header_value("Host"), m_port)) {
            refuse(response, 403, "this server answers to the address of this machine only");
            return Handled::Handled;
        }
        if (!isOwnOrigin(request.get_header_value("Origin"), m_port)) {
            refuse(response, 403, "this server answers to its own page only");
            return Handled::Handled;
        }
        const bool isApi = request.path.compare(0, sizeof API - 1, API) == 0;
        if (isApi && !isSameSecret(request.get_header_value(TOKEN_HEADER), m_token)) {
            refuse(response, 401,
                   "the token is missing or another; open the address that halcyon-tv serve has printed");
            return Handled::Handled;
        }
        return Handled::Unhandled;
    }

    static Json::Value bodyOf(const httplib::Request& request) {
        Json::Value body;
        if (request.method != "POST") {
            return body;
        }
        if (request.get_header_value("Content-Type").compare(0, 16, "application/json") != 0 ||
            !parseJson(request.body, body) || !body.isObject()) {
            throw Error("the body must be one JSON object, with Content-Type: application/json");
        }
        return body;
    }

    void add(const Route& route) {
        const std::string pattern = API + std::regex_replace(route.pattern, std::regex("\\*"), "([^/]+)");
        const auto answer = [this, route](const httplib::Request& request, httplib::Response& response) {
            try {
                const ApiRequest asked{{request.matches.begin() + 1, request.matches.end()},
                                       {request.params.begin(), request.params.end()},
                                       bodyOf(request)};
                send(response, writeJson(route.answer(m_lab, asked)), "application/json");
            } catch (const Error& error) {
                refuse(response, statusOf(error.kind()), error.what());
            }
        };
        if (route.method == "GET") {
            m_server.Get(pattern, answer);
        } else if (route.method == "POST") {
            m_server.Post(pattern, answer);
        } else {
            m_server.Delete(pattern, answer);
        }
    }

    void sendFile(const httplib::Request& request, httplib::Response& response) const {
        const std::string name = request.path == "/" ? "index.html" : request.path.substr(1);
        for (const PageFile& file : pageFiles()) {
            if (file.name == name) {
                send(response, m_options.page.empty() ? std::string(file.content) : readFile(m_options.page / name),
                     std::string(file.type));
                return;
            }
        }
        response.status = 404;
    }

    // Until the reader goes away, or the server ends.
    void sendEvents(httplib::Response& response) const {
        const auto watch = std::make_shared<Watch>(m_lab);
        const auto lastSign = std::make_shared<std::chrono::steady_clock::time_point>();
        response.set_chunked_content_provider("text/event-stream", [watch, lastSign](std::size_t, auto& sink) {
            const auto now = std::chrono::steady_clock::now();
            std::string events = watch->next();
            if (events.empty() && now - *lastSign > KEEPALIVE_INTERVAL) {
                events = ": alive\n\n";
            }
            if (!events.empty()) {
                *lastSign = now;
                return sink.write(events.data(), events.size());
            }
            std::this_thread::sleep_for(POLL_INTERVAL);
            return running.load() != nullptr;
        });
    }

    const Lab& m_lab;
    const ServeOptions& m_options;
    std::string m_token;
    int m_port = -1;
    httplib::Server m_server;
};

}  // namespace

void serve(const Lab& lab, const ServeOptions& options, const std::function<void(const std::string&)>& ready) {
    Site(lab, options).run(ready);
}

}  // namespace sim
