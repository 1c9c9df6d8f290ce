// The file of a run's record: lines of JSON. The first says how the run stands, and is padded so that it can be
// rewritten in its place, even on a full disk. The others are appended as things happen: {"call": ...}, {"log": ...},
// {"before": ...} and {"verdict": ...}. A line that a kill or a full disk has cut off is skipped.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "simulator/base/Descriptor.h"
#include "simulator/lineup/Setup.h"
#include "simulator/tv/Run.h"
#include "simulator/tv/Verdict.h"

namespace sim {

class RunFile {
public:
    explicit RunFile(std::filesystem::path file) : m_file(std::move(file)) {}

    // Writing throws Error if it fails; what was there before stays. From here on a record is kept, whatever becomes of
    // the process; a power cut may take the last ones.
    void create(const Run& run);
    void save(const Run& run);
    void add(const CallRecord& call);
    void add(const LogRecord& log);
    void addBefore(const Fingerprints& fingerprints);
    void add(const Verdict& verdict);

    // Reading may go on while another process writes. Throws Error if the file cannot be read. The id of the run is its
    // file's.
    Run run() const;
    void forEachCall(const std::function<void(CallRecord)>& visit) const;
    void forEachLog(const std::function<void(LogRecord)>& visit) const;
    Fingerprints before() const;
    std::optional<Verdict> verdict() const;

private:
    void open();
    void append(std::string line);

    std::filesystem::path m_file;
    Descriptor m_descriptor;
    bool m_isTorn = false;  // the last line has no end
};

}  // namespace sim
