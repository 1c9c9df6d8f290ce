#include "platform/system_log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "simulator/client/Connection.h"

namespace {

__attribute__((format(printf, 1, 0))) std::string formatted(const char* format, va_list arguments) {
    char* buffer = nullptr;
    const int length = ::vasprintf(&buffer, format, arguments);
    // No memory, or a text that the locale cannot write: the format says more than nothing.
    if (length < 0) {
        return format;
    }
    const std::unique_ptr<char, decltype(&std::free)> text(buffer, &std::free);
    return {text.get(), static_cast<std::size_t>(length)};
}

}  // namespace

int __dlog_print(int /*buffer*/, int priority, const char* tag, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string text = formatted(format, arguments);
    va_end(arguments);
    client::Connection::current().log(wire::Kind::SystemLog, wire::SystemLog{priority, tag, text});
    return static_cast<int>(text.size());
}

void CCLogger::AddLogger(const char* file, const char* function, int line, const char* message, ...) {
    va_list arguments;
    va_start(arguments, message);
    const std::string text = formatted(message, arguments);
    va_end(arguments);
    client::Connection::current().log(wire::Kind::Logger, wire::Logger{file, function, line, text});
}
