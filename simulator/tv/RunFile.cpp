#include "simulator/tv/RunFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Text.h"

namespace fs = std::filesystem;
using Json = nlohmann::json;

namespace nlohmann {

// Enums by their names; but a response is any number that the cloud may send.
template <typename Enum>
struct adl_serializer<Enum, std::enable_if_t<std::is_enum_v<Enum> && !std::is_same_v<Enum, sim::Response>>> {
    static void to_json(Json& json, Enum value) { json = sim::nameOf(value); }
    static void from_json(const Json& json, Enum& value) {
        value = sim::fromName<Enum>(json.get<std::string_view>()).value();
    }
};

template <typename Value>
struct adl_serializer<std::optional<Value>> {
    static void to_json(Json& json, const std::optional<Value>& value) { json = value ? Json(*value) : Json(); }
    static void from_json(const Json& json, std::optional<Value>& value) {
        value = json.is_null() ? std::nullopt : std::optional(json.get<Value>());
    }
};

}  // namespace nlohmann

namespace sim {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Run, pid, started, operation, replyRequested, reply, response, reported, account,
                                   clientId, category, backup, ended, detail)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(LaunchRequest, extras, caller, backup, refuseDuplicates)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(CallRecord, seq, at, name, arguments, result, fault)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(LogRecord, seq, at, sink, priority, tag, file, function, line, message)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(ItemVerdict, item, state, detail)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(FiredFault, rule, call, nth, fired)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Reception, onAir, moved, gone, missing)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Verdict, outcome, cause, why, decisive, items, faults, warning,
                                                reception)

namespace {

// The length of the first line: one page of the kernel's cache, so that a kill cannot leave half of it.
constexpr std::size_t HEAD_BYTES = 4096;

// A text that is no UTF-8 would not be JSON.
void makeUtf8(Json& json) {
    if (json.is_string()) {
        json = toUtf8(json.get_ref<const std::string&>());
    } else if (json.is_structured()) {
        for (Json& each : json) {
            makeUtf8(each);
        }
    }
}

template <typename Record>
std::string lineOf(const char* kind, const Record& record) {
    Json line = {{kind, record}};
    makeUtf8(line);
    return line.dump();
}

// Nothing if the line is not whole: it is being rewritten, or a kill or a full disk has cut it off.
template <typename Record>
std::optional<Record> parseLine(const char* kind, std::string_view line) {
    try {
        return Json::parse(line).at(kind).template get<Record>();
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::string headOf(Run run) {
    std::string line = lineOf("run", run);
    while (line.size() >= HEAD_BYTES && !run.detail.empty()) {
        run.detail.resize(startOf(run.detail, run.detail.size() / 2).size());
        line = lineOf("run", run);
    }
    // JSON may end with blanks.
    line.resize(HEAD_BYTES - 1, ' ');
    return line + '\n';
}

// The records of one kind. Most lines of a long file are of another, and are not parsed.
template <typename Record>
std::vector<Record> recordsOf(const fs::path& file, const char* kind) {
    std::vector<Record> records;
    const std::string begin = fmt::format("{{\"{}\":", kind);
    const auto take = [&](std::string_view line) {
        if (line.compare(0, begin.size(), begin) == 0) {
            if (std::optional<Record> record = parseLine<Record>(kind, line)) {
                records.push_back(std::move(*record));
            }
        }
    };
    if (isRegularFile(file)) {
        forEachLine(file, take, limits::RECORD_LINE_BYTES);
    }
    return records;
}

template <typename Record>
std::optional<Record> lastOf(const fs::path& file, const char* kind) {
    std::vector<Record> all = recordsOf<Record>(file, kind);
    return all.empty() ? std::nullopt : std::optional(std::move(all.back()));
}

}  // namespace

void RunFile::create(const Run& run) {
    m_descriptor = openFile(m_file, O_WRONLY | O_CREAT | O_EXCL, 0666);
    try {
        writeAll(m_descriptor, headOf(run), m_file);
    } catch (const Error&) {
        removeFile(m_file);  // half a record would be taken for that of a crash
        throw;
    }
}

void RunFile::save(const Run& run) {
    open();
    const std::string head = headOf(run);
    // In its place, which takes no more room: a full disk cannot hide how the run ended.
    if (::pwrite(m_descriptor.get(), head.data(), head.size(), 0) != static_cast<ssize_t>(head.size())) {
        throw Error::ofSystem(m_file, "cannot write");
    }
}

void RunFile::add(const CallRecord& call) {
    append(lineOf("call", call));
}

void RunFile::add(const LogRecord& log) {
    append(lineOf("log", log));
}

void RunFile::add(const LaunchRequest& launch) {
    append(lineOf("launch", launch));
}

void RunFile::addBefore(const Fingerprints& fingerprints) {
    append(lineOf("before", fingerprints));
}

void RunFile::add(const Verdict& verdict) {
    append(lineOf("verdict", verdict));
}

Run RunFile::run() const {
    constexpr int ATTEMPTS = 3;  // another process may be rewriting it just now
    const Descriptor descriptor = openFile(m_file, O_RDONLY);
    for (int i = 0; i < ATTEMPTS; ++i) {
        std::string head(HEAD_BYTES, '\0');
        const ssize_t size = ::pread(descriptor.get(), head.data(), head.size(), 0);
        head.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
        if (std::optional<Run> run = parseLine<Run>("run", head)) {
            return *run;
        }
    }
    Run damaged;
    damaged.ended = RunEnd::Crashed;
    damaged.detail = "its record is damaged";
    return damaged;
}

std::vector<CallRecord> RunFile::calls() const {
    return recordsOf<CallRecord>(m_file, "call");
}

std::vector<LogRecord> RunFile::log() const {
    return recordsOf<LogRecord>(m_file, "log");
}

LaunchRequest RunFile::launch() const {
    return lastOf<LaunchRequest>(m_file, "launch").value_or(LaunchRequest());
}

Fingerprints RunFile::before() const {
    return lastOf<Fingerprints>(m_file, "before").value_or(Fingerprints());
}

std::optional<Verdict> RunFile::verdict() const {
    // Records are only appended: of several verdicts, the last one holds.
    return lastOf<Verdict>(m_file, "verdict");
}

void RunFile::open() {
    if (m_descriptor.isOpen()) {
        return;
    }
    m_descriptor = openFile(m_file, O_RDWR);
    char last = '\n';
    const off_t size = ::lseek(m_descriptor.get(), 0, SEEK_END);
    m_isTorn = size > 0 && ::pread(m_descriptor.get(), &last, 1, size - 1) == 1 && last != '\n';
}

// If a full disk takes only a part of a line, that is cut off again; if it cannot be, the next line begins after it.
void RunFile::append(std::string line) {
    open();
    line = (m_isTorn ? "\n" : "") + line + "\n";
    const off_t end = ::lseek(m_descriptor.get(), 0, SEEK_END);
    const ssize_t written = ::write(m_descriptor.get(), line.data(), line.size());
    if (written == static_cast<ssize_t>(line.size())) {
        m_isTorn = false;
        return;
    }
    // A write that was cut short gives no reason, but has one only: there was no room.
    const int reason = written < 0 ? errno : ENOSPC;
    m_isTorn = m_isTorn || (written > 0 && ::ftruncate(m_descriptor.get(), end) != 0);
    throw Error::ofSystem(m_file, "cannot write", reason);
}

}  // namespace sim
