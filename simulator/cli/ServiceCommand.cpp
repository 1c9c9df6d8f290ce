// What halcyon-lineup and the commands that launch it start: the TV's services for one run. It is not for people, and
// so not among the commands.
#include "simulator/device/Service.h"

#include <CLI/CLI.hpp>

#include "simulator/cli/Command.h"

namespace cli {

bool isService(int argc, char** argv) {
    return argc > 1 && std::string_view(argv[1]) == "service";
}

int service(int argc, char** argv) {
    CLI::App app;
    int socket = -1;
    int output = -1;
    int errors = -1;
    app.add_option("--socket", socket)->required();
    app.add_option("--output", output);
    app.add_option("--errors", errors);
    try {
        app.parse(argc - 1, argv + 1);
    } catch (const CLI::ParseError&) {
        throw UsageError("the command service is for halcyon-lineup, which starts it; try: halcyon-tv run");
    }
    return sim::serveApplicationAlone({sim::Descriptor(socket), sim::Descriptor(output), sim::Descriptor(errors)});
}

}  // namespace cli
