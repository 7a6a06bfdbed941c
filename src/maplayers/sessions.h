// Show-on-map, get-info and find-ID sessions: three ways to fill, sort and read one list of HBT IDs.
#pragma once

#include <cstdint>

#include "maplayers/map_ids.h"

namespace quil {

inline constexpr unsigned long kMapNameSize = 42;           // with terminator
inline constexpr unsigned long kLongestResultText = 63999;  // longer answers go to a file

extern char** gHbtIDsH;              // the list: packed HbtID records, or null when no session is open
extern std::int32_t gNumHbtIDs;      // records in it
extern char gMapName[kMapNameSize];  // stands in every LST2 line
extern bool gDebugLst2Files;         // "DebugLst2.yes" lay in the application's folder at start-up

std::int32_t HBT_ShowOnMapInit(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t HBT_ShownOnMapAppendID(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t HBT_ShowOnMapGetLST2(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t HBT_GetInfoInit(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t HBT_GetInfoGetID(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t HBT_GetInfoDispose(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t HBT_FindIDsInit(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t HBT_FindIDsAppendID(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t HBT_FindIDsGetNumIDs(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t HBT_FindIDsGetID(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t HBT_FindIDsDispose(long funcNum, char** paramHandle, char** resultHandle);

// The append step of both appending functions. (The name is spelled so.)
std::int32_t ApendHbtID(long funcNum, char** paramHandle, char** resultHandle, const char* functionName);
// Sorts the list and drops duplicates.
void SortAndRemoveDuplicateHbtIDs();
// 0, or -1 when the file could not be opened or was not written whole.
std::int32_t WriteStringToFile(const char* path, const char* text);

void ResetSessions();

}  // namespace quil
