// The records of the application's runs on a TV: a file for each, named after its number.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "simulator/tv/RunFile.h"

namespace sim {

// Every function throws Error if a record cannot be read or written.
class Runs {
public:
    explicit Runs(std::filesystem::path folder) : m_folder(std::move(folder)) {}

    // Oldest first. A run that has not ended, though its process has, is crashed.
    std::vector<Run> list() const;
    std::optional<Run> find(std::int64_t id) const;
    std::int64_t newest() const;  // its id; 0 before the first

    // What was recorded of a run; of one that does not exist, nothing.
    RunFile record(std::int64_t id) const { return RunFile(fileOf(id)); }

    // The caller of those below must hold the TV's run lock (lockTv).

    // A new run of the process `pid`.
    Run begin(int pid, const std::string& started);

    // Forgets all but the newest runs.
    void keep(int count);

    // The run that the process `pid` (nothing: any), which has ended, began after the run `after`; one that did not
    // come to its end is recorded as crashed with `detail`. Returns nothing if the process never began a record.
    std::optional<Run> close(std::int64_t after, std::optional<int> pid, const std::string& detail);

private:
    std::vector<std::int64_t> ids() const;  // ascending
    std::filesystem::path fileOf(std::int64_t id) const;

    std::filesystem::path m_folder;
};

}  // namespace sim
