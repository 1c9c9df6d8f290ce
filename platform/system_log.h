// System log: the device log and the logger that keeps its own copy of each message.
#pragma once

extern "C" {

// Writes one record to the device log `buffer` (2: applications), with a priority (4 detail, 5
// progress, 6 failure), a tag and a printf-style message. Callable before main(). The result is the
// number of bytes written, or negative on failure.
__attribute__((format(printf, 4, 5))) int __dlog_print(int buffer, int priority, const char* tag, const char* format,
                                                       ...);

}  // extern "C"

class CCLogger {
public:
    // Keeps a printf-style message with the place that it comes from: the source's base name, the bare
    // function name and the line. All texts are copied. Callable before main().
    __attribute__((format(printf, 4, 5))) static void AddLogger(const char* file, const char* function, int line,
                                                                const char* message, ...);
};
