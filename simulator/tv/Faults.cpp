#include "simulator/tv/Faults.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <climits>

#include "simulator/base/Clock.h"
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

std::optional<int> numberIn(Failure::Kind kind, const std::string& text) {
    if (kind == Failure::Kind::Delay) {
        if (const auto duration = toDuration(text); duration && duration->count() <= INT_MAX) {
            return static_cast<int>(duration->count());
        }
    }
    return toNumber<int>(text);
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
    const std::optional<int> number = takesNumber(*kind) ? numberIn(*kind, value) : 0;
    if (!number) {
        throw Error(
            fmt::format("failure {}: {} is not a number{}", inQuotes(text), inQuotes(value),
                        *kind == Failure::Kind::Delay ? " of milliseconds, or one with a unit such as 5s" : ""));
    }
    if (*kind == Failure::Kind::Delay && *number < 0) {
        throw Error(fmt::format("failure {}: a delay cannot be negative", inQuotes(text)));
    }
    return {*kind, *number, damage.value_or(Damage::Missing)};
}

Failure failureOf(const PlatformCall& call, const std::string& text) {
    std::vector<std::string> known = call.failureList();
    known.emplace_back(nameOf(Failure::Kind::Works));
    const Failure failure = parseFailure(text, known);
    // The list has only the numbers that are worth a test.
    const bool hasNumber = takesNumber(failure.kind);
    if (std::none_of(known.begin(), known.end(), [&](const std::string& each) {
            return hasNumber ? failureKind(each) == failureKind(text) : each == text;
        })) {
        throw Error(fmt::format("{} cannot fail with {}{}; see: halcyon-tv fault calls", call.name, inQuotes(text),
                                didYouMean(text, known)));
    }
    return failure;
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

std::string toText(const std::vector<Failure>& failures) {
    std::vector<std::string> texts;
    texts.reserve(failures.size());
    for (const Failure& failure : failures) {
        texts.push_back(toText(failure));
    }
    return fmt::format("{}", fmt::join(texts, " "));
}

bool FaultRule::firesAt(std::int64_t theRun, int theNth) const {
    return (run == 0 || run == theRun) && theNth >= nth && (times == 0 || fired < times);
}

FaultRule makeRule(const std::string& call, const std::string& failures) {
    const PlatformCall* known = findPlatformCall(call);
    if (known == nullptr || known->failures.empty()) {
        throw Error(fmt::format("no call {} can fail{}; see: halcyon-tv fault calls", inQuotes(call),
                                known == nullptr ? nearCall(call) : ""));
    }
    FaultRule rule;
    rule.call = known->name;
    for (const std::string& failure : split(failures, ' ')) {
        rule.failures.push_back(failureOf(*known, failure));
    }
    rule.times = static_cast<int>(rule.failures.size());
    return rule;
}

std::int64_t Faults::add(const FaultRule& rule) {
    if (rule.nth < 1 || rule.times < 0 || rule.run < 0) {
        throw Error(
            fmt::format("a rule counts calls and runs from 1 and fires 0 (every time) or more times, not from {} of "
                        "run {} and {} times",
                        rule.nth, rule.run, rule.times));
    }
    m_database.change("INSERT INTO faults(call, failures, nth, times, run) VALUES(?, ?, ?, ?, ?)", rule.call,
                      toText(rule.failures), rule.nth, rule.times, rule.run);
    return m_database.lastRow();
}

std::vector<FaultRule> Faults::list() const {
    Statement query(m_database, "SELECT id, call, failures, nth, times, run, fired FROM faults ORDER BY id");
    std::vector<FaultRule> rules;
    while (query.next()) {
        rules.push_back({query.integer(0),
                         query.text(1),
                         {},
                         static_cast<int>(query.integer(3)),
                         static_cast<int>(query.integer(4)),
                         query.integer(5),
                         static_cast<int>(query.integer(6))});
        for (const std::string& failure : split(query.text(2), ' ')) {
            rules.back().failures.push_back(parseFailure(failure));
        }
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
