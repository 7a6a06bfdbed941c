// A script function through the loaded plug-in, from the host's two texts to the text of the answer, beside a prepared
// SQLite statement that calls a C function with the same two texts (bind, step, read, reset).
//
// First and last row are called with the example of their help, and the handlers' own work is in the figures. The row
// "unknown name" has none, so it is the dispatcher alone.

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "fmx/host.h"
#include "host/plugin.h"
#include "platform/linux/linux_machine.h"
#include "platform/scripted/scripted_machine.h"

namespace {

constexpr char kParameter[] = "G|OPEN|3.35|MPH";

// The plug-in on a machine whose alerts cost nothing but memory.
struct Loaded {
    std::unique_ptr<platform::Files> files = platform::makeLinuxFiles({});
    std::unique_ptr<platform::Resources> resources = platform::makeBundleResources();
    platform::ScriptedMachine machine{*files, *resources, {}};
    platform::Machine* previous = platform::installMachine(&machine);
    host::Plugin plugin{QUIL_BINARY_DIR "/QUIL.fmplugin"};
    std::vector<host::FunctionHelp> list = host::readFunctionList(QUIL_BINARY_DIR "/QUIL.fmplugin");

    Loaded() { plugin.initialize(); }
};

Loaded& loaded() {
    static Loaded sLoaded;
    return sLoaded;
}

// Calls QUIL_External as the host does it: both texts set, the function evaluated, the answer taken.
void callPlugin(benchmark::State& state, const std::string& name, const std::string& parameter) {
    const host::RegisteredFunction& function = loaded().plugin.functions().at(1);
    const fmx::Text nameText = host::toText(name);
    const fmx::Text parameterText = host::toText(parameter);
    const fmx::Locale locale(fmx::Locale::Type::system);
    std::size_t calls = 0;
    for (auto _ : state) {
        fmx::DataVect parameters;
        parameters.Resize(2);
        parameters.Mutable(0).SetAsText(nameText, locale);
        parameters.Mutable(1).SetAsText(parameterText, locale);
        fmx::Data result;
        if (fmx::Evaluate(function.function, function.id, fmx::ExprEnv(), parameters, result) != fmx::kNoError) {
            state.SkipWithError("the call failed");
            break;
        }
        benchmark::DoNotOptimize(result.GetAsText().units().data());
        if (++calls % 1024 == 0) {
            loaded().machine.takeEffects();
        }
    }
}

void firstRow(benchmark::State& state) {
    callPlugin(state, loaded().list.front().name, loaded().list.front().exampleParameter);
}
void lastRow(benchmark::State& state) {
    callPlugin(state, loaded().list.back().name, loaded().list.back().exampleParameter);
}
void unknownName(benchmark::State& state) {
    callPlugin(state, "VSTANoSuchFunction", kParameter);
}

// The peer's function: looks at both texts and answers with one of about the plug-in's length.
void answer(sqlite3_context* context, int /*count*/, sqlite3_value** values) {
    benchmark::DoNotOptimize(sqlite3_value_text(values[0]));
    benchmark::DoNotOptimize(sqlite3_value_text(values[1]));
    sqlite3_result_text(context, "ERROR 2 FALSE", -1, SQLITE_TRANSIENT);
}

void sqliteFunction(benchmark::State& state) {
    sqlite3* database = nullptr;
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_open(":memory:", &database) != SQLITE_OK ||
        sqlite3_create_function(database, "quil_external", 2, SQLITE_UTF8, nullptr, answer, nullptr, nullptr) !=
            SQLITE_OK ||
        sqlite3_prepare_v2(database, "select quil_external(?, ?)", -1, &statement, nullptr) != SQLITE_OK) {
        state.SkipWithError("SQLite cannot prepare the statement");
        return;
    }
    const std::string name = loaded().list.front().name;
    const std::string parameter = kParameter;
    for (auto _ : state) {
        sqlite3_bind_text(statement, 1, name.data(), static_cast<int>(name.size()), SQLITE_TRANSIENT);
        sqlite3_bind_text(statement, 2, parameter.data(), static_cast<int>(parameter.size()), SQLITE_TRANSIENT);
        if (sqlite3_step(statement) != SQLITE_ROW) {
            state.SkipWithError("the statement failed");
            break;
        }
        benchmark::DoNotOptimize(sqlite3_column_text(statement, 0));
        sqlite3_reset(statement);
    }
    sqlite3_finalize(statement);
    sqlite3_close(database);
}

BENCHMARK(sqliteFunction);
BENCHMARK(unknownName);
BENCHMARK(firstRow);
BENCHMARK(lastRow);

}  // namespace
