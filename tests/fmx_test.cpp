// The host's plug-in interface: texts and their encodings, parameters, errors at the boundary, registration.
#include "fmx/fmx.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "fmx/host.h"

namespace {

using Encoding = fmx::Text::Encoding;

fmx::Text text(std::u16string_view units) {
    fmx::Text result;
    result.setUnits(units);
    return result;
}

std::string bytes(const fmx::Text& from, Encoding encoding, std::uint32_t room = 64) {
    std::string buffer(room, '#');
    EXPECT_EQ(fmx::kNoError, from.GetBytes(buffer.data(), room, 0, from.GetSize(), encoding));
    return buffer.substr(0, buffer.find_first_of(std::string("\0#", 2)));
}

TEST(Text, ReadsAndWritesUtf8) {
    const std::vector<std::pair<std::string, std::u16string>> good = {
        {"", u""},
        {"plain text of more than eight bytes", u"plain text of more than eight bytes"},
        {"caf\xC3\xA9 \xE2\x82\xAC", u"caf\u00E9 \u20AC"},
        {"\xF0\x9F\x9C\x81!", u"\U0001F701!"},
        {"\xEF\xBF\xBF", u"\uFFFF"},
        {"\xF4\x8F\xBF\xBF", u"\U0010FFFF"},
    };
    for (const auto& [utf8, units] : good) {
        fmx::Text t;
        t.Assign(utf8.c_str(), Encoding::utf8);
        EXPECT_EQ(units, t.units()) << utf8;
        EXPECT_EQ(utf8, bytes(t, Encoding::utf8)) << utf8;
        t.Assign(utf8.c_str());
        EXPECT_EQ(units, t.units()) << "the native encoding is UTF-8";
    }
}

TEST(Text, ReplacesWhatIsNotUtf8) {
    for (const char* bad :
         {"\x80", "\xC0\xAF", "\xE0\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xF8", "\xE2\x82"}) {
        fmx::Text t;
        t.Assign(bad, Encoding::utf8);
        EXPECT_EQ(std::u16string(std::string_view(bad).size(), u'\uFFFD'), t.units());
    }
    EXPECT_EQ("a\xEF\xBF\xBD", bytes(text(u"a\xD800"), Encoding::utf8)) << "lone lead surrogate";
    EXPECT_EQ("\xEF\xBF\xBD\x62", bytes(text(u"\xDC00\x62"), Encoding::utf8)) << "lone trail surrogate";
}

TEST(Text, ReadsAndWritesEveryMacRomanByte) {
    std::string all;
    for (int byte = 1; byte < 256; ++byte) {
        all.push_back(static_cast<char>(byte));
    }
    fmx::Text t;
    t.Assign(all.c_str(), Encoding::macRoman);
    std::string back(300, 'x');
    ASSERT_EQ(fmx::kNoError, t.GetBytes(back.data(), 300, 0, t.GetSize(), Encoding::macRoman));
    EXPECT_EQ(all, back.substr(0, 255));
    EXPECT_EQ(u'\u00E9', t.units()[0x8E - 1]);
    EXPECT_EQ(u'\u20AC', t.units()[0xDB - 1]);
    EXPECT_EQ(u'\uF8FF', t.units()[0xF0 - 1]);
    EXPECT_EQ("?a?", bytes(text(u"\u4E2Da\U0001F701"), Encoding::macRoman)) << "no equivalent, once a character";
}

TEST(Text, TakesTextsOfAnyLengthOneAfterTheOther) {
    fmx::Text t;
    for (const std::size_t length : {20UL, 3UL, 0UL, 65536UL, 65537UL, 100000UL, 8UL, 0UL, 7UL, 70000UL}) {
        for (const std::string& odd : {std::string(), std::string("\xC3\xA9"), std::string("\xF0\x9F\x98\x80x")}) {
            for (const std::size_t at : {std::size_t{0}, length / 2, length}) {
                std::string bytes(length, 'a');
                bytes.insert(at, odd);
                t.AssignBytes(bytes, Encoding::utf8);
                std::string back(bytes.size() + 1, 'z');
                EXPECT_EQ(
                    t.GetBytes(back.data(), static_cast<std::uint32_t>(back.size()), 0, t.GetSize(), Encoding::utf8),
                    0);
                EXPECT_TRUE(back == bytes + '\0') << length << " " << at << odd;
            }
        }
    }
}

TEST(Text, NeverWritesPastABufferNorHalfACharacter) {
    for (std::uint32_t room = 0; room < 8; ++room) {
        std::string buffer(9, '#');
        ASSERT_EQ(fmx::kNoError, text(u"\u20AC\u20AC").GetBytes(buffer.data(), room, 0, 2, Encoding::utf8));
        const std::size_t whole = room / 3 * 3;
        EXPECT_EQ(whole, std::min<std::size_t>(buffer.find_first_of(std::string("\0#", 2)), 6));
        EXPECT_EQ(std::string(9 - room, '#'), buffer.substr(room));
    }
    char buffer[4];
    EXPECT_EQ(fmx::kParameterError, text(u"abc").GetBytes(buffer, 4, 1, 3, Encoding::utf8));
    EXPECT_EQ(fmx::kParameterError, text(u"abc").GetBytes(buffer, 4, 4, 0, Encoding::utf8));
}

TEST(Text, ComparesFindsDeletesAndAppendsByUnits) {
    EXPECT_TRUE(text(u"Name") == text(u"Name"));
    EXPECT_FALSE(text(u"Name") == text(u"name"));
    fmx::Text t = text(u"QUIL_External( a ; b )");
    EXPECT_EQ(13U, t.Find(text(u"(")));
    EXPECT_EQ(fmx::Text::kNotFound, t.Find(text(u"("), 14));
    t.DeleteText(13);
    EXPECT_EQ(u"QUIL_External", t.units());
    t.AppendText(text(u"xyz"), 1, 1);
    EXPECT_EQ(u"QUIL_Externaly", t.units());
    EXPECT_THROW(t.AppendText(text(u"x"), 2), fmx::_fmxcpt);
    EXPECT_THROW(t.DeleteText(99), fmx::_fmxcpt);
}

fmx::errcode answersTen(short, const fmx::ExprEnv&, const fmx::DataVect&, fmx::Data&) {
    return 10;
}
fmx::errcode readsTooFar(short, const fmx::ExprEnv&, const fmx::DataVect& params, fmx::Data&) {
    return static_cast<fmx::errcode>(params.AtAsText(7).GetSize());
}
fmx::errcode runsOut(short, const fmx::ExprEnv&, const fmx::DataVect&, fmx::Data&) {
    throw std::bad_alloc();
}
fmx::errcode fails(short, const fmx::ExprEnv&, const fmx::DataVect&, fmx::Data&) {
    throw std::runtime_error("x");
}

TEST(Boundary, TurnsEverythingRaisedIntoACode) {
    const fmx::ExprEnv env;
    fmx::DataVect params;
    fmx::Data result;
    EXPECT_EQ(10, fmx::Evaluate(answersTen, 1, env, params, result));
    EXPECT_EQ(fmx::kParameterError, fmx::Evaluate(readsTooFar, 1, env, params, result));
    EXPECT_EQ(fmx::kMemoryError, fmx::Evaluate(runsOut, 1, env, params, result));
    EXPECT_EQ(fmx::kNoHostError, fmx::Evaluate(fails, 1, env, params, result));
}

TEST(Boundary, RefusesRegistrationsWithoutAHost) {
    fmx::FunctionRegistry* before = fmx::installFunctionRegistry(nullptr);
    const fmx::QuadChar id('Q', 'U', 'I', 'L');
    EXPECT_EQ(fmx::kNoHostError,
              fmx::ExprEnv::RegisterExternalFunction(id, 1, text(u"F"), text(u"F()"), 0, 1, 0, answersTen));
    EXPECT_EQ(fmx::kNoHostError, fmx::ExprEnv::UnRegisterExternalFunction(id, 1));
    fmx::installFunctionRegistry(before);
}

}  // namespace
