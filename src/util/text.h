// Null-terminated texts: four-character codes, length-prefixed texts, letter case, lines, menu texts.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/types.h"

namespace quil {

using platform::OSType;
using platform::operator""_4;

// Copies at most n - 1 characters and always terminates; n is at least 1. Every copy into a fixed buffer goes through
// here, or through copyInto for arrays.
void my_strncpy(char* dst, const char* src, unsigned long n);
template <std::size_t N>
void copyInto(char (&dst)[N], const char* src) {
    my_strncpy(dst, src, N);
}
// The same for a view.
void my_strncpy(char* dst, std::string_view src, unsigned long n);
void BlockMove(const void* src, void* dst, long count);  // overlap allowed; nothing when count < 1
void BlockMoveData(const void* src, void* dst, long count);

// Four-character codes.
bool NeedToReverseOSTypes();
void SwapOSType(std::uint32_t* type);
OSType StringToOSType(const char* text);       // missing and zero bytes become spaces
void OSTypeToString(OSType type, char* dest);  // 4 bytes and a terminator
bool IsAllSpacesOSType(OSType type);

// Length-prefixed texts of at most 255 bytes.
void myc2pstr(const char* src, unsigned char* dest);
void myp2cstr(const unsigned char* src, char* dest);
void pstrcat(unsigned char* dest, const unsigned char* src);  // the result is capped at 250 bytes
void pstrcpy(unsigned char* dest, const unsigned char* src);

char mytoupper(char c);  // ASCII only
char* StrToUpper(char* text);
bool StringToBoolean(char* text);  // upper-cases the caller's text; true only for "TRUE"

// Lines end at CR, LF or CR LF. Line numbers are from 0; a line is cut at destSize - 1 bytes.
long NumLinesInText(const char* text);
char* NthLineInTextNonOptimized(const char* text, long n, char* dest, long destSize);
// For loops that read lines 0, 1, 2, ... of one text: resumes where the last call ended; n = 0 starts anew.
char* NthLineInTextOptimizedForUseInLoop(const char* text, long n, char* dest, long destSize);
char* NthLineInTextHelper(const char* text, long n, char* dest, bool optimized, long destSize);

// Menu titles and item texts made comparable: upper case, without "&", an item also without a closing "...".
void strcpyCleanedUpMenuTopicStr(char* dest, const char* title);
void strcpyCleanedUpMenuItemStr(char* dest, const char* item);  // dest: 256 bytes
bool TopicStringsMatch(const char* a, const char* b);
bool MenuStrMatches(const char* a, const char* b);

// Forgets the position of NthLineInTextOptimizedForUseInLoop.
void ResetLineCache();

}  // namespace quil
