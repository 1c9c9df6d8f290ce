// The file of a run's record: lines of JSON. The first says how the run stands, and is padded so that it can be
// rewritten in its place, even on a full disk. The others are appended as things happen. Each is an object whose one
// key tells its kind: {"run": ...}, then {"call": ...}, {"log": ...}, {"launch": ...}, {"before": ...} and {"verdict":
// ...}. A line that a kill or a full disk has cut off is skipped.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "simulator/base/Descriptor.h"
#include "simulator/lineup/Setup.h"
#include "simulator/tv/Run.h"
#include "simulator/tv/Verdict.h"

namespace sim {

class RunFile {
public:
    explicit RunFile(std::filesystem::path file) : m_file(std::move(file)) {}

    // Writing throws Error if it fails; what was there before stays. The caller must hold the TV's run lock (lockTv).
    // What is written outlives this process; a power cut may take the last records.
    void create(const Run& run);
    void save(const Run& run);
    void add(const CallRecord& call);
    void add(const LogRecord& log);
    void add(const LaunchRequest& launch);
    void addBefore(const Fingerprints& fingerprints);  // what the TV's items were when the run began
    void add(const Verdict& verdict);

    // Reading may go on while another process writes. Throws Error if the file cannot be read.
    Run run() const;  // without its id, which is in the name of the file
    std::vector<CallRecord> calls() const;
    std::vector<LogRecord> log() const;
    LaunchRequest launch() const;            // none was added: the default
    Fingerprints before() const;             // none were added: empty
    std::optional<Verdict> verdict() const;  // nothing if nobody has looked at the end of the run

private:
    void open();
    void append(std::string line);

    std::filesystem::path m_file;
    Descriptor m_descriptor;
    bool m_isTorn = false;  // the last line has no end
};

}  // namespace sim
