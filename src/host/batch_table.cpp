// Scenarios from a table or view of an SQLite database, and their answers in a table beside it.
#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <memory>

#include "host/batch_run.h"
#include "host/plugin.h"

namespace host {
namespace {

std::string identifier(std::string_view name) {
    std::string quoted = "\"";
    for (const char c : name) {
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    }
    return quoted + "\"";
}

class Database {
  public:
    explicit Database(const std::string& path) : path_(path) {
        const int status = sqlite3_open_v2(path.c_str(), &handle_, SQLITE_OPEN_READWRITE, nullptr);
        if (status != SQLITE_OK) {
            const std::string reason = handle_ == nullptr ? "out of memory" : sqlite3_errmsg(handle_);
            sqlite3_close(handle_);
            throw HostError(path + ": cannot be opened as an SQLite database: " + reason);
        }
        constexpr int kWaitMilliseconds = 10'000;
        sqlite3_busy_timeout(handle_, kWaitMilliseconds);
    }
    ~Database() { sqlite3_close(handle_); }  // what was not committed is undone
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    [[noreturn]] void fail() const { throw HostError(path_ + ": " + sqlite3_errmsg(handle_)); }
    void run(const std::string& sql) const {
        if (sqlite3_exec(handle_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
            fail();
        }
    }
    sqlite3* handle() const { return handle_; }
    const std::string& path() const { return path_; }

  private:
    std::string path_;
    sqlite3* handle_ = nullptr;
};

class Statement {
  public:
    Statement(const Database& database, const std::string& sql) : database_(database) {
        if (sqlite3_prepare_v2(database.handle(), sql.c_str(), -1, &handle_, nullptr) != SQLITE_OK) {
            database.fail();
        }
    }
    ~Statement() { sqlite3_finalize(handle_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    // Whether there is a row.
    bool step() {
        const int status = sqlite3_step(handle_);
        if (status != SQLITE_ROW && status != SQLITE_DONE) {
            database_.fail();
        }
        return status == SQLITE_ROW;
    }
    void reset() { sqlite3_reset(handle_); }
    void bind(int place, std::string_view text) {
        if (sqlite3_bind_text64(handle_, place, text.data() == nullptr ? "" : text.data(), text.size(), SQLITE_STATIC,
                                SQLITE_UTF8) != SQLITE_OK) {
            database_.fail();
        }
    }
    // A number is a plain decimal, as scenarios are written.
    std::string text(int column) {
        if (sqlite3_column_type(handle_, column) == SQLITE_FLOAT) {
            return plainDecimal(sqlite3_column_double(handle_, column));
        }
        const auto* bytes = static_cast<const char*>(sqlite3_column_blob(handle_, column));
        const auto size = static_cast<std::size_t>(sqlite3_column_bytes(handle_, column));
        return bytes == nullptr ? std::string() : std::string(bytes, size);
    }
    sqlite3_stmt* handle() { return handle_; }

  private:
    const Database& database_;
    sqlite3_stmt* handle_ = nullptr;
};

// The expression that names a row.
std::string keyOf(const Database& database, const std::string& table, const std::string& wanted) {
    Statement kind(database,
                   "SELECT type FROM sqlite_master WHERE name = ?1 COLLATE NOCASE AND type IN ('table', 'view')");
    kind.bind(1, table);
    if (!kind.step()) {
        throw HostError(database.path() + ": there is no table or view \"" + printable(table) + "\"");
    }
    const bool isView = kind.text(0) == "view";
    Statement info(database, "SELECT name, pk FROM pragma_table_info(?1)");
    info.bind(1, table);
    std::vector<std::string> keys;
    bool hasId = false;
    while (info.step()) {
        const std::string name = info.text(0);
        if (lowerCase(name) == lowerCase(wanted)) {
            return identifier(name);
        }
        if (info.text(1) != "0") {
            keys.push_back(name);
        }
        hasId = hasId || lowerCase(name) == "id";
    }
    if (!wanted.empty()) {
        throw HostError(database.path() + ": \"" + printable(table) + "\" has no column \"" + printable(wanted) +
                        "\" for --key");
    }
    if (keys.size() == 1) {
        return identifier(keys.front());
    }
    if (!isView && keys.empty()) {
        return "rowid";
    }
    if (isView && hasId) {
        return "id";
    }
    throw HostError(database.path() + ": \"" + printable(table) +
                    "\" has no single column that names a row; name one with --key");
}

std::string timeNow() {
    const std::time_t seconds = std::time(nullptr);
    std::tm parts = {};
    gmtime_r(&seconds, &parts);
    char text[32];
    return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts));
}

}  // namespace

int runTableBatch(const std::string& path, const std::string& table, const BatchOptions& options,
                  const Calculator& calculator, const std::string& pluginVersion) {
    const InterruptWatch watch;
    const Database database(path);
    database.run("BEGIN IMMEDIATE");
    const std::string key = keyOf(database, table, options.key);
    const std::string answers = identifier(table + "_screening");
    database.run("CREATE TABLE IF NOT EXISTS " + answers +
                 " (key PRIMARY KEY NOT NULL, threat_distance TEXT, threat_unit TEXT, error_code INTEGER NOT NULL, "
                 "error_message TEXT, calculated_at TEXT NOT NULL, plugin_version TEXT NOT NULL)");
    // Answers of rows that are gone would pass for answers of today.
    database.run("DELETE FROM " + answers + " WHERE key NOT IN (SELECT " + key + " FROM " + identifier(table) +
                 " WHERE " + key + " IS NOT NULL)");
    Statement count(database, "SELECT count(*) FROM " + identifier(table));
    count.step();
    const double total = sqlite3_column_double(count.handle(), 0);
    Statement rows(database, "SELECT " + key + ", * FROM " + identifier(table));
    Statement put(database, "INSERT INTO " + answers +
                                " VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7) ON CONFLICT (key) DO UPDATE SET "
                                "threat_distance = ?2, threat_unit = ?3, error_code = ?4, error_message = ?5, "
                                "calculated_at = ?6, plugin_version = ?7");

    const int columns = sqlite3_column_count(rows.handle()) - 1;
    std::vector<std::string> texts(static_cast<std::size_t>(columns));
    std::vector<std::string_view> cells(texts.size());
    for (int i = 0; i < columns; ++i) {
        cells[static_cast<std::size_t>(i)] = sqlite3_column_name(rows.handle(), i + 1);
    }
    std::optional<BatchRows> batch;
    try {
        batch.emplace(cells, options.values);
    } catch (const HostError& error) {
        throw HostError(path + ": \"" + printable(table) + "\": " + error.what());
    }
    for (const std::string& warning : batch->warnings()) {
        std::fprintf(stderr, "quil: %s\n", warning.c_str());
    }

    const std::string time = timeNow();
    BatchAnswer answer;
    BatchProgress progress(total);
    std::size_t done = 0;
    std::size_t bad = 0;
    std::size_t nameless = 0;
    while (rows.step()) {
        if (const int signal = InterruptWatch::signal(); signal != 0) {
            std::fprintf(stderr, "quil: interrupted; %s is as it was\n", path.c_str());
            return 128 + signal;
        }
        if (sqlite3_column_type(rows.handle(), 0) == SQLITE_NULL) {
            ++nameless;
            continue;
        }
        for (std::size_t i = 0; i < texts.size(); ++i) {
            texts[i] = rows.text(static_cast<int>(i) + 1);
            cells[i] = texts[i];
        }
        batch->answer(cells, calculator, answer);
        bad += answer.code != 0;
        sqlite3_bind_value(put.handle(), 1, sqlite3_column_value(rows.handle(), 0));
        const auto textOrNull = [&put](int place, std::string_view text) {
            if (text.empty()) {
                sqlite3_bind_null(put.handle(), place);
            } else {
                put.bind(place, text);
            }
        };
        textOrNull(2, answer.distance);
        textOrNull(3, answer.unit);
        sqlite3_bind_int(put.handle(), 4, answer.code);
        textOrNull(5, answer.message);
        put.bind(6, time);
        put.bind(7, pluginVersion);
        put.step();
        put.reset();
        ++done;
        progress.show(done, static_cast<double>(done));
    }
    rows.reset();
    database.run("COMMIT");
    if (bad > 0) {
        std::fprintf(stderr, "quil: %s of %s rows have no distance; their error_message tells why\n",
                     groupedCount(bad).c_str(), groupedCount(done).c_str());
    }
    if (nameless > 0) {
        std::fprintf(stderr, "quil: %s rows have no key and got no answer\n", groupedCount(nameless).c_str());
    }
    return 0;
}

}  // namespace host
