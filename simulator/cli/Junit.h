// JUnit XML, the report that CI servers read.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace cli {

struct JunitProblem {
    const char* element;  // "failure": not as expected; "error": it could not be tried
    std::string type;     // may be empty
    std::string message;
    std::vector<std::string> lines = {};  // more of it
};

struct JunitCase {
    std::string className;
    std::string name;
    std::optional<double> seconds = std::nullopt;
    std::vector<JunitProblem> problems = {};
};

struct JunitSuite {
    std::string name;
    std::optional<double> seconds = std::nullopt;
    std::vector<JunitCase> cases = {};
};

// Writes the report into a file. Throws Error.
void writeJunit(const std::string& file, const std::vector<JunitSuite>& suites);

}  // namespace cli
