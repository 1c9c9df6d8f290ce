#include "simulator/reports/RunDifference.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <utility>

#include "simulator/base/Text.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/Words.h"

namespace sim {

namespace {

void replaceAll(std::string& text, const std::string& what, const std::string& by) {
    for (std::size_t at = text.find(what); !what.empty() && at != std::string::npos; at = text.find(what, at)) {
        text.replace(at, what.size(), by);
        at += by.size();
    }
}

// Without what the run has its own.
std::string comparable(std::string text, const RunSide& side) {
    replaceAll(text, side.home.string(), "TV");
    if (side.report.run.operation != Operation::Restore) {
        replaceAll(text, "backup " + side.report.run.backup, "backup");
    }
    return application::withoutTimes(std::move(text));
}

std::vector<std::string> linesOf(const RunSide& side) {
    std::vector<std::string> lines;
    for (Moment moment : side.timeline) {
        if (moment.log) {
            moment.log->line = 0;
        }
        lines.push_back(comparable(textOf(moment), side));
    }
    return lines;
}

// The parts of a verdict, in words and in an order that is the same for all runs.
std::vector<std::pair<std::string, std::string>> partsOf(const RunReport& report) {
    std::vector<std::pair<std::string, std::string>> parts = {
        {"operation", std::string(nameOf(report.run.operation))},
        {"outcome", std::string(nameOf(report.verdict.outcome))},
        {"cause", std::string(nameOf(report.verdict.cause))},
        {"why", report.verdict.why},
        {"warning", report.verdict.warning},
        {"on the air", report.verdict.reception ? words(*report.verdict.reception) : ""},
        {"backup", report.run.operation == Operation::Restore ? report.run.backup : ""},
        {"response", report.response},
        {"reported", std::string(nameOf(report.run.reported))},
        {"reply", report.reply},
        {"ended", report.end}};
    std::vector<std::string> faults;
    for (const FiredFault& fault : report.verdict.faults) {
        faults.push_back(fmt::format("rule {} fired {}, first at call {} of {}", fault.rule,
                                     plural(static_cast<std::uint64_t>(fault.fired), "time"), fault.nth, fault.call));
    }
    parts.emplace_back("faults", fmt::format("{}", fmt::join(faults, "; ")));
    for (const Name<Item>& item : NAMES<Item>) {
        const auto verdict = std::find_if(report.verdict.items.begin(), report.verdict.items.end(),
                                          [&](const ItemVerdict& each) { return each.item == item.value; });
        const bool isJudged = verdict != report.verdict.items.end();
        const std::string detail = isJudged && !verdict->detail.empty() ? fmt::format(" ({})", verdict->detail) : "";
        parts.emplace_back(item.name, isJudged ? std::string(nameOf(verdict->state)) + detail : "");
    }
    return parts;
}

// The longest sequence of lines that both sides have, found by Myers' greedy algorithm: after `d` lines that only one
// side has, it knows how far each diagonal of the grid of lines can be followed.
class Alignment {
public:
    using Match = std::pair<std::size_t, std::size_t>;

    Alignment(const std::vector<std::string>& left, const std::vector<std::string>& right)
        : m_left(left),
          m_right(right),
          m_most(std::min<long>(static_cast<long>(left.size() + right.size()), MOST_CHANGES)),
          m_reach(static_cast<std::size_t>(2 * m_most + 3), 0) {}

    // Pairs of places, ascending. None if the sides differ in too much to look for any.
    std::vector<Match> find() {
        for (long changes = 0; changes <= m_most; ++changes) {
            m_before.push_back(m_reach);
            for (long diagonal = -changes; diagonal <= changes; diagonal += 2) {
                const long end = follow(changes, diagonal);
                if (end >= size(m_left) && end - diagonal >= size(m_right)) {
                    return trace(changes);
                }
            }
        }
        return {};
    }

private:
    // What is kept for the way back grows with its square.
    static constexpr long MOST_CHANGES = 3000;

    static long size(const std::vector<std::string>& lines) { return static_cast<long>(lines.size()); }

    long& reach(std::vector<long>& reach, long diagonal) const {
        return reach[static_cast<std::size_t>(diagonal + m_most + 1)];
    }

    // The diagonal that the best way to this one comes from.
    long origin(std::vector<long>& before, long changes, long diagonal) const {
        const bool isAdded =
            diagonal == -changes || (diagonal != changes && reach(before, diagonal - 1) < reach(before, diagonal + 1));
        return isAdded ? diagonal + 1 : diagonal - 1;
    }

    // How many lines of the left side are behind the end of the best way on a diagonal.
    long follow(long changes, long diagonal) {
        std::vector<long>& before = m_before.back();
        const long from = changes == 0 ? 0 : origin(before, changes, diagonal);
        long left = reach(before, from) + (from < diagonal ? 1 : 0);
        while (left < size(m_left) && left - diagonal < size(m_right) &&
               m_left[static_cast<std::size_t>(left)] == m_right[static_cast<std::size_t>(left - diagonal)]) {
            ++left;
        }
        reach(m_reach, diagonal) = left;
        return left;
    }

    std::vector<Match> trace(long changes) {
        std::vector<Match> matches;
        long left = size(m_left);
        long right = size(m_right);
        for (; changes >= 0; --changes) {
            std::vector<long>& before = m_before[static_cast<std::size_t>(changes)];
            const long from = changes == 0 ? 0 : origin(before, changes, left - right);
            const long fromLeft = changes == 0 ? 0 : reach(before, from);
            const long fromRight = fromLeft - from;
            while (left > fromLeft && right > fromRight) {
                matches.emplace_back(--left, --right);
            }
            left = fromLeft;
            right = fromRight;
        }
        std::reverse(matches.begin(), matches.end());
        return matches;
    }

    const std::vector<std::string>& m_left;
    const std::vector<std::string>& m_right;
    long m_most;
    std::vector<long> m_reach;                // by diagonal
    std::vector<std::vector<long>> m_before;  // the same before each change
};

std::vector<MomentPair> align(const std::vector<std::string>& left, const std::vector<std::string>& right) {
    std::vector<Alignment::Match> matches = Alignment(left, right).find();
    matches.emplace_back(left.size(), right.size());
    std::vector<MomentPair> pairs;
    std::size_t atLeft = 0;
    std::size_t atRight = 0;
    for (const auto& [nextLeft, nextRight] : matches) {
        for (; atLeft < nextLeft; ++atLeft) {
            pairs.push_back({atLeft, std::nullopt});
        }
        for (; atRight < nextRight; ++atRight) {
            pairs.push_back({std::nullopt, atRight});
        }
        if (atLeft < left.size() && atRight < right.size()) {
            pairs.push_back({atLeft++, atRight++});
        }
    }
    return pairs;
}

}  // namespace

bool RunDifference::isSame() const {
    return verdict.empty() &&
           std::all_of(timeline.begin(), timeline.end(), [](const MomentPair& pair) { return pair.isOfBoth(); });
}

const Moment& RunDifference::momentOf(const MomentPair& pair) const {
    return pair.left ? left.timeline[*pair.left] : right.timeline[*pair.right];
}

RunDifference compareRuns(RunSide left, RunSide right) {
    RunDifference difference{std::move(left), std::move(right), {}, {}};
    const auto ofLeft = partsOf(difference.left.report);
    const auto ofRight = partsOf(difference.right.report);
    for (std::size_t i = 0; i < ofLeft.size(); ++i) {
        if (comparable(ofLeft[i].second, difference.left) != comparable(ofRight[i].second, difference.right)) {
            difference.verdict.push_back({ofLeft[i].first, ofLeft[i].second, ofRight[i].second});
        }
    }
    difference.timeline = align(linesOf(difference.left), linesOf(difference.right));
    return difference;
}

}  // namespace sim
