// quil_sqlite.so: the plug-in for every program that uses SQLite. The extension brings the machine and the plug-in into
// the process, for one connection at a time: a plug-in has one state.
#include <dlfcn.h>
#include <sqlite3ext.h>
#include <sys/stat.h>

#include <cstdlib>
#include <exception>
#include <memory>
#include <mutex>
#include <string>

#include "host/plugin.h"
#include "platform/linux/linux_machine.h"
#include "sqlite/functions.h"

SQLITE_EXTENSION_INIT3  // NOLINT: SQLite's way to reach its routines

    namespace {
    // Machine and plug-in, for as long as a connection holds their functions.
    struct Loaded {
        struct Machine {
            explicit Machine(const platform::LinuxOptions& options)
                : machine(platform::makeLinuxMachine(options)), previous(platform::installMachine(machine.get())) {}
            ~Machine() { platform::installMachine(previous); }
            Machine(const Machine&) = delete;
            Machine& operator=(const Machine&) = delete;
            std::unique_ptr<platform::Machine> machine;
            platform::Machine* previous;
        };

        Loaded(const platform::LinuxOptions& options, const std::string& bundle) : machine(options), plugin(bundle) {
            if (const std::int32_t result = plugin.initialize(); result <= 0) {
                throw host::HostError("the plug-in \"" + bundle + "\" could not start (result " +
                                      std::to_string(result) + ")");
            }
        }

        Machine machine;
        host::Plugin plugin;
    };

    std::recursive_mutex sLoading;  // connections of several threads may load and close at once
    std::weak_ptr<Loaded> sLoaded;  // what the connection that loaded it holds

    // The bundle lies beside this library, in a build and where it is installed.
    std::string bundle() {
        const char* named = std::getenv("QUIL_PLUGIN");
        if (named != nullptr && *named != '\0') {
            return named;
        }
        Dl_info info{};
        if (::dladdr(&sLoading, &info) == 0 || info.dli_fname == nullptr) {
            throw host::HostError("cannot tell where the extension lies; name the bundle in QUIL_PLUGIN");
        }
        const std::unique_ptr<char, decltype(&std::free)> path(::realpath(info.dli_fname, nullptr), &std::free);
        const std::string library = path ? path.get() : info.dli_fname;
        return library.substr(0, library.rfind('/') + 1) + "QUIL.fmplugin";
    }

    platform::LinuxOptions options() {
        platform::LinuxOptions result;
        result.asksUser = false;  // standard input is the program's own
        if (const char* table = std::getenv("QUIL_VOLUMES"); table != nullptr) {
            if (const std::string error = platform::parseVolumes(table, result.volumes); !error.empty()) {
                throw host::HostError("in the environment variable QUIL_VOLUMES: " + error);
            }
        }
        return result;
    }

    int load(sqlite3 * database, const sqlite3_api_routines* api) {
        const std::lock_guard<std::recursive_mutex> lock(sLoading);
        if (!sLoaded.expired() || platform::hasMachine()) {
            throw host::HostError(
                "the plug-in is loaded in this process already, and it can serve one connection at a time; close that "
                "connection first");
        }
        const std::shared_ptr<Loaded> loaded(new Loaded(options(), bundle()), [](const Loaded* last) {
            const std::lock_guard<std::recursive_mutex> unloading(sLoading);
            delete last;
        });
        sLoaded = loaded;
        return host::addSqlFunctions(database, api, {loaded, &loaded->plugin});
    }

}  // namespace

extern "C" __attribute__((visibility("default"))) int sqlite3_quilsqlite_init(sqlite3* database, char** error,
                                                                              const sqlite3_api_routines* api) {
    SQLITE_EXTENSION_INIT2(api);
    try {
        return load(database, api);
    } catch (const std::exception& failure) {
        *error = sqlite3_mprintf("quil_sqlite: %s", failure.what());
    } catch (...) {
        *error = sqlite3_mprintf("quil_sqlite: the plug-in could not be loaded");
    }
    return SQLITE_ERROR;
}
