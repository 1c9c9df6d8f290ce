#include "simulator/device/Recorder.h"

#include "simulator/base/Clock.h"
#include "simulator/base/Error.h"
#include "simulator/base/Limits.h"

namespace sim {

Recorder::Recorder(Tv& tv, const EventLoop& loop, int process, int keep)
    : m_tv(tv), m_loop(loop), m_run(tv.runs().begin(process, toUtc(tv.now()))), m_record(tv.runs().record(m_run.id)) {
    attempt([&] { tv.runs().keep(keep); });
}

void Recorder::launched(Operation operation, const LaunchOptions& launch) {
    m_run.operation = operation;
    m_run.replyRequested = launch.replyRequested;
    save();
    attempt([&] { m_record.add(LaunchRequest{launch.extras, launch.caller, launch.backup, launch.refuseDuplicates}); });
    if (operation == Operation::Restore) {
        attempt([&] { m_record.addBefore(m_tv.fingerprints()); });
    }
}

void Recorder::replied(int result) {
    m_run.reply = result;
    save();
}

void Recorder::responded(int code) {
    m_run.response = static_cast<Response>(code);
    save();
}

void Recorder::transferred(const Address& address, const std::string& backup) {
    m_run.account = address.account;
    m_run.clientId = address.clientId;
    m_run.category = address.category;
    m_run.backup = backup;
    save();
}

void Recorder::reported(Reported outcome) {
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
    attempt([&] {
        m_record.add(CallRecord{++m_seq, now(), std::string(name), limits::cut(arguments), limits::cut(result), fault});
    });
}

void Recorder::systemLog(int priority, const std::string& tag, const std::string& text) {
    attempt([&] {
        m_record.add(LogRecord{++m_seq, now(), LogSink::System, priority, tag, "", "", 0, limits::cut(text)});
    });
}

void Recorder::logger(const std::string& file, const std::string& function, int line, const std::string& message) {
    attempt([&] {
        m_record.add(LogRecord{++m_seq, now(), LogSink::Logger, 0, "", file, function, line, limits::cut(message)});
    });
}

void Recorder::save() {
    attempt([&] { m_record.save(m_run); });
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
