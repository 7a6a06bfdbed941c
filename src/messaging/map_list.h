// Lists of map objects (LST2 text), the way to the mapping application, and small functions of the same group.
//
// LST2 text is lines ended by CR; the last may lack it. A valid line is an object's ID, 16 digits or letters A to F, a
// tab, and any further fields: the layer's name, a tab, the map's name.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quil {

inline constexpr std::size_t kObjectKeySize = 16;

// A line in the index of a clean-up.
struct LineRecord {
    char key[kObjectKeySize + 1];  // text before the first tab, cut to 16 bytes, upper case, padded with NULs
    std::int32_t lineStart;        // offset of its first byte
};

// Steps of the clean-up. Lines end at CR or NUL.
bool ValidLST2Line(const char* line);
// Overwrites the line and its CR with the byte 1, which marks what is to be removed.
void MarkLineForDeletion(char* line);
bool LinesMatchNoCase(const char* a, const char* b);
bool GeolensIdStringsMatch(const char* a, const char* b);  // the first 16 bytes, or up to a NUL in both
int CompareIndexRecords(const void* a, const void* b);     // by key, then by place in the text

// Removes malformed lines, and all but the first of lines that are equal in any letter case, from a terminated text of
// at least two lines. 0, or -108 with the text unchanged.
std::int32_t CleanUpLST2(char** text);

std::int32_t GLN1ShowOnMap(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1GetAppPath(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1ProcessLST2ParameterForGeolens(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1CopyIncomingLST2ToOutgoingLST2(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1RenameIncomingLSTAtoLST2(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1SetNoUserInterface(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1SuppressExtendedAscii(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1FieldContentsToMerText(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1ShowMessage(long funcNum, char** paramHandle, char** resultHandle);

}  // namespace quil
