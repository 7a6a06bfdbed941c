// Double clicks, windows that want to stay in front, and the script functions of the menu module.
#pragma once

#include <cstdint>

#include "platform/types.h"

namespace quil {

struct MouseDown {
    std::uint32_t ticks = 0;  // 0: none
    platform::Point where;
};

extern char gLookingForDblClickMsg[256];       // message to deliver when the next double click is seen
extern char gFoundDblClickMsg[64];             // message of the double click that was seen
extern std::uint32_t gFoundDblClickMsgTime;    // when that was
extern std::uint32_t gLookingForDblClickTime;  // when a field was last watched; kept for the record
extern MouseDown gMostRecentMouseDown;
extern MouseDown g2ndMostRecentMouseDown;
extern std::int16_t gStarStarStarIdleCount;  // idle passes in a row with a wrong front window
extern std::uint8_t gDisableMouseWheel;      // as MENU_DisableMouseWheel set it
extern std::uint8_t gUserIsQuiting;          // the host is quitting: windows are watched no more

// Whether a double click's message was found and not yet read.
bool HaveDoubleClickString();
// Takes note of a mouse-down at the mouse's present position, at the time `now`.
void AssumeMouseDown(std::uint32_t now);
// Makes the message that was looked for the found one (cut at 63 bytes).
void TransferUsersDoubleClickString();
// Whether two window titles are equal without their extensions: a last "." and at most three characters.
bool MatchingFileWindowTitles(const char* a, const char* b);
// Deletes a file by its classic path; 0 or the machine's code.
platform::Status my_deleteFileWithPath(const char* classicPath);

// Script functions.
std::int32_t MENU_Version(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t MENU_ResetMenuItems(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t MENU_GetInterceptedMenuItemString(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t MENU_SetMenuHandlingScript(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t MENU_WatchForDoubleClick(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t MENU_GetDoubleClickString(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t MENU_SetWindowTitleOfWindowRequestingModalDialogEnforcement(long funcNum, char** paramHandle,
                                                                         char** resultHandle);
std::int32_t MENU_DisableMouseWheel(long funcNum, char** paramHandle, char** resultHandle);

// Puts the state of the module back to what it is at load.
void ResetMenu();

}  // namespace quil
