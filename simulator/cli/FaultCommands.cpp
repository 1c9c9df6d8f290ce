// The commands on fault rules.
#include <fmt/ranges.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "simulator/base/Error.h"
#include "simulator/cli/Command.h"
#include "simulator/reports/ToJson.h"
#include "simulator/tv/Tv.h"

namespace cli {

namespace {

struct NewRule {
    std::string call;
    std::vector<std::string> failures;
    int nth = 1;
    std::optional<int> times;
    int run = 0;  // counted from the next one on; 0: any
};

std::string times(int count) {
    return sim::plural(static_cast<std::uint64_t>(count), "time");
}

int add(const Session& session, const NewRule& wanted) {
    sim::Tv tv(session.home);
    sim::FaultRule rule = sim::makeRule(wanted.call, fmt::format("{}", fmt::join(wanted.failures, " ")));
    rule.nth = wanted.nth;
    rule.times = wanted.times.value_or(rule.times);
    rule.run = wanted.run == 0 ? 0 : tv.runs().newest() + wanted.run;
    const std::int64_t id = tv.faults().add(rule);
    return answer(session, sim::object({{"rule", id}}), [&] { print("rule {}\n", id); });
}

int listRules(const Session& session) {
    const std::vector<sim::FaultRule> rules = session.look().faults().list();
    return answer(session, sim::object({{"rules", rules}}), [&] {
        for (const sim::FaultRule& rule : rules) {
            print("{:>4}  {} {}, from call {} of {}, {}; fired {}\n", rule.id, rule.call, sim::toText(rule.failures),
                  rule.nth, rule.run == 0 ? "a run" : fmt::format("run {}", rule.run),
                  rule.times == 0 ? "every time" : times(rule.times), times(rule.fired));
        }
    });
}

int clear(const Session& session, std::int64_t rule) {
    sim::Tv tv(session.home);
    const std::size_t before = tv.faults().list().size();
    if (rule == 0) {
        tv.faults().clear();
    } else if (!tv.faults().remove(rule)) {
        throw sim::Error(fmt::format("no rule {}; see: halcyon-tv fault list", rule));
    }
    if (session.isJson) {
        printJson(sim::object({{"removed", before - tv.faults().list().size()}}));
    }
    return DONE;
}

struct Meaning {
    const char* failure;
    const char* meaning;
};
constexpr Meaning MEANINGS[] = {
    {"result=N",
     "the call does nothing and returns N, as recorded; an event (bnr_response, tv_signal) comes with the code N"},
    {"answer=N", "the call does what it should, and then returns N, as recorded"},
    {"null", "the call returns no object (null); an event comes without the application's own pointer"},
    {"throw", "the call throws an exception (exception): what does not catch it ends as crashed"},
    {"delay=N", "the event comes N milliseconds later than it would, or another unit: 200ms, 5s, 2min"},
    {"lost", "the event never comes (lost): who waits for it alone ends as waiting"},
    {"no-data", "the event comes without its data"},
    {"cut", "the power is cut (power cut): the application is killed before that step on the disk, crashed"},
    {"works", "the call works: for a sequence such as result=500 result=500 works"},
    {"damage=truncate", "the file that the call has made loses its second half"},
    {"damage=corrupt", "some of its bytes are wrong"},
    {"damage=empty", "it has no bytes"},
    {"damage=missing", "it is not there"},
    {"damage=dangling", "it is a link to nowhere"},
    {"damage=unwritable", "it can be read, but not be written again, not even by root"},
};

int listCalls(const Session& session) {
    const std::vector<sim::PlatformCall> calls = sim::callsThatCanFail();
    return answer(session, sim::object({{"calls", calls}}), [&] {
        for (const sim::PlatformCall& call : calls) {
            print("{:<46} {}\n", call.name, call.failures);
        }
        for (const Meaning& each : MEANINGS) {
            if (session.isVerbose) {
                print("{:<46} {}\n", each.failure, each.meaning);
            }
        }
    });
}

}  // namespace

void addFaultCommands(CLI::App& app, Action& chosen) {
    CLI::App* fault = addGroup(app, "fault", "Make platform calls fail");

    const auto rule = std::make_shared<NewRule>();
    CLI::App* adding =
        addCommand(*fault, "add", "Add a rule", "halcyon-tv fault add IUtil::GetServiceDb damage=truncate --times 0",
                   chosen, [rule](const Session& session) { return add(session, *rule); });
    adding->add_option("call", rule->call, "the call, as 'fault calls' lists it, or what follows its '::'")->required();
    adding
        ->add_option(
            "failure", rule->failures,
            "its failure, such as result=6, null, throw, delay=5s; what they mean: halcyon-tv fault calls -v. Several "
            "happen one after the other, one each time the rule fires: lost delay=5s works")
        ->required();
    adding->add_option("--nth", rule->nth, "the first call of a run that fails")->capture_default_str();
    adding->add_option("--times", rule->times,
                       "how often the rule fires, 0 for every time (default: once for each failure)");
    adding->add_option("--run", rule->run, "the only run in which it fires: 1 is the next one (default: any)")
        ->check(CLI::PositiveNumber);

    addCommand(*fault, "list", "List the rules and how often each fired", "halcyon-tv fault list", chosen, &listRules);

    const auto id = std::make_shared<std::int64_t>(0);
    addCommand(*fault, "clear", "Remove a rule, or all of them", "halcyon-tv fault clear", chosen,
               [id](const Session& session) { return clear(session, *id); })
        ->alias("remove")
        ->add_option("rule", *id, "number of the rule (default: all)")
        ->check(CLI::PositiveNumber);

    addCommand(*fault, "calls", "List the calls that can fail, and how", "halcyon-tv fault calls", chosen, &listCalls);
}

}  // namespace cli
