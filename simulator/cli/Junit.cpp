#include "simulator/cli/Junit.h"

#include <fmt/format.h>

#include <algorithm>
#include <pugixml.hpp>
#include <sstream>
#include <string_view>

#include "simulator/base/Files.h"
#include "simulator/base/Text.h"

namespace cli {

namespace {

void addTime(pugi::xml_node node, const std::optional<double>& seconds) {
    if (seconds) {
        node.append_attribute("time") = fmt::format("{:.3f}", *seconds).c_str();
    }
}

void addCase(pugi::xml_node suite, const JunitCase& each) {
    pugi::xml_node node = suite.append_child("testcase");
    node.append_attribute("classname") = sim::shown(each.className).c_str();
    node.append_attribute("name") = sim::shown(each.name).c_str();
    addTime(node, each.seconds);
    for (const JunitProblem& problem : each.problems) {
        pugi::xml_node child = node.append_child(problem.element);
        if (!problem.type.empty()) {
            child.append_attribute("type") = problem.type.c_str();
        }
        child.append_attribute("message") = sim::shown(problem.message).c_str();
        for (const std::string& line : problem.lines) {
            child.append_child(pugi::node_pcdata).set_value((sim::shown(line) + "\n").c_str());
        }
    }
}

void addSuite(pugi::xml_node suites, const JunitSuite& suite) {
    const auto count = [&](std::string_view element) {
        return std::count_if(suite.cases.begin(), suite.cases.end(), [&](const JunitCase& each) {
            return !each.problems.empty() && each.problems.front().element == element;
        });
    };
    pugi::xml_node node = suites.append_child("testsuite");
    node.append_attribute("name") = suite.name.c_str();
    node.append_attribute("tests") = suite.cases.size();
    node.append_attribute("failures") = count("failure");
    node.append_attribute("errors") = count("error");
    addTime(node, suite.seconds);
    for (const JunitCase& each : suite.cases) {
        addCase(node, each);
    }
}

}  // namespace

void writeJunit(const std::string& file, const std::vector<JunitSuite>& suites) {
    pugi::xml_document document;
    const pugi::xml_node root = document.append_child("testsuites");
    for (const JunitSuite& suite : suites) {
        addSuite(root, suite);
    }
    std::ostringstream text;
    document.save(text, "  ");
    sim::writeFile(file, text.str());
}

}  // namespace cli
