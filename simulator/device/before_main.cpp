// Linked into the application alone, and not into programs that use its classes: what a launch from a command line is
// about before the TV is opened, which is before main().
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "simulator/device/Device.h"
#include "simulator/device/LaunchOptions.h"

namespace {

// Whoever asks for help need not have a TV.
void answer(int argc, char** argv) {
    CLI::App app;
    sim::LaunchOptions options;
    sim::describe(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        std::exit(app.exit(help));
    } catch (const CLI::ParseError&) {  // is for the launch to say
    }
}

bool asksForHelp(const std::string& word) {
    return word == "--help" || word == "-h" || word == "--version";
}

// The process confines itself when it opens its TV.
__attribute__((constructor(101))) void beforeMain(int argc, char** argv) {
    if (std::any_of(argv, argv + argc, &asksForHelp)) {
        answer(argc, argv);
    }
    sim::Device::confineWhenOpened();
}

}  // namespace
