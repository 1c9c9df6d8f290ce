// Values as the journal of a run shows them.
#pragma once

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <list>
#include <set>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "simulator/wire/Values.h"

namespace sim {

template <typename Value>
std::string toJournal(const Value& value) {
    static_assert(std::is_arithmetic_v<Value>);
    return fmt::format("{}", value);
}
inline std::string toJournal(const std::string& value) {
    return fmt::format("\"{}\"", value);
}
inline std::string toJournal(const wire::Text& value) {
    return value ? toJournal(*value) : "null";
}
inline std::string toJournal(const wire::Object& value) {
    return value.isThere ? "object" : "null";
}
inline std::string toJournal(const wire::TvMode& value) {
    return fmt::format("{}/{}", value.antenna, value.service);
}
inline std::string toJournal(const wire::Category& value) {
    return fmt::format("{}/{}/{}", value.kind, value.param, value.sort);
}
inline std::string toJournal(const std::list<std::string>& values) {
    return values.empty() ? "[]" : fmt::format("[\"{}\"]", fmt::join(values, "\", \""));
}
inline std::string toJournal(const std::set<int>& values) {
    return fmt::format("{{{}}}", fmt::join(values, ", "));
}
inline std::string toJournal(const wire::None& /*value*/) {
    return "";
}
template <typename Value>
std::string toJournal(const wire::Hidden<Value>& /*value*/) {
    return "";
}

// The arguments of a call.
template <typename... Values>
std::string toJournal(const std::tuple<Values...>& values) {
    std::vector<std::string> texts;
    const auto add = [&](const auto& value) {
        if (std::string text = toJournal(value); !text.empty()) {
            texts.push_back(std::move(text));
        }
    };
    std::apply([&](const auto&... each) { (add(each), ...); }, values);
    return fmt::format("{}", fmt::join(texts, ", "));
}

}  // namespace sim
