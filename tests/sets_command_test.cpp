// `quil sets` and `quil map-list` as people call them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/process.h"

namespace {

using support::Outcome;
using support::quil;

// The address sanitizer takes more room than the limit of a test leaves.
#ifndef __has_feature
#define __has_feature(x) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
constexpr bool kHasMemoryLimits = false;
#else
constexpr bool kHasMemoryLimits = true;
#endif

class SetsCommand : public ::testing::Test {
  protected:
    std::string file(const char* name, const std::string& text) {
        support::writeFile(folder.path() / name, text);
        return folder.file(name);
    }

    support::TemporaryFolder folder;
    const std::string a = file("a", "A\r\nB\r\n\r\nB\nC");
    const std::string b = file("b", "B\nC\nD\n");
    const std::string c = file("c", "Q\rA\r");
    const std::string d = file("d", "D\n");
};

// What `quil` shows on a terminal that is its standard error, while its output is read slowly; until it shows `last` or
// ends.
std::string shownOnATerminal(std::vector<std::string> arguments, std::string_view last) {
    arguments.insert(arguments.begin(), QUIL_BINARY_DIR "/quil");
    std::vector<char*> words;
    for (std::string& argument : arguments) {
        words.push_back(argument.data());
    }
    words.push_back(nullptr);
    const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    int output[2];
    if (terminal < 0 || ::grantpt(terminal) != 0 || ::unlockpt(terminal) != 0 || ::pipe2(output, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pseudo terminal");
    }
    const int screen = ::open(::ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(output[1], STDOUT_FILENO);
        ::dup2(screen, STDERR_FILENO);
        ::execv(words[0], words.data());
        ::_exit(127);
    }
    ::close(screen);
    ::close(output[1]);
    std::string shown;
    std::vector<char> buffer(1 << 16);
    pollfd ready[] = {{terminal, POLLIN, 0}, {output[0], POLLIN, 0}};
    for (bool open = true; open && shown.find(last) == std::string::npos;) {
        if (::poll(ready, 1, 50) > 0) {
            const ssize_t count = ::read(terminal, buffer.data(), buffer.size());
            open = count > 0;
            shown.append(buffer.data(), open ? static_cast<std::size_t>(count) : 0);
        } else if (::poll(&ready[1], 1, 0) > 0 && ::read(output[0], buffer.data(), buffer.size()) <= 0) {
            ready[1].fd = -1;
        }
    }
    ::close(output[0]);
    ::close(terminal);
    int status = 0;
    ::waitpid(child, &status, 0);
    return shown;
}

TEST_F(SetsCommand, KeepEachIDOnceInTheOrderOfTheInput) {
    EXPECT_EQ(quil({"sets", "dedupe", a}).output, "A\nB\nC\n");
    EXPECT_EQ(quil({"sets", "dedupe", c, a}).output, "Q\nA\nB\nC\n");
    EXPECT_EQ(quil({"sets", "dedupe"}, {"X\nX\nY\n"}).output, "X\nY\n");
    EXPECT_EQ(quil({"sets", "dedupe", a, "-", c}, {"Z"}).output, "A\nB\nC\nZ\nQ\n");
    EXPECT_EQ(quil({"sets", "dedupe"}, {"\n\n"}).output, "");
    std::string latin;
    for (int i = 0; i < 11; ++i) {
        latin += "\xC3\xA9";
    }
    EXPECT_EQ(quil({"sets", "dedupe"}, {latin + "\n" + latin}).output, latin + "\n");
}

TEST_F(SetsCommand, CombineListsWithAndAndOr) {
    EXPECT_EQ(quil({"sets", "and", a, b}).output, "B\nC\n");
    EXPECT_EQ(quil({"sets", "or", c, a}).output, "Q\nA\nB\nC\n");
    EXPECT_EQ(quil({"sets", "and", a, "-"}, {""}).output, "");
    for (const auto& [expression, result] :
         std::vector<std::pair<std::string, std::string>>{{"A AND B OR C", "B\nC\nQ\nA\n"},
                                                          {"1 and 2 or 3", "B\nC\nQ\nA\n"},
                                                          {"and or", "B\nC\nQ\nA\n"},
                                                          {"C OR A AND B", "B\nC\n"}}) {
        EXPECT_EQ(quil({"sets", "combine", expression, a, b, c}).output, result) << expression;
    }
    EXPECT_EQ(quil({"sets", "combine", "A AND B OR C AND D", a, b, c, d}).output, "B\nC\n") << "pairs first";
    EXPECT_EQ(quil({"sets", "combine", "A", a}).output, "A\nB\nC\n") << "each ID once, in one list too";
}

TEST_F(SetsCommand, CombineListsOfManyIDs) {
    std::string first;
    std::string second;
    std::string both;
    for (int i = 0; i < 30000; ++i) {
        const std::string id = "CH000000" + std::to_string(100000000000 + i) + "\n";
        first += id;
        second += i % 3 == 0 ? id : "";
        both += i % 3 == 0 ? id : "";
    }
    EXPECT_EQ(quil({"sets", "dedupe"}, {first + second}).output, first);
    EXPECT_EQ(quil({"sets", "and", "-", file("second", second)}, {first}).output, both);
}

TEST_F(SetsCommand, ShowHowFarLongWorkIs) {
    std::string ids;
    for (int i = 0; i < 150000; ++i) {
        ids += "CH000000" + std::to_string(100000000000 + i) + "\n";
    }
    const std::string written = shownOnATerminal({"sets", "dedupe", file("many", ids)}, " %");
    const std::size_t at = written.find("writing IDs: ");
    ASSERT_NE(at, std::string::npos) << written;
    EXPECT_NE(written.substr(at + 13, 2), "0 ");

    std::string objects;
    while (objects.size() <= 16 << 20) {
        objects += "1100010030300001 and what else the line has: " + std::string(10000, 'x') + "\n";
    }
    EXPECT_TRUE(shownOnATerminal({"map-list", file("objects", objects), "--ids", file("ids", "B3000001")}, "unlikely")
                    .ends_with("\rfinding the objects\033[K\r\033[K"));
}

TEST_F(SetsCommand, ReadFilesInPiecesLikeInputAsAWhole) {
    std::string lines;
    std::string expected;
    for (int i = 0; i < 200000; ++i) {
        const std::string id = std::to_string(i) + std::string(static_cast<std::size_t>(i % 7), 'x');
        const char* const end = i % 3 == 0 ? "\r\n" : i % 3 == 1 ? "\r" : i % 5 == 0 ? "\n\n" : "\n";
        lines += id + (i == 199999 ? "" : end);
        expected += id + "\n";
    }
    EXPECT_TRUE(quil({"sets", "dedupe", file("pieces", lines)}).output == expected);
    EXPECT_TRUE(quil({"sets", "dedupe"}, {lines}).output == expected);
    std::replace(lines.begin(), lines.end(), '\n', '\r');
    EXPECT_TRUE(quil({"sets", "dedupe", file("returns", lines)}).output == expected) << "no line feed at all";
    const std::string last = "A\n" + std::string(3'000'000, '\n') + std::string(2'000'000, 'B');
    EXPECT_NE(quil({"sets", "dedupe", file("long", last)}).errors.find("long:3000002: the ID has over 524288 bytes"),
              std::string::npos);
}

TEST_F(SetsCommand, NameFileAndLineOfABadID) {
    const Outcome tooLong = quil({"sets", "dedupe", b, file("e", "A\n\nabcdefghijklmnopqrstuvwx\n")});
    EXPECT_EQ(tooLong.status, 1);
    EXPECT_EQ(tooLong.output, "");
    EXPECT_EQ(tooLong.errors, "quil: " + folder.file("e") + ":3: the ID has 24 bytes; at most 23 are kept\n");
    EXPECT_NE(quil({"sets", "dedupe"}, {"A\nB\xFF\n"}).errors.find("standard input:2: the ID is not UTF-8"),
              std::string::npos);
    EXPECT_NE(quil({"sets", "dedupe"}, {std::string("A\0B", 3)}).errors.find("standard input:1: the ID has a NUL"),
              std::string::npos);
    EXPECT_NE(quil({"sets", "dedupe", folder.file("none")}).errors.find("none: cannot be read"), std::string::npos);
}

TEST_F(SetsCommand, NameTheFileThatIsTooLargeForTheMemory) {
    if (!kHasMemoryLimits) {
        GTEST_SKIP() << "no memory can be limited under the address sanitizer";
    }
    const std::string huge = file("huge", "");
    std::filesystem::resize_file(huge, std::uintmax_t{3} << 30);
    const Outcome outcome =
        support::run({"bash", "-c", "ulimit -v 2000000; exec \"$0\" map-list \"$1\" --ids /dev/null",
                      QUIL_BINARY_DIR "/quil", huge});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors, "quil: " + huge + ": too large for the memory (3072 MiB)\n");
}

TEST_F(SetsCommand, RefuseWrongUsage) {
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"sets"},
                                               {"sets", "and", a},
                                               {"sets", "or", "-", "-"},
                                               {"sets", "combine", "A XOR B", a, b},
                                               {"sets", "combine", "A AND", a},
                                               {"sets", "combine", "A AND C", a, b},
                                               {"sets", "combine", "A AND B", a, b, c},
                                               {"sets", "combine", "and", a},
                                               {"sets", "combine", "", a},
                                               {"map-list"},
                                               {"map-list", "-"},
                                               {"map-list", a, "--ids", b, "--map", ""},
                                               {"map-list", a, "--ids", b, "--layers", "12=X"},
                                               {"map-list", a, "--ids", b, "--map", "K\xFCste"},
                                               {"map-list", a, "--ids", b, "--map", "A\tB"},
                                               {"map-list", a, "--ids", b, "--layers", "3=A,4=B\nC"},
                                               {"map-list", a, "--ids", b, "--layers", "3=\xC3"}}) {
        const Outcome outcome = quil(arguments);
        EXPECT_EQ(outcome.status, 2) << arguments.back() << outcome.errors;
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(outcome.errors.find("quil: "), 0U);
    }
    EXPECT_NE(quil({"map-list", a, "--ids", b, "--map", "K\xFCste\r"}).errors.find("--map: \"K\\xFCste\\x0D\" is not"),
              std::string::npos);
}

TEST_F(SetsCommand, SayWhatIsWrongWithAnExpression) {
    const std::vector<std::tuple<std::string, std::vector<std::string>, std::string>> cases{
        {"A AND A", {a, b}, "A (" + a + ") is more than once in the expression"},
        {"A", {a, b}, "B (" + b + ") is not in the expression \"A\""},
        {"1 and 3", {a, b, c}, "B (" + b + ") is not in the expression"},
        {"A AND", {a}, "\"A AND\" ends where a file's letter is due"},
        {"OR", {a, b, c}, "\"OR\" stands between 2 files, not 3"},
        {"AND OR AND OR", {a, b, c, d}, "stands between 5 files, not 4"},
        {"AND B", {a, b}, "\"B\" stands in \"AND B\", which begins with an operator"}};
    for (const auto& [expression, files, message] : cases) {
        std::vector<std::string> arguments{"sets", "combine", expression};
        arguments.insert(arguments.end(), files.begin(), files.end());
        const Outcome outcome = quil(arguments);
        EXPECT_EQ(outcome.status, 2) << expression;
        EXPECT_NE(outcome.errors.find(message), std::string::npos) << outcome.errors;
    }
}

TEST_F(SetsCommand, ListTheObjectsOfRecords) {
    const std::string objects = file("objects", "1100010030300001\r\n1100010021000004\n1100010020300001\rbad\n");
    const Outcome outcome =
        quil({"map-list", objects, "--map", "Coast", "--layers", "3=OTTERS,10=TOWN"}, {"S2000001\nB2000001\n"});
    EXPECT_EQ(outcome.output, "1100010020300001\tOTTERS\tCoast\n1100010021000004\tTOWN\tCoast\n") << outcome.errors;
    EXPECT_EQ(quil({"map-list", "-", "--raw", "--ids", file("ids", "B3000001")}, {"1100010030300001\n"}).output,
              "1100010030300001\tHABITATS\tMap\r\n");
    EXPECT_EQ(quil({"map-list", objects}).output, "");
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "objects.sorted"));
    const Outcome bad = quil({"map-list", objects}, {"B2000001\nB2\n"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(bad.errors.find("quil: standard input:2: \"B2\" is no record ID"), 0U) << bad.errors;
}

TEST_F(SetsCommand, ListMoreObjectsThanAnAnswerHolds) {
    std::string objects;
    std::string lines;
    for (int i = 1; i <= 5000; ++i) {
        const std::string id = "11000100203" + std::to_string(10000 + i);
        objects += id + "\n";
        lines += id + "\tHABITATS\tMap\n";
    }
    support::TemporaryFolder temporary;
    const Outcome outcome =
        quil({"map-list", file("objects", objects)}, {"B2000001", {{"TMPDIR", temporary.path().string()}}});
    EXPECT_EQ(outcome.output, lines);
    EXPECT_TRUE(std::filesystem::is_empty(temporary.path())) << "nothing is left behind";
    const Outcome first = support::run(
        {"bash", "-c", "\"$0\" map-list \"$1\" | head -n 1", QUIL_BINARY_DIR "/quil", folder.file("objects")},
        {"B2000001", {{"TMPDIR", temporary.path().string()}}});
    EXPECT_EQ(first.output, lines.substr(0, lines.find('\n') + 1));
    EXPECT_TRUE(std::filesystem::is_empty(temporary.path())) << "nor when its reader goes";
}

}  // namespace
