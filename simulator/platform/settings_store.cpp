#include "platform/settings_store.h"

#include <fmt/format.h>

#include <cstring>
#include <optional>
#include <string>

#include "simulator/platform/Device.h"

namespace {

template <typename Value, typename Convert>
int get(const char* call, const char* type, const char* key, Value* out, Convert convert) {
    return sim::platformCall(call, key, [&](sim::Given& given) {
        const std::optional<std::string> value = sim::Device::current().tv.setting(key, type);
        if (!value) {
            return -1;
        }
        *out = convert(*value);
        given.text = *value;
        return 0;
    });
}

int set(const char* call, const char* type, const char* key, const std::string& value) {
    return sim::platformCall(call, fmt::format("{}, {}", key, value),
                             [&] { return sim::Device::current().tv.setSetting(key, type, value) ? 0 : -1; });
}

int toInt(const std::string& value) {
    return std::stoi(value);
}

}  // namespace

int vconf_get_int(const char* key, int* out) {
    return get("vconf_get_int", "int", key, out, toInt);
}

int vconf_get_bool(const char* key, int* out) {
    return get("vconf_get_bool", "bool", key, out, toInt);
}

int vconf_get_dbl(const char* key, double* out) {
    return get("vconf_get_dbl", "double", key, out, [](const std::string& value) { return std::stod(value); });
}

char* vconf_get_str(const char* key) {
    return sim::platformCall("vconf_get_str", key, [&]() -> char* {
        const std::optional<std::string> value = sim::Device::current().tv.setting(key, "string");
        return value ? ::strdup(value->c_str()) : nullptr;
    });
}

int vconf_set_int(const char* key, int value) {
    return set("vconf_set_int", "int", key, std::to_string(value));
}

int vconf_set_bool(const char* key, int value) {
    return set("vconf_set_bool", "bool", key, value != 0 ? "1" : "0");
}

int vconf_set_dbl(const char* key, double value) {
    return set("vconf_set_dbl", "double", key, fmt::format("{}", value));
}

int vconf_set_str(const char* key, const char* value) {
    return set("vconf_set_str", "string", key, value);
}
