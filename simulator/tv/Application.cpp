#include "simulator/tv/Application.h"

#include <fmt/format.h>

#include "simulator/tv/Runs.h"

namespace sim::application {

bool isRestore(std::string_view operation) {
    return operation == "restore" || operation == "RESTORE";
}

std::string favouriteKey(int list) {
    return fmt::format("db/menu/broadcasting/channel_manager/favname{}", list);
}

bool succeeded(const Run& run) {
    if (run.operation == "backup") {
        return run.ended == RunEnd::Exit && run.response == Response::BackupCompleted;
    }
    return run.reported == "success" && (run.ended == RunEnd::Exit || run.ended == RunEnd::Reclaimed);
}

}  // namespace sim::application
