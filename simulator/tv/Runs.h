// The records of the application's runs on a TV: a file for each, named after its number.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "simulator/tv/RunFile.h"

namespace sim {

// Every function throws Error if a record cannot be read or written. The caller of those that write must hold the TV's
// run lock (lockTv).
class Runs {
public:
    explicit Runs(std::filesystem::path folder) : m_folder(std::move(folder)) {}

    // Oldest first. A run that has not ended, though its process has, is crashed.
    std::vector<Run> list() const;
    std::optional<Run> find(std::int64_t id) const;
    std::int64_t newest() const;  // its id; 0 before the first

    // None if there is no such run.
    std::vector<CallRecord> calls(std::int64_t run) const;
    std::vector<LogRecord> log(std::int64_t run) const;

    // What the TV's items were when the run began.
    void addBefore(std::int64_t run, const Fingerprints& fingerprints);
    Fingerprints before(std::int64_t run) const;

    // What became of a run. Nothing: nobody has looked at its end.
    void add(std::int64_t run, const Verdict& verdict);
    std::optional<Verdict> verdict(std::int64_t run) const;

    // A new run of the process `pid`.
    Run begin(int pid, const std::string& started);

    // Writes how a run stands.
    void save(const Run& run);

    void add(std::int64_t run, const CallRecord& call);
    void add(std::int64_t run, const LogRecord& log);

    // Forgets all but the newest runs.
    void keep(int count);

    // The run that the process `pid`, which has ended, began after the run `after`; one that did not come to its end is
    // recorded as crashed with `detail`. Nothing: the process did not come so far as to begin a record.
    std::optional<Run> close(std::int64_t after, int pid, const std::string& detail);

private:
    std::vector<std::int64_t> ids() const;  // ascending
    std::filesystem::path fileOf(std::int64_t run) const;
    bool has(std::int64_t run) const;
    RunFile& writer(std::int64_t run);

    std::filesystem::path m_folder;
    std::optional<RunFile> m_writer;  // of the run m_written
    std::int64_t m_written = 0;
};

}  // namespace sim
