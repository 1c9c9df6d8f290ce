// What a launch from a command line needs before main(), when the application's static objects open the TV. Only the
// application links this, not the other programs that use its classes.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "simulator/device/Device.h"
#include "simulator/device/LaunchOptions.h"

namespace {

// Prints help and ends the process, before a TV is needed.
void answer(int argc, char** argv) {
    CLI::App app;
    sim::LaunchOptions options;
    sim::describe(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        std::exit(app.exit(help));
    } catch (const CLI::ParseError&) {  // ui_app_main() reports it
    }
}

bool asksForHelp(const std::string& word) {
    return word == "--help" || word == "-h" || word == "--version";
}

// The first priority that programs may use: ahead of all static objects.
__attribute__((constructor(101))) void beforeMain(int argc, char** argv) {
    if (std::any_of(argv, argv + argc, &asksForHelp)) {
        answer(argc, argv);
    }
    sim::Device::confineWhenOpened();
}

}  // namespace
