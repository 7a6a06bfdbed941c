// `quil doctor`: one text about this installation, to paste into a bug report. `quil --version --json`: the same in
// short for programs. Neither tells anything private: the home folder is written as ~, and no address, user or host is
// named.
#include <GeographicLib/Config.h>
#include <csv.h>
#include <gnu/libc-version.h>
#include <langinfo.h>
#include <link.h>
#include <lua.h>
#include <sqlite3.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <array>
#include <clocale>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "host/commands.h"
#include "host/units.h"
#include "platform/machine.h"
#include "platform/processes.h"

namespace host {
namespace {

using nlohmann::ordered_json;
using Lines = std::vector<std::pair<std::string, std::string>>;

std::string withoutHome(std::string text) {
    const char* home = std::getenv("HOME");
    const std::string folder = home == nullptr ? "" : home;
    for (std::size_t at = 0; folder.size() > 1 && (at = text.find(folder, at)) != std::string::npos; ++at) {
        const std::size_t end = at + folder.size();
        if (end == text.size() || text[end] == '/' || text[end] == '"' || text[end] == ':') {
            text.replace(at, folder.size(), "~");
        }
    }
    return text;
}

std::string ownFolder() {
    std::array<char, 4096> path{};
    const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size() - 1);
    const std::string own(path.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    return own.substr(0, own.rfind('/'));
}

// The file of a loaded library whose name holds `name`; empty when none is loaded.
std::string loadedLibrary(std::string_view name) {
    std::pair<std::string_view, std::string> search(name, {});
    ::dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* data) {
            auto& [wanted, found] = *static_cast<std::pair<std::string_view, std::string>*>(data);
            if (found.empty() && std::string_view(info->dlpi_name).find(wanted) != std::string_view::npos) {
                found = info->dlpi_name;
            }
            return 0;
        },
        &search);
    return search.second;
}

bool isThere(const std::string& path) {
    return ::access(path.c_str(), F_OK) == 0;
}

std::string compilerText() {
#if defined(__clang__)
    return "clang " __clang_version__;
#else
    return "g++ " __VERSION__;
#endif
}

// The optional parts: name, and where it is or how to get it.
struct Part {
    std::string name;
    std::string place;  // empty: not there
    std::string remedy;
};

std::vector<Part> optionalParts() {
    const std::string folder = ownFolder();
    std::vector<Part> parts;
    const std::string desk = folder + "/quil-desk";
    parts.push_back({"desktop", isThere(desk) ? desk : "", "build with Qt 6 (package qt6-base-dev)"});
    parts.push_back({"bus", loadedLibrary("libsystemd.so"), "build with sd-bus (package libsystemd-dev)"});
    std::string extension;
    for (const std::string& place :
         {folder + "/quil_sqlite.so", folder + "/" QUIL_INSTALLED_LIBRARIES "/quil_sqlite.so"}) {
        extension = extension.empty() && isThere(place) ? place : extension;
    }
    parts.push_back({"sqlite-extension", extension, "install the whole of quil"});
    return parts;
}

struct PluginState {
    std::string bundle;
    std::string chosen;  // why this bundle
    std::string version;
    std::size_t functions = 0;  // registered with the host
    std::size_t scripts = 0;    // script functions
    std::string problem;        // why it does not load
};

PluginState examinePlugin(Context& context) {
    PluginState state;
    const char* named = std::getenv("QUIL_PLUGIN");
    state.bundle = bundleOf(context);
    state.chosen = !context.bundle.empty()                          ? "named by --plugin"
                   : named != nullptr && *named != '\0'             ? "named by $QUIL_PLUGIN"
                   : state.bundle == ownFolder() + "/QUIL.fmplugin" ? "beside the program"
                                                                    : "installed with the program";
    try {
        Session session(context);
        state.version = session.plugin().evaluate("QUIL_Version", {}).text;
        state.functions = session.plugin().functions().size();
        state.scripts = readFunctionList(state.bundle).size();
    } catch (const HostError& error) {
        state.problem = error.what();
    } catch (const std::exception& error) {
        state.problem = std::string("it failed: ") + error.what();
    }
    return state;
}

std::string systemName() {
    std::ifstream release("/etc/os-release");
    for (std::string line; std::getline(release, line);) {
        if (line.starts_with("PRETTY_NAME=\"") && line.size() > 14) {
            return line.substr(13, line.size() - 14);
        }
    }
    return "unknown";
}

// Applications that may be partners, and whether they run.
Lines partners(Context& context) {
    using platform::operator""_4;
    constexpr std::pair<platform::OSType, const char*> known[] = {{"GLN1"_4, "GLN1 (maps)"},
                                                                  {"GEOL"_4, "GEOL (maps)"},
                                                                  {"SRC5"_4, "SRC5 (dispersion)"},
                                                                  {"VCHM"_4, "VCHM (datasheets)"}};
    std::vector<platform::OSType> running;
    const std::unique_ptr<platform::Machine> machine = platform::makeLinuxMachine(context.machine);
    platform::ProcessSerialNumber process = platform::noProcess;
    for (int i = 0; i < 1000 && machine->processes().next(process) == platform::noErr; ++i) {
        platform::ProcessInfo info;
        if (machine->processes().information(process, info) == platform::noErr) {
            running.push_back(info.signature);
        }
    }
    Lines lines;
    for (const auto& [signature, name] : known) {
        const bool runs = std::find(running.begin(), running.end(), signature) != running.end();
        lines.emplace_back(name, runs ? "runs" : "does not run");
    }
    return lines;
}

std::string section(const std::string& title, const Lines& lines) {
    std::string text = title + "\n";
    for (const auto& [label, value] : lines) {
        text += "  " + label + std::string(label.size() < 18 ? 18 - label.size() : 0, ' ') + "  " + value + "\n";
    }
    return text + "\n";
}

void doctor(Context& context) {
    context.machine.log = [](const std::string&) {};  // what matters of the bus is told below
    std::setlocale(LC_CTYPE, "");
    utsname system{};
    ::uname(&system);
    std::string text = section("Program", {{"quil", QUIL_VERSION_TEXT},
                                           {"built", compilerText() + ", " + QUIL_BUILD_TYPE},
                                           {"folder", ownFolder()},
                                           {"platform library", loadedLibrary("libquilplatform.so")}});
    text += section("Libraries", {{"C library", gnu_get_libc_version()},
                                  {"SQLite", sqlite3_libversion()},
                                  {"Lua", LUA_RELEASE},
                                  {"GeographicLib", GEOGRAPHICLIB_VERSION_STRING},
                                  {"libcsv", std::to_string(CSV_MAJOR) + "." + std::to_string(CSV_MINOR) + "." +
                                                 std::to_string(CSV_RELEASE)}});
    Lines lines;
    for (const Part& part : optionalParts()) {
        lines.emplace_back(part.name, part.place.empty() ? "not there; " + part.remedy : part.place);
    }
    text += section("Optional parts", lines);

    std::string volumeProblem;
    try {
        readEnvironment(context);
    } catch (const HostError& error) {
        volumeProblem = error.what();
        ::unsetenv("QUIL_VOLUMES");  // told below; the plug-in is looked at all the same
    }
    const PluginState plugin = examinePlugin(context);
    lines = {{"bundle", plugin.bundle + " (" + plugin.chosen + ")"}};
    if (plugin.problem.empty()) {
        lines.emplace_back("loads", "yes");
        lines.emplace_back("version", plugin.version);
        lines.emplace_back("functions", std::to_string(plugin.functions) + " of the host's, " +
                                            std::to_string(plugin.scripts) + " script functions");
    } else {
        lines.emplace_back("loads", "no: " + plugin.problem);
    }
    text += section("Plug-in", lines);

    lines.clear();
    if (!volumeProblem.empty()) {
        lines.emplace_back("problem", volumeProblem);
    }
    for (const platform::Volume& volume : context.machine.volumes) {
        const bool readable = ::access(volume.directory.c_str(), R_OK | X_OK) == 0;
        const bool writable = ::access(volume.directory.c_str(), W_OK) == 0;
        lines.emplace_back(volume.name, volume.directory + (!readable   ? " (cannot be read)"
                                                            : !writable ? " (read only)"
                                                                        : ""));
    }
    if (lines.empty()) {
        lines.emplace_back("Linux", "/ (none was named)");
    }
    text += section("Volumes", lines);

    const char* bus = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    lines = {{"session bus", bus != nullptr && *bus != '\0' ? "its address is set" : "its address is not set"}};
    for (auto& partner : partners(context)) {
        lines.push_back(std::move(partner));
    }
    text += section("Partners", lines);

    const char* display = std::getenv("DISPLAY");
    const char* wayland = std::getenv("WAYLAND_DISPLAY");
    const char* locale = std::setlocale(LC_CTYPE, nullptr);
    text += section("Surroundings",
                    {{"system", systemName() + ", " + system.sysname + " " + system.release + ", " + system.machine},
                     {"locale", std::string(locale == nullptr ? "?" : locale) + ", " + ::nl_langinfo(CODESET)},
                     {"display", wayland != nullptr   ? "Wayland"
                                 : display != nullptr ? "X11"
                                                      : "none"},
                     {"terminal", ::isatty(STDOUT_FILENO) == 1 ? "yes" : "no"}});
    text.pop_back();
    writeOutput(withoutHome(text));
    context.status = plugin.problem.empty() ? 0 : 1;
}

}  // namespace

void printVersionJson(Context& context) {
    context.machine.log = [](const std::string&) {};
    const PluginState plugin = examinePlugin(context);
    ordered_json parts = ordered_json::object();
    for (const Part& part : optionalParts()) {
        parts[part.name] = !part.place.empty();
    }
    ordered_json document = {{"program", "quil"}, {"version", QUIL_VERSION_TEXT}};
    document["build"] = {{"compiler", compilerText()}, {"type", QUIL_BUILD_TYPE}};
    document["plugin"] = {{"bundle", withoutHome(plugin.bundle)}};
    if (plugin.problem.empty()) {
        document["plugin"]["version"] = plugin.version;
        document["plugin"]["script-functions"] = plugin.scripts;
    } else {
        document["plugin"]["version"] = nullptr;
        document["plugin"]["problem"] = withoutHome(plugin.problem);
        context.status = 1;
    }
    document["parts"] = std::move(parts);
    writeOutput(document.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n");
}

void addDoctorCommand(CLI::App& app, Context& context) {
    CLI::App* command = app.add_subcommand("doctor", "Tell about this installation, for a bug report");
    command->footer(
        "One text to paste: versions, optional parts, the plug-in and why it does not load, volumes, partners, "
        "locale.\n"
        "It holds nothing private. The status is 1 when the plug-in does not load.");
    command->callback([&context] { doctor(context); });
}

}  // namespace host
