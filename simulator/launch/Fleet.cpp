#include "simulator/launch/Fleet.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <json/value.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Json.h"
#include "simulator/base/Text.h"
#include "simulator/cloud/OpenCloud.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

std::atomic<bool> isStopped{false};

constexpr char NOTES[] = ".fleet.jsonl";

std::string nameOf(std::size_t number) {
    return fmt::format("tv-{:05}", number);
}

// The runs of a round, each in a line of a file as it is done, after a line that says what the round is.
class Round {
public:
    explicit Round(const FleetRequest& request)
        : m_path(request.folder / NOTES),
          m_title(fmt::format("[\"{}\",{}]", toUtf8(fmt::format("{}", fmt::join(request.extras, " "))), request.tvs)) {
        readNotes();
        m_file = openFile(m_path, O_WRONLY | O_CREAT | (m_runs.empty() ? O_TRUNC : O_APPEND), 0666);
        if (m_runs.empty()) {
            add(m_title);
        }
    }

    const std::map<std::string, FleetRun>& runs() const { return m_runs; }

    void add(const FleetRun& run) {
        m_runs[run.tv] = run;
        Json::Value line;
        line["tv"] = run.tv;
        line["outcome"] = std::string(sim::nameOf(run.outcome));
        line["why"] = toUtf8(run.why);
        line["seconds"] = run.seconds;
        add(writeJson(line));
    }

    void end() { removeFile(m_path); }

private:
    void readNotes() {
        const std::vector<std::string> lines =
            pathExists(m_path) ? split(readFile(m_path), '\n') : std::vector<std::string>();
        if (lines.empty() || lines.front() != m_title) {
            return;  // there is none, or it is of another round
        }
        for (const std::string& line : lines) {
            Json::Value value;
            if (parseJson(line, value) && value.isObject() && value["tv"].isString()) {
                const std::optional<Outcome> outcome = fromName<Outcome>(value["outcome"].asString());
                m_runs[value["tv"].asString()] = {value["tv"].asString(), outcome.value_or(Outcome::Failed),
                                                  value["why"].asString(), value["seconds"].asDouble()};
            }
        }
    }

    void add(const std::string& line) { writeAll(m_file, line + "\n", m_path); }

    fs::path m_path;
    std::string m_title;
    std::map<std::string, FleetRun> m_runs;
    Descriptor m_file;
};

FleetRun runOne(const FleetRequest& request, const std::string& cloud, const std::string& name) {
    FleetRun run;
    run.tv = name;
    const auto timed = [&](const ProcessOptions& options) {
        ProcessOptions own = options;
        own.hasOwnGroup = true;
        const auto begin = std::chrono::steady_clock::now();
        EndedProcess end = execute(own);
        run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        return end;
    };
    try {
        const fs::path home = request.folder / name;
        const FolderLock lock = lockTv(home, std::chrono::seconds(0));
        Tv tv(home);
        RunRequest wanted;
        wanted.extras = request.extras;
        const RunReport report = launchAndJudge(wanted, tv, cloud, *openCloud(cloud), lock, timed);
        run.outcome = report.verdict.outcome;
        run.why = report.verdict.why;
    } catch (const std::exception& error) {
        run.outcome = Outcome::Failed;
        run.why = error.what();
    }
    return run;
}

// What the workers share.
class Fleet {
public:
    Fleet(const FleetRequest& request, std::string cloud, const FleetProgress& progress)
        : m_request(request), m_cloud(std::move(cloud)), m_progress(progress), m_round(request) {}

    // Runs one TV after the other until there is none left.
    void work() {
        try {
            for (std::string name = takeNext(); !name.empty(); name = takeNext()) {
                if (!isThere(name)) {
                    Tv::create(
                        m_request.folder / name, [&](ChannelSink& sink) { m_channels->services().copyTo(sink); }, name,
                        std::nullopt, name);
                }
                const FleetRun run = runOne(m_request, m_cloud, name);
                const std::lock_guard guard(m_mutex);
                m_round.add(run);
                m_progress(m_round.runs().size(), m_request.tvs);
            }
        } catch (const std::exception& error) {  // a thread must not end by one
            const std::lock_guard guard(m_mutex);
            m_failure = Error(error.what());
        }
    }

    std::vector<FleetRun> finish() {
        if (m_failure) {
            throw *m_failure;
        }
        std::vector<FleetRun> runs;
        runs.reserve(m_round.runs().size());
        for (const auto& [name, run] : m_round.runs()) {
            runs.push_back(run);
        }
        if (runs.size() == m_request.tvs) {
            m_round.end();
        }
        return runs;
    }

private:
    bool isThere(const std::string& name) const { return pathExists(m_request.folder / name); }

    // The next TV that has no run yet; empty: there is none, or none shall begin any more.
    std::string takeNext() {
        const std::lock_guard guard(m_mutex);
        while (m_next <= m_request.tvs && !isStopped && !m_failure) {
            std::string name = nameOf(m_next++);
            if (m_round.runs().count(name) > 0) {
                continue;
            }
            if (!m_channels && !isThere(name)) {
                m_channels = m_request.channels();
            }
            return name;
        }
        return "";
    }

    const FleetRequest& m_request;
    std::string m_cloud;
    const FleetProgress& m_progress;
    std::mutex m_mutex;  // of what follows
    Round m_round;
    std::optional<ServiceDb> m_channels;
    std::size_t m_next = 1;
    std::optional<Error> m_failure;
};

}  // namespace

void stopFleet() {
    isStopped = true;
}

std::vector<FleetRun> runFleet(const FleetRequest& request, const std::string& cloud, const FleetProgress& progress) {
    openCloud(cloud);  // what is wrong with the place is the same for all
    makeFolders(request.folder);
    const FolderLock lock = FolderLock::take(request.folder);
    if (!lock.isHeld()) {
        throw Error(Error::Kind::Locked, fmt::format("another fleet run is under way in {}", request.folder.string()));
    }
    Fleet fleet(request, cloud, progress);
    std::vector<std::thread> workers;
    workers.reserve(request.jobs);
    for (std::size_t i = 0; i < std::min(request.jobs, request.tvs); ++i) {
        try {
            workers.emplace_back([&fleet] { fleet.work(); });
        } catch (const std::system_error& error) {  // those that there are do all the work
            if (workers.empty()) {
                throw Error(fmt::format("cannot start a thread: {}", error.what()));
            }
            break;
        }
    }
    for (std::thread& worker : workers) {
        worker.join();
    }
    return fleet.finish();
}

}  // namespace sim
