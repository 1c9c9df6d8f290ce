#include "simulator/launch/Scenario.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <set>
#include <utility>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/Item.h"
#include "simulator/reports/Invariants.h"
#include "simulator/tv/Run.h"
#include "simulator/tv/Verdict.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr char CLOUD[] = "cloud";

// Takes over a value of the file.
using Take = std::function<void(const YAML::Node&)>;

struct Key {
    const char* name;
    Take take;
    bool isRequired = false;
};
using Keys = std::vector<Key>;

constexpr bool REQUIRED = true;

// A file without a value has no place in it.
Place placeOf(const YAML::Mark& mark) {
    return mark.is_null() ? Place{1, 1} : Place{mark.line + 1, mark.column + 1};
}

Place placeOf(const YAML::Node& node) {
    return placeOf(node.Mark());
}

template <typename Enum>
std::vector<std::string> namesOf() {
    std::vector<std::string> names;
    names.reserve(NAMES<Enum>.size());
    for (const Name<Enum>& each : NAMES<Enum>) {
        names.emplace_back(each.name);
    }
    return names;
}

std::vector<std::string> andNone(std::vector<std::string> names) {
    names.emplace_back(NONE);
    return names;
}

bool contains(const std::vector<std::string>& words, const std::string& word) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

// Reads the file value by value. What is wrong is noted with its place, and the rest is read all the same.
class ScenarioReader {
public:
    explicit ScenarioReader(fs::path file) : m_file(std::move(file)) {}

    Scenario read();

private:
    void note(const Place& place, const std::string& problem) {
        m_problems.push_back(fmt::format("{}: {}", placeIn(m_file, place), problem));
    }
    void note(const YAML::Node& node, const std::string& problem) { note(placeOf(node), problem); }

    // The text of a value; nothing, and a note, if it is a list, a mapping or null.
    std::optional<std::string> textOf(const YAML::Node& node);
    std::optional<std::string> oneOf(const std::vector<std::string>& words, const std::string& what,
                                     const YAML::Node& node);
    std::optional<std::string> numberOf(const YAML::Node& node);
    void forEach(const YAML::Node& node, const Take& take);  // of a list
    void forEachPair(const YAML::Node& node,
                     const std::function<void(const YAML::Node& key, const YAML::Node& value)>& take);
    void takeKeys(const YAML::Node& node, const std::string& what, const Keys& keys);

    Take into(Word& word);
    Take into(std::string& text);
    Take into(bool& flag);
    Take into(int& number);
    Take path(Word& word, bool (*isThere)(const fs::path&), const char* kind);
    Take settings(std::vector<ScenarioSetting>& settings);
    Take setting(std::vector<ScenarioSetting>& settings, const char* name);

    void takeTv(const YAML::Node& name, const YAML::Node& node);
    void takeStep(const YAML::Node& node);
    void takeRun(const YAML::Node& node);
    void takeFault(const YAML::Node& node);
    void takeSet(const YAML::Node& node);
    void takeBundle(const YAML::Node& node);
    Take extra(RunStep& step, const char* key);
    void takeExpectations(const YAML::Node& node, std::vector<Expectation>& expectations);
    void takeCall(const YAML::Node& node, std::vector<Expectation>& expectations);
    void takeFaults(const YAML::Node& node, std::vector<Expectation>& expectations);
    void takeBroken(const YAML::Node& node, std::vector<Expectation>& expectations);
    const PlatformCall* callOf(const Word& call);
    Take failures(std::string& texts);
    void checkTvs(Step& step);

    Scenario m_scenario;
    fs::path m_file;
    std::vector<std::string> m_problems;
};

std::optional<std::string> ScenarioReader::textOf(const YAML::Node& node) {
    if (!node.IsScalar()) {
        note(node, "a text belongs here");
        return std::nullopt;
    }
    return node.Scalar();
}

std::optional<std::string> ScenarioReader::oneOf(const std::vector<std::string>& words, const std::string& what,
                                                 const YAML::Node& node) {
    std::optional<std::string> text = textOf(node);
    if (text && !contains(words, *text)) {
        note(node, fmt::format("{} is no {}{}; one of: {}", inQuotes(*text), what, didYouMean(*text, words),
                               fmt::join(words, ", ")));
        return std::nullopt;
    }
    return text;
}

std::optional<std::string> ScenarioReader::numberOf(const YAML::Node& node) {
    const std::optional<std::string> text = textOf(node);
    const std::optional<int> number = text ? toNumber<int>(*text) : std::nullopt;
    if (text && !number) {
        note(node, fmt::format("{} is not a number that fits here", inQuotes(*text)));
    }
    return number ? std::optional(std::to_string(*number)) : std::nullopt;
}

void ScenarioReader::forEach(const YAML::Node& node, const Take& take) {
    if (!node.IsSequence()) {
        note(node, "a list belongs here");
        return;
    }
    for (const YAML::Node& each : node) {
        take(each);
    }
}

void ScenarioReader::forEachPair(const YAML::Node& node,
                                 const std::function<void(const YAML::Node& key, const YAML::Node& value)>& take) {
    if (!node.IsMap()) {
        note(node, "pairs of a name and a value belong here");
        return;
    }
    for (const auto& pair : node) {
        if (textOf(pair.first)) {
            take(pair.first, pair.second);
        }
    }
}

void ScenarioReader::takeKeys(const YAML::Node& node, const std::string& what, const Keys& keys) {
    std::vector<std::string> names;
    for (const Key& key : keys) {
        names.emplace_back(key.name);
    }
    std::set<std::string> seen;
    forEachPair(node, [&](const YAML::Node& name, const YAML::Node& value) {
        const auto key =
            std::find_if(keys.begin(), keys.end(), [&](const Key& each) { return each.name == name.Scalar(); });
        if (key == keys.end()) {
            note(name, fmt::format("{} has no key {}{}; its keys are: {}", what, inQuotes(name.Scalar()),
                                   didYouMean(name.Scalar(), names), fmt::join(names, ", ")));
        } else if (!seen.insert(key->name).second) {
            note(name, fmt::format("{} is there twice", inQuotes(key->name)));
        } else {
            key->take(value);
        }
    });
    for (const Key& key : keys) {
        if (key.isRequired && node.IsMap() && seen.count(key.name) == 0) {
            note(node, fmt::format("{} lacks the key {}; its keys are: {}", what, inQuotes(key.name),
                                   fmt::join(names, ", ")));
        }
    }
}

Take ScenarioReader::into(Word& word) {
    return [&](const YAML::Node& node) { word = {textOf(node).value_or(""), placeOf(node)}; };
}

Take ScenarioReader::into(std::string& text) {
    return [&](const YAML::Node& node) { text = textOf(node).value_or(""); };
}

Take ScenarioReader::into(bool& flag) {
    return [&](const YAML::Node& node) { flag = oneOf({"true", "false"}, "truth value", node) == "true"; };
}

Take ScenarioReader::into(int& number) {
    return [&](const YAML::Node& node) { number = toNumber<int>(numberOf(node).value_or("")).value_or(number); };
}

Take ScenarioReader::path(Word& word, bool (*isThere)(const fs::path&), const char* kind) {
    return [this, &word, isThere, kind](const YAML::Node& node) {
        if (const std::optional<std::string> text = textOf(node)) {
            word = {m_file.parent_path() / *text, placeOf(node)};
            if (!isThere(word.text)) {
                note(node, fmt::format("there is no {} {}", kind, word.text));
            }
        }
    };
}

Take ScenarioReader::settings(std::vector<ScenarioSetting>& settings) {
    return [this, &settings](const YAML::Node& node) {
        forEachPair(node, [&](const YAML::Node& name, const YAML::Node& value) {
            setting(settings, name.Scalar().c_str())(value);
        });
    };
}

Take ScenarioReader::setting(std::vector<ScenarioSetting>& settings, const char* name) {
    return [this, &settings, name = std::string(name)](const YAML::Node& node) {
        settings.push_back({name, {textOf(node).value_or(""), placeOf(node)}});
    };
}

void ScenarioReader::takeTv(const YAML::Node& name, const YAML::Node& node) {
    ScenarioTv tv;
    tv.name = {name.Scalar(), placeOf(name)};
    tv.serial = name.Scalar();
    Word now;
    bool isStill = false;
    std::vector<ScenarioSetting> others;
    takeKeys(node, "a TV",
             {{"channels", path(tv.channels, &isRegularFile, "channel list")},
              {"home", path(tv.home, &isFolder, "folder of a TV")},
              {"serial", into(tv.serial)},
              {"account", setting(tv.settings, "account")},
              {"zone", setting(tv.settings, "zone")},
              {"now", into(now)},
              {"still", into(isStill)},
              {"set", settings(others)}});
    if (!now.text.empty()) {
        tv.settings.push_back({"clock", {now.text + (isStill ? " still" : ""), now.place}});
    } else if (isStill) {
        note(node, "'still' makes the time that 'now' says stand, and there is none");
    }
    tv.settings.insert(tv.settings.end(), others.begin(), others.end());
    if (node.IsMap() && tv.channels.text.empty() == tv.home.text.empty()) {
        note(node, "a TV has either 'channels', the list that it is made with, or 'home', the TV that it is a copy of");
    }
    try {
        requireName("name of a TV", tv.name.text);
    } catch (const Error& error) {
        note(name, error.what());
    }
    if (tv.name.text == CLOUD) {
        note(name, "a TV cannot be called 'cloud': the cloud is beside the TVs");
    }
    m_scenario.tvs.push_back(std::move(tv));
}

Take ScenarioReader::extra(RunStep& step, const char* key) {
    return [this, &step, key = std::string(key)](const YAML::Node& node) {
        step.extras.push_back(fmt::format("{}={}", key, textOf(node).value_or("")));
    };
}

void ScenarioReader::takeRun(const YAML::Node& node) {
    RunStep step;
    bool isExpected = false;
    takeKeys(node, "a run",
             {{"run", into(step.tv)},
              {"operation",
               [&](const YAML::Node& value) {
                   if (oneOf({"backup", "restore"}, "operation", value)) {
                       extra(step, application::OPERATION)(value);
                   }
               }},
              {"scan_activated", extra(step, application::SCAN_ACTIVATED)},
              {"extras",
               [&](const YAML::Node& pairs) {
                   forEachPair(pairs, [&](const YAML::Node& name, const YAML::Node& value) {
                       extra(step, name.Scalar().c_str())(value);
                   });
               }},
              {"caller", into(step.caller)},
              {"backup", into(step.backup)},
              {"reply", into(step.replyRequested)},
              {"refuse_duplicates", into(step.refuseDuplicates)},
              {"expect", [&](const YAML::Node& expect) {
                   isExpected = true;
                   takeExpectations(expect, step.expectations);
               }}});
    if (!isExpected) {
        step.expectations.push_back({placeOf(node), Aspect::Outcome, "", std::string(nameOf(Outcome::Done))});
    }
    m_scenario.steps.emplace_back(std::move(step));
}

void ScenarioReader::takeExpectations(const YAML::Node& node, std::vector<Expectation>& expectations) {
    const auto add = [&](const YAML::Node& at, Aspect aspect, const std::optional<std::string>& value,
                         const std::string& of = "") {
        if (value) {
            expectations.push_back({placeOf(at), aspect, of, *value});
        }
    };
    const auto word = [&](Aspect aspect, std::vector<std::string> words) {
        return [this, add, aspect, words = std::move(words)](const YAML::Node& value) {
            add(value, aspect, oneOf(words, std::string(nameOf(aspect)), value));
        };
    };
    const auto number = [&](Aspect aspect) {
        return [this, add, aspect](const YAML::Node& value) { add(value, aspect, numberOf(value)); };
    };
    const auto reply = [&](const YAML::Node& value) {
        const bool isNone = value.IsScalar() && value.Scalar() == NONE;
        add(value, Aspect::Reply, isNone ? NONE : numberOf(value));
    };
    const auto items = [&](const YAML::Node& pairs) {
        forEachPair(pairs, [&](const YAML::Node& name, const YAML::Node& value) {
            if (const std::optional<std::string> item = oneOf(namesOf<Item>(), "item", name)) {
                add(value, Aspect::Items, oneOf(namesOf<ItemState>(), "state of an item", value), *item);
            }
        });
    };
    const auto calls = [&](const YAML::Node& list) {
        forEach(list, [&](const YAML::Node& call) { takeCall(call, expectations); });
    };
    const auto log = [&](const YAML::Node& list) {
        forEach(list, [&](const YAML::Node& text) { add(text, Aspect::Log, SOME, textOf(text).value_or("")); });
    };
    takeKeys(node, "what is expected",
             {{"outcome", word(Aspect::Outcome, namesOf<Outcome>())},
              {"cause", word(Aspect::Cause, namesOf<Cause>())},
              {"reply", reply},
              {"response", word(Aspect::Response, andNone(namesOf<Response>()))},
              {"ended", word(Aspect::Ended, namesOf<RunEnd>())},
              {"items", items},
              {"calls", calls},
              {"log", log},
              {"faults", [&](const YAML::Node& list) { takeFaults(list, expectations); }},
              {"store", number(Aspect::Store)},
              {"broken", [&](const YAML::Node& list) { takeBroken(list, expectations); }},
              {"same_as", [&](const YAML::Node& tv) { add(tv, Aspect::SameAs, textOf(tv)); }}});
}

// Null, with a note, if there is no such call.
const PlatformCall* ScenarioReader::callOf(const Word& call) {
    const PlatformCall* known = findPlatformCall(call.text);
    if (known == nullptr && !call.text.empty()) {
        note(call.place, fmt::format("the platform has no call {}{}", inQuotes(call.text), nearCall(call.text)));
    }
    return known;
}

void ScenarioReader::takeCall(const YAML::Node& node, std::vector<Expectation>& expectations) {
    Word call;
    std::optional<std::string> count = SOME;
    if (node.IsScalar()) {
        into(call)(node);
    } else {
        takeKeys(
            node, "a call",
            {{"call", into(call), REQUIRED}, {"count", [&](const YAML::Node& value) { count = numberOf(value); }}});
    }
    const PlatformCall* known = callOf(call);
    if (known != nullptr && count) {
        expectations.push_back({call.place, Aspect::Calls, std::string(known->name), *count});
    }
}

void ScenarioReader::takeFaults(const YAML::Node& node, std::vector<Expectation>& expectations) {
    std::set<int> rules;
    forEach(node, [&](const YAML::Node& rule) {
        int number = 0;
        into(number)(rule);
        rules.insert(number);
    });
    expectations.push_back(
        {placeOf(node), Aspect::Faults, "", rules.empty() ? NONE : fmt::format("{}", fmt::join(rules, ", "))});
}

// They are kept in the order of the promises, in which a run's are found.
void ScenarioReader::takeBroken(const YAML::Node& node, std::vector<Expectation>& expectations) {
    std::vector<std::string> promises;
    for (const Invariant& each : invariants()) {
        promises.emplace_back(each.name);
    }
    std::vector<std::string> wanted;
    forEach(node, [&](const YAML::Node& name) { wanted.push_back(oneOf(promises, "promise", name).value_or("")); });
    promises.erase(std::remove_if(promises.begin(), promises.end(),
                                  [&](const std::string& each) { return !contains(wanted, each); }),
                   promises.end());
    expectations.push_back(
        {placeOf(node), Aspect::Broken, "", promises.empty() ? NONE : fmt::format("{}", fmt::join(promises, ", "))});
}

// One, or a list, as makeRule() takes them.
Take ScenarioReader::failures(std::string& texts) {
    return [this, &texts](const YAML::Node& node) {
        const Take add = [&](const YAML::Node& each) {
            texts += (texts.empty() ? "" : " ") + textOf(each).value_or("");
        };
        if (node.IsSequence()) {
            forEach(node, add);
        } else {
            add(node);
        }
    };
}

void ScenarioReader::takeFault(const YAML::Node& node) {
    FaultStep step;
    Word call;
    Word failure;
    int nth = step.rule.nth;
    int run = 0;
    std::optional<int> times;
    takeKeys(node, "a fault",
             {{"fault", into(step.tv)},
              {"call", into(call), REQUIRED},
              {"failure",
               [&](const YAML::Node& value) {
                   failure.place = placeOf(value);
                   failures(failure.text)(value);
               },
               REQUIRED},
              {"nth", into(nth)},
              {"in_run", into(run)},
              {"times", [&](const YAML::Node& value) { into(times.emplace())(value); }}});
    if (callOf(call) != nullptr && !failure.text.empty()) {
        try {
            step.rule = makeRule(call.text, failure.text);
            step.rule.nth = nth;
            step.rule.run = run;
            step.rule.times = times.value_or(step.rule.times);
        } catch (const Error& error) {
            note(failure.place, error.what());
        }
    }
    m_scenario.steps.emplace_back(std::move(step));
}

void ScenarioReader::takeSet(const YAML::Node& node) {
    SetStep step;
    takeKeys(node, "a setting", {{"set", into(step.tv)}, {"to", settings(step.settings), REQUIRED}});
    m_scenario.steps.emplace_back(std::move(step));
}

void ScenarioReader::takeBundle(const YAML::Node& node) {
    BundleStep step;
    takeKeys(node, "a bundle", {{"bundle", path(step.file, &isRegularFile, "bundle file")}, {"for", into(step.tv)}});
    m_scenario.steps.emplace_back(std::move(step));
}

void ScenarioReader::takeStep(const YAML::Node& node) {
    using Taker = void (ScenarioReader::*)(const YAML::Node&);
    constexpr std::pair<const char*, Taker> KINDS[] = {
        {"run", &ScenarioReader::takeRun},
        {"fault", &ScenarioReader::takeFault},
        {"set", &ScenarioReader::takeSet},
        {"bundle", &ScenarioReader::takeBundle},
    };
    for (const auto& [name, take] : KINDS) {
        if (node.IsMap() && node[name]) {
            (this->*take)(node);
            return;
        }
    }
    note(node, "a step begins with one of: run, fault, set, bundle");
}

// A bundle is the first TV's if the file names none.
void ScenarioReader::checkTvs(Step& step) {
    std::vector<std::string> names;
    for (const ScenarioTv& tv : m_scenario.tvs) {
        names.push_back(tv.name.text);
    }
    const auto check = [&](const std::string& tv, const Place& place) {
        if (!contains(names, tv)) {
            note(place, fmt::format("there is no TV {}{}; the file has: {}", inQuotes(tv), didYouMean(tv, names),
                                    fmt::join(names, ", ")));
        }
    };
    Word& tv = std::visit([](auto& each) -> Word& { return each.tv; }, step);
    if (std::holds_alternative<BundleStep>(step) && tv.text.empty() && !names.empty()) {
        tv = m_scenario.tvs.front().name;
    }
    check(tv.text, tv.place);
    if (const auto* const run = std::get_if<RunStep>(&step)) {
        for (const Expectation& each : run->expectations) {
            if (each.aspect == Aspect::SameAs) {
                check(each.value, each.place);
            }
        }
    }
}

Scenario ScenarioReader::read() {
    m_scenario.file = m_file;
    m_scenario.name = m_file.stem();
    try {
        takeKeys(YAML::Load(readFile(m_file, limits::SCENARIO_BYTES)), "a scenario",
                 {{"name", into(m_scenario.name)},
                  {"cloud", path(m_scenario.cloud, &isFolder, "folder of a store")},
                  {"tvs",
                   [&](const YAML::Node& tvs) {
                       forEachPair(tvs, [&](const YAML::Node& name, const YAML::Node& tv) { takeTv(name, tv); });
                   },
                   REQUIRED},
                  {"steps",
                   [&](const YAML::Node& steps) { forEach(steps, [&](const YAML::Node& step) { takeStep(step); }); },
                   REQUIRED}});
    } catch (const YAML::Exception& error) {
        note(placeOf(error.mark), fmt::format("this is no YAML: {}", error.msg));
    }
    for (Step& step : m_scenario.steps) {
        checkTvs(step);
    }
    if (!m_problems.empty()) {
        throw Error(fmt::format("{}", fmt::join(m_problems, "\n")));
    }
    return std::move(m_scenario);
}

}  // namespace

std::string placeIn(const fs::path& file, const Place& place) {
    return fmt::format("{}:{}:{}", file.string(), place.line, place.column);
}

Scenario readScenario(const fs::path& file) {
    return ScenarioReader(file).read();
}

}  // namespace sim
