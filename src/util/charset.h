// Character sets: UTF-8, Mac Roman and Windows-1252. A text that is valid UTF-8 is UTF-8, anything else Mac Roman.
#pragma once

#include <string_view>

namespace quil {

// Encoding codes.
inline constexpr short kEncodingUtf8 = 1;
inline constexpr short kEncodingMacRoman = 2;
inline constexpr short kEncodingWindows1252 = 3;

// Whether a null-terminated text is valid UTF-8 (no overlong forms, no surrogates, nothing above U+10FFFF). Null is
// not.
bool my_IsUtf8(const char* text);
// The same for a text of known length.
bool my_IsUtf8(std::string_view text);

// To UTF-8. A source that already is UTF-8 is copied whole when its length is below destSize, else `dest` stays empty.
// Otherwise the conversion stops at the first character that does not fit; a character above 0x7F needs three bytes of
// room. `dest` must be zero-filled by the caller.
void my_ConvertMacRomanToUtf8(const char* src, char* dest, unsigned long destSize);
void my_ConvertWindows1252ToUtf8(const char* src, char* dest, unsigned long destSize);

// From UTF-8, whole or not at all: one character without an equivalent, or too little room for text and terminator,
// gives the empty text.
void my_ConvertUtf8ToMacRoman(const char* src, char* dest, long destSize);
void my_ConvertUtf8ToWindows1252(const char* src, char* dest, long destSize);

// From one encoding to another by way of UTF-8. Fills the rest of `dest` with zeros; a text of destLen bytes or more
// fills `dest` without a terminator. Returns the bytes stored; 0 on any failure.
unsigned long my_ConvertStringEncoding(const char* src, short srcEncoding, char* dest, short destEncoding,
                                       unsigned long destLen);
// The same for bytes of a known length, UTF-8 when valid and else Mac Roman.
unsigned long my_memcpy_encoding(char* dest, unsigned long destLen, const unsigned char* src, unsigned long srcLen,
                                 short destEncoding);

}  // namespace quil
