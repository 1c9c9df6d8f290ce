// The settings store.
#include <fmt/format.h>

#include <optional>
#include <string>

#include "simulator/base/Text.h"
#include "simulator/device/Calls.h"

namespace sim {

namespace {

using wire::CallId;

template <typename Number>
auto reader(SettingType type) {
    return [type](CurrentCall& call, const std::string& key) -> wire::Answer<int, Number> {
        const std::optional<std::string> text = call.device.tv.settings().get(key, type);
        const std::optional<Number> number = text ? toNumber<Number>(*text) : std::nullopt;
        return {number ? 0 : -1, number};
    };
}

auto writer(SettingType type) {
    return [type](CurrentCall& call, const std::string& key, const auto& value) {
        // For a double, "{}" writes the shortest text that reads back as the same number.
        return call.device.tv.settings().set(key, type, fmt::format("{}", value)) ? 0 : -1;
    };
}

}  // namespace

void addSettingsCalls(Calls& calls) {
    calls.add<CallId::vconf_get_int>(reader<int>(SettingType::Int));
    calls.add<CallId::vconf_get_bool>(reader<int>(SettingType::Bool));
    calls.add<CallId::vconf_get_dbl>(reader<double>(SettingType::Double));
    calls.add<CallId::vconf_get_str>([](CurrentCall& call, const std::string& key) {
        return wire::Text(call.device.tv.settings().get(key, SettingType::String));
    });
    calls.add<CallId::vconf_set_int>(writer(SettingType::Int));
    calls.add<CallId::vconf_set_bool>(writer(SettingType::Bool));
    calls.add<CallId::vconf_set_dbl>(writer(SettingType::Double));
    calls.add<CallId::vconf_set_str>(writer(SettingType::String));
}

}  // namespace sim
