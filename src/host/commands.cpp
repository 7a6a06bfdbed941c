// What the commands share, the commands about script functions, and the program's command line.

#include "host/commands.h"

#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <numeric>

#include "host/rpc.h"
#include "platform/machine.h"
#include "platform/text.h"

namespace host {

namespace {

constexpr char kNoMatch[] = "Function name does not match a supported function.";

std::string lowered(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
    return result;
}

// Edits (insert, delete, replace, swap of neighbours) that make `a` into `b`.
std::size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> before(b.size() + 1);
    std::vector<std::size_t> above(b.size() + 1);
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(above.begin(), above.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            row[j] = std::min({above[j] + 1, row[j - 1] + 1, above[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                row[j] = std::min(row[j], before[j - 2] + 1);
            }
        }
        before.swap(above);
        above.swap(row);
    }
    return above[b.size()];
}

// The plug-in ends lines by carriage returns, a terminal by line feeds.
std::string withLineFeeds(std::string_view text) {
    std::string lines;
    lines.reserve(text.size() + 1);
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\r', at), text.size());
        lines += text.substr(at, end - at);
        lines.append(end < text.size() ? 1 : 0, '\n');
        at = end + (text.substr(end, 2) == "\r\n" ? 2 : 1);
    }
    return lines;
}

std::string readStandardInput() {
    std::string text;
    std::array<char, 65536> buffer;
    for (;;) {
        const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
        if (count == 0) {
            return text;
        }
        if (count > 0) {
            text.append(buffer.data(), static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            throw HostError(std::string("cannot read the parameter from standard input: ") + std::strerror(errno));
        }
    }
}

std::vector<std::string> functionNames(const std::vector<FunctionHelp>& list) {
    std::vector<std::string> names;
    for (const FunctionHelp& help : list) {
        names.push_back(help.name);
    }
    return names;
}

std::string unknownFunction(const std::string& name, const std::vector<FunctionHelp>& list) {
    return "no script function is named \"" + name + "\"" + didYouMean(nearestNames(name, functionNames(list))) +
           "; \"quil functions\" lists them";
}

// A parameter as one types it in a shell.
std::string shellQuoted(std::string_view text) {
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

struct CallOptions {
    std::string name;
    std::string parameter;
    bool raw = false;
};

void callFunction(const CallOptions& options, Context& context) {
    const std::string parameter = options.parameter == "-" ? readStandardInput() : options.parameter;
    if (!platform::isUtf8(parameter)) {
        throw HostError(
            "the parameter is not a text in UTF-8; convert it, for example with iconv -f MACINTOSH -t UTF-8");
    }
    Session session(context);
    const Answer answer = session.plugin().external(options.name, parameter);
    if (answer.code != fmx::kNoError) {
        throw HostError("the plug-in ended " + options.name + " with the error code " + std::to_string(answer.code));
    }
    if (options.raw) {
        writeOutput(answer.text);
    } else {
        writeLines(answer.text);
    }
    if (answer.text == kNoMatch) {
        const std::vector<FunctionHelp> list = readFunctionList(bundleOf(context));
        const std::vector<std::string> names = functionNames(list);
        if (std::find(names.begin(), names.end(), options.name) == names.end()) {  // else a function echoed the words
            throw HostError(unknownFunction(options.name, list));
        }
    }
    context.status = answer.text.starts_with("Error") || answer.text.starts_with("ERROR ") ? 1 : 0;
}

void listFunctions(const std::string& module, bool namesOnly, Context& context) {
    const std::vector<FunctionHelp> list = readFunctionList(bundleOf(context));
    std::vector<std::string> modules;
    std::size_t width = 0;
    for (const FunctionHelp& help : list) {
        width = std::max(width, help.name.size());
        if (std::find(modules.begin(), modules.end(), help.module) == modules.end()) {
            modules.push_back(help.module);
        }
    }
    std::string lines;
    for (const FunctionHelp& help : list) {
        if (module.empty() || lowered(module) == lowered(help.module)) {
            lines += namesOnly ? help.name : help.name + std::string(width - help.name.size() + 2, ' ') + help.summary;
            lines += '\n';
        }
    }
    if (lines.empty() && !module.empty()) {
        std::string known;
        for (const std::string& item : modules) {
            known += (known.empty() ? "" : ", ") + item;
        }
        throw CLI::ValidationError("MODULE", "no module is named \"" + module + "\"; there are: " + known);
    }
    writeOutput(lines);
}

// A heading and a text beside it, wrapped, its own lines kept.
std::string paragraph(std::string_view heading, std::string_view text) {
    constexpr std::size_t kIndent = 13;
    constexpr std::size_t kColumns = 100;
    std::string result = "  " + std::string(heading);
    result.resize(kIndent, ' ');
    std::size_t column = kIndent;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find_first_of(" \n", at), text.size());
        if (column > kIndent && column + 1 + (end - at) > kColumns) {
            result += '\n' + std::string(kIndent, ' ');
            column = kIndent;
        } else if (column > kIndent) {
            result += ' ';
            ++column;
        }
        result += text.substr(at, end - at);
        column += end - at;
        if (end < text.size() && text[end] == '\n') {
            result += '\n' + std::string(kIndent, ' ');
            column = kIndent;
        }
        at = end + 1;
    }
    return result + '\n';
}

void showFunction(const FunctionHelp& help) {
    std::string example = "quil call " + help.name;
    if (!help.exampleParameter.empty()) {
        example += (help.exampleParameter.front() == '-' ? " -- " : " ") + shellQuoted(help.exampleParameter);
    }
    std::string text = help.name + " (module " + help.module + ")\n  " + help.summary + "\n\n" +
                       paragraph("Parameter:", help.parameter) + paragraph("Result:", help.result) +
                       paragraph("Errors:", help.errors) + "  Example:   " + example + '\n';
    if (help.exampleResult) {
        std::string result = withLineFeeds(*help.exampleResult);
        result.erase(result.find_last_not_of('\n') + 1);
        text += paragraph("", result);
    }
    writeOutput(text);
}

// The command of that name that a program or command has, or null.
const CLI::App* commandOf(const CLI::App& app, const std::string& name) {
    const std::vector<const CLI::App*> commands = app.get_subcommands({});
    const auto found = std::find_if(commands.begin(), commands.end(),
                                    [&name](const CLI::App* command) { return command->get_name() == name; });
    return found == commands.end() ? nullptr : *found;
}

void showHelp(const CLI::App& app, const std::vector<std::string>& names, Context& context) {
    if (names.empty()) {
        writeOutput(app.get_formatter()->make_help(&app, "quil", CLI::AppFormatMode::Normal));
        return;
    }
    std::string before = "quil";
    const CLI::App* command = commandOf(app, names.front());
    for (std::size_t i = 1; i < names.size(); ++i) {
        const CLI::App* const next = command == nullptr ? nullptr : commandOf(*command, names[i]);
        if (next == nullptr) {
            throw CLI::ValidationError("NAME", '"' + names[i - 1] + "\" has no command \"" + names[i] + '"');
        }
        before += ' ' + names[i - 1];
        command = next;
    }
    if (command != nullptr) {
        writeOutput(command->help(before));
        return;
    }
    const std::string& name = names.front();
    const std::vector<FunctionHelp> list = readFunctionList(bundleOf(context));
    const auto found =
        std::find_if(list.begin(), list.end(), [&name](const FunctionHelp& help) { return help.name == name; });
    if (found == list.end()) {
        throw HostError(unknownFunction(name, list));
    }
    showFunction(*found);
}

void addGlobalOptions(CLI::App& app, Context& context) {
    app.add_option("--plugin", context.bundle,
                   "Plug-in bundle to load; else $QUIL_PLUGIN, else the QUIL.fmplugin that came with the program")
        ->type_name("BUNDLE");
    app.add_option_function<std::vector<std::string>>(
           "--volume",
           [&context](const std::vector<std::string>& entries) {
               for (const std::string& entry : entries) {
                   const std::string error = platform::parseVolumes(entry, context.machine.volumes);
                   if (!error.empty()) {
                       throw CLI::ValidationError("--volume", error);
                   }
               }
           },
           "Classic volume NAME is the directory DIR (repeatable, the first is the system disk; else $QUIL_VOLUMES, "
           "else Linux=/)")
        ->type_name("NAME=DIR")
        ->allow_extra_args(false);
    app.add_option("--application", context.machine.application,
                   "Classic path of the host's executable; else that of this program")
        ->type_name("PATH");
    app.add_option("--applications", context.machine.applicationsFolder,
                   "Classic path of the Applications folder; else Applications in the home folder")
        ->type_name("PATH");
    app.add_option_function<std::string>(
           "--signature",
           [&context](const std::string& code) {
               if (code.size() != 4) {
                   throw CLI::ValidationError("--signature", "\"" + code + "\" is not a code of four characters");
               }
               context.machine.signature = 0;
               for (const char c : code) {
                   context.machine.signature = context.machine.signature << 8 | static_cast<unsigned char>(c);
               }
           },
           "The host's own signature; else FMP7")
        ->type_name("CODE");
}

// What was wrong with the command line, with a hint where one helps.
std::string usageMessage(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<std::string> extras = app.remaining(true);
    if (dynamic_cast<const CLI::ExtrasError*>(&error) == nullptr || extras.empty()) {
        return error.what();
    }
    const std::string& extra = extras.front();
    if (extra.starts_with('-')) {
        std::vector<std::string> options;
        std::vector<const CLI::App*> places{&app};
        for (const CLI::App* command : app.get_subcommands()) {
            places.push_back(command);
        }
        for (const CLI::App* place : places) {
            for (const CLI::Option* option : place->get_options()) {
                if (!option->get_lnames().empty()) {
                    options.push_back("--" + option->get_lnames().front());
                }
            }
        }
        std::string message = "unknown option \"" + extra + "\"" + didYouMean(nearestNames(extra, options));
        if (app.got_subcommand("call")) {
            message += "; put -- before a parameter that begins with \"-\"";
        }
        return message;
    }
    if (app.get_subcommands().empty()) {
        std::vector<std::string> commands;
        for (const CLI::App* command : app.get_subcommands({})) {
            commands.push_back(command->get_name());
        }
        return "unknown command \"" + extra + "\"" + didYouMean(nearestNames(extra, commands));
    }
    return "\"" + extra + "\" is one argument too many; put quotes around a parameter that has spaces";
}

int fail(int status, const std::string& message) {
    std::fprintf(stderr, "quil: %s\n", message.c_str());
    return status;
}

}  // namespace

std::vector<std::string> nearestNames(std::string_view name, const std::vector<std::string>& names) {
    constexpr std::size_t kMost = 3;
    const std::string wanted = lowered(name);
    const std::size_t limit = std::min<std::size_t>(5, 1 + name.size() / 4);
    std::vector<std::pair<std::size_t, std::string>> near;
    for (const std::string& candidate : names) {
        const std::size_t longer = std::max(candidate.size(), name.size());
        if (longer - std::min(candidate.size(), name.size()) <= limit) {
            if (const std::size_t distance = editDistance(wanted, lowered(candidate)); distance <= limit) {
                near.emplace_back(distance, candidate);
            }
        }
    }
    std::stable_sort(near.begin(), near.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::string> result;
    for (std::size_t i = 0; i < std::min(kMost, near.size()); ++i) {
        result.push_back(near[i].second);
    }
    return result;
}

std::string didYouMean(const std::vector<std::string>& names) {
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i) {
        text += (i == 0 ? " - did you mean " : i + 1 == names.size() ? " or " : ", ") + names[i];
    }
    return text.empty() ? text : text + "?";
}

void writeOutput(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
        throw HostError(std::string("cannot write to standard output: ") + std::strerror(errno));
    }
}

void writeLines(std::string_view text) {
    writeOutput(withLineFeeds(text) + '\n');
}

void readEnvironment(Context& context) {
    const char* table = std::getenv("QUIL_VOLUMES");
    if (!context.machine.volumes.empty() || table == nullptr) {
        return;
    }
    if (const std::string error = platform::parseVolumes(table, context.machine.volumes); !error.empty()) {
        throw HostError("in the environment variable QUIL_VOLUMES: " + error);
    }
}

std::string bundleOf(const Context& context) {
    return context.bundle.empty() ? Plugin::defaultBundle() : context.bundle;
}

Session::InstalledMachine::InstalledMachine(const Context& context)
    : machine(context.makeMachine(context.machine)), previous(platform::installMachine(machine.get())) {}

Session::InstalledMachine::~InstalledMachine() {
    platform::installMachine(previous);
}

Session::Session(Context& context) : machine_((readEnvironment(context), context)), plugin_(bundleOf(context)) {
    if (const std::string_view problems = plugin_.bundle().problems; !problems.empty()) {
        fail(0, "warning: the bundle's strings are damaged:\n" + std::string(problems.substr(0, problems.size() - 1)));
    }
    const std::int32_t result = plugin_.initialize();
    const std::string name = "the plug-in \"" + plugin_.bundle().directory + "\"";
    if (result == fmx::kBadExtensionVersion) {
        throw HostError(name + " refuses this host, which speaks version " + std::to_string(kHostVersion) +
                        "; it needs another version of quil");
    }
    if (result <= 0) {
        throw HostError(name + " could not start (result " + std::to_string(result) +
                        "): it failed to register its functions");
    }
}

void addCallCommand(CLI::App& app, Context& context) {
    CLI::App* command = app.add_subcommand("call", "Call a script function and print its result");
    const auto options = std::make_shared<CallOptions>();
    command->add_option("NAME", options->name, "Script function; letter case matters")->required()->type_name("");
    command->add_option("PARAMETER", options->parameter, "Its parameter; - reads it from standard input, byte for byte")
        ->type_name("");
    command->add_flag("--raw", options->raw, "Print the result as it is, without a line feed at the end");
    command->footer(
        "The plug-in ends lines by carriage returns. They are printed as line feeds, unless --raw is given.\n"
        "The status is 1 when no function has that name or when the result begins with \"Error\" or \"ERROR \".\n"
        "Put -- before a parameter that begins with \"-\".");
    command->callback([options, &context] { callFunction(*options, context); });
}

void addFunctionsCommand(CLI::App& app, Context& context) {
    CLI::App* command = app.add_subcommand("functions", "List the script functions, in dispatch order");
    const auto module = std::make_shared<std::string>();
    const auto namesOnly = std::make_shared<bool>(false);
    command->add_option("MODULE", *module, "Only those of this module")->type_name("");
    command->add_flag("--names", *namesOnly, "Names alone, one a line");
    command->callback([module, namesOnly, &context] { listFunctions(*module, *namesOnly, context); });
}

void addHelpCommand(CLI::App& app, Context& context) {
    CLI::App* command = app.add_subcommand("help", "Explain a script function or a command");
    const auto names = std::make_shared<std::vector<std::string>>();
    command
        ->add_option("NAME", *names, "Script function or command, such as sets or sets combine; without, this program")
        ->type_name("");
    command->callback([names, &app, &context] { showHelp(app, *names, context); });
}

void addRpcCommand(CLI::App& app, Context& context) {
    CLI::App* command =
        app.add_subcommand("rpc", "Obey JSON-RPC requests, one a line, on standard input (docs/automation.md)");
    command->footer(
        "The scripted machine takes --volume, --application, --applications and --signature: see \"quil help\".");
    command->callback([&context] {
        readEnvironment(context);
        context.status = runRpc({context.machine, bundleOf(context)}, STDIN_FILENO, STDOUT_FILENO);
    });
}

void describeProgram(CLI::App& app, Context& context, ProgramOptions& options) {
    app.description("Runs the QUIL plug-in on Linux: script functions, the hazard screening calculator, automation.");
    app.name("quil");
    app.fallthrough();  // global options may stand after the command's name
    app.require_subcommand(0, 1);
    app.set_help_flag("-h,--help", "Explain this program or the command and end");
    auto* version = app.add_flag("--version", options.version, "Print the plug-in's version (QUIL_Version) and end");
    app.add_flag("--json", options.versionAsJson, "With --version: build, plug-in and optional parts as JSON")
        ->needs(version);
    addGlobalOptions(app, context);
    addCallCommand(app, context);
    addFunctionsCommand(app, context);
    addHelpCommand(app, context);
    addScreenCommand(app, context);
    addSetsCommand(app, context);
    addMapListCommand(app, context);
    addYearsCommands(app, context);
    addPathCommand(app, context);
    addDoctorCommand(app, context);
    addRpcCommand(app, context);
    addPartnerCommand(app, context);
    addTraceCommand(app, context);
    addRunCommand(app, context);
    addConsoleCommand(app, context);
    addDeskCommand(app, context);
}

int run(int argc, char** argv) {
    std::signal(SIGXFSZ, SIG_IGN);  // a file that grows past its limit is an error to tell, not a death
    Context context;
    context.argc = argc;
    context.argv = argv;
    CLI::App app;
    ProgramOptions options;
    try {
        describeProgram(app, context, options);
        app.parse(argc, argv);
        if (options.version && options.versionAsJson) {
            printVersionJson(context);
        } else if (options.version) {
            Session session(context);
            writeLines(session.plugin().evaluate("QUIL_Version", {}).text);
        } else if (app.get_subcommands().empty()) {
            return fail(2, "name a command, for example \"quil functions\"; \"quil help\" lists the commands");
        }
        return context.status;
    } catch (const CLI::CallForHelp&) {
        try {
            writeOutput(app.help());
            return 0;
        } catch (const HostError& error) {
            return fail(1, error.what());
        }
    } catch (const CLI::ParseError& error) {
        return fail(2, usageMessage(app, error) + "\nTry \"quil help\".");
    } catch (const HostError& error) {
        return fail(1, error.what());
    } catch (const fmx::_fmxcpt& error) {
        return fail(1, "the text is too large (error code " + std::to_string(error.code) + ")");
    } catch (const std::bad_alloc&) {
        return fail(1, "out of memory; try a smaller parameter or file");
    } catch (const std::exception& error) {
        return fail(1, error.what());
    }
}

}  // namespace host
