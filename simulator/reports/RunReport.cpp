#include "simulator/reports/RunReport.h"

#include <fmt/format.h>

#include <algorithm>

#include "simulator/base/Error.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/Words.h"
#include "simulator/reports/Judge.h"

namespace sim {

namespace {

std::string replyOf(const Run& run) {
    if (run.reply) {
        return fmt::format("{} ({})", *run.reply, *run.reply == 0 ? "success" : "failure");
    }
    if (!run.replyRequested) {
        return "none requested";
    }
    return run.operation == Operation::Backup ? "none: a backup never replies" : "none, though one was requested";
}

std::string endOf(const Run& run) {
    std::string end(nameOf(run.ended));
    if (run.ended == RunEnd::Exit) {
        end = "own exit";
    } else if (run.ended == RunEnd::Reclaimed) {
        end = "reclaimed by the framework: nothing left to wait for";
    } else if (run.ended == RunEnd::Waiting) {
        end = "still waiting for what will never come";
    }
    return run.detail.empty() ? end : fmt::format("{}: {}", end, run.detail);
}

Verdict verdictByRecord(const Run& run) {
    const auto unseen = [](Outcome outcome, Cause cause) {
        return Verdict{outcome, cause, "the TV was not checked at the end of this run", 0, {}, {}, ""};
    };
    switch (run.ended) {
        case RunEnd::Running:
            return unseen(Outcome::Open, Cause::Other);
        case RunEnd::Crashed:
            return unseen(Outcome::Crashed, Cause::Exception);
        default:
            return succeeded(run) ? unseen(Outcome::Done, Cause::None) : unseen(Outcome::Failed, Cause::Other);
    }
}

// What this machine or the store lacks is no failure of the run.
Verdict judgeNow(const Tv& tv, const StoreOpener& store, const Run& run) {
    try {
        return judge(tv, store(), run);
    } catch (const Error& error) {
        Verdict verdict;
        verdict.outcome = Outcome::Unchecked;
        const bool isOfCloud = error.kind() == Error::Kind::Unreachable || error.kind() == Error::Kind::Denied;
        verdict.cause = isOfCloud ? Cause::Cloud : Cause::Other;
        verdict.why = fmt::format("the run has ended, but what became of it cannot be checked: {}{}", error.what(),
                                  isOfCloud ? "; check it later with: halcyon-tv record" : "");
        return verdict;
    }
}

Verdict verdictOn(const Tv& tv, const StoreOpener& store, const Run& run) {
    if (std::optional<Verdict> given = tv.runs().record(run.id).verdict()) {
        return *given;
    }
    // Of an older run, nobody can tell any more what was on the TV when it ended.
    return run.id == tv.runs().newest() ? judgeNow(tv, store, run) : verdictByRecord(run);
}

// A record of the system log, and the logger's of the same message behind it, as one.
std::vector<LogRecord> merged(const std::vector<LogRecord>& log) {
    std::vector<LogRecord> records;
    for (const LogRecord& record : log) {
        LogRecord* last = records.empty() ? nullptr : &records.back();
        if (record.sink == LogSink::Logger && last != nullptr && last->sink == LogSink::System &&
            last->seq + 1 == record.seq) {
            last->sink = LogSink::Both;
            last->file = record.file;
            last->function = record.function;
            last->line = record.line;
            last->message = record.message;
        } else {
            records.push_back(record);
        }
    }
    return records;
}

std::string textOf(const CallRecord& call) {
    const std::string fault = call.fault ? fmt::format("   [fault rule {}]", *call.fault) : "";
    const std::string result = call.result.empty() ? "" : fmt::format(" = {}", call.result);
    return fmt::format("call  {}({}){}{}", call.name, call.arguments, result, fault);
}

std::string textOf(const LogRecord& log) {
    const std::string message = log.message.substr(0, log.message.find_last_not_of(" \n") + 1);
    const std::string sink = log.sink == LogSink::Both ? "" : fmt::format("{} ", nameOf(log.sink));
    if (log.file.empty()) {
        return fmt::format("log {} {}{}: {}", log.priority, sink, log.tag, message);
    }
    return fmt::format("log {} {}{}: {}({}): {}", log.priority, sink, log.file, log.function, log.line, message);
}

bool passes(const TimelineFilter& filter, const LogRecord& record) {
    return filter.log && record.priority >= filter.priority && record.message.find(filter.text) != std::string::npos;
}

bool passes(const TimelineFilter& filter, const CallRecord& call) {
    const bool isNamed = filter.call.empty() || filter.call == call.name;
    const std::string text = fmt::format("{}({}) = {}", call.name, call.arguments, call.result);
    return filter.calls && isNamed && text.find(filter.text) != std::string::npos;
}

}  // namespace

RunReport reportRun(const Tv& tv, const StoreOpener& store, const Run& run) {
    return {run, verdictOn(tv, store, run), run.response ? words(*run.response) : "none", replyOf(run), endOf(run)};
}

std::vector<RunReport> reportRuns(const Tv& tv, const StoreOpener& store) {
    std::vector<RunReport> reports;
    for (const Run& run : tv.runs().list()) {
        reports.push_back(reportRun(tv, store, run));
    }
    return reports;
}

std::string textOf(const Moment& moment) {
    return moment.call ? textOf(*moment.call) : textOf(*moment.log);
}

std::vector<Moment> timelineOf(const Tv& tv, const RunReport& report, const TimelineFilter& filter) {
    std::vector<Moment> timeline;
    // Both kinds share one sequence, which is put together again here.
    const auto isDecisive = [&](int seq) { return seq == report.verdict.decisive; };
    for (const CallRecord& call : tv.runs().record(report.run.id).calls()) {
        if (passes(filter, call)) {
            timeline.push_back({call.seq, call.at, call, std::nullopt, isDecisive(call.seq)});
        }
    }
    const std::vector<LogRecord> log = tv.runs().record(report.run.id).log();
    for (const LogRecord& record : filter.sinks ? log : merged(log)) {
        if (passes(filter, record)) {
            timeline.push_back({record.seq, record.at, std::nullopt, record, isDecisive(record.seq)});
        }
    }
    std::sort(timeline.begin(), timeline.end(),
              [](const Moment& left, const Moment& right) { return left.seq < right.seq; });
    return timeline;
}

}  // namespace sim
