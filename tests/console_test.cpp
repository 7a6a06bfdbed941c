// `quil console`, typed into a pipe and into a terminal.
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "support/process.h"

namespace {

class Console : public testing::Test {
  protected:
    Console() {
        support::writeFile(folder.path() / "solution.lua",
                           "function scripts.Hello(who) print('hello ' .. (who or 'you')) return 42 end\n"
                           "function scripts.Loop() while true do end end\n"
                           "window{title = 'Main'}\n"
                           "function scripts.Collect() QUIL_External('VSTA_InitFoundSet', '100') pause(2.1)\n"
                           "for i = 1, 3 do QUIL_External('VSTA_SetNextFoundID', i) end end\n");
        support::writeFile(folder.path() / "schema.sql", "CREATE TABLE t (a, b);");
    }
    support::TemporaryFolder folder;
};

TEST_F(Console, EvaluatesLuaExpressionsAndSql) {
    const support::Outcome outcome =
        support::quil({"console", folder.path().string()},
                      {.input = "for i = 1, 2 do\n  db:exec('INSERT INTO t VALUES (?, ?)', i, 'x')\nend\n"
                                ".sql SELECT a, b FROM t; DELETE FROM t WHERE a = 2\n"
                                "=db:value('SELECT count(*) FROM t'), nil\n"
                                "perform('Hello', 'me')\n"
                                "QUIL_External('GLN1CallScript', 'Hello')\n"
                                "db:exec('DELETE FROM t') error('undone')\n"
                                "=db:value('SELECT count(*) FROM t')\n"
                                ".help VSTACalculatePlumeDistance\n.nonsense\nx = = 1\nquit(5)\nprint('too late')\n"});
    EXPECT_EQ(outcome.status, 5);
    EXPECT_TRUE(outcome.output.starts_with("a\tb\n1\tx\n2\tx\n1\tnil\nhello me\n42\n\nhello you\n1\nVSTACalc"))
        << outcome.output;
    EXPECT_EQ(outcome.output.find("too late"), std::string::npos);
    for (const char* error :
         {"console:1: undone", "no command \".nonsense\"", "console:1: unexpected symbol near '='"}) {
        EXPECT_NE(outcome.errors.find(error), std::string::npos) << outcome.errors;
    }
}

// A terminal with the console in it.
class Terminal {
  public:
    explicit Terminal(const std::string& folder) {
        child_ = ::forkpty(&master_, nullptr, nullptr, nullptr);
        if (child_ == 0) {
            ::setenv("XDG_STATE_HOME", folder.c_str(), 1);
            ::setenv("TERM", "dumb", 1);
            ::execl(QUIL_BINARY_DIR "/quil", "quil", "console", folder.c_str(), nullptr);
            ::_exit(127);
        }
    }
    ~Terminal() { ::close(master_); }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // Types, and reads until the terminal shows `text`.
    testing::AssertionResult shows(const std::string& typed, const std::string& text) {
        EXPECT_EQ(::write(master_, typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
        std::string shown;
        char buffer[4096];
        pollfd ready{master_, POLLIN, 0};
        while (shown.find(text) == std::string::npos) {
            constexpr int kPatience = 20'000;
            const ssize_t count = ::poll(&ready, 1, kPatience) > 0 ? ::read(master_, buffer, sizeof buffer) : 0;
            if (count <= 0) {
                return testing::AssertionFailure() << "\"" << text << "\" did not come, but: " << shown;
            }
            shown.append(buffer, static_cast<std::size_t>(count));
        }
        return testing::AssertionSuccess();
    }
    int status() const {
        int status = 0;
        ::waitpid(child_, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

  private:
    int master_ = -1;
    pid_t child_ = -1;
};

TEST_F(Console, InATerminalCompletesInterruptsAndKeepsItsHistory) {
    {
        Terminal terminal(folder.path().string());
        ASSERT_TRUE(terminal.shows("", "quil> "));
        EXPECT_TRUE(terminal.shows("QUIL_External(\"VSTACalculatePl\t", "VSTACalculatePlumeDistance"));
        EXPECT_TRUE(terminal.shows("\x03", "^C"));
        EXPECT_TRUE(terminal.shows("VSTACalculatePlumeD\t\x15VSTA\t\t", "Tells how far downwind"));
        EXPECT_TRUE(terminal.shows("\x15if true then\n", ">> "));
        EXPECT_TRUE(terminal.shows("print(6 * 7) end\n", "\n42"));
        EXPECT_TRUE(terminal.shows("print('loop' .. 'ing') pause(0) perform('Loop')\n", "looping"));
        EXPECT_TRUE(terminal.shows("\x03", "failed and its changes were undone"));
        // The line of progress gives way to other output and goes with the script.
        constexpr char kAt3[] = "\r\033[KCollecting 100 found IDs: 3 %\r\033[K";
        EXPECT_TRUE(terminal.shows("perform('Collect') print('next')\n", std::string(kAt3) + "next"));
        EXPECT_TRUE(terminal.shows("perform('Collect')\n", std::string(kAt3) + "quil> "));
        // Only at the prompt does the terminal pass on what ends it.
        ASSERT_TRUE(terminal.shows("print('alive')\n", "alive\r\nquil> "));
        ASSERT_TRUE(terminal.shows("\x04", "\n"));
        EXPECT_EQ(terminal.status(), 0);
    }
    EXPECT_NE(support::readFile(folder.path() / "quil/history").find("print('alive')"), std::string::npos);
}

}  // namespace
