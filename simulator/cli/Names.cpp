#include "simulator/cli/Names.h"

#include <fmt/format.h>

#include <array>

#include "platform/cloud_backup.h"

namespace cli {

namespace {

template <std::size_t N>
std::string nameIn(const std::array<const char*, N>& names, int code) {
    return code >= 0 && code < static_cast<int>(N) ? names[static_cast<std::size_t>(code)] : "unknown";
}

}  // namespace

std::string nameOfResponse(int code) {
    switch (code) {
        case BNR_RESPONSE_UNHANDLED:
            return "unhandled";
        case BNR_RESPONSE_BACKUP_COMPLETED:
            return "backup completed";
        case BNR_RESPONSE_RESTORE_DATA:
            return "restore data";
        case BNR_RESPONSE_LIST_DEVICES_COMPLETED:
            return "device listing completed";
        case BNR_RESPONSE_ERROR:
            return "error";
        case BNR_RESPONSE_BACKUP_SCHEMA_ERROR:
            return "backup schema error";
        case BNR_RESPONSE_SERVER_NOT_RESPONDING:
            return "server not responding";
        case BNR_RESPONSE_DUPLICATED_DATA:
            return "duplicated data";
        default:
            return "invalid";
    }
}

std::string nameOfMode(const sim::Viewing& viewing) {
    constexpr std::array<const char*, 3> ANTENNA = {"terrestrial", "cable", "satellite"};
    constexpr std::array<const char*, 3> SERVICE = {"all", "television", "radio"};
    return fmt::format("{}, {} services ({}/{})", nameIn(ANTENNA, viewing.antennaMode),
                       nameIn(SERVICE, viewing.serviceMode), viewing.antennaMode, viewing.serviceMode);
}

std::string nameOfSource(const sim::Viewing& viewing) {
    return viewing.source == 0 ? "the tuner (0)" : fmt::format("external input ({})", viewing.source);
}

std::string nameOfCategory(const sim::Viewing& viewing) {
    constexpr std::array<const char*, 3> CATEGORY = {"all services", "favourite list", "group"};
    constexpr std::array<const char*, 3> SORT = {"number", "name", "provider"};
    const std::string param = viewing.category == 0 ? "" : fmt::format(" {}", viewing.categoryParam);
    return fmt::format("{}{}, by {} ({}/{}/{})", nameIn(CATEGORY, viewing.category), param,
                       nameIn(SORT, viewing.sortMode), viewing.category, viewing.categoryParam, viewing.sortMode);
}

}  // namespace cli
