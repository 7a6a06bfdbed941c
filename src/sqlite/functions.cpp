#include "sqlite/functions.h"

#include <sqlite3ext.h>

#include <climits>
#include <exception>
#include <new>
#include <string_view>

#include "host/plugin.h"

SQLITE_EXTENSION_INIT1  // NOLINT: SQLite's way to reach its routines

    namespace host {
    namespace {

    using Held = std::shared_ptr<Plugin>;

    Plugin& pluginOf(sqlite3_context* context) {
        return **static_cast<Held*>(sqlite3_user_data(context));
    }

    std::string_view textOf(sqlite3_value* value) {
        const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(value));  // before the size: it may convert
        return {text == nullptr ? "" : text, static_cast<std::size_t>(sqlite3_value_bytes(value))};
    }

    // A text whose end SQLite finds by itself stays where SQLite put it; one that is handed over with its size is moved
    // once
    // more when somebody reads it as a terminated text.
    void setText(sqlite3_context* context, const std::string& text) {
        if (text.find('\0') == std::string::npos && text.size() <= INT_MAX) {
            sqlite3_result_text(context, text.c_str(), -1, SQLITE_TRANSIENT);
        } else {
            sqlite3_result_text64(context, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
        }
    }

    template <class Evaluate>
    void answer(sqlite3_context* context, const char* function, Evaluate evaluate) noexcept {
        try {
            const Answer given = evaluate();
            if (given.code == fmx::kNoError) {
                setText(context, given.text);
            } else if (given.code == fmx::kMemoryError) {
                sqlite3_result_error_nomem(context);
            } else {
                const std::string message =
                    std::string(function) + " ended with the error code " + std::to_string(given.code);
                sqlite3_result_error(context, message.c_str(), -1);
            }
        } catch (const std::bad_alloc&) {
            sqlite3_result_error_nomem(context);
        } catch (const std::exception& error) {
            sqlite3_result_error(context, error.what(), -1);
        } catch (const fmx::_fmxcpt& error) {
            error.code == fmx::kMemoryError ? sqlite3_result_error_nomem(context)
                                            : sqlite3_result_error(context, "the text is too large", -1);
        } catch (...) {
            sqlite3_result_error(context, "the plug-in failed", -1);
        }
    }

    void external(sqlite3_context* context, int, sqlite3_value** values) {
        if (sqlite3_value_type(values[0]) == SQLITE_NULL || sqlite3_value_type(values[1]) == SQLITE_NULL) {
            return;  // NULL, as SQL's own functions answer it
        }
        const std::string_view name = textOf(values[0]);
        const std::string_view parameter = textOf(values[1]);
        answer(context, "QUIL_External", [&] { return pluginOf(context).external(name, parameter); });
    }

    void version(sqlite3_context* context, int, sqlite3_value**) {
        answer(context, "QUIL_Version", [&] { return pluginOf(context).evaluate("QUIL_Version", {}); });
    }

    void letGo(void* held) {
        delete static_cast<Held*>(held);
    }

    }  // namespace

    int addSqlFunctions(sqlite3 * database, const sqlite3_api_routines* api, const Held& plugin) {
        SQLITE_EXTENSION_INIT2(api);
        struct Function {
            const char* name;
            int parameters;
            void (*call)(sqlite3_context*, int, sqlite3_value**);
        };
        for (const Function& function : {Function{"QUIL_External", 2, external}, Function{"QUIL_Version", 0, version},
                                         Function{"QUIL_Version", 1, version}}) {
            auto* held = new (std::nothrow) Held(plugin);
            if (held == nullptr) {
                return SQLITE_NOMEM;
            }
            // SQLite lets go of what it is given when it fails, too.
            if (const int status = sqlite3_create_function_v2(database, function.name, function.parameters, SQLITE_UTF8,
                                                              held, function.call, nullptr, nullptr, letGo);
                status != SQLITE_OK) {
                return status;
            }
        }
        return SQLITE_OK;
    }

}  // namespace host
