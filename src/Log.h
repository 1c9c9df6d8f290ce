// Logging. Each record is written twice, with the same arguments: as a line of the system log, prefixed with the place
// that it comes from, and bare to the logger. The macros evaluate their arguments twice.
//
//   LOG(priority, format, ...)                    a record of this function and line
//   LOG_IN(function, priority, format, ...)       a record of the operation that this step belongs to
//   LOG_AT(function, line, priority, format, ...) the same with a line number that log filters rely on
//   LOG_FUNC_BEGIN()                              the trace of a function's begin
//   LOG_ASSERTION_FAILED(assertion)               a soft assertion that does not hold; the caller takes its failure
//   path
#pragma once

#include <cstddef>

#include "platform/system_log.h"

namespace Log {

constexpr int BUFFER = 2;
constexpr char TAG[] = "halcyon-lineup";

constexpr int DETAIL = 4;
constexpr int PROGRESS = 5;
constexpr int FAILURE = 6;

template <std::size_t N>
struct SourceName {
    char text[N] = {};
};

// The base name of a source's path, without its extension.
template <std::size_t N>
constexpr SourceName<N> sourceName(const char (&path)[N]) {
    std::size_t begin = 0;
    std::size_t end = N - 1;
    for (std::size_t i = 0; i < N - 1; ++i) {
        if (path[i] == '/') {
            begin = i + 1;
            end = N - 1;
        } else if (path[i] == '.') {
            end = i;
        }
    }
    SourceName<N> name;
    for (std::size_t i = begin; i < end; ++i) {
        name.text[i - begin] = path[i];
    }
    return name;
}

}  // namespace Log

#define LOG_AT(function, line, priority, format, ...)                                                             \
    do {                                                                                                          \
        static constexpr auto logSource = Log::sourceName(__FILE__);                                              \
        __dlog_print(Log::BUFFER, Log::priority, Log::TAG, "%s: %s(%d) > " format "\n", logSource.text, function, \
                     line, ##__VA_ARGS__);                                                                        \
        CCLogger::AddLogger(logSource.text, function, line, format, ##__VA_ARGS__);                               \
    } while (false)

#define LOG_IN(function, priority, ...) LOG_AT(function, __LINE__, priority, __VA_ARGS__)

#define LOG(priority, ...) LOG_AT(__func__, __LINE__, priority, __VA_ARGS__)

#define LOG_FUNC_BEGIN()                                                                                       \
    do {                                                                                                       \
        static constexpr auto logSource = Log::sourceName(__FILE__);                                           \
        __dlog_print(Log::BUFFER, Log::DETAIL, Log::TAG, "%s: %s(%d) > ", logSource.text, __func__, __LINE__); \
        CCLogger::AddLogger(logSource.text, __func__, __LINE__, "FUNC BEGIN");                                 \
    } while (false)

#define LOG_ASSERTION_FAILED(assertion) LOG(FAILURE, "Assertion failed: %s", #assertion)
