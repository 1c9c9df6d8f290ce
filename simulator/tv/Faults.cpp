#include "simulator/tv/Faults.h"

#include <fmt/format.h>

#include <algorithm>

#include "simulator/base/Database.h"
#include "simulator/base/Error.h"
#include "simulator/base/Text.h"

namespace sim {

namespace {

std::string failureKind(const std::string& failure) {
    return failure.substr(0, failure.find('='));
}

bool takesNumber(Failure::Kind kind) {
    return kind == Failure::Kind::Result || kind == Failure::Kind::Answer || kind == Failure::Kind::Delay;
}

// `candidates` are for the message.
Failure parseFailure(const std::string& text, const std::vector<std::string>& candidates = {}) {
    const std::optional<Failure::Kind> kind = fromName<Failure::Kind>(failureKind(text));
    const std::size_t equals = text.find('=');
    const std::string value = equals == std::string::npos ? "" : text.substr(equals + 1);
    const std::optional<Damage> damage = fromName<Damage>(value);
    const bool hasValue = equals != std::string::npos;
    const bool wantsValue = kind && (takesNumber(*kind) || *kind == Failure::Kind::Damage);
    if (!kind || hasValue != wantsValue || (*kind == Failure::Kind::Damage && !damage)) {
        throw Error(
            fmt::format("no failure {}{}; see: halcyon-tv fault calls", inQuotes(text), didYouMean(text, candidates)));
    }
    const std::optional<int> number = takesNumber(*kind) ? toNumber<int>(value) : 0;
    if (!number) {
        throw Error(fmt::format("failure {}: {} is not a number", inQuotes(text), inQuotes(value)));
    }
    if (*kind == Failure::Kind::Delay && *number < 0) {
        throw Error(fmt::format("failure {}: a delay cannot be negative", inQuotes(text)));
    }
    return {*kind, *number, damage.value_or(Damage::Missing)};
}

}  // namespace

std::string toText(const Failure& failure) {
    const std::string_view kind = nameOf(failure.kind);
    if (takesNumber(failure.kind)) {
        return fmt::format("{}={}", kind, failure.number);
    }
    return failure.kind == Failure::Kind::Damage ? fmt::format("{}={}", kind, nameOf(failure.damage))
                                                 : std::string(kind);
}

FaultRule makeRule(const std::string& call, const std::string& failure) {
    const PlatformCall* known = findPlatformCall(call);
    if (known == nullptr || known->failures.empty()) {
        throw Error(fmt::format("no call {} can fail{}; see: halcyon-tv fault calls", inQuotes(call),
                                known == nullptr ? nearCall(call) : ""));
    }
    const std::vector<std::string> failures = known->failureList();
    FaultRule rule;
    rule.call = call;
    rule.failure = parseFailure(failure, failures);
    // The list has only the numbers that are worth a test.
    const bool hasNumber = takesNumber(rule.failure.kind);
    if (std::none_of(failures.begin(), failures.end(), [&](const std::string& each) {
            return hasNumber ? failureKind(each) == failureKind(failure) : each == failure;
        })) {
        throw Error(fmt::format("{} cannot fail with {}{}; see: halcyon-tv fault calls", call, inQuotes(failure),
                                didYouMean(failure, failures)));
    }
    return rule;
}

std::int64_t Faults::add(const FaultRule& rule) {
    if (rule.nth < 1 || rule.times < 0) {
        throw Error(
            fmt::format("a rule counts calls from 1 and fires 0 (every time) or more times, not from {} and {} times",
                        rule.nth, rule.times));
    }
    m_database.change("INSERT INTO faults(call, failure, nth, times) VALUES(?, ?, ?, ?)", rule.call,
                      toText(rule.failure), rule.nth, rule.times);
    return m_database.lastRow();
}

std::vector<FaultRule> Faults::list() const {
    Statement query(m_database, "SELECT id, call, failure, nth, times, fired FROM faults ORDER BY id");
    std::vector<FaultRule> rules;
    while (query.next()) {
        rules.push_back({query.integer(0), query.text(1), parseFailure(query.text(2)),
                         static_cast<int>(query.integer(3)), static_cast<int>(query.integer(4)),
                         static_cast<int>(query.integer(5))});
    }
    return rules;
}

void Faults::countFired(std::int64_t id) {
    m_database.change("UPDATE faults SET fired = fired + 1 WHERE id = ?", id);
}

bool Faults::remove(std::int64_t id) {
    return m_database.change("DELETE FROM faults WHERE id = ?", id) == 1;
}

void Faults::clear() {
    m_database.run("DELETE FROM faults");
}

}  // namespace sim
