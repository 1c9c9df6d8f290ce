#include "simulator/reports/RunReport.h"

#include <fmt/format.h>

#include "simulator/reports/Words.h"
#include "simulator/tv/Application.h"

namespace sim {

namespace {

Outcome outcomeOf(const Run& run) {
    if (run.ended == RunEnd::Running) {
        return Outcome::Open;
    }
    return application::succeeded(run) ? Outcome::Succeeded : Outcome::Failed;
}

std::string replyOf(const Run& run) {
    if (run.reply) {
        return fmt::format("{} ({})", *run.reply, *run.reply == 0 ? "success" : "failure");
    }
    if (!run.replyRequested) {
        return "none requested";
    }
    return run.operation == "backup" ? "none: a backup never replies" : "none, though one was requested";
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

}  // namespace

RunReport reportOn(const Run& run) {
    return {run, outcomeOf(run), run.response ? words(*run.response) : "none", replyOf(run), endOf(run)};
}

}  // namespace sim
