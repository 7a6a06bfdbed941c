// The plug-in's functions in SQL, through quil_sqlite.so as any program loads it: a SELECT over a million rows, beside
// the same SELECT with a C function that does the least that one can do, and the calculator over a table of releases.

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr int kRows = 1'000'000;
constexpr int kReleases = 100'000;

void run(sqlite3* database, const std::string& sql) {
    char* error = nullptr;
    if (sqlite3_exec(database, sql.c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
        std::fprintf(stderr, "sqlite_bench: %s\n", error);
        std::exit(1);
    }
}

// The peer: looks at both texts and answers a tab.
void trivial(sqlite3_context* context, int /*count*/, sqlite3_value** values) {
    benchmark::DoNotOptimize(sqlite3_value_text(values[0]));
    benchmark::DoNotOptimize(sqlite3_value_text(values[1]));
    sqlite3_result_text(context, "\t", 1, SQLITE_STATIC);
}

sqlite3* database() {
    static sqlite3* const sDatabase = [] {
        sqlite3* made = nullptr;
        sqlite3_open(":memory:", &made);
        sqlite3_db_config(made, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 1, nullptr);
        char* error = nullptr;
        if (sqlite3_load_extension(made, QUIL_BINARY_DIR "/quil_sqlite", nullptr, &error) != SQLITE_OK) {
            std::fprintf(stderr, "sqlite_bench: %s\n", error);
            std::exit(1);
        }
        sqlite3_create_function(made, "trivial", 2, SQLITE_UTF8, nullptr, trivial, nullptr, nullptr);
        run(made,
            "CREATE TABLE number (n INTEGER PRIMARY KEY);"
            "WITH RECURSIVE c(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM c LIMIT " +
                std::to_string(kRows) +
                ") INSERT INTO number SELECT n FROM c;"
                // No two alike, from a cylinder of gas to many.
                "CREATE TABLE release (pounds);"
                "INSERT INTO release SELECT 50 + n * 0.25 FROM number LIMIT " +
                std::to_string(kReleases));
        return made;
    }();
    return sDatabase;
}

void select(benchmark::State& state, const char* sql, int rows) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(database(), sql, -1, &statement, nullptr) != SQLITE_OK) {
        state.SkipWithError(sqlite3_errmsg(database()));
        return;
    }
    for (auto _ : state) {
        int count = 0;
        for (; sqlite3_step(statement) == SQLITE_ROW; ++count) {
            benchmark::DoNotOptimize(sqlite3_column_text(statement, 0));
        }
        if (count != rows) {
            state.SkipWithError("rows are missing");
            break;
        }
        sqlite3_reset(statement);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * rows);
    sqlite3_finalize(statement);
}

void trivialFunction(benchmark::State& state) {
    select(state, "SELECT trivial('GLN1TabChar', '') FROM number", kRows);
}
void scriptFunction(benchmark::State& state) {
    select(state, "SELECT QUIL_External('GLN1TabChar', '') FROM number", kRows);
}
void calculator(benchmark::State& state) {
    select(state,
           "SELECT QUIL_External('VSTACalculatePlumeDistance', 'SCREEN|0.0087|G|OPEN|3.35|MPH|' || pounds || "
           "'|LBS|100|F||||||10|MINUTES|||MI') FROM release",
           kReleases);
}

BENCHMARK(trivialFunction)->Unit(benchmark::kMillisecond);
BENCHMARK(scriptFunction)->Unit(benchmark::kMillisecond);
BENCHMARK(calculator)->Unit(benchmark::kMillisecond);

}  // namespace
