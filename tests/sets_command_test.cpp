// `quil sets` and `quil map-list` as people call them.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/process.h"

namespace {

using support::Outcome;
using support::quil;

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
                                               {"map-list", a, "--ids", b, "--layers", "12=X"}}) {
        const Outcome outcome = quil(arguments);
        EXPECT_EQ(outcome.status, 2) << arguments.back() << outcome.errors;
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(outcome.errors.find("quil: "), 0U);
    }
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
}

}  // namespace
