// Character sets: tables, the check for UTF-8, the exact sizes at which conversion stops, whole failure.
#include "util/charset.h"

#include <gtest/gtest.h>
#include <iconv.h>

#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "fmx/fmx.h"
#include "support/failing_allocator.h"

namespace {

using namespace quil;
using namespace std::string_literals;

// The system's conversion; "(none)" where the text is not of that encoding.
std::string bySystem(const std::string& from, const char* to, std::string text) {
    using Converter = std::unique_ptr<void, int (*)(iconv_t)>;
    static std::map<std::string, Converter> converters;
    auto found = converters.find(from + to);
    if (found == converters.end()) {
        found = converters.emplace(from + to, Converter(iconv_open(to, from.c_str()), iconv_close)).first;
    }
    const iconv_t converter = found->second.get();
    std::string result(4 * text.size() + 8, 0);
    char* in = text.data();
    char* out = result.data();
    std::size_t inLeft = text.size();
    std::size_t outLeft = result.size();
    iconv(converter, nullptr, nullptr, nullptr, nullptr);
    const bool good = iconv(converter, &in, &inLeft, &out, &outLeft) == 0;
    return good ? result.substr(0, result.size() - outLeft) : "(none)";
}
bool plainIsUtf8(const std::string& text) {
    return bySystem("UTF-8", "UTF-32LE", text) != "(none)";
}

struct Set {
    const char* name;
    const char* deviates;  // where the system's table is not the standard's, or lacks the byte
    void (*toUtf8)(const char*, char*, unsigned long);
    void (*fromUtf8)(const char*, char*, long);
};
const Set kSets[] = {
    {"MACINTOSH", "\xC6\xF0", my_ConvertMacRomanToUtf8, my_ConvertUtf8ToMacRoman},
    {"CP1252", "\x81\x8D\x8F\x90\x9D", my_ConvertWindows1252ToUtf8, my_ConvertUtf8ToWindows1252},
};

constexpr char kGuard = '\x5A';

// Runs a conversion into a zero-filled buffer of `size` bytes between guards and returns all of the buffer.
std::string convert(std::size_t size, const std::function<void(char*)>& run) {
    std::vector<char> buffer(size + 16, kGuard);
    std::fill(buffer.begin() + 8, buffer.end() - 8, '\0');
    run(buffer.data() + 8);
    EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + 8), std::string(8, kGuard));
    EXPECT_EQ(std::string(buffer.end() - 8, buffer.end()), std::string(8, kGuard));
    return {buffer.begin() + 8, buffer.end() - 8};
}

std::string toUtf8(const Set& set, const std::string& text, std::size_t size) {
    return convert(size, [&](char* dest) { set.toUtf8(text.c_str(), dest, size); });
}

std::string fromUtf8(const Set& set, const std::string& text, std::size_t size) {
    return convert(size, [&](char* dest) { set.fromUtf8(text.c_str(), dest, static_cast<long>(size)); });
}

std::string padded(std::string text, std::size_t size) {
    text.resize(size, '\0');
    return text;
}

// The UTF-8 form of one byte; Tables holds it against the system's.
std::string formOf(const Set& set, char byte) {
    return toUtf8(set, std::string(1, byte), 8).c_str();
}

std::string plainToUtf8(const Set& set, const std::string& text, std::size_t size) {
    if (plainIsUtf8(text)) {
        return padded(text.size() < size ? text : "", size);
    }
    std::string out;
    for (const char byte : text) {
        const std::string form = formOf(set, byte);
        if (size - out.size() < (form.size() == 1 ? 2U : 3U)) {
            break;
        }
        out += form;
    }
    return padded(out, size);
}

std::string plainFromUtf8(const Set& set, const std::string& text, std::size_t size) {
    static std::map<std::string, char> known[2];
    std::map<std::string, char>& bytes = known[&set - kSets];
    for (int byte = 1; byte < 256 && bytes.size() < 255; ++byte) {
        bytes[formOf(set, static_cast<char>(byte))] = static_cast<char>(byte);
    }
    std::string out;
    for (std::size_t i = 0, length = 1; i < text.size(); i += length, length = 1) {
        while (length < 4 && !bytes.contains(text.substr(i, length))) {
            ++length;
        }
        if (length == 4) {
            return padded("", size);
        }
        out += bytes[text.substr(i, length)];
    }
    return padded(out.size() < size ? out : "", size);
}

TEST(Tables, AgreeWithTheHostsAndTheSystemsOwn) {
    for (int byte = 0x80; byte < 0x100; ++byte) {
        const std::string text(1, static_cast<char>(byte));
        fmx::Text host;
        host.Assign(text.c_str(), fmx::Text::Encoding::macRoman);
        char utf8[8] = {};
        host.GetBytes(utf8, sizeof utf8, 0, 1, fmx::Text::Encoding::utf8);
        EXPECT_EQ(formOf(kSets[0], text[0]), utf8) << byte;
        for (const Set& set : kSets) {
            const bool deviates = std::string(set.deviates).find(text) != std::string::npos;
            EXPECT_TRUE(deviates || formOf(set, text[0]) == bySystem(set.name, "UTF-8", text)) << set.name << byte;
            EXPECT_TRUE(set.name != kSets[1].name || !deviates || formOf(set, text[0]) == "\xC2" + text) << byte;
        }
    }
    EXPECT_EQ(formOf(kSets[0], '\xDB'), "\xE2\x82\xAC");
    EXPECT_EQ(formOf(kSets[0], '\xF0'), "\xEF\xA3\xBF");
    EXPECT_EQ(formOf(kSets[0], '\xC6'), "\xE2\x88\x86");
}

// Every high first byte, every second; where more may follow, the third and fourth at the borders of what may stand
// there.
TEST(IsUtf8, AgreesWithThePlainCheckOnEveryShortSequenceAtEveryOffset) {
    const std::string borders = "\x01\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xFF";
    const auto check = [](const std::string& sequence, std::size_t offset) {
        const std::string text = std::string(offset % 34, 'x') + sequence + std::string(offset % 19, 'y');
        EXPECT_EQ(my_IsUtf8(text.c_str()), plainIsUtf8(text)) << testing::PrintToString(text);
    };
    for (unsigned lead = 0x7F; lead < 256; ++lead) {
        for (unsigned second = 1; second < 256; ++second) {
            const std::string pair = {static_cast<char>(lead), static_cast<char>(second)};
            check(pair, lead * 7 + second);
            for (std::size_t i = 0; lead >= 0xE0 && i < borders.size(); ++i) {
                check(pair + borders[i], lead + second + i);
                check(pair + borders[i] + borders[(lead + second) % borders.size()], second + i);
            }
        }
    }
    EXPECT_FALSE(my_IsUtf8(nullptr));
    EXPECT_TRUE(my_IsUtf8(""));
    EXPECT_FALSE(my_IsUtf8("\xED\xA0\x80"));  // the system's agreement, at its borders
    EXPECT_TRUE(my_IsUtf8("\xF4\x8F\xBF\xBF"));
    EXPECT_FALSE(my_IsUtf8("\xF4\x90\x80\x80"));
}

TEST(IsUtf8, FindsOneBadPlaceAnywhereInALongText) {
    std::string text;
    while (text.size() < 700) {
        text += text.size() % 3 == 0 ? "a\xC3\xA9" : text.size() % 3 == 1 ? "\xE2\x82\xAC-z" : "\xF0\x9F\x98\x80";
    }
    ASSERT_TRUE(my_IsUtf8(text.c_str()));
    for (std::size_t i = 0; i < text.size(); ++i) {
        for (const char byte : {'a', '\x80', '\xC3', '\xE2', '\xFF'}) {
            std::string changed = text;
            changed[i] = byte;
            EXPECT_EQ(my_IsUtf8(changed.c_str()), plainIsUtf8(changed)) << i;
        }
        EXPECT_EQ(my_IsUtf8(text.substr(i).c_str()), plainIsUtf8(text.substr(i))) << i;
    }
    EXPECT_FALSE(my_IsUtf8(std::string(2000, '\x80').c_str()));
}

TEST(ToUtf8, StopsAtTheFirstCharacterThatDoesNotFit) {
    // An ASCII byte needs one byte beyond itself, a high one three, even where its form has two; a text that is UTF-8
    // is copied whole or not at all.
    const std::vector<std::string> rows[] = {
        {"\x8E", "\xC3\xA9\0"s, "\0\0"s},    {"\xDB", "\xE2\x82\xAC", "\0\0"s},
        {"a\x8E", "a\xC3\xA9\0"s, "a\0\0"s}, {"\x8E\x61z", "\xC3\xA9\x61\0"s, "\xC3\xA9\x61z\0"s},
        {"abc", "abc\0"s, "\0\0\0"s},        {"\xC3\xA9", "\xC3\xA9\0"s, "\0\0"s}};
    for (const auto& row : rows) {
        EXPECT_EQ(toUtf8(kSets[0], row[0], row[1].size()), row[1]);
        EXPECT_EQ(toUtf8(kSets[0], row[0], row[2].size()), row[2]);
    }
    for (const Set& set : kSets) {
        char dest[] = "x";
        set.toUtf8("\x8E", dest, 0);
        EXPECT_STREQ(dest, "x");
        set.toUtf8("", dest, 1);
        EXPECT_STREQ(dest, "");
    }
}

TEST(FromUtf8, FailsAsAWhole) {
    for (const Set& set : kSets) {
        for (const char* text :
             {"\xE4\xB8\xAD", "\xE9", "\xC0\x81", "\xE0\x81\x81", "\xF0\x9F\x98\x80", "a\xCC\x81", "\xED\xA0\x80"}) {
            const std::string inside = std::string(40, 'a') + text + std::string(40, 'b');
            EXPECT_EQ(fromUtf8(set, inside, 200)[0], 0) << set.name << testing::PrintToString(text);
        }
        EXPECT_EQ(fromUtf8(set, "a\xC3\xA9z", 3), "\0\0\0"s) << "no room for the terminator";
        EXPECT_EQ(fromUtf8(set, "a\xC3\xA9z", 4)[3], 0);
        EXPECT_EQ(fromUtf8(set, "a\xC3\xA9z", 4)[2], 'z');
        char dest[] = "x";
        set.fromUtf8("abc", dest, 0);
        set.fromUtf8("abc", dest, -5);
        EXPECT_STREQ(dest, "x");
    }
}

// Texts of all mixtures, shorter and longer than the steps in which the converters go; some are read in two halves.
std::string randomText(std::mt19937& random, unsigned highPercent) {
    std::string text(random() % (random() % 8 == 0 ? 1200 : 90), 0);
    for (char& c : text) {
        c = static_cast<char>(random() % 100 < highPercent ? 0x80 + random() % 0x80 : 1 + random() % 0x7F);
    }
    return text;
}

TEST(Converters, AgreeWithThePlainOnesAtEverySize) {
    std::mt19937 random(6);
    constexpr unsigned kHighPercent[] = {0, 3, 20, 50, 100};
    for (int round = 0; round < 1500; ++round) {
        for (const Set& set : kSets) {
            const std::string text = randomText(random, kHighPercent[round % 5]);
            const std::size_t size = 1 + random() % (3 * text.size() + 30);
            ASSERT_EQ(toUtf8(set, text, size), plainToUtf8(set, text, size)) << testing::PrintToString(text) << size;

            std::string utf8;
            for (const char byte : text) {
                utf8 += formOf(set, byte);
            }
            if (round % 4 == 0 && !utf8.empty()) {
                utf8[random() % utf8.size()] = static_cast<char>(1 + random() % 255);
            }
            const std::size_t room = 1 + random() % (text.size() + 20);
            const std::string expected = plainFromUtf8(set, utf8, room);
            const std::string result = fromUtf8(set, utf8, room);
            ASSERT_STREQ(result.c_str(), expected.c_str()) << testing::PrintToString(utf8) << room;
            if (expected[0] != 0) {
                ASSERT_EQ(result, expected) << "nothing is left behind the terminator";
            }
        }
    }
}

std::string convertEncoding(const std::string& text, short from, short to, std::size_t size, unsigned long stored) {
    return convert(size, [&](char* dest) {
        std::fill(dest, dest + size, '#');
        EXPECT_EQ(my_ConvertStringEncoding(text.c_str(), from, dest, to, size), stored) << text << from << to;
    });
}

TEST(ConvertStringEncoding, GoesByWayOfUtf8AndFillsTheRest) {
    // The bounded copy goes by bytes; valid UTF-8 is UTF-8, whatever it is called; from UTF-8 to UTF-8 nothing is
    // checked.
    const struct {
        const char* text;
        short from, to;
        unsigned long stored;
        std::string result;
    } cases[] = {{"abc", 1, 1, 3, "abc"},
                 {"abc", 1, 1, 2, "ab"},
                 {"abc", 1, 1, 3, "abc\0\0\0"s},
                 {"\x8E", 2, 3, 1, "\xE9\0\0"s},
                 {"\xE9", 3, 2, 1, "\x8E\0"s},
                 {"\x8E\xDB", 2, 1, 5, "\xC3\xA9\xE2\x82\xAC\0"s},
                 {"\x8E\xDB", 2, 1, 4, "\xC3\xA9\xE2\x82"},
                 {"\xC3\xA9", 2, 1, 2, "\xC3\xA9\0"s},
                 {"\x81", 3, 3, 1, "\x81\0"s},
                 {"\x8E", 1, 1, 1, "\x8E\0"s},
                 {"\x8E", 1, 2, 0, "\0\0"s}};
    for (const auto& c : cases) {
        EXPECT_EQ(convertEncoding(c.text, c.from, c.to, c.result.size(), c.stored), c.result)
            << c.text << c.from << c.to;
    }
}

TEST(ConvertStringEncoding, AnswersNothingOnAnyFailure) {
    const struct {
        const char* text;
        short from, to;
    } cases[] = {{"abc", 1, 4}, {"abc", 0, 1}, {"abc", 4, 1}, {"", 1, 1}, {"\xE4\xB8\xAD", 1, 2}, {"x\xAD", 2, 3}};
    for (const auto& c : cases) {  // the last: a sign of Mac Roman that Windows-1252 lacks
        EXPECT_EQ(convertEncoding(c.text, c.from, c.to, 8, 0)[0], 0) << c.text << c.from << c.to;
    }
    char dest[] = "x";
    EXPECT_EQ(my_ConvertStringEncoding("abc", 1, dest, 1, 0), 0U);
    EXPECT_STREQ(dest, "x");
}

TEST(MemcpyEncoding, TakesBytesAsUtf8WhenTheyAreAndElseAsMacRoman) {
    const struct {
        std::string bytes;
        short to;
        std::string result;
    } cases[] = {
        {"abc", 1, "abc"},    {"\xC3\xA9", 2, "\x8E"}, {"\x8E", 1, "\xC3\xA9"},
        {"\x8E", 3, "\xE9"},  {"\xC3\xA9", 3, "\xE9"}, {"", 1, ""},
        {"ab\0cd"s, 1, "ab"}, {"abc", 7, ""},
    };
    for (const auto& c : cases) {
        const auto* bytes = reinterpret_cast<const unsigned char*>(c.bytes.data());
        char dest[8] = "#######";
        EXPECT_EQ(my_memcpy_encoding(dest, sizeof dest, bytes, c.bytes.size(), c.to), c.result.size());
        EXPECT_EQ(std::string(dest), c.result);
    }
    char dest[4] = "xyz";
    const unsigned char bytes[] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(my_memcpy_encoding(dest, 0, bytes, 4, 1), 0U);
    EXPECT_STREQ(dest, "xyz");
    EXPECT_EQ(my_memcpy_encoding(dest, 3, bytes, 4, 1), 3U);
    EXPECT_EQ(std::string(dest, 4), "abc\0"s);
}

TEST(Converters, AnswerNothingWhenMemoryRunsOutAndKeepNone) {
    support::FailingAllocator memory;
    const unsigned char bytes[] = {0x8E, 'a'};
    char dest[8];
    for (long n = 1; n <= 2; ++n) {
        memory.failCall(n);
        dest[0] = '#';
        EXPECT_EQ(my_ConvertStringEncoding("\x8E", 2, dest, 1, sizeof dest), 0U);
        EXPECT_EQ(dest[0], 0);
    }
    for (long n = 1; n <= 4; ++n) {
        memory.failCall(n);
        dest[0] = '#';
        const unsigned long stored = my_memcpy_encoding(dest, sizeof dest, bytes, sizeof bytes, 1);
        EXPECT_EQ(stored, n <= 3 ? 0U : 3U) << n;
        EXPECT_STREQ(dest, n <= 3 ? "" : "\xC3\xA9\x61") << n;
        EXPECT_EQ(memory.liveBlocks(), 0U);
    }
}

}  // namespace
