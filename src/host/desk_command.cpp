#include "host/desk_command.h"

#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

namespace host {

namespace {

Desktop sDesktop = nullptr;

// Goes on as the program with the windows, which lies beside this one, with the same arguments.
[[noreturn]] void becomeDesktop(int argc, const char* const* argv) {
    std::array<char, 4096> path{};
    const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size() - 1);
    const std::string own(path.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    const std::string program = own.substr(0, own.rfind('/') + 1) + "quil-desk";
    if (::access(program.c_str(), X_OK) != 0) {
        throw HostError(
            "this copy of quil was built without its windows. Install Qt 6 (on Debian: apt-get install "
            "qt6-base-dev) and build again; \"quil run\" runs the solution in the terminal meanwhile");
    }
    std::vector<char*> arguments;
    for (int i = 0; i < argc; ++i) {
        arguments.push_back(const_cast<char*>(argv[i]));
    }
    arguments.push_back(nullptr);
    ::execv(program.c_str(), arguments.data());
    throw HostError("cannot start \"" + program + "\": " + std::strerror(errno));
}

}  // namespace

void installDesktop(Desktop desktop) {
    sDesktop = desktop;
}

void addDeskCommand(CLI::App& app, Context& context) {
    CLI::App* command = app.add_subcommand("desk", "Show a solution on the desktop (docs/desk.md)");
    const auto options = std::make_shared<DeskOptions>();
    addSolutionOptions(*command, options->solution);
    command->get_option("FOLDER")->required(false)->description("The solution's folder; without it, a chooser asks");
    command->add_option("--scenes", options->scenes, "Write pictures of the windows into this folder and end")
        ->type_name("FOLDER")
        ->group("");
    command->footer("A solution that is on the desktop already comes to the front.");
    command->callback([options, &context] {
        if (sDesktop == nullptr) {
            becomeDesktop(context.argc, context.argv);
        }
        context.status = sDesktop(context, *options);
    });
}

}  // namespace host
