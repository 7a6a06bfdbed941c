// The script functions of the module MENU.

#include "frame/dispatch_table.h"
#include "menu/menu.h"

namespace quil {

static constexpr Row kRows[] = {
    {.name = "MENU_Version",
     .handler = MENU_Version,
     .module = "MENU",
     .summary = "Tells the version of the menu functions.",
     .parameter = "ignored",
     .result = "The version text.",
     .errors = "none",
     .exampleParameter = "",
     .exampleResult = "MENU plugin ver 8.0"},
    {.name = "MENU_ResetMenuItems",
     .handler = MENU_ResetMenuItems,
     .module = "MENU",
     .summary = "Readies what the menu functions keep.",
     .parameter = "ignored",
     .result = "Empty.",
     .errors = "An alert when memory runs out.",
     .exampleParameter = "",
     .exampleResult = ""},
    {.name = "MENU_GetInterceptedMenuItemString",
     .handler = MENU_GetInterceptedMenuItemString,
     .module = "MENU",
     .summary = "Reads the text that came with the event whose script was last queued, and forgets it.",
     .parameter = "ignored",
     .result = "The text, at most 63 bytes.",
     .errors = "An alert when memory runs out.",
     .exampleParameter = "",
     .exampleResult = ""},
    {.name = "MENU_SetMenuHandlingScript",
     .handler = MENU_SetMenuHandlingScript,
     .module = "MENU",
     .summary = "Names the menu item whose script handles double clicks and other intercepted events.",
     .parameter = "Title of the menu, a bar, text of the item, each up to 63 bytes. Letter case, & and a closing ... "
                  "do not count. Without such an item, GEOLENS of the menus HBT, Scripts or Script serves, else *** "
                  "of Scripts or Script.",
     .result = "Empty.",
     .errors = "An alert without a bar.",
     .exampleParameter = "Tools|Refresh",
     .exampleResult = ""},
    {.name = "MENU_WatchForDoubleClick",
     .handler = MENU_WatchForDoubleClick,
     .module = "MENU",
     .summary = "Takes note of a click on a field; the script of the field calls it at every click. Two calls with the "
                "same message, at most 1.3 times the double-click time and 14 pixels apart, are a double click: the "
                "message is found, and the script of the menu-handling item is queued.",
     .parameter = "Key of the field, a bar, the message, at most 1,023 bytes in all. A found message is kept for three "
                  "seconds while a field is watched whose key equals it; any other watch forgets it.",
     .result = "Empty.",
     .errors = "none",
     .exampleParameter = "chemical|Benzene",
     .exampleResult = ""},
    {.name = "MENU_GetDoubleClickString",
     .handler = MENU_GetDoubleClickString,
     .module = "MENU",
     .summary = "Reads the message of the double click that was found, and forgets it.",
     .parameter = "ignored",
     .result = "The message, cut at 63 bytes; empty when there is none.",
     .errors = "An alert when memory runs out.",
     .exampleParameter = "",
     .exampleResult = ""},
    {.name = "MENU_SetWindowTitleOfWindowRequestingModalDialogEnforcement",
     .handler = MENU_SetWindowTitleOfWindowRequestingModalDialogEnforcement,
     .module = "MENU",
     .summary = "Names a window that is to stay in front. When another one is in front at two idle calls in a row, the "
                "script *** of the menu Scripts or Script is queued, once.",
     .parameter = "Title of the window; an extension of up to three characters does not count. Empty to stop.",
     .result = "Empty.",
     .errors = "An alert when memory runs out.",
     .exampleParameter = "Main.fp7",
     .exampleResult = ""},
    {.name = "MENU_DisableMouseWheel",
     .handler = MENU_DisableMouseWheel,
     .module = "MENU",
     .summary = "Says whether the mouse wheel is to be disabled.",
     .parameter = "TRUE in any letter case, or 1; any other text enables it.",
     .result = "Empty.",
     .errors = "none",
     .exampleParameter = "TRUE",
     .exampleResult = ""},
};

std::span<const Row> MENURows() {
    return kRows;
}

}  // namespace quil
