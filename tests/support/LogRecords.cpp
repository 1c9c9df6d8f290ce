#include "tests/support/LogRecords.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "simulator/base/Text.h"

namespace test {

namespace {

struct Listed {
    std::string source;                 // "HalcyonLineup Backup 6" or, where the line counts, "FileUtil Remove(69) 6"
    std::vector<std::string> literals;  // of the format, between its conversions
    std::size_t literalSize = 0;
};

// "%s of %d" has the literals "", " of ", "".
std::vector<std::string> literalsOf(const std::string& format) {
    std::vector<std::string> literals(1);
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] == '%') {
            i = format.find_first_of("sdxopuf", i);
            literals.emplace_back();
        } else if (format[i] == '\\') {
            ++i;
            literals.back() += '\n';
        } else {
            literals.back() += format[i];
        }
    }
    return literals;
}

const std::vector<Listed>& list() {
    static const std::vector<Listed> all = [] {
        std::vector<Listed> read;
        std::ifstream file(TEST_DATA "/log-records.txt");
        for (std::string line; std::getline(file, line);) {
            const std::size_t format = line.find(' ', line.find(' ', line.find(' ') + 1) + 1);
            Listed listed{line.substr(0, format), literalsOf(line.substr(format + 1)), 0};
            for (const std::string& literal : listed.literals) {
                listed.literalSize += literal.size();
            }
            read.push_back(listed);
        }
        return read;
    }();
    return all;
}

bool matches(const std::vector<std::string>& literals, const std::string& message) {
    if (literals.size() == 1) {
        return message == literals.front();
    }
    const std::string& last = literals.back();
    if (message.compare(0, literals.front().size(), literals.front()) != 0 || message.size() < last.size()) {
        return false;
    }
    std::size_t at = literals.front().size();
    for (std::size_t i = 1; i + 1 < literals.size(); ++i) {
        const std::size_t found = message.find(literals[i], at);
        if (found == std::string::npos) {
            return false;
        }
        at = found + literals[i].size();
    }
    return message.size() - last.size() >= at && message.compare(message.size() - last.size(), last.size(), last) == 0;
}

// Where a message may come from: of the formats that it matches, those that say the most.
std::vector<std::string> sourcesOf(const std::string& message) {
    std::vector<std::string> sources;
    std::size_t most = 0;
    for (const Listed& listed : list()) {
        if (listed.literalSize >= most && matches(listed.literals, message)) {
            if (listed.literalSize > most) {
                sources.clear();
            }
            most = listed.literalSize;
            sources.push_back(listed.source);
        }
    }
    return sources;
}

void expectTwins(const sim::LogRecord& system, const sim::LogRecord& logger) {
    EXPECT_EQ(system.sink + " " + logger.sink, "system logger") << system.message;
    EXPECT_EQ(system.tag, "halcyon-lineup");
    const std::string prefix = fmt::format("{}: {}({}) > ", logger.file, logger.function, logger.line);
    const bool isBegin = logger.message == "FUNC BEGIN";
    EXPECT_EQ(system.message, prefix + (isBegin ? "" : logger.message + "\n"));
}

}  // namespace

void expectListedRecords(const std::vector<sim::LogRecord>& log) {
    ASSERT_EQ(log.size() % 2, 0U);
    for (std::size_t i = 0; i < log.size(); i += 2) {
        const sim::LogRecord& system = log[i];
        const sim::LogRecord& logger = log[i + 1];
        expectTwins(system, logger);
        const std::string place = fmt::format("{} {}", logger.file, logger.function);
        EXPECT_THAT(sourcesOf(logger.message), ::testing::Contains(::testing::AnyOf(
                                                   fmt::format("{} {}", place, system.priority),
                                                   fmt::format("{}({}) {}", place, logger.line, system.priority))))
            << logger.message;
    }
}

}  // namespace test
