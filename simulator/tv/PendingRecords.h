// Records on their way into a TV's database. A database takes a thousand at once as fast as a few, so they wait in a
// file; from the moment that one is added it outlives the process, however that ends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>

#include "simulator/tv/Records.h"

namespace sim {

class PendingRecords {
public:
    explicit PendingRecords(std::filesystem::path file) : m_file(std::move(file)) {}
    PendingRecords(const PendingRecords&) = delete;
    PendingRecords& operator=(const PendingRecords&) = delete;
    ~PendingRecords() { close(); }

    // Throws Error where it cannot be written; then it is not there.
    void add(std::int64_t run, const CallRecord& call);
    void add(std::int64_t run, const LogRecord& log);

    // How many bytes this object has added since the last clear().
    std::size_t size() const { return m_size; }

    // Visits those in the file with their runs, whoever added them, in their order. Throws Error where there is a file
    // that cannot be read.
    using VisitCall = std::function<void(std::int64_t run, const CallRecord& call)>;
    using VisitLog = std::function<void(std::int64_t run, const LogRecord& log)>;
    void forEach(const VisitCall& visitCall, const VisitLog& visitLog) const;

    // Removes the file.
    void clear();

private:
    void append(const std::string& entry);
    void close();

    std::filesystem::path m_file;
    int m_descriptor = -1;
    std::int64_t m_end = 0;  // of the entries in the file
    std::size_t m_size = 0;
};

}  // namespace sim
