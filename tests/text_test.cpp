// Null-terminated texts: type codes, length-prefixed texts, lines, menu texts.
#include "util/text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace quil;
using namespace std::string_literals;

TEST(BoundedCopy, CutsAndAlwaysTerminates) {
    for (unsigned long n = 1; n <= 8; ++n) {
        char dest[9];
        std::fill(std::begin(dest), std::end(dest), '#');
        my_strncpy(dest, "abcd", n);
        EXPECT_EQ(std::string(dest), "abcd"s.substr(0, n - 1));
        EXPECT_EQ(dest[n - 1], 0) << "the last byte is always a terminator";
        EXPECT_EQ(dest[n], '#');
    }
    char dest[4] = "xyz";
    my_strncpy(dest, "a", 0);
    EXPECT_STREQ(dest, "xyz");
    copyInto(dest, nullptr);
    EXPECT_STREQ(dest, "");
    my_strncpy(dest, std::string_view("abcdef", 5), sizeof dest);
    EXPECT_STREQ(dest, "abc");
}

TEST(BlockMoves, AllowOverlapAndIgnoreCountsBelowOne) {
    char text[] = "abcdef";
    BlockMove(text, text + 2, 4);
    EXPECT_STREQ(text, "ababcd");
    BlockMoveData(text + 2, text, 4);
    EXPECT_STREQ(text, "abcdcd");
    BlockMoveData(text, text + 1, 0);
    BlockMove(text, text + 1, -3);
    EXPECT_STREQ(text, "abcdcd");
}

TEST(TypeCodes, TakeFourBytesAndFillWithSpaces) {
    const std::pair<const char*, OSType> cases[] = {
        {"GEOLENS", "GEOL"_4}, {"ab", "ab  "_4}, {"\xFF\x80", 0xFF802020U}, {nullptr, "    "_4}};
    for (const auto& [text, code] : cases) {
        EXPECT_EQ(StringToOSType(text), code);
    }
    EXPECT_TRUE(IsAllSpacesOSType(StringToOSType("")));
    EXPECT_FALSE(IsAllSpacesOSType("   a"_4));

    std::uint32_t swapped = 0x01020304;
    SwapOSType(&swapped);
    EXPECT_EQ(swapped, 0x04030201U);
    const std::uint32_t one = 1;
    EXPECT_EQ(NeedToReverseOSTypes(), *reinterpret_cast<const unsigned char*>(&one) == 1);
}

TEST(TypeCodes, ComeBackFromTheirText) {
    std::mt19937 random(4);
    for (int i = 0; i < 1000; ++i) {
        const OSType code = static_cast<OSType>(random()) | 0x01010101U;
        char text[6] = "#####";
        OSTypeToString(code, text);
        EXPECT_EQ(StringToOSType(text), code);
        EXPECT_EQ(text[4], 0);
    }
    char text[5];
    OSTypeToString(0x41004200, text);
    EXPECT_EQ(std::string(text, 5), "A\0B\0\0"s) << "zero bytes are written as they are";
}

TEST(LengthPrefixedTexts, AreCutAt255) {
    for (const std::size_t length : {0U, 1U, 254U, 255U, 256U, 400U}) {
        const std::string text(length, 'x');
        unsigned char prefixed[257];
        prefixed[256] = '#';
        myc2pstr(text.c_str(), prefixed);
        EXPECT_EQ(prefixed[0], std::min<std::size_t>(length, 255));
        EXPECT_EQ(prefixed[256], '#');
        char back[256];
        myp2cstr(prefixed, back);
        EXPECT_EQ(std::string(back), text.substr(0, 255));
        unsigned char copy[256];
        pstrcpy(copy, prefixed);
        EXPECT_TRUE(std::equal(copy, copy + 1 + copy[0], prefixed));
    }
}

TEST(LengthPrefixedTexts, GrowTo250AtMost) {
    const struct {
        std::size_t before, added, after;
    } cases[] = {{245, 10, 250}, {240, 10, 250}, {0, 255, 250}, {3, 4, 7}, {250, 1, 250}, {7, 0, 7}};
    for (const auto& c : cases) {
        unsigned char dest[256];
        unsigned char src[256];
        myc2pstr(std::string(c.before, 'a').c_str(), dest);
        myc2pstr(std::string(c.added, 'b').c_str(), src);
        pstrcat(dest, src);
        char text[256];
        myp2cstr(dest, text);
        EXPECT_EQ(std::string(text), std::string(c.before, 'a') + std::string(c.after - c.before, 'b'));
    }
}

TEST(Case, OnlyAsciiLettersHaveOne) {
    for (int byte = 0; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        EXPECT_EQ(mytoupper(c), byte >= 'a' && byte <= 'z' ? static_cast<char>(byte - 32) : c);
    }
    char text[] = "a1z\xE9{`";
    EXPECT_EQ(StrToUpper(text), text);
    EXPECT_STREQ(text, "A1Z\xE9{`");
}

TEST(Case, OnlyTrueIsTrue) {
    const struct {
        const char *text, *after;
        bool value;
    } cases[] = {{"tRuE", "TRUE", true}, {"TRUE", "TRUE", true},    {"1", "1", false},         {"yes", "YES", false},
                 {"", "", false},        {"TRUE ", "TRUE ", false}, {" true", " TRUE", false}, {"tru", "TRU", false}};
    for (const auto& c : cases) {
        std::string text = c.text;
        EXPECT_EQ(StringToBoolean(text.data()), c.value) << c.text;
        EXPECT_EQ(text, c.after) << "the caller's text is upper-cased";
    }
}

// The plain way: lines by looking at every character.
std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines(1);
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r' || text[i] == '\n') {
            i += text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n';
            if (i + 1 < text.size()) {
                lines.emplace_back();
            }
        } else {
            lines.back() += text[i];
        }
    }
    return lines;
}

std::string line(const std::string& text, long n, bool optimized = false, long size = 64) {
    std::vector<char> dest(static_cast<std::size_t>(std::max(size, 1L)) + 1, '#');
    char* result = optimized ? NthLineInTextOptimizedForUseInLoop(text.c_str(), n, dest.data(), size)
                             : NthLineInTextNonOptimized(text.c_str(), n, dest.data(), size);
    EXPECT_EQ(result, dest.data());
    EXPECT_EQ(dest.back(), '#');
    return dest.data();
}

TEST(Lines, AreCountedByTheirBreaksAndFoundByNumber) {
    const std::pair<const char*, long> cases[] = {{"", 1},       {"a", 1},    {"a\r\n", 1},    {"a\r\nb", 2},
                                                  {"a\n\rb", 3}, {"\n\r", 2}, {"a\r\r\nb", 3}, {"a\rb\r", 2}};
    for (const auto& [text, lines] : cases) {
        EXPECT_EQ(NumLinesInText(text), lines) << testing::PrintToString(text);
    }
    EXPECT_EQ(line("a\r\nb\rc", 2), "c");
    EXPECT_EQ(line("a\r\nb\rc", -1), "");
}

TEST(Lines, AreCutToTheBuffer) {
    const std::string text = "abcdef\rgh";  // a loop reads on in the text of its start
    for (const bool optimized : {false, true}) {
        for (long size = 1; size <= 8; ++size) {
            EXPECT_EQ(line(text, 0, optimized, size), "abcdef"s.substr(0, static_cast<std::size_t>(size - 1)));
        }
        EXPECT_EQ(line(text, 1, optimized, 2), "g") << "a cut line is passed whole";
        char dest[3] = "##";
        for (const long size : {0L, -1L, -100L}) {
            NthLineInTextHelper("abc", 0, dest + 1, optimized, size);
            EXPECT_STREQ(dest, "##") << "nothing is written without room";
        }
    }
}

TEST(Lines, ALoopReadsTheSameInBothModes) {
    std::mt19937 random(5);
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        for (std::size_t i = random() % 24; i > 0; --i) {
            text += "ab\r\n\r\n"[random() % 6];
        }
        const std::vector<std::string> expected = linesOf(text);
        ASSERT_EQ(NumLinesInText(text.c_str()), static_cast<long>(expected.size())) << testing::PrintToString(text);
        for (std::size_t n = 0; n < expected.size() + 3; ++n) {
            const std::string& wanted = n < expected.size() ? expected[n] : "";
            ASSERT_EQ(line(text, static_cast<long>(n)), wanted) << testing::PrintToString(text) << n;
            ASSERT_EQ(line(text, static_cast<long>(n), true), wanted) << testing::PrintToString(text) << n;
        }
    }
}

TEST(Lines, AskedOutOfOrderALoopLosesItsPlaceUntilLineZero) {
    const std::string text = "a\rb\rc\rd\re";
    EXPECT_EQ(line(text, 0, true), "a");
    line(text, 2, true);
    EXPECT_NE(line(text, 3, true), "d") << "the place advanced by two lines, the count by one";
    EXPECT_EQ(line(text, 1, true), "") << "earlier lines are not found";
    EXPECT_EQ(line(text, 0, true), "a");
    EXPECT_EQ(line("x\ry", 1, true), "b") << "the text of the loop's start is read, not the argument";
    ResetLineCache();
    EXPECT_EQ(line(text, 1, true), "");
}

TEST(MenuTexts, AreMadeComparable) {
    const std::pair<const char*, const char*> items[] = {
        {"Save &As...", "SAVE AS"}, {"...", ""},  {"..", ".."}, {"a....", "A."},
        {"a..&.", "A..."},          {"&...", ""}, {"", ""},     {"As\xC9", "AS\xC9"}};
    for (const auto& [item, cleaned] : items) {
        char dest[256];
        strcpyCleanedUpMenuItemStr(dest, item);
        EXPECT_STREQ(dest, cleaned) << item;
    }
    char dest[256];
    strcpyCleanedUpMenuItemStr(dest, (std::string(253, 'x') + "...").c_str());
    EXPECT_EQ(std::string(dest), std::string(253, 'X') + "..") << "cut at 255 first";

    strcpyCleanedUpMenuTopicStr(dest, "&File && Edit...");
    EXPECT_STREQ(dest, "FILE  EDIT...");
}

TEST(MenuTexts, MatchWithoutRegardToCaseAndMarks) {
    EXPECT_TRUE(MenuStrMatches("Save &As...", "SAVE AS"));
    EXPECT_FALSE(MenuStrMatches("Save &As\xE2\x80\xA6", "SAVE AS")) << "the one-character ellipsis stays";
    EXPECT_FALSE(MenuStrMatches("Save", "Save As"));
    EXPECT_TRUE(TopicStringsMatch("&File", "fiLe&"));
    EXPECT_TRUE(TopicStringsMatch("", "&&"));
    EXPECT_FALSE(TopicStringsMatch("File...", "File")) << "only items lose their full stops";
    EXPECT_FALSE(TopicStringsMatch("Fil&", "File"));
    const std::string longTitle(1000, 'x');
    EXPECT_TRUE(TopicStringsMatch(longTitle.c_str(), longTitle.c_str()));
    EXPECT_FALSE(TopicStringsMatch(longTitle.c_str(), (longTitle + "y").c_str()));
}

}  // namespace
