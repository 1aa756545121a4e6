#include "tools/ravo/commands/Commands.h"
#include "tools/ravo/commands/ServerProgram.h"

#include <CLI/CLI.hpp>

namespace cli {

void AddServe(CLI::App& app, Action& action) {
    CLI::App* command =
        app.add_subcommand("serve", "Serve a page that shows what plays and controls it");
    command->prefix_command();
    command->set_help_flag(); // its options, --help among them, are the server's
    command->callback([command, &action] {
        action = [words = command->remaining()] { return BecomeServer(words); };
    });
}

} // namespace cli
