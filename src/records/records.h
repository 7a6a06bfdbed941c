// Script functions of the record-ID sets and the record helpers.
#pragma once

#include <cstdint>
#include <string_view>

namespace quil {

// Sets of record IDs.
std::int32_t VSTA_InitFoundSet(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_SetNextFoundID(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_GetFoundID(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_GetNumFoundIDs(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_RemoveDuplicateFoundIDs(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_DisposeFoundSet(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_TransferFoundSetToBooleanSet(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_MakeFoundSetFromBooleanSets(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_DisposeBooleanSets(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_TransferFoundSetToSavedSet(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_TransferSavedSetToFoundSet(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_CopySavedSetToFoundSet(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_DisposeSavedSet(long funcNum, char** paramHandle, char** resultHandle);

// Record helpers.
std::int32_t VSTAVersion(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTANewID(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_SetRidsLookupInfo(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_GetRidsLookupInfo(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_SetRidsLinkInfo(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_GetRidsLinkInfo(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_UserIsAllowedToEdit(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_SetUserIsAllowedToEdit(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_GetReactivityCodes(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_ReactivityCodesToText(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_StripCharsIllegalInXML(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_FixFilemakerXmlFile_CRCRLFStyleSheetBug(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t VSTA_FixFilemakerMerFile_StripUnallowedChars(long funcNum, char** paramHandle, char** resultHandle);

// State of the record helpers.
extern std::uint32_t gNewIDCounter;        // sequence number within one second
extern char** gRidsLookupInfoH;            // stored lookup information, terminated, or null
extern char** gRidsLinkInfoH;              // stored link information, terminated, or null
extern std::uint8_t gUserIsAllowedToEdit;  // 1 at load
extern std::uint8_t gInVestaPlugin_Idle;   // re-entry guard of the idle hook

// `digits` (at most 8) base-34 digits of `number`, most significant first, higher ones dropped, and a terminator. The
// letters I and O are left out of the digits.
void GetNumAsBase34Str(std::uint32_t number, int digits, char* dest);
// Seconds since 1 January 2000, 00:00:00 local time.
std::uint32_t SecondsSince2000();
// Whether exported files may hold the byte: 32 to 255, tab, line feed, vertical tab, carriage return, group separator.
bool AllowedFilemakerMerChar(unsigned char byte);

// Puts the state of the record helpers, the sets included, back to what it is at load.
void ResetRecords();

}  // namespace quil
