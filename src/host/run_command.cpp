// `quil run`: a solution with the host around it.

#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cstdio>
#include <memory>

#include "host/commands.h"
#include "host/solution.h"

namespace host {

void addSolutionOptions(CLI::App& command, SolutionOptions& options) {
    command.add_option("FOLDER", options.folder, "The solution: a folder with a file solution.lua")
        ->required()
        ->type_name("");
    command.add_option("--database", options.database, "Its database; else solution.db in the folder")
        ->type_name("FILE");
    command.add_flag("--read-only", options.readOnly, "Look at the database without changing it");
    command.add_option("--log", options.log, "Add what happens to this file, with the times")->type_name("FILE");
}

void addRunCommand(CLI::App& app, Context& context) {
    CLI::App* command = app.add_subcommand("run", "Run a solution (docs/solutions.md)");
    const auto options = std::make_shared<SolutionOptions>();
    const auto script = std::make_shared<std::string>();
    const auto seconds = std::make_shared<double>(-1);
    addSolutionOptions(*command, *options);
    command->add_option("--script", *script, "Run this script and end, instead of \"Start\" and what follows")
        ->type_name("NAME");
    command->add_option("--for", *seconds, "End after this time")->type_name("SECONDS")->check(CLI::NonNegativeNumber);
    command->footer(
        "The solution's script \"Start\" runs first, then the scripts that are asked for, until one quits or the host "
        "is\n"
        "interrupted. The status is what the script quits with; with --script it is 1 when the script fails.");
    command->callback([options, script, seconds, &context] {
        if (*seconds >= 0) {
            options->seconds = *seconds;
        }
        Solution solution(context, *options);
        if (!script->empty()) {
            const bool done = solution.run(*script);
            context.status = done ? solution.life().status() : 1;
            return;
        }
        if (isatty(STDERR_FILENO) == 1 && !options->seconds) {
            std::fprintf(stderr, "quil: running %s; Ctrl-C ends it\n", solution.name().c_str());
        }
        context.status = solution.live();
    });
}

}  // namespace host
