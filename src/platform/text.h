// The few text conversions that the machine itself needs: UTF-8 checked strictly, Mac Roman and UTF-16 to UTF-8.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace platform {

inline constexpr char32_t noCharacter = 0xFFFFFFFF;

// Decodes the character of UTF-8 `text` at `at` and moves `at` behind it. Overlong forms, surrogates and numbers past
// U+10FFFF are no characters: noCharacter, with `at` left where it was.
char32_t nextCharacter(std::string_view text, std::size_t& at);
bool isUtf8(std::string_view text);
void appendUtf8(std::string& text, char32_t character);

// The character that a Mac Roman byte stands for.
char32_t characterOfMacRoman(char byte);
// UTF-8 of bytes that are UTF-8 already, or else Mac Roman.
std::string utf8Of(std::string_view bytes);
// UTF-8 of UTF-16; an unpaired surrogate becomes U+FFFD.
std::string utf8Of(std::u16string_view text);

}  // namespace platform
