#include "simulator/launch/Fleet.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "simulator/base/Environment.h"
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

// What a round was asked to do; its parts in words.
struct Title {
    std::string request;
    std::string cloud;
    std::string list;

    Json::Value toJson() const { return object({{"request", request}, {"cloud", cloud}, {"list", list}}); }
};

bool operator==(const Title& left, const Title& right) {
    return left.request == right.request && left.cloud == right.cloud && left.list == right.list;
}

std::string words(const Title& title) {
    return fmt::format("the request \"{}\", the cloud {} and {}", title.request, title.cloud, title.list);
}

// A round as its notes tell it: a title, then a line for each run as it begins and as it has been judged, then one that
// all TVs have run.
class Round {
public:
    Round(const FleetRequest& request, const std::string& cloud, const std::function<void(const std::string&)>& warn)
        : m_path(request.folder / NOTES),
          m_title{fmt::format("{}", fmt::join(request.extras, " ")), cloud, request.list} {
        const std::optional<Title> before = pathExists(m_path) ? read(warn) : std::nullopt;
        const bool goesOn = before && (!m_isComplete || request.onlyFailed);
        if (goesOn && !(*before == m_title)) {
            throw Error(
                fmt::format("the round in {} has {}, and this command {}; go on with the same, or give the "
                            "round up with: rm '{}'",
                            request.folder.string(), words(*before), words(m_title), m_path.string()));
        }
        if (!goesOn && request.onlyFailed) {
            throw Error(Error::Kind::Missing, fmt::format("no round has run in {}", request.folder.string()));
        }
        if (goesOn) {
            m_file = openFile(m_path, O_WRONLY | O_APPEND);
            writeAll(m_file, "\n", m_path);  // a kill may have cut off the last line
            return;
        }
        m_runs.clear();
        m_begun.clear();
        m_file = openFile(m_path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
        write(m_title.toJson());
    }

    const FleetRuns& runs() const { return m_runs; }

    // The newest run of a TV before that which this round has begun and nobody has judged; nothing if there is none.
    std::optional<std::int64_t> newestBefore(const std::string& tv) const {
        const auto found = m_begun.find(tv);
        return found == m_begun.end() ? std::nullopt : std::optional(found->second);
    }

    void begin(const std::string& tv, std::int64_t newest) {
        m_begun[tv] = newest;
        write(object({{"tv", tv}, {"newest", newest}}));
    }

    void add(const std::string& tv, const FleetRun& run) {
        note(tv, run);
        write(object({{"tv", tv}, {"outcome", nameOf(run.outcome)}, {"why", run.why}, {"seconds", run.seconds}}));
    }

    void complete() { write(object({{"isComplete", true}})); }

private:
    void note(const std::string& tv, const FleetRun& run) {
        m_runs[tv] = run;
        if (run.outcome != Outcome::Unchecked) {
            m_begun.erase(tv);
        }
    }

    std::optional<Title> read(const std::function<void(const std::string&)>& warn) {
        std::optional<Title> title;
        std::size_t damaged = 0;
        for (const std::string& line : split(readFile(m_path), '\n')) {
            Json::Value value;
            if (!line.empty() && !(parseJson(line, value) && value.isObject() && take(value, title))) {
                ++damaged;
            }
        }
        if (damaged > 0) {
            warn(fmt::format("{}: {} cannot be read and skipped{}", m_path.string(), plural(damaged, "note"),
                             title ? "" : ", the first among them: a new round begins"));
        }
        return title;
    }

    // Takes a note over. Returns false if it is none.
    bool take(const Json::Value& note, std::optional<Title>& title) {
        const auto text = [&](const char* member) {
            return note[member].isString() ? std::optional(note[member].asString()) : std::nullopt;
        };
        const std::optional<std::string> tv = text("tv");
        const std::optional<Outcome> outcome = fromName<Outcome>(text("outcome").value_or(""));
        if (text("request") && text("cloud") && text("list")) {
            title = {*text("request"), *text("cloud"), *text("list")};
        } else if (tv && outcome && text("why") && note["seconds"].isNumeric()) {
            this->note(*tv, {*outcome, *text("why"), note["seconds"].asDouble()});
        } else if (tv && note["newest"].isInt64()) {
            m_begun[*tv] = note["newest"].asInt64();
        } else {
            m_isComplete = m_isComplete || note["isComplete"].isBool();
            return note["isComplete"].isBool();
        }
        return true;
    }

    void write(const Json::Value& note) { writeAll(m_file, writeJson(note) + "\n", m_path); }

    fs::path m_path;
    Title m_title;
    FleetRuns m_runs;
    std::map<std::string, std::int64_t> m_begun;  // the newest run before, by TV
    bool m_isComplete = false;
    Descriptor m_file;
};

// Runs the application, or judges the run after `before`, which an earlier command has begun. `begin` is told of the
// newest run before a new one.
FleetRun runOn(const fs::path& home, const FleetRequest& request, const std::string& cloud,
               const std::optional<std::int64_t>& before, const std::function<void(std::int64_t)>& begin) {
    constexpr std::chrono::seconds PATIENCE(60);  // with an application that has outlived that command
    FleetRun run;
    const auto timed = [&](const Start& start) {
        const auto launched = std::chrono::steady_clock::now();
        EndedProcess end = execute(start);
        run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - launched).count();
        return end;
    };
    try {
        const FolderLock lock = lockTv(home, before ? PATIENCE : std::chrono::seconds(0));
        Tv tv(home);
        const std::unique_ptr<CloudStore> store = openCloud(cloud, {}, home / DOWN_NOTES);
        const std::int64_t newest = tv.runs().newest();
        const std::optional<Run> begun = before && newest > *before ? tv.runs().find(newest) : std::nullopt;
        if (!begun) {
            begin(newest);
        }
        RunRequest wanted;
        wanted.extras = request.extras;
        wanted.hasOwnGroup = true;
        const RunReport report =
            begun ? reportRun(tv, opened(*store), *begun) : launchAndJudge(wanted, tv, cloud, *store, lock, timed);
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
    Fleet(const FleetRequest& request, std::string cloud, const FleetProgress& progress,
          const std::function<void(const std::string&)>& warn)
        : m_request(request), m_cloud(std::move(cloud)), m_progress(progress), m_round(request, m_cloud, warn) {}

    // Runs one TV after the other until none is left.
    void work() {
        try {
            for (std::string name = takeNext(); !name.empty(); name = takeNext()) {
                const fs::path home = m_request.folder / name;
                if (!pathExists(home)) {
                    const auto copy = [&](ChannelSink& sink) { m_channels->services().copyTo(sink); };
                    Tv::create(home, copy, name, {}, name);
                }
                const FleetRun run = runOn(home, m_request, m_cloud, newestBefore(name), [&](std::int64_t newest) {
                    const std::lock_guard guard(m_mutex);
                    m_round.begin(name, newest);
                });
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
        FleetRuns runs = m_round.runs();
        runs.erase(runs.upper_bound(nameOf(m_request.tvs)), runs.end());
        if (runs.size() == m_request.tvs) {
            m_round.complete();
        }
        return runs;
    }

private:
    static std::string nameOf(std::size_t number) { return fmt::format("tv-{:05}", number); }

    std::optional<std::int64_t> newestBefore(const std::string& name) {
        const std::lock_guard guard(m_mutex);
        return m_round.newestBefore(name);
    }

    bool isWanted(const std::string& name) const {
        const auto run = m_round.runs().find(name);
        return m_request.onlyFailed ? run != m_round.runs().end() && run->second.outcome != Outcome::Done
                                    : run == m_round.runs().end();
    }

    // The next TV that has not run in this round, or has failed; empty if there is none, or if no more runs shall
    // begin.
    std::string takeNext() {
        const std::lock_guard guard(m_mutex);
        while (m_next <= m_request.tvs && !isStopped && !m_failure) {
            std::string name = nameOf(m_next++);
            if (!isWanted(name)) {
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

FleetRuns runFleet(const FleetRequest& request, const std::string& cloud, const FleetProgress& progress,
                   const std::function<void(const std::string&)>& warn) {
    openCloud(cloud);  // fails now rather than on each TV
    makeFolders(request.folder);
    const FolderLock lock = FolderLock::take(request.folder);
    if (!lock.isHeld()) {
        throw Error(Error::Kind::Locked, fmt::format("another fleet run is under way in {}", request.folder.string()));
    }
    Fleet fleet(request, cloud, progress, warn);
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
