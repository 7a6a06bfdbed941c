// quil_sqlite.so in a program of its own, and the commands of docs/sqlite.md as they are printed.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include "support/process.h"

namespace {

constexpr char kExtension[] = QUIL_BINARY_DIR "/quil_sqlite";

class Connection {
  public:
    Connection() {
        sqlite3_open(":memory:", &handle_);
        sqlite3_db_config(handle_, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 1, nullptr);
    }
    ~Connection() { sqlite3_close_v2(handle_); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // The error, or the empty text.
    std::string load() {
        char* error = nullptr;
        sqlite3_load_extension(handle_, kExtension, nullptr, &error);
        const std::string text = error == nullptr ? "" : error;
        sqlite3_free(error);
        return text;
    }
    sqlite3_stmt* prepare(const std::string& sql) {
        sqlite3_stmt* statement = nullptr;
        EXPECT_EQ(sqlite3_prepare_v2(handle_, sql.c_str(), -1, &statement, nullptr), SQLITE_OK)
            << sqlite3_errmsg(handle_);
        return statement;
    }
    // The first value; none for NULL.
    std::optional<std::string> value(const std::string& sql) {
        sqlite3_stmt* const statement = prepare(sql);
        EXPECT_EQ(sqlite3_step(statement), SQLITE_ROW) << sqlite3_errmsg(handle_);
        std::optional<std::string> result;
        if (const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)); text != nullptr) {
            result.emplace(text, static_cast<std::size_t>(sqlite3_column_bytes(statement, 0)));
        }
        sqlite3_finalize(statement);
        return result;
    }
    bool runs(const std::string& sql) {
        return sqlite3_exec(handle_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
    }

  private:
    sqlite3* handle_ = nullptr;
};

TEST(Extension, AnswersTextsNullsAndNuls) {
    Connection connection;
    ASSERT_EQ(connection.load(), "");
    EXPECT_EQ(connection.value("SELECT QUIL_Version()"), connection.value("SELECT QUIL_Version(NULL)"));
    EXPECT_EQ(connection.value("SELECT QUIL_External('VSTACalculatePlumeDistance', 'SCREEN|0.0087|G|OPEN|3.35|MPH|150|"
                               "LBS|100|F||||||10|MINUTES|||MI' || char(0) || 'ignored')"),
              "1.9");
    EXPECT_EQ(connection.value("SELECT QUIL_External('VSTACalculatePlumeDistance' || char(0), '')"),
              "Function name does not match a supported function.");
    for (const char* arguments : {"NULL, ''", "'VSTACalculatePlumeDistance', NULL"}) {
        EXPECT_EQ(connection.value(std::string("SELECT QUIL_External(") + arguments + ")"), std::nullopt);
    }
    EXPECT_EQ(connection.value("SELECT QUIL_External(1, x'FF')"), "Function name does not match a supported function.");
    EXPECT_TRUE(connection.runs("CREATE TABLE t(a)"));
    EXPECT_FALSE(connection.runs("CREATE INDEX i ON t(QUIL_External('GLN1TabChar', a))")) << "not deterministic";
    EXPECT_TRUE(connection.runs("CREATE VIEW v AS SELECT QUIL_Version(); PRAGMA trusted_schema=OFF"));
    EXPECT_FALSE(connection.runs("SELECT * FROM v")) << "not innocuous";
}

TEST(Extension, ServesOneConnectionAtATimeInAnyOrderOfClosing) {
    auto first = std::make_unique<Connection>();
    auto second = std::make_unique<Connection>();
    ASSERT_EQ(first->load(), "");
    EXPECT_NE(first->load().find("quil_sqlite: the plug-in is loaded in this process already"), std::string::npos);
    EXPECT_NE(second->load().find("close that connection first"), std::string::npos);
    sqlite3_stmt* const unfinished = first->prepare("SELECT QUIL_Version() UNION ALL SELECT QUIL_Version()");
    ASSERT_EQ(sqlite3_step(unfinished), SQLITE_ROW);
    first.reset();
    EXPECT_EQ(sqlite3_step(unfinished), SQLITE_ROW) << "a statement outlives its connection";
    EXPECT_NE(second->load(), "");
    sqlite3_finalize(unfinished);
    ASSERT_EQ(second->load(), "");
    // A function that takes the place of another lets go of it; the other ones still work.
    second->runs("SELECT QUIL_Version()");
    EXPECT_EQ(second->value("SELECT QUIL_External('', '')"), "Function name does not match a supported function.");
    second.reset();
    Connection third;
    EXPECT_EQ(third.load(), "");
}

TEST(Extension, SaysWhyItCannotLoad) {
    Connection connection;
    ::setenv("QUIL_PLUGIN", "/no/such.fmplugin", 1);
    EXPECT_NE(connection.load().find("\"/no/such.fmplugin\" does not exist"), std::string::npos);
    ::unsetenv("QUIL_PLUGIN");
    ::setenv("QUIL_VOLUMES", "nonsense", 1);
    EXPECT_NE(connection.load().find("QUIL_VOLUMES"), std::string::npos);
    ::unsetenv("QUIL_VOLUMES");
    EXPECT_EQ(connection.load(), "") << "a failure leaves nothing behind";
}

// Blocks of commands, each with what it prints in the block behind it.
TEST(SqliteDocument, ShowsCommandsThatPrintWhatItSays) {
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
    GTEST_SKIP() << "programs that are not built with the sanitizers cannot load a library that is";
#endif
#endif
    if (!std::filesystem::exists("/usr/bin/python3")) {
        GTEST_SKIP() << "there is no /usr/bin/python3, whose sqlite3 module loads extensions";
    }
    const support::TemporaryFolder folder;
    std::filesystem::create_directory(folder.path() / "build");
    std::filesystem::create_symlink(QUIL_BINARY_DIR, folder.path() / "build/release");
    const std::string document = support::readFile(QUIL_SOURCE_DIR "/docs/sqlite.md");
    int blocks = 0;
    for (std::size_t at = document.find("```sh\n"); at != std::string::npos; at = document.find("```sh\n", at)) {
        const std::size_t end = document.find("```\n", at + 6);
        const std::size_t out = document.find("```\n", end + 4) + 4;
        const std::string commands = document.substr(at + 6, end - at - 6);
        at = document.find("```\n", out);
        const support::Outcome outcome =
            support::run({"bash", "-ec", "PATH=/usr/bin:$PATH\n" + commands}, {.folder = folder.path().string()});
        EXPECT_EQ(outcome.output, document.substr(out, at - out)) << commands;
        EXPECT_EQ(outcome.errors, "") << commands;
        ++blocks;
    }
    EXPECT_EQ(blocks, 3);
}

}  // namespace
