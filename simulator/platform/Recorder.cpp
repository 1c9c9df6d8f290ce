#include "simulator/platform/Recorder.h"

#include <unistd.h>

#include "simulator/base/Clock.h"
#include "simulator/base/Error.h"

namespace sim {

Recorder::Recorder(Runs& runs) : m_runs(runs) {
    m_run.id = m_runs.begin(static_cast<int>(::getpid()), utcNow());
}

void Recorder::launched(const std::string& operation, bool replyRequested) {
    m_run.operation = operation;
    m_run.replyRequested = replyRequested;
    save();
}

void Recorder::replied(int result) {
    m_run.reply = result;
    save();
}

void Recorder::responded(int code) {
    m_run.response = static_cast<Response>(code);
    save();
}

void Recorder::reported(const std::string& outcome) {
    m_run.reported = outcome;
    save();
}

void Recorder::ended(RunEnd end, const std::string& detail) {
    m_run.ended = end;
    m_run.detail = detail;
    save();
}

void Recorder::call(std::string_view name, const std::string& arguments, const std::string& result,
                    const std::optional<std::int64_t>& fault) {
    attempt([&] { m_runs.add(m_run.id, CallRecord{++m_seq, std::string(name), arguments, result, fault}); });
}

void Recorder::systemLog(int priority, const std::string& tag, const std::string& text) {
    attempt([&] { m_runs.add(m_run.id, LogRecord{++m_seq, "system", priority, tag, "", "", 0, text}); });
}

void Recorder::logger(const std::string& file, const std::string& function, int line, const std::string& message) {
    attempt([&] { m_runs.add(m_run.id, LogRecord{++m_seq, "logger", 0, "", file, function, line, message}); });
}

void Recorder::save() {
    attempt([&] { m_runs.save(m_run); });
}

template <typename Write>
void Recorder::attempt(Write write) {
    try {
        write();
    } catch (const Error& error) {
        if (++m_dropped == 1) {
            m_reason = error.what();
        }
    }
}

}  // namespace sim
