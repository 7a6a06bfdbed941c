// `quil run`: solutions as people write them, well and badly.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/process.h"

namespace {

namespace fs = std::filesystem;
using support::Outcome;
using support::quil;
using support::readFile;
using support::writeFile;

class Solution : public testing::Test {
  protected:
    void solution(const std::string& lua, const std::string& schema = "CREATE TABLE t (a);") {
        writeFile(folder.path() / "solution.lua", lua);
        writeFile(folder.path() / "schema.sql", schema);
    }
    Outcome run(std::vector<std::string> options = {}, const support::RunOptions& more = {}) {
        options.insert(options.begin(), {"run", folder.path().string()});
        return quil(options, more);
    }
    std::string sql(const std::string& text) {
        sqlite3* database = nullptr;
        std::string result;
        sqlite3_open(folder.file("solution.db").c_str(), &database);
        sqlite3_exec(
            database, text.c_str(),
            [](void* to, int, char** values, char**) {
                *static_cast<std::string*>(to) += std::string(values[0] == nullptr ? "NULL" : values[0]) + ' ';
                return 0;
            },
            &result, nullptr);
        sqlite3_close(database);
        return result;
    }
    // A host that runs beside the test, until it prints "ready".
    pid_t start() {
        int pipe[2];
        EXPECT_EQ(::pipe2(pipe, O_CLOEXEC), 0);
        const pid_t child = ::fork();
        if (child == 0) {
            ::dup2(pipe[1], STDOUT_FILENO);
            ::execl(QUIL_BINARY_DIR "/quil", "quil", "run", folder.path().c_str(), nullptr);
            ::_exit(127);
        }
        ::close(pipe[1]);
        char byte = 0;
        EXPECT_EQ(::read(pipe[0], &byte, 1), 1);
        ::close(pipe[0]);
        return child;
    }
    static int end(pid_t child, int signal) {
        ::kill(child, signal);
        int status = 0;
        ::waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    support::TemporaryFolder folder;
};

// What the programs that the test has run took of the processor.
double processorSeconds() {
    rusage used{};
    ::getrusage(RUSAGE_CHILDREN, &used);
    constexpr double kMicroseconds = 1e-6;
    return static_cast<double>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) +
           static_cast<double>(used.ru_utime.tv_usec + used.ru_stime.tv_usec) * kMicroseconds;
}

testing::AssertionResult holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos ? testing::AssertionSuccess()
                                                : testing::AssertionFailure() << "no \"" << part << "\" in: " << text;
}

TEST_F(Solution, RunsTheExampleWhereverItsDatabaseIsToBe) {
    const Outcome outcome =
        quil({"run", QUIL_SOURCE_DIR "/examples/inventory", "--database", folder.file("inventory.db")});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    const std::string readme = readFile(QUIL_SOURCE_DIR "/README.md");
    EXPECT_TRUE(holds(readme, outcome.output)) << "README.md shows what it prints";
}

TEST_F(Solution, GivesScriptsTheDatabaseAndThePlugIn) {
    writeFile(folder.path() / "data.csv", "\xEF\xBB\xBFname,note\r\nA,\"x, \"\"y\"\"\"\r\n\r\nB,\"two\nlines\"\n");
    solution(R"lua(
        signature = "TEST"
        window { title = "Back" } window { title = "Front", width = 10 }
        menu { title = "Scripts", "GEOLENS", { "Screen", key = "1", enabled = false } }
        function scripts.Start()
            db:exec("INSERT INTO t VALUES (?), (?), (?), (?), (?)", nil, true, 2, 0.5, "\0\255")
            db:exec("INSERT INTO t VALUES (:b), (:a)", { a = "a\0z", b = "b" })
            local types = {}
            for row in db:rows("SELECT typeof(a) AS type, length(CAST(a AS BLOB)) FROM t") do
                types[#types + 1] = row.type .. tostring(row[2])
            end
            print(table.concat(types, " "), #db:value("SELECT a FROM t WHERE typeof(a) = 'blob'"))
            print(db:value("SELECT QUIL_External('VSTACalculatePlumeDistance', ?)",
                "SCREEN|0.0087|G|OPEN|3.35|MPH|150|LBS|100|F||||||10|MINUTES|||MI"), db:value("SELECT 1 WHERE 0"))
            for _, row in ipairs(host.csv("data.csv")) do print(row.name, row.note) end
            host.front("Back")
            print(perform("Add", 2, 3))
            print(io, load, require, os.execute, string.dump, debug, dofile, coroutine)
            for _, wrong in ipairs {
                function() db:exec("COMMIT") end, function() db:exec("ATTACH 'x' AS y") end,
                function() db:exec("INSERT INTO t VALUES (?)") end, function() db:value("") end,
                function() host.read("../../etc/passwd") end, function() host.read("x.csv") end,
                function() window { titel = "x" } end, function() host.front("None") end,
                function() perform("Ad") end } do print(select(2, pcall(wrong))) end
            pcall(perform, "Fail")
            print(db:value("SELECT count(*) FROM t"))
            quit(7)
        end
        function scripts.Add(a, b) return a + b end
        function scripts.Fail() db:exec("DELETE FROM t") error("no") end)lua");
    fs::create_directory(folder.path() / "dir");
    const Outcome outcome = run({"--for", "60"});
    EXPECT_EQ(outcome.status, 7);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_TRUE(outcome.output.starts_with(
        "nullnil integer1 integer1 real3 blob2 text1 text3\t2\n1.9\tnil\nA\tx, \"y\"\nB\ttwo\n"
        "lines\n5\nnil\tnil\tnil\tnil\tnil\tnil\tnil\tnil\n"))
        << outcome.output;
    for (const char* part :
         {"the host begins and ends", "its own database alone", "takes 1 values, and 0 were given", "no SQL statement",
          "outside the solution's folder", "the solution has no file \"x.csv\"", "no field \"titel\"",
          "no window has the title \"None\"", "no script named \"Ad\" - did you mean Add?", "\n7\n"}) {
        EXPECT_TRUE(holds(outcome.output, part));
    }
    EXPECT_EQ(sql("SELECT count(*) FROM t; PRAGMA journal_mode"), "7 wal ");
}

TEST_F(Solution, RunsScriptsThatAreAskedForInOrder) {
    solution(R"lua(
        function scripts.Start()
            for i = 1, 11 do QUIL_External("GLN1CallScript", "S" .. i % 10) end
            QUIL_External("GLN1CallScript", "None")
            print("start")
        end
        local ran = {}
        for i = 0, 9 do
            scripts["S" .. i] = function()
                ran[#ran + 1] = i
                if i == 3 then error("three") end
                if i == 5 then scripts.S5 = nil end
                if #ran == 10 then print(table.concat(ran)) quit() end
            end
        end)lua");
    const Outcome outcome = run({"--log", folder.file("log"), "--for", "60"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "start\n1234567890\n") << "ten are kept";
    EXPECT_TRUE(holds(outcome.errors,
                      "quil: script \"S3\" failed and its changes were undone:\nsolution.lua:11: three\n"
                      "stack traceback:\n"));
    const std::string log = readFile(folder.path() / "log");
    EXPECT_TRUE(holds(log, "script \"S3\" is asked for\n"));
    EXPECT_TRUE(holds(log, "Z the host ends\n"));
    EXPECT_TRUE(holds(run({"--script", "S"}).errors, "no script named \"S\" - did you mean S0, S1 or S2?"));
}

TEST_F(Solution, UndoesAScriptThatFailsOrIsInterrupted) {
    solution(R"lua(
        function scripts.Fail() db:exec("INSERT INTO t VALUES (1)") perform("Inner") end
        function scripts.Inner() local x x.y = 1 end
        function scripts.Again() perform("Again") end
        function scripts.Loop() db:exec("INSERT INTO t VALUES (2)") while true do pcall(function() while true do end end) end end
        function scripts.Sql() db:value("WITH RECURSIVE c(n) AS (SELECT 1 UNION ALL SELECT n FROM c) SELECT count(*) FROM c") end
        function scripts.Pause() db:exec("INSERT INTO t VALUES (3)") pause(1e300) end
        function scripts.Memory() local t = {} for i = 1, 1e9 do t[i] = ("x"):rep(2e7) .. i end end
        function scripts.Key() db:exec("CREATE TABLE c (a REFERENCES t DEFERRABLE INITIALLY DEFERRED); INSERT INTO c VALUES (9)") end)lua",
             "CREATE TABLE t (a PRIMARY KEY);");
    for (const auto& [script, message] : std::vector<std::pair<std::string, std::string>>{
             {"Fail",
              "script \"Inner\", performed by \"Fail\" failed and its changes were undone:\nsolution.lua:3: attempt"},
             {"Again", "without end, 64 deep"},
             {"Loop", "the host's time is over"},
             {"Sql", "interrupted"},
             {"Pause", "the host's time is over"},
             {"Memory", "scripts may use 512 MiB"},
             {"Key", "FOREIGN KEY constraint failed"}}) {
        const bool endless = script == "Loop" || script == "Sql" || script == "Pause";
        const Outcome outcome = run({"--script", script, "--for", endless ? "0.3" : "600"});
        EXPECT_EQ(outcome.status, 1) << script;
        EXPECT_TRUE(holds(outcome.errors, message)) << script;
    }
    EXPECT_EQ(sql("SELECT a FROM t; SELECT name FROM sqlite_schema"), "t sqlite_autoindex_t_1 ");
}

TEST_F(Solution, LosesNothingOnAFullDisk) {
    solution(R"lua(
        function scripts.Start()
            db:exec("INSERT INTO t VALUES ('kept')")
        end
        function scripts.Fill()
            db:exec("INSERT INTO t VALUES ('half')")
            print(pcall(db.exec, db, "INSERT INTO t VALUES (randomblob(4000000))"))
            print(pcall(db.exec, db, "INSERT INTO t VALUES ('rest')"))
        end)lua");
    EXPECT_EQ(run({"--script", "Start"}).status, 0);
    const Outcome full = support::run({"bash", "-c", "ulimit -f 1000; exec \"$0\" run \"$1\" --script Fill",
                                       QUIL_BINARY_DIR "/quil", folder.path().string()});
    EXPECT_EQ(full.status, 1) << full.output;
    EXPECT_TRUE(holds(full.errors, "script \"Fill\" failed and its changes were undone"));
    EXPECT_EQ(sql("SELECT a FROM t; PRAGMA integrity_check"), "kept ok ");
}

TEST_F(Solution, EndsInOrderOnASignalAndSleepsMeanwhile) {
    solution(R"lua(function scripts.Start() db:exec("INSERT INTO t VALUES (1)") print("ready") end)lua");
    const pid_t idle = start();
    EXPECT_TRUE(
        holds(run({"--for", "0"}).errors, "another quil (process " + std::to_string(idle) + ") runs this solution"));
    EXPECT_EQ(run({"--read-only", "--for", "0"}).status, 0) << "looking is allowed";
    EXPECT_EQ(end(idle, SIGINT), 0);
    EXPECT_FALSE(fs::exists(folder.path() / "solution.db.lock"));
    const double before = processorSeconds();
    EXPECT_EQ(run({"--for", "1", "--database", folder.file("other.db")}).status, 0);
    EXPECT_LT(processorSeconds() - before, 0.6) << "a loop that does not sleep takes a whole second";
    solution(R"lua(function scripts.Start()
        db:exec("INSERT INTO t VALUES (2)") print("ready") pause(0) while true do end end)lua");
    EXPECT_EQ(end(start(), SIGTERM), 0);
    EXPECT_EQ(sql("SELECT a FROM t"), "1 ");
    EXPECT_FALSE(fs::exists(folder.path() / "solution.db-wal")) << "the database was closed";
}

TEST_F(Solution, SaysWhatIsWrongWithTheFolder) {
    const auto fails = [&](const std::string& message, const std::vector<std::string>& options = {"--for", "0"}) {
        const Outcome outcome = run(options);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_TRUE(holds(outcome.errors, "quil: "));
        EXPECT_TRUE(holds(outcome.errors, message));
    };
    fails("it has no file solution.lua");
    for (const auto& [lua, message] : std::vector<std::pair<std::string, std::string>>{
             {"x = = 1", "solution.lua:1: unexpected symbol near '='\n"},
             {"\n\nfoo()", "solution.lua:3: attempt to call a nil value (global 'foo')"},
             {"\x1bLua", "binary chunk"},
             {"signature = 'TOO LONG'", "is not a code of four characters"},
             {"scripts.Start = 1", "not a function with a name: Start"},
             {"scripts = nil", "scripts has to be a table"},
             {"db:value('SELECT 1')", "the database is there for scripts alone"},
             {"QUIL_Version()", "the plug-in is there for scripts"},
             {"while true do end", "the host's time is over"}}) {
        solution(lua);
        fails(message);
    }
    solution("", "CREATE TABLE t (a);\n-- ok\nINSERT INTO t VALUES (1);\nCREATE TABEL u (a);");
    fails("schema.sql:4: near \"TABEL\": syntax error");
    EXPECT_FALSE(fs::exists(folder.path() / "solution.db")) << "nothing half made";
    solution("");
    fails("there is no database", {"--read-only"});
    writeFile(folder.path() / "solution.db", std::string(4096, 'x'));
    fails("is damaged (file is not a database)");
    EXPECT_EQ(readFile(folder.path() / "solution.db"), std::string(4096, 'x'));
    fs::remove(folder.path() / "solution.db");
    EXPECT_EQ(run({"--for", "0"}).status, 0);
    EXPECT_EQ(sql("SELECT count(*) FROM t"), "0 ");
    fails("cannot write beside the database", {"--database", "/no/such/folder/x.db"});
    EXPECT_EQ(quil({"run", folder.file("none")}).status, 1);
    EXPECT_EQ(quil({"run", folder.file("solution.lua")}).status, 1);
    EXPECT_EQ(quil({"run", folder.path().string(), "--for", "x"}).status, 2);
}

}  // namespace
