#include "menu/menu_items.h"

#include <algorithm>

#include "messaging/script_queue.h"
#include "platform/machine.h"
#include "util/fhandle.h"
#include "util/text.h"
#include "util/toolbox.h"

namespace quil {

// State of this file.
std::uint8_t gHaveInitedGlobals = 0;         // the record is there
static char** sMenuGlobalsHandle = nullptr;  // byte handle of the record

static constexpr std::int16_t kFirstMenu = 1;
static constexpr std::int16_t kLastMenu = 29;
static constexpr char kMagicItem[] = "GEOLENS";
static constexpr char kStarItem[] = "***";

void InitMyGlobalsHandle() {
    sMenuGlobalsHandle = NewFHandle(sizeof(MenuGlobals));
    gHaveInitedGlobals = sMenuGlobalsHandle != nullptr ? 1 : 0;
}

char** GetMyGlobalsHandle() {
    if (gHaveInitedGlobals == 0) {
        InitMyGlobalsHandle();
    }
    return sMenuGlobalsHandle;
}

MenuGlobals* GetMenuGlobals() {
    char** handle = GetMyGlobalsHandle();
    return handle == nullptr ? nullptr : reinterpret_cast<MenuGlobals*>(*handle);
}

void ResetMenuGlobals() {
    DisposeAndClearFHandle(&sMenuGlobalsHandle);
    gHaveInitedGlobals = 0;
}

// Whether a text of the menu bar, 256 bytes, and a script's text are the same.
static bool matches(char* menuText, const char* text) {
    char cut[kMenuTextSize];
    copyInto(cut, text);
    menuText[kMenuTextSize - 1] = 0;
    return MenuStrMatches(menuText, cut);
}

bool GetMyMenuItemInfoHelper(const char* menuTitle, const char* itemName, MenuItemInfo* info) {
    platform::Menus& menus = platform::machine().menus();
    char text[256];
    for (std::int16_t menu = kFirstMenu; menu <= kLastMenu; ++menu) {
        if (!menus.hasMenu(menu)) {
            continue;
        }
        my_getmenutitle(menu, text);
        if (!matches(text, menuTitle)) {
            continue;
        }
        if (itemName == nullptr || *itemName == 0) {
            *info = {menu, 0};
            return true;
        }
        const std::int16_t count = menus.itemCount(menu);
        for (std::int16_t item = 1; item <= count; ++item) {
            my_getmenuitemtext(menu, item, text);
            if (matches(text, itemName)) {
                *info = {menu, item};
                return true;
            }
        }
        return false;  // the first menu of that title is the one that counts
    }
    return false;
}

bool GetMyMenuItemInfoFromCurrentMenuBar(const char* menuTitle, const char* itemName, MenuItemInfo* info) {
    return GetMyMenuItemInfoHelper(menuTitle, itemName, info);
}

static bool findInScriptMenus(const char* itemName, MenuItemInfo* info) {
    return GetMyMenuItemInfoFromCurrentMenuBar("Scripts", itemName, info) ||
           GetMyMenuItemInfoFromCurrentMenuBar("Script", itemName, info);
}

// The item of the menu-handling script that was set.
static bool findHandlingItem(const MenuGlobals& globals, MenuItemInfo* info) {
    const char* const item = globals.handlingItemName;
    if (item[0] == 0) {
        return false;
    }
    const char* const menu = globals.handlingMenuTitle;
    return (menu[0] != 0 && GetMyMenuItemInfoFromCurrentMenuBar(menu, item, info)) || findInScriptMenus(item, info);
}

static bool findItem(bool starOnly, MenuItemInfo* info, char* itemNameOut) {
    const MenuGlobals* globals = GetMenuGlobals();
    const char* name = "";
    if (!starOnly && globals != nullptr && findHandlingItem(*globals, info)) {
        name = globals->handlingItemName;
    } else if (!starOnly &&
               (GetMyMenuItemInfoFromCurrentMenuBar("HBT", kMagicItem, info) || findInScriptMenus(kMagicItem, info))) {
        name = kMagicItem;
    } else if (findInScriptMenus(kStarItem, info)) {
        name = kStarItem;
    }
    my_strncpy(itemNameOut, name, kMenuTextSize);
    return *name != 0;
}

bool GetMagicMenuItem(MenuItemInfo* info, char* itemNameOut) {
    return findItem(false, info, itemNameOut);
}

bool GetMacMagicMenuItemCharCodeAndVirtualKeyCharAndItemName(char* charCode, char* virtualKey, char* itemName) {
    static constexpr char kVirtualKeys[] = {29, 18, 19, 20, 21, 23, 22, 26, 28, 25};  // of the digits 0 to 9
    *charCode = 0;
    *virtualKey = 0;
    MenuItemInfo info;
    if (!GetMagicMenuItem(&info, itemName)) {
        return false;
    }
    const char key = platform::machine().menus().itemCommandKey(info.menuID, info.item);
    if (key >= '0' && key <= '9') {
        *charCode = key;
        *virtualKey = kVirtualKeys[key - '0'];
    }
    return true;
}

bool HitMenuIfItExistsHelper(bool starOnly, const char* text, bool* hit, bool* queued) {
    MenuItemInfo info;
    char itemName[kMenuTextSize];
    const bool found = findItem(starOnly, &info, itemName);
    MenuGlobals* globals = GetMenuGlobals();
    *hit = found && globals != nullptr;
    *queued = *hit;
    if (*hit) {
        copyInto(globals->interceptedString, text);
        AddScriptToDoScriptQueue(itemName);
    }
    return *hit;
}

bool HitMagicMenuIfItExists(const char* text, bool* hit, bool* queued) {
    return HitMenuIfItExistsHelper(false, text, hit, queued);
}

bool HitStarStarStarScriptIfItExists(const char* text, bool* hit, bool* queued) {
    return HitMenuIfItExistsHelper(true, text, hit, queued);
}

}  // namespace quil
