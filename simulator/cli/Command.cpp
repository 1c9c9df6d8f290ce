#include "simulator/cli/Command.h"

#include <utility>

namespace cli {

CLI::App* addCommand(CLI::App& parent, const std::string& name, const std::string& help, Action& chosen,
                     Action action) {
    CLI::App* command = parent.add_subcommand(name, help);
    command->callback([&chosen, action = std::move(action)] { chosen = action; });
    return command;
}

}  // namespace cli
