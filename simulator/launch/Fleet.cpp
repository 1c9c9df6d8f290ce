#include "simulator/launch/Fleet.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
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
#include "simulator/reports/ToJson.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

std::atomic<bool> isStopped{false};

constexpr char NOTES[] = ".fleet.jsonl";

// The runs of a round, kept in a file: a title that identifies the round, then a line for each run as it is done.
class Round {
public:
    explicit Round(const FleetRequest& request)
        : m_path(request.folder / NOTES),
          m_title(writeJson(object({{"extras", request.extras}, {"tvs", request.tvs}}))) {
        read();
        m_file = openFile(m_path, O_WRONLY | O_CREAT | (m_runs.empty() ? O_TRUNC : O_APPEND), 0666);
        if (m_runs.empty()) {
            write(m_title);
        }
    }

    const FleetRuns& runs() const { return m_runs; }

    void add(const std::string& tv, const FleetRun& run) {
        m_runs[tv] = run;
        write(writeJson(
            object({{"tv", tv}, {"outcome", nameOf(run.outcome)}, {"why", run.why}, {"seconds", run.seconds}})));
    }

    void end() { removeFile(m_path); }

private:
    void read() {
        const std::vector<std::string> lines =
            pathExists(m_path) ? split(readFile(m_path), '\n') : std::vector<std::string>();
        if (lines.empty() || lines.front() != m_title) {
            return;  // there is none, or it is of another round
        }
        for (const std::string& line : lines) {
            Json::Value value;
            if (parseJson(line, value) && value.isObject() && value["tv"].isString()) {
                const std::optional<Outcome> outcome = fromName<Outcome>(value["outcome"].asString());
                m_runs[value["tv"].asString()] = {outcome.value_or(Outcome::Failed), value["why"].asString(),
                                                  value["seconds"].asDouble()};
            }
        }
    }

    void write(const std::string& line) { writeAll(m_file, line + "\n", m_path); }

    fs::path m_path;
    std::string m_title;
    FleetRuns m_runs;
    Descriptor m_file;
};

FleetRun runOn(const fs::path& home, const std::vector<std::string>& extras, const std::string& cloud) {
    FleetRun run;
    const auto timed = [&](const Start& start) {
        const auto begin = std::chrono::steady_clock::now();
        EndedProcess end = execute(start);
        run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        return end;
    };
    try {
        const FolderLock lock = lockTv(home, std::chrono::seconds(0));
        Tv tv(home);
        RunRequest wanted;
        wanted.extras = extras;
        wanted.hasOwnGroup = true;
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

    // Runs one TV after the other until none is left.
    void work() {
        try {
            for (std::string name = takeNext(); !name.empty(); name = takeNext()) {
                const fs::path home = m_request.folder / name;
                if (!pathExists(home)) {
                    const auto copy = [&](ChannelSink& sink) { m_channels->services().copyTo(sink); };
                    Tv::create(home, copy, name, std::nullopt, name);
                }
                const FleetRun run = runOn(home, m_request.extras, m_cloud);
                const std::lock_guard guard(m_mutex);
                m_round.add(name, run);
                m_progress(m_round.runs().size(), m_request.tvs);
            }
        } catch (const std::exception& error) {  // one that leaves a thread would end the process
            const std::lock_guard guard(m_mutex);
            m_failure = Error(error.what());
        }
    }

    FleetRuns finish() {
        if (m_failure) {
            throw *m_failure;
        }
        if (m_round.runs().size() == m_request.tvs) {
            m_round.end();
        }
        return m_round.runs();
    }

private:
    // The next TV that has not run in this round; empty if there is none, or if no more runs shall begin.
    std::string takeNext() {
        const std::lock_guard guard(m_mutex);
        while (m_next <= m_request.tvs && !isStopped && !m_failure) {
            std::string name = fmt::format("tv-{:05}", m_next++);
            if (m_round.runs().count(name) > 0) {
                continue;
            }
            if (!m_channels && !pathExists(m_request.folder / name)) {
                m_channels = m_request.channels();
            }
            return name;
        }
        return "";
    }

    const FleetRequest& m_request;
    std::string m_cloud;
    const FleetProgress& m_progress;
    std::mutex m_mutex;  // guards the rest
    Round m_round;
    std::optional<ServiceDb> m_channels;
    std::size_t m_next = 1;
    std::optional<Error> m_failure;
};

}  // namespace

void stopFleet() {
    isStopped = true;
}

FleetRuns runFleet(const FleetRequest& request, const std::string& cloud, const FleetProgress& progress) {
    openCloud(cloud);  // fails now rather than on each TV
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
