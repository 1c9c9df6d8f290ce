#include "tests/support/LogRecords.h"

#include <fmt/format.h>
#include <fnmatch.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "simulator/base/Text.h"

namespace test {

namespace {

struct Listed {
    std::string source;   // "HalcyonLineup Backup 6" or, where the line counts, "FileUtil Remove(69) 6"
    std::string pattern;  // of the message, for fnmatch()
    std::ptrdiff_t literals = 0;
};

// A format's own characters, each escaped, and '*' for each of its conversions.
std::string patternOf(const std::string& format) {
    std::string pattern;
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] == '%') {
            i = format.find_first_of("sdxopuf", i);
            pattern += '*';
        } else if (format[i] == '\\') {
            ++i;
            pattern += "\\\n";
        } else {
            pattern += {'\\', format[i]};
        }
    }
    return pattern;
}

const std::vector<Listed>& list() {
    static const std::vector<Listed> all = [] {
        std::vector<Listed> read;
        std::ifstream file(TEST_DATA "/log-records.txt");
        for (std::string line; std::getline(file, line);) {
            const std::size_t format = line.find(' ', line.find(' ', line.find(' ') + 1) + 1);
            const std::string pattern = patternOf(line.substr(format + 1));
            read.push_back({line.substr(0, format), pattern, std::count(pattern.begin(), pattern.end(), '\\')});
        }
        return read;
    }();
    return all;
}

// Where a message may come from: of the formats that match, the most specific ones.
std::vector<std::string> sourcesOf(const std::string& message) {
    std::vector<std::string> sources;
    std::ptrdiff_t most = 0;
    for (const Listed& listed : list()) {
        if (listed.literals >= most && ::fnmatch(listed.pattern.c_str(), message.c_str(), 0) == 0) {
            if (listed.literals > most) {
                sources.clear();
            }
            most = listed.literals;
            sources.push_back(listed.source);
        }
    }
    return sources;
}

void expectTwins(const sim::LogRecord& system, const sim::LogRecord& logger) {
    EXPECT_EQ(std::pair(system.sink, logger.sink), std::pair(sim::LogSink::System, sim::LogSink::Logger))
        << system.message;
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
