// The submission years in the identifiers of a file, found and changed anywhere in its bytes.
//
// An identifier is 8 bytes: C and one of K, L, M, T, V, or F and A or D, or P and H, then T, all in either case; then
// the capital R and a year 2000 to 2099. Only the years 2000 to 2019 are reported and changed.
#pragma once

#include <cstdint>

namespace quil {

inline constexpr short kFirstTorvaneYear = 2000;
inline constexpr short kLastTorvaneYear = 2019;

// The years that were found: flag i for 2000 + i.
struct TorvaneYearInfo {
    std::uint8_t year[kLastTorvaneYear - kFirstTorvaneYear + 1];
};

void InitTorvaneYearInfo(TorvaneYearInfo* info);
void MergeTorvaneYearInfo(TorvaneYearInfo* result, const TorvaneYearInfo* a, const TorvaneYearInfo* b);

// The year of the identifier at `text`, 2000 to 2099; 0 when there is none. Looks no further than the first byte that
// does not fit.
short TorvaneYearFromID(const char* text);
// The years of all identifiers in `length` bytes.
void GetTorvaneYearsFromText(TorvaneYearInfo* out, const char* text, long length);
// Gives all identifiers of the years 2000 to 2019 another of these years; any other year changes nothing.
void ChangeAllTorvaneIDs(char* text, long length, short year);

// The same for a file of any size. A failure is a text (256 bytes, else empty) or a status of the machine, or both;
// -108 without memory for a buffer (-1 where the file is changed). A file of less than 20 bytes counts as empty.
void GetTorvaneYearsFromIDs(TorvaneYearInfo* out, const char* path, char* errorText, short* error);
// Returns the status. The file's length stays; what was changed before a failure stays changed.
short ChangeTorvaneIDsInFile(const char* path, short year, char* errorText);

// Script functions.
std::int32_t GLN1GetTorvaneYearsFromIDs(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1ChangeTorvaneIDsInFile(long funcNum, char** paramHandle, char** resultHandle);

}  // namespace quil
