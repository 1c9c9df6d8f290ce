#include "platform/system_log.h"

#include <fmt/chrono.h>
#include <fmt/color.h>
#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "simulator/base/Environment.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Text.h"
#include "simulator/device/Device.h"

namespace {

__attribute__((format(printf, 1, 0))) std::string formatted(const char* format, va_list arguments) {
    char* buffer = nullptr;
    const int length = ::vasprintf(&buffer, format, arguments);
    if (length < 0) {
        return format;
    }
    const std::unique_ptr<char, decltype(&std::free)> text(buffer, &std::free);
    return {text.get(), static_cast<std::size_t>(length)};
}

char letter(int priority) {
    constexpr std::string_view LETTERS = "??VDIWEFS";
    return priority >= 0 && priority < static_cast<int>(LETTERS.size()) ? LETTERS[static_cast<std::size_t>(priority)]
                                                                        : '?';
}

// On a terminal: failures in red, progress in green, details in grey.
std::string coloured(int priority, const std::string& line) {
    static const char* const noColour = std::getenv("NO_COLOR");
    static const bool isColoured = ::isatty(STDERR_FILENO) == 1 && (noColour == nullptr || *noColour == '\0') &&
                                   sim::environment("TERM") != "dumb";
    if (!isColoured) {
        return line;
    }
    const fmt::terminal_color colour =
        priority >= 6 ? fmt::terminal_color::red
                      : (priority == 5 ? fmt::terminal_color::green : fmt::terminal_color::bright_black);
    return fmt::format(fmt::fg(colour), "{}", line);
}

// The TV's time: when the process started, plus the time of the main loop's clock.
std::string timeOfDay() {
    static const auto start = std::chrono::system_clock::now();
    const auto now = std::chrono::time_point_cast<std::chrono::milliseconds>(start + sim::Device::current().loop.now());
    const auto milliseconds = now.time_since_epoch().count() % 1000;
    return fmt::format("{:%m-%d %H:%M:%S}.{:03}", fmt::localtime(std::chrono::system_clock::to_time_t(now)),
                       milliseconds);
}

void print(int priority, const char* tag, std::string_view text) {
    const std::size_t end = text.find_last_not_of(" \n");
    const std::string line = fmt::format("{} {}/{}: {}", timeOfDay(), letter(priority), tag,
                                         sim::shown(sim::limits::cut(text.substr(0, end + 1))));
    std::fprintf(stderr, "%s\n", coloured(priority, line).c_str());
}

}  // namespace

int __dlog_print(int /*buffer*/, int priority, const char* tag, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string text = formatted(format, arguments);
    va_end(arguments);
    sim::Device::current().record.systemLog(priority, tag, text);
    print(priority, tag, text);
    return static_cast<int>(text.size());
}

void CCLogger::AddLogger(const char* file, const char* function, int line, const char* message, ...) {
    va_list arguments;
    va_start(arguments, message);
    const std::string text = formatted(message, arguments);
    va_end(arguments);
    sim::Device::current().record.logger(file, function, line, text);
}
