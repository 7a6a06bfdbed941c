// The commands of `quil`. Each registers itself with the command line by one function; its callback does the work and
// leaves the exit status in the context.
//
// Exit statuses: 0; 2 with a message for wrong usage (CLI::ParseError); 1 for the rest. A callback reports a failure by
// throwing HostError with a text that names the file, option or function at fault and what to do; the program prints it
// on standard error as "quil: TEXT" and ends with 1.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/plugin.h"
#include "platform/linux/linux_machine.h"

namespace CLI {
class App;
}

namespace host {

// What the options before and after a command's name say, and how the command ended.
struct Context {
    platform::LinuxOptions machine;  // --volume, --application, --applications, --signature
    std::string bundle;              // --plugin; empty: Plugin::defaultBundle()
    // The machine that solutions and functions run on.
    std::function<std::unique_ptr<platform::Machine>(const platform::LinuxOptions&)> makeMachine =
        platform::makeLinuxMachine;
    int argc = 0;  // the command line, as it was given
    const char* const* argv = nullptr;
    int status = 0;  // exit status, set by the command
};

void addCallCommand(CLI::App& app, Context& context);
void addConsoleCommand(CLI::App& app, Context& context);
void addDeskCommand(CLI::App& app, Context& context);
void addDoctorCommand(CLI::App& app, Context& context);
void addFunctionsCommand(CLI::App& app, Context& context);
void addHelpCommand(CLI::App& app, Context& context);
void addMapListCommand(CLI::App& app, Context& context);
void addPartnerCommand(CLI::App& app, Context& context);
void addRpcCommand(CLI::App& app, Context& context);
void addRunCommand(CLI::App& app, Context& context);
void addPathCommand(CLI::App& app, Context& context);
void addScreenCommand(CLI::App& app, Context& context);
void addSetsCommand(CLI::App& app, Context& context);
void addTraceCommand(CLI::App& app, Context& context);
void addYearsCommands(CLI::App& app, Context& context);  // years, renumber

// What the program does without a command.
struct ProgramOptions {
    bool version = false;
    bool versionAsJson = false;
};

// Describes the whole command line; the references must live as long as `app`.
void describeProgram(CLI::App& app, Context& context, ProgramOptions& options);

// `--version --json`.
void printVersionJson(Context& context);

// Completes the machine's options from the environment: the volumes of QUIL_VOLUMES when no --volume was given. Throws
// HostError for an entry that is wrong.
void readEnvironment(Context& context);

// The bundle that the context names, or the default one.
std::string bundleOf(const Context& context);

// A plug-in that is loaded and initialised on the Linux machine, shut down at the end. Throws HostError when the bundle
// cannot be loaded or the plug-in refuses to start.
class Session {
  public:
    explicit Session(Context& context);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    Plugin& plugin() { return plugin_; }

  private:
    struct InstalledMachine {
        explicit InstalledMachine(const Context& context);
        ~InstalledMachine();
        InstalledMachine(const InstalledMachine&) = delete;
        InstalledMachine& operator=(const InstalledMachine&) = delete;
        std::unique_ptr<platform::Machine> machine;
        platform::Machine* previous;
    };

    InstalledMachine machine_;
    Plugin plugin_;
};

// Up to three of `names` that are nearest to `name`, nearest first; none when all are far away.
std::vector<std::string> nearestNames(std::string_view name, const std::vector<std::string>& names);
// " - did you mean A, B or C?", or the empty text when there are no names.
std::string didYouMean(const std::vector<std::string>& names);

// Writes a text to standard output. Throws HostError when that fails.
void writeOutput(std::string_view text);
// The same with the carriage returns (also CR LF) that end the plug-in's lines turned into line feeds, and a line feed
// at the end.
void writeLines(std::string_view text);

// Runs the program: parses the command line, runs the command, returns the exit status.
int run(int argc, char** argv);

}  // namespace host
