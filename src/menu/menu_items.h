// The host's menus and the "magic" item in them: the item whose script of the same name reacts to double clicks and
// other intercepted events.
//
// The magic item is, in this order: the item that MENU_SetMenuHandlingScript named, in its menu or else in "Scripts"
// or "Script"; "GEOLENS" in "HBT", "Scripts" or "Script"; "***" in "Scripts" or "Script".
#pragma once

#include <cstddef>
#include <cstdint>

namespace quil {

inline constexpr std::size_t kMenuTextSize = 64;  // of titles and item names, with the terminator

// What the module keeps for the scripts. Zero-filled when made.
struct MenuGlobals {
    char interceptedString[kMenuTextSize];  // text of the last intercepted event
    char handlingMenuTitle[kMenuTextSize];  // of the menu-handling script
    char handlingItemName[kMenuTextSize];   // of the menu-handling script
    char enforcedWindowTitle[256];          // window that wants to stay in front; empty: none
};
static_assert(sizeof(MenuGlobals) == 448);

extern std::uint8_t gHaveInitedGlobals;  // the record is there
void InitMyGlobalsHandle();
// The byte handle of the record, made on first use; null when memory cannot be had.
char** GetMyGlobalsHandle();
// The record itself, or null.
MenuGlobals* GetMenuGlobals();
void ResetMenuGlobals();  // releases the record

struct MenuItemInfo {
    std::int16_t menuID = 0;
    std::int16_t item = 0;  // from 1; 0: the menu itself
};

// Finds an item in the first of the menus 1 to 29 that has the title; with a null or empty item name the menu. Letter
// case, "&" and a closing "..." do not count; titles and items are cut at 63 bytes.
bool GetMyMenuItemInfoHelper(const char* menuTitle, const char* itemName, MenuItemInfo* info);
bool GetMyMenuItemInfoFromCurrentMenuBar(const char* menuTitle, const char* itemName, MenuItemInfo* info);
// Finds the magic item; `itemNameOut` holds 64 bytes and is empty when there is none.
bool GetMagicMenuItem(MenuItemInfo* info, char* itemNameOut);
// The magic item's command key when it is a digit, with its virtual key code, else 0 for both.
bool GetMacMagicMenuItemCharCodeAndVirtualKeyCharAndItemName(char* charCode, char* virtualKey, char* itemName);

// Keeps `text` (cut at 63 bytes) as the intercepted text and queues the script of the magic item. Both flags and the
// result tell whether there was one. With `starOnly`, only an item "***" counts.
bool HitMenuIfItExistsHelper(bool starOnly, const char* text, bool* hit, bool* queued);
bool HitMagicMenuIfItExists(const char* text, bool* hit, bool* queued);
bool HitStarStarStarScriptIfItExists(const char* text, bool* hit, bool* queued);

}  // namespace quil
