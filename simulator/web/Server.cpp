#include "simulator/web/Server.h"

#include <fmt/format.h>
#include <httplib.h>
#include <malloc.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fcntl.h>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Json.h"
#include "simulator/base/Text.h"
#include "simulator/cloud/OpenCloud.h"
#include "simulator/reports/CloudReport.h"
#include "simulator/web/Events.h"
#include "simulator/web/Guard.h"
#include "simulator/web/Job.h"
#include "simulator/web/Page.h"
#include "simulator/web/Routes.h"

namespace sim {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view API = "/api/";
constexpr char TOKEN_HEADER[] = "X-Halcyon-Token";
constexpr char VERSION_HEADER[] = "X-Halcyon-Api";
constexpr char API_VERSION[] = "1";
constexpr char JSON_TYPE[] = "application/json";
constexpr char ZIP_TYPE[] = "application/zip";
constexpr std::size_t MAX_JSON_BYTES = 1U << 20;
constexpr std::size_t MAX_ZIP_BYTES = 32U << 20;
constexpr std::size_t MAX_THREADS = 512;
// Within this time, a stream of events notices that the server ends, which may take a second in all.
constexpr std::chrono::milliseconds EVENT_PATIENCE{250};
// That a reader has gone is only noticed by writing to it.
constexpr std::chrono::seconds KEEPALIVE_INTERVAL{5};
constexpr std::chrono::milliseconds JOB_INTERVAL{5};
constexpr std::chrono::milliseconds SIGN_INTERVAL{200};  // between signs of life while a job goes on
constexpr std::chrono::seconds STATUS_PATIENCE{1};       // how long an answer waits to begin with its status

std::atomic<httplib::Server*> running{nullptr};

// What takes longer than a second is cut off, as by a kill, which leaves nothing half made.
void stopRunning(int /*signal*/) {
    // Only once: a second signal would put the alarm off.
    if (httplib::Server* server = running.exchange(nullptr)) {
        std::signal(SIGALRM, [](int) { ::_exit(0); });
        ::alarm(1);
        server->stop();
    }
}

// As many threads as there are connections at once: one that sends its request slowly keeps no other waiting.
class Threads : public httplib::TaskQueue {
public:
    void enqueue(std::function<void()> task) override {
        const std::lock_guard lock(m_mutex);
        m_tasks.push_back(std::move(task));
        // An idle thread may not have woken up for its task yet: each counts for one of those that wait.
        if (m_tasks.size() > m_idle && m_threads.size() < MAX_THREADS) {
            m_threads.emplace_back([this] { work(); });
        }
        m_hasTask.notify_one();
    }

    void shutdown() override {
        {
            const std::lock_guard lock(m_mutex);
            m_isEnding = true;
        }
        m_hasTask.notify_all();
        for (std::thread& thread : m_threads) {
            thread.join();
        }
    }

private:
    void work() {
        for (std::unique_lock lock(m_mutex);;) {
            ++m_idle;
            m_hasTask.wait(lock, [&] { return m_isEnding || !m_tasks.empty(); });
            --m_idle;
            if (m_tasks.empty()) {
                return;
            }
            const std::function<void()> task = std::move(m_tasks.front());
            m_tasks.pop_front();
            lock.unlock();
            task();
            lock.lock();
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_hasTask;
    std::deque<std::function<void()>> m_tasks;
    std::vector<std::thread> m_threads;
    std::size_t m_idle = 0;
    bool m_isEnding = false;
};

void refuse(httplib::Response& response, int status, const std::string& message) {
    response.status = status;
    response.set_content(writeJson(refusal(status, message)), JSON_TYPE);
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

// All of it: the library's own function ends at a NUL, which may come in percents. Empty if there is none.
std::string headerOf(const httplib::Request& request, const char* name) {
    const auto found = request.headers.find(name);
    return found == request.headers.end() ? "" : found->second;
}

bool hasType(const httplib::Request& request, std::string_view type) {
    return headerOf(request, "Content-Type").compare(0, type.size(), type) == 0;
}

// Hands the body on as it comes. Throws Error if it ends early, or is larger than `limit`.
void readBody(const httplib::ContentReader& reader, std::size_t limit,
              const std::function<void(std::string_view)>& take) {
    std::size_t size = 0;
    const bool isRead = reader([&](const char* bytes, std::size_t count) {
        size += count;
        if (size <= limit) {
            take(std::string_view(bytes, count));
        }
        return size <= limit;
    });
    if (size > limit) {
        throw Error(Error::Kind::Unusable, fmt::format("the body is larger than {} MB", limit >> 20));
    }
    if (!isRead) {
        throw Error("the body has no end");
    }
}

// A job and what it reads, until its answer is sent.
struct Work {
    // Destroyed after the job, whose process reads there until it is ended.
    std::unique_ptr<ScratchFolder> folder;
    std::unique_ptr<Job> job;
    Clock::time_point lastSign = Clock::now();
};

class Site {
public:
    Site(const Lab& lab, const ServeOptions& options)
        : m_lab(lab), m_options(options), m_token(tokenIn(lab.tokenFile())) {
        m_server.new_task_queue = [] { return new Threads; };
        m_server.set_payload_max_length(MAX_ZIP_BYTES);
        m_server.set_keep_alive_timeout(1);  // seconds that an end has to wait for an idle connection
        // The library would also let a second server listen on the port.
        m_server.set_socket_options([](int socket) {
            const int yes = 1;
            ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        });
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
        m_server.Get("/api/events",
                     [this](const auto& request, httplib::Response& response) { sendEvents(request, response); });
        m_server.Get("/api/bundles/(.+)",
                     [this](const auto& request, httplib::Response& response) { sendBundle(request, response); });
        const auto answerPlain = [this](const httplib::Request& request, httplib::Response& response) {
            answer(request, response, nullptr);
        };
        // '[^]' also stands for a line break, which '.' does not: the name of a TV may hold one.
        m_server.Get("/api/[^]*", answerPlain);
        m_server.Delete("/api/[^]*", answerPlain);
        m_server.Post("/api/[^]*",
                      [this](const httplib::Request& request, httplib::Response& response,
                             const httplib::ContentReader& reader) { answer(request, response, &reader); });
        m_server.Get("/.*", [this](const auto& request, httplib::Response& response) { sendFile(request, response); });
    }

    void run(const std::function<void(const std::string&)>& ready) {
        constexpr char LOOPBACK[] = "127.0.0.1";
        m_port = m_options.port == 0 ? m_server.bind_to_any_port(LOOPBACK)
                                     : (m_server.bind_to_port(LOOPBACK, m_options.port) ? m_options.port : -1);
        if (m_port < 0) {
            throw Error(fmt::format("port {} is in use; take another with --port, or any that is free with --port 0",
                                    m_options.port));
        }
        running = &m_server;
        std::signal(SIGINT, &stopRunning);
        std::signal(SIGTERM, &stopRunning);
        // A browser sends no fragment, so the token is in no request line and in no Referer. The port listens already:
        // whoever is told the address can connect.
        ready(fmt::format("http://{}:{}/#{}", LOOPBACK, m_port, m_token));
        m_server.listen_after_bind();
        running = nullptr;
    }

private:
    using Handled = httplib::Server::HandlerResponse;

    // The page is for anyone on this machine; data and changes are for who has the token. The body is not read yet.
    Handled guard(const httplib::Request& request, httplib::Response& response) const {
        addHeaders(response);
        if (running.load() == nullptr) {  // the library would answer with a head and no body
            refuse(response, 503, "the server is ending");
            return Handled::Handled;
        }
        // A page from elsewhere whose name has been made to resolve to this machine still sends that name.
        if (!isLocalHost(headerOf(request, "Host"), m_port)) {
            refuse(response, 403, "this server answers to the address of this machine only");
            return Handled::Handled;
        }
        // A page of another site, or of another server on this machine.
        if (!isOwnOrigin(headerOf(request, "Origin"), m_port)) {
            refuse(response, 403, "this server answers to its own page only");
            return Handled::Handled;
        }
        const bool isApi = request.path.compare(0, API.size(), API) == 0;
        if (isApi && !isSameSecret(headerOf(request, TOKEN_HEADER), m_token)) {
            refuse(response, 401,
                   "the token is missing or another; open the address that halcyon-tv serve has printed");
            return Handled::Handled;
        }
        return isApi ? guardVersion(request, response) : Handled::Unhandled;
    }

    // A client may say which version it is written for.
    static Handled guardVersion(const httplib::Request& request, httplib::Response& response) {
        response.set_header(VERSION_HEADER, API_VERSION);
        const std::string wanted = headerOf(request, VERSION_HEADER);
        if (!wanted.empty() && wanted != API_VERSION) {
            refuse(response, 400,
                   fmt::format("this server has version {} of the interface, not {}", API_VERSION, inQuotes(wanted)));
            return Handled::Handled;
        }
        return Handled::Unhandled;
    }

    void answer(const httplib::Request& request, httplib::Response& response, const httplib::ContentReader* reader) {
        try {
            const std::string path = request.path.substr(API.size());
            std::optional<FoundRoute> found = findRoute(request.method, path);
            if (!found) {
                response.status = 404;
                return;
            }
            ApiRequest asked{std::move(found->parts), {request.params.begin(), request.params.end()}, {}, {}};
            const auto work = std::make_shared<Work>();
            if (found->route.kind == Route::Kind::Zip) {
                takeZip(request, *reader, *work, asked);
            } else if (reader != nullptr) {
                takeJson(request, *reader, asked);
            }
            if (found->route.kind == Route::Kind::Quick) {
                send(response, writeJson(found->route.answer(m_lab, asked)), JSON_TYPE);
                ::malloc_trim(0);
                return;
            }
            work->job = std::make_unique<Job>(m_lab, wordsOf(request.method, path, asked));
            sendAnswer(work, response);
        } catch (const Error& error) {
            refuse(response, statusOf(error.kind()), error.what());
        }
    }

    static void takeJson(const httplib::Request& request, const httplib::ContentReader& reader, ApiRequest& asked) {
        std::string text;
        // A form of another site cannot send this type without asking first.
        if (hasType(request, JSON_TYPE)) {
            readBody(reader, MAX_JSON_BYTES, [&](std::string_view bytes) { text += bytes; });
        }
        if (!parseJson(text, asked.body) || !asked.body.isObject()) {
            throw Error("the body must be one JSON object, with Content-Type: application/json");
        }
    }

    static void takeZip(const httplib::Request& request, const httplib::ContentReader& reader, Work& work,
                        ApiRequest& asked) {
        if (!hasType(request, ZIP_TYPE)) {
            throw Error("the body must be a zip, with Content-Type: application/zip");
        }
        // The name is kept, as a bundle is stored under it; a folder before it is not.
        const std::filesystem::path name = std::filesystem::path(inQuery(asked, "name")).filename();
        work.folder = std::make_unique<ScratchFolder>();
        asked.file = *work.folder / (name.empty() || name == "." || name == ".." ? "bundle.zip" : name.string());
        const Descriptor file = openFile(asked.file, O_WRONLY | O_CREAT | O_EXCL, 0600);
        readBody(reader, MAX_ZIP_BYTES, [&](std::string_view bytes) { writeAll(file, bytes, asked.file); });
    }

    // The status is known if the answer comes soon. Else blanks, which JSON allows before it, tell whether anybody
    // still waits, and a refusal tells its status itself.
    static void sendAnswer(const std::shared_ptr<Work>& work, httplib::Response& response) {
        const Clock::time_point end = Clock::now() + STATUS_PATIENCE;
        while (Clock::now() < end && running.load() != nullptr) {
            if (std::optional<Job::Answer> answer = work->job->answer()) {
                response.status = answer->status;
                send(response, std::move(answer->json), JSON_TYPE);
                return;
            }
            std::this_thread::sleep_for(JOB_INTERVAL);
        }
        response.set_chunked_content_provider(JSON_TYPE, [work](std::size_t, httplib::DataSink& sink) {
            std::optional<Job::Answer> answer;
            try {
                answer = work->job->answer();
            } catch (const Error& error) {
                answer = Job::Answer{500, writeJson(refusal(500, error.what()))};
            }
            if (answer) {
                sink.write(answer->json.data(), answer->json.size());
                sink.done();
                return true;
            }
            if (Clock::now() - work->lastSign > SIGN_INTERVAL) {
                work->lastSign = Clock::now();
                if (!sink.write(" ", 1)) {
                    return false;
                }
            }
            std::this_thread::sleep_for(JOB_INTERVAL);
            return running.load() != nullptr;
        });
    }

    // The bundle of a backup, to be saved.
    void sendBundle(const httplib::Request& request, httplib::Response& response) const {
        try {
            const std::unique_ptr<CloudStore> store = openCloud(m_lab.cloud());
            const ScratchFolder folder;
            const StoredBackup backup = store->fetch(chooseBackup(*store, request.matches[1], ""), folder.path());
            if (!backup.damage.empty()) {
                throw Error(Error::Kind::Damaged, backup.damage);
            }
            send(response, readFile(folder / backup.name), ZIP_TYPE);
        } catch (const Error& error) {
            refuse(response, statusOf(error.kind()), error.what());
        }
    }

    void sendFile(const httplib::Request& request, httplib::Response& response) const {
        const std::string name = request.path == "/" ? "index.html" : request.path.substr(1);
        // Only names that the program knows: a path that leads out of the page's folder is none of them.
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
    void sendEvents(const httplib::Request& request, httplib::Response& response) {
        struct Reader {
            Events::Place place;
            Clock::time_point lastSign;
        };
        // In the query, not as Last-Event-ID: an EventSource cannot send the token, so the page reads by fetch().
        const auto reader = std::make_shared<Reader>(Reader{request.get_param_value("after"), Clock::now()});
        response.set_chunked_content_provider("text/event-stream", [this, reader](std::size_t, auto& sink) {
            std::string events = m_events.after(reader->place, EVENT_PATIENCE);
            if (events.empty() && Clock::now() - reader->lastSign > KEEPALIVE_INTERVAL) {
                events = ": alive\n\n";
            }
            if (!events.empty()) {
                reader->lastSign = Clock::now();
                return sink.write(events.data(), events.size());
            }
            return running.load() != nullptr;
        });
    }

    const Lab& m_lab;
    const ServeOptions& m_options;
    std::string m_token;
    int m_port = -1;
    Events m_events{m_lab};
    httplib::Server m_server;
};

}  // namespace

void serve(const Lab& lab, const ServeOptions& options, const std::function<void(const std::string&)>& ready) {
    ::mallopt(M_ARENA_MAX, 2);  // else each thread keeps memory of its own
    Site(lab, options).run(ready);
}

}  // namespace sim
