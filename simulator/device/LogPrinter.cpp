#include "simulator/device/LogPrinter.h"

#include <fmt/chrono.h>
#include <fmt/color.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <string_view>

#include "simulator/base/Environment.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Text.h"

namespace sim {

namespace {

// The letters of the system log, from verbose (2) to silent (8).
char letter(int priority) {
    constexpr std::string_view LETTERS = "??VDIWEFS";
    return priority >= 0 && priority < static_cast<int>(LETTERS.size()) ? LETTERS[static_cast<std::size_t>(priority)]
                                                                        : '?';
}

// On a terminal: failures in red, progress in green, details in grey.
std::string coloured(int priority, const std::string& line) {
    static const bool isColoured =
        ::isatty(STDERR_FILENO) == 1 && environment("NO_COLOR").empty() && environment("TERM") != "dumb";
    if (!isColoured) {
        return line;
    }
    const fmt::terminal_color colour =
        priority >= 6 ? fmt::terminal_color::red
                      : (priority == 5 ? fmt::terminal_color::green : fmt::terminal_color::bright_black);
    return fmt::format(fmt::fg(colour), "{}", line);
}

std::string timeOfDay(const Device& device) {
    return fmt::format("{:%m-%d %H:%M:%S}.{:03}", fmt::localtime(device.seconds()), device.now().count() % 1000);
}

}  // namespace

void printLog(const Device& device, const wire::SystemLog& log) {
    const std::string_view text = log.text;
    // Some records of the application end with a line break of their own.
    const std::size_t end = text.find_last_not_of(" \n");
    const std::string line = fmt::format("{} {}/{}: {}", timeOfDay(device), letter(log.priority), shown(log.tag),
                                         shown(limits::cut(text.substr(0, end + 1))));
    std::fprintf(stderr, "%s\n", coloured(log.priority, line).c_str());
}

}  // namespace sim
