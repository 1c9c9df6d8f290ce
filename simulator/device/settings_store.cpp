#include "platform/settings_store.h"

#include <fmt/format.h>

#include <cstring>
#include <optional>
#include <string>

#include "simulator/base/Text.h"
#include "simulator/device/Journal.h"

namespace {

template <typename Number>
int get(const sim::PlatformCall& call, sim::SettingType type, const char* key, Number* out) {
    return sim::platformCall(call, std::tuple(key), [&](sim::Device& device, sim::Given& given) {
        const std::optional<std::string> text = device.tv.settings().get(key, type);
        const std::optional<Number> number = text ? sim::toNumber<Number>(*text) : std::nullopt;
        if (!number) {
            return -1;
        }
        *out = *number;
        given = sim::toJournal(*out);
        return 0;
    });
}

int set(const sim::PlatformCall& call, sim::SettingType type, const char* key, const std::string& value) {
    return sim::platformCall(call, std::tuple(key, value),
                             [&](sim::Device& device) { return device.tv.settings().set(key, type, value) ? 0 : -1; });
}

}  // namespace

int vconf_get_int(const char* key, int* out) {
    return get(sim::calls::vconf_get_int, sim::SettingType::Int, key, out);
}

int vconf_get_bool(const char* key, int* out) {
    return get(sim::calls::vconf_get_bool, sim::SettingType::Bool, key, out);
}

int vconf_get_dbl(const char* key, double* out) {
    return get(sim::calls::vconf_get_dbl, sim::SettingType::Double, key, out);
}

char* vconf_get_str(const char* key) {
    return sim::platformCall(sim::calls::vconf_get_str, std::tuple(key), [&](sim::Device& device) -> char* {
        const std::optional<std::string> value = device.tv.settings().get(key, sim::SettingType::String);
        return value ? ::strdup(value->c_str()) : nullptr;
    });
}

int vconf_set_int(const char* key, int value) {
    return set(sim::calls::vconf_set_int, sim::SettingType::Int, key, std::to_string(value));
}

int vconf_set_bool(const char* key, int value) {
    return set(sim::calls::vconf_set_bool, sim::SettingType::Bool, key, value != 0 ? "1" : "0");
}

int vconf_set_dbl(const char* key, double value) {
    return set(sim::calls::vconf_set_dbl, sim::SettingType::Double, key, fmt::format("{}", value));
}

int vconf_set_str(const char* key, const char* value) {
    return set(sim::calls::vconf_set_str, sim::SettingType::String, key, value);
}
