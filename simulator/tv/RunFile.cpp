#include "simulator/tv/RunFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Text.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

// Keys in the order in which they are written: a line's first tells its kind.
using Json = nlohmann::ordered_json;

// Of the first line. It lies within one page of the kernel's cache, so that a kill cannot leave half of it.
constexpr std::size_t HEAD_BYTES = 4096;
constexpr std::size_t MAX_DETAIL_BYTES = 1024;

// A text that is no UTF-8 would not be JSON.
template <typename Value>
Json json(const Value& value) {
    if constexpr (std::is_convertible_v<const Value&, std::string_view>) {
        return toUtf8(value);
    } else {
        return value;
    }
}
template <typename Value>
Json json(const std::optional<Value>& value) {
    return value ? json(*value) : Json();
}

template <typename Enum>
std::optional<Enum> enumOf(const Json& name) {
    return fromName<Enum>(name.get<std::string>());
}

template <typename Value>
std::optional<Value> optionalOf(const Json& value) {
    return value.is_null() ? std::nullopt : std::optional(value.get<Value>());
}

std::string headOf(const Run& run) {
    std::string line = Json{{"run", json(run.started)},
                            {"pid", run.pid},
                            {"operation", json(nameOf(run.operation))},
                            {"replyRequested", run.replyRequested},
                            {"reply", json(run.reply)},
                            {"response", run.response ? Json(codeOf(*run.response)) : Json()},
                            {"reported", json(nameOf(run.reported))},
                            {"account", json(run.account)},
                            {"clientId", json(run.clientId)},
                            {"category", json(run.category)},
                            {"backup", json(run.backup)},
                            {"ended", json(nameOf(run.ended))},
                            {"detail", json(run.detail.substr(0, MAX_DETAIL_BYTES))}}
                           .dump();
    line.resize(HEAD_BYTES - 1, ' ');
    return line + '\n';
}

// Nothing: it is being rewritten, or a power cut has left half of it.
std::optional<Run> parseHead(const std::string& line) {
    const Json head = Json::parse(line, nullptr, false);
    if (!head.is_object()) {
        return std::nullopt;
    }
    try {
        Run run;
        run.started = head.at("run");
        run.pid = head.at("pid");
        run.operation = enumOf<Operation>(head.at("operation")).value_or(Operation::None);
        run.replyRequested = head.at("replyRequested");
        run.reply = optionalOf<int>(head.at("reply"));
        if (const std::optional<int> response = optionalOf<int>(head.at("response"))) {
            run.response = static_cast<Response>(*response);
        }
        run.reported = enumOf<Reported>(head.at("reported")).value_or(Reported::Nothing);
        run.account = head.at("account");
        run.clientId = head.at("clientId");
        run.category = head.at("category");
        run.backup = head.at("backup");
        run.ended = enumOf<RunEnd>(head.at("ended")).value_or(RunEnd::Crashed);
        run.detail = head.at("detail");
        return run;
    } catch (const Json::exception&) {
        return std::nullopt;
    }
}

CallRecord callOf(const Json& line) {
    CallRecord call;
    call.name = line.at("call");
    call.seq = line.at("seq");
    call.at = line.at("at");
    call.arguments = line.at("arguments");
    call.result = line.at("result");
    call.fault = optionalOf<std::int64_t>(line.at("fault"));
    return call;
}

LogRecord logOf(const Json& line) {
    LogRecord log;
    log.message = line.at("log");
    log.seq = line.at("seq");
    log.at = line.at("at");
    log.sink = enumOf<LogSink>(line.at("sink")).value_or(LogSink::System);
    log.priority = line.at("priority");
    log.tag = line.at("tag");
    log.file = line.at("file");
    log.function = line.at("function");
    log.line = line.at("line");
    return log;
}

Fingerprints fingerprintsOf(const Json& line) {
    Fingerprints fingerprints;
    for (const auto& [name, digest] : line.at("before").items()) {
        if (const std::optional<Item> item = fromName<Item>(name)) {
            fingerprints[*item] = digest;
        }
    }
    return fingerprints;
}

Verdict verdictOf(const Json& line) {
    Verdict verdict;
    verdict.outcome = enumOf<Outcome>(line.at("verdict")).value_or(Outcome::Failed);
    verdict.cause = enumOf<Cause>(line.at("cause")).value_or(Cause::Other);
    verdict.why = line.at("why");
    verdict.decisive = line.at("decisive");
    for (const Json& each : line.at("items")) {
        const std::optional<Item> item = enumOf<Item>(each.at("item"));
        const std::optional<ItemState> state = enumOf<ItemState>(each.at("state"));
        if (item && state) {
            verdict.items.push_back({*item, *state, each.at("detail")});
        }
    }
    return verdict;
}

// Visits the lines of a kind. Most lines of a long record are of another, and are not parsed.
void forEachOf(const fs::path& file, std::string_view kind, const std::function<void(const Json&)>& visit) {
    const std::string begin = fmt::format("{{\"{}\":", kind);
    forEachLine(file, [&](std::string_view line) {
        if (line.compare(0, begin.size(), begin) != 0) {
            return;
        }
        const Json parsed = Json::parse(line, nullptr, false);
        try {
            if (parsed.is_object()) {
                visit(parsed);
            }
        } catch (const Json::exception&) {  // not as it is written here
        }
    });
}

}  // namespace

void RunFile::create(const Run& run) {
    m_descriptor = openFile(m_file, O_WRONLY | O_CREAT | O_EXCL, 0666);
    writeAll(m_descriptor, headOf(run), m_file);
}

void RunFile::save(const Run& run) {
    open();
    const std::string head = headOf(run);
    if (::pwrite(m_descriptor.get(), head.data(), head.size(), 0) != static_cast<ssize_t>(head.size())) {
        throw Error::ofSystem(m_file, "cannot write");
    }
}

void RunFile::add(const CallRecord& call) {
    append(Json{{"call", json(call.name)},
                {"seq", call.seq},
                {"at", call.at},
                {"arguments", json(call.arguments)},
                {"result", json(call.result)},
                {"fault", json(call.fault)}}
               .dump());
}

void RunFile::add(const LogRecord& log) {
    append(Json{{"log", json(log.message)},
                {"seq", log.seq},
                {"at", log.at},
                {"sink", json(nameOf(log.sink))},
                {"priority", log.priority},
                {"tag", json(log.tag)},
                {"file", json(log.file)},
                {"function", json(log.function)},
                {"line", log.line}}
               .dump());
}

void RunFile::addBefore(const Fingerprints& fingerprints) {
    Json digests = Json::object();
    for (const auto& [item, digest] : fingerprints) {
        digests[std::string(nameOf(item))] = digest;
    }
    append(Json{{"before", digests}}.dump());
}

void RunFile::add(const Verdict& verdict) {
    Json items = Json::array();
    for (const ItemVerdict& item : verdict.items) {
        items.push_back(Json{
            {"item", json(nameOf(item.item))}, {"state", json(nameOf(item.state))}, {"detail", json(item.detail)}});
    }
    append(Json{{"verdict", json(nameOf(verdict.outcome))},
                {"cause", json(nameOf(verdict.cause))},
                {"why", json(verdict.why)},
                {"decisive", verdict.decisive},
                {"items", items}}
               .dump());
}

Run RunFile::run() const {
    constexpr int ATTEMPTS = 3;  // another process may be rewriting it just now
    const Descriptor descriptor = openFile(m_file, O_RDONLY);
    for (int i = 0; i < ATTEMPTS; ++i) {
        std::string head(HEAD_BYTES, '\0');
        const ssize_t size = ::pread(descriptor.get(), head.data(), head.size(), 0);
        head.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
        if (std::optional<Run> run = parseHead(head)) {
            return *run;
        }
    }
    Run damaged;
    damaged.ended = RunEnd::Crashed;
    damaged.detail = "its record is damaged";
    return damaged;
}

void RunFile::forEachCall(const std::function<void(CallRecord)>& visit) const {
    forEachOf(m_file, "call", [&](const Json& line) { visit(callOf(line)); });
}

void RunFile::forEachLog(const std::function<void(LogRecord)>& visit) const {
    forEachOf(m_file, "log", [&](const Json& line) { visit(logOf(line)); });
}

Fingerprints RunFile::before() const {
    Fingerprints fingerprints;
    forEachOf(m_file, "before", [&](const Json& line) { fingerprints = fingerprintsOf(line); });
    return fingerprints;
}

std::optional<Verdict> RunFile::verdict() const {
    std::optional<Verdict> verdict;
    forEachOf(m_file, "verdict", [&](const Json& line) { verdict = verdictOf(line); });
    return verdict;
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

// What a full disk takes only a part of is cut off again; if it cannot be, the next line begins after it.
void RunFile::append(std::string line) {
    open();
    line = (m_isTorn ? "\n" : "") + line + "\n";
    const off_t end = ::lseek(m_descriptor.get(), 0, SEEK_END);
    const ssize_t written = ::write(m_descriptor.get(), line.data(), line.size());
    if (written == static_cast<ssize_t>(line.size())) {
        m_isTorn = false;
        return;
    }
    const int reason = written < 0 ? errno : ENOSPC;
    m_isTorn = m_isTorn || (written > 0 && ::ftruncate(m_descriptor.get(), end) != 0);
    throw Error::ofSystem(m_file, "cannot write", reason);
}

}  // namespace sim
