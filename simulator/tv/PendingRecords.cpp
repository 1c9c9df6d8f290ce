#include "simulator/tv/PendingRecords.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

// An entry is its size, its kind, and its fields: numbers of 64 bits, and texts, each after its size.
enum class Kind : char { Call = 'c', Log = 'l' };

class Writer {
public:
    Writer(Kind kind, std::int64_t run) : m_entry(sizeof(std::uint32_t), '\0') {
        m_entry += static_cast<char>(kind);
        number(run);
    }

    Writer& number(std::int64_t value) {
        append(value);
        return *this;
    }

    Writer& text(const std::string& value) {
        append(static_cast<std::uint32_t>(value.size()));
        m_entry += value;
        return *this;
    }

    // The whole, with its size.
    const std::string& finish() {
        const auto size = static_cast<std::uint32_t>(m_entry.size() - sizeof(std::uint32_t));
        std::memcpy(m_entry.data(), &size, sizeof size);
        return m_entry;
    }

private:
    template <typename Number>
    void append(Number value) {
        m_entry.append(reinterpret_cast<const char*>(&value), sizeof value);
    }

    std::string m_entry;
};

// Takes fields off the front of a text; of one that is too short, zeros and empty texts.
class Reader {
public:
    explicit Reader(std::string_view text) : m_text(text) {}

    bool isAtEnd() const { return m_text.empty(); }

    std::int64_t number() { return take<std::int64_t>(); }
    int smallNumber() { return static_cast<int>(number()); }
    Kind kind() { return take<Kind>(); }

    std::string_view bytes() {
        const std::size_t size = take<std::uint32_t>();
        return take(size);
    }

    std::string text() { return std::string(bytes()); }

private:
    template <typename Value>
    Value take() {
        Value value{};
        const std::string_view bytes = take(sizeof value);
        std::memcpy(&value, bytes.data(), bytes.size());
        return value;
    }

    std::string_view take(std::size_t size) {
        if (size > m_text.size()) {
            m_text = {};
            return {};
        }
        const std::string_view taken = m_text.substr(0, size);
        m_text.remove_prefix(size);
        return taken;
    }

    std::string_view m_text;
};

CallRecord readCall(Reader& reader) {
    CallRecord call;
    call.seq = reader.smallNumber();
    call.at = reader.number();
    call.name = reader.text();
    call.arguments = reader.text();
    call.result = reader.text();
    if (const std::int64_t fault = reader.number(); fault != 0) {  // rules count from 1
        call.fault = fault;
    }
    return call;
}

LogRecord readLog(Reader& reader) {
    LogRecord log;
    log.seq = reader.smallNumber();
    log.at = reader.number();
    log.sink = reader.text();
    log.priority = reader.smallNumber();
    log.tag = reader.text();
    log.file = reader.text();
    log.function = reader.text();
    log.line = reader.smallNumber();
    log.message = reader.text();
    return log;
}

// None where there is no file, or no more.
std::string contentOf(const fs::path& file) {
    try {
        return readFile(file);
    } catch (const Error& error) {
        if (error.kind() != Error::Kind::Missing) {
            throw;
        }
        return "";
    }
}

}  // namespace

void PendingRecords::add(std::int64_t run, const CallRecord& call) {
    append(Writer(Kind::Call, run)
               .number(call.seq)
               .number(call.at)
               .text(call.name)
               .text(call.arguments)
               .text(call.result)
               .number(call.fault.value_or(0))
               .finish());
}

void PendingRecords::add(std::int64_t run, const LogRecord& log) {
    append(Writer(Kind::Log, run)
               .number(log.seq)
               .number(log.at)
               .text(log.sink)
               .number(log.priority)
               .text(log.tag)
               .text(log.file)
               .text(log.function)
               .number(log.line)
               .text(log.message)
               .finish());
}

void PendingRecords::forEach(const VisitCall& visitCall, const VisitLog& visitLog) const {
    const std::string content = contentOf(m_file);
    for (Reader file(content); !file.isAtEnd();) {
        const std::string_view entry = file.bytes();
        if (entry.empty()) {
            return;  // being written just now
        }
        Reader fields(entry);
        const Kind kind = fields.kind();
        const std::int64_t run = fields.number();
        if (kind == Kind::Call) {
            visitCall(run, readCall(fields));
        } else {
            visitLog(run, readLog(fields));
        }
    }
}

void PendingRecords::clear() {
    std::error_code ignored;
    fs::remove(m_file, ignored);
    close();
    m_size = 0;
}

// At its own place, not at the file's end: what a full disk takes only a part of is written over by the next.
void PendingRecords::append(const std::string& entry) {
    if (m_descriptor < 0) {
        m_descriptor = ::open(m_file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        m_end = m_descriptor < 0 ? 0 : ::lseek(m_descriptor, 0, SEEK_END);
    }
    const ssize_t written = m_descriptor < 0 ? -1 : ::pwrite(m_descriptor, entry.data(), entry.size(), m_end);
    if (written != static_cast<ssize_t>(entry.size())) {
        const int reason = written < 0 ? errno : ENOSPC;
        throw Error(kindOfErrno(reason), fmt::format("{}: cannot write: {}", m_file.string(), std::strerror(reason)));
    }
    m_end += written;
    m_size += entry.size();
}

void PendingRecords::close() {
    if (m_descriptor >= 0) {
        ::close(m_descriptor);
        m_descriptor = -1;
    }
}

}  // namespace sim
