#include "menu/menu.h"

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "frame/modules.h"
#include "menu/menu_items.h"
#include "messaging/script_queue.h"
#include "platform/machine.h"
#include "util/alerts.h"
#include "util/fhandle.h"
#include "util/paths.h"
#include "util/result.h"
#include "util/running_flag.h"
#include "util/text.h"

namespace quil {

// State of this file.
char gLookingForDblClickMsg[256];            // message to deliver at the next double click
char gFoundDblClickMsg[64];                  // message of the double click that was seen
std::uint32_t gFoundDblClickMsgTime = 0;     // when it was seen
std::uint32_t gLookingForDblClickTime = 0;   // when a field was last watched
static char sLookingForDblClickKey[64];      // the key it was watched with; kept for the record
MouseDown gMostRecentMouseDown;              // the latest click
MouseDown g2ndMostRecentMouseDown;           // the click before it
std::int16_t gStarStarStarIdleCount = 0;     // idle passes in a row with a wrong front window
std::uint8_t gDisableMouseWheel = 0;         // whether scripts disabled the mouse wheel
std::uint8_t gUserIsQuiting = 0;             // the host is quitting
static std::uint8_t sInMenuPlugin_Idle = 0;  // the idle hook is running

static constexpr std::uint32_t kFoundMessageTicks = 180;  // how long a found message, or a click, is good
static constexpr int kNearby = 14;                        // pixels between the clicks of a double click

void ResetMenu() {
    ResetMenuGlobals();
    gLookingForDblClickMsg[0] = 0;
    gFoundDblClickMsg[0] = 0;
    gFoundDblClickMsgTime = 0;
    gLookingForDblClickTime = 0;
    sLookingForDblClickKey[0] = 0;
    gMostRecentMouseDown = {};
    g2ndMostRecentMouseDown = {};
    gStarStarStarIdleCount = 0;
    gDisableMouseWheel = 0;
    gUserIsQuiting = 0;
    sInMenuPlugin_Idle = 0;
}

// The menu globals; when they cannot be made, the user is told.
static MenuGlobals* menuGlobalsOrAlert() {
    MenuGlobals* globals = GetMenuGlobals();
    if (globals == nullptr) {
        ReportErrorMsgToUser("GetMyGlobalsHandleNotInPatch returned nil");
    }
    return globals;
}

std::int32_t MENU_Version(long funcNum, char** /*paramHandle*/, char** resultHandle) {
    return Answer(funcNum, resultHandle, "MENU plugin ver 8.0");
}

std::int32_t MENU_ResetMenuItems(long /*funcNum*/, char** /*paramHandle*/, char** /*resultHandle*/) {
    menuGlobalsOrAlert();
    return 0;
}

// Answers a text and forgets it.
static std::int32_t answerAndClear(long funcNum, char** resultHandle, char* text) {
    const std::int32_t error = Answer(funcNum, resultHandle, text);
    text[0] = 0;
    return error;
}

std::int32_t MENU_GetInterceptedMenuItemString(long funcNum, char** /*paramHandle*/, char** resultHandle) {
    MenuGlobals* globals = menuGlobalsOrAlert();
    return globals == nullptr ? 0 : answerAndClear(funcNum, resultHandle, globals->interceptedString);
}

std::int32_t MENU_SetMenuHandlingScript(long /*funcNum*/, char** paramHandle, char** /*resultHandle*/) {
    MenuGlobals* globals = menuGlobalsOrAlert();
    if (globals == nullptr) {
        return 0;
    }
    char text[256];
    strcpyFHandleToCStr(text, sizeof text, paramHandle);
    char* const bar = std::strchr(text, '|');
    if (bar == nullptr) {
        ReportErrorMsgToUser("Vertical bar expected in MENU_SetMenuHandlingScript parameter");
        return 0;
    }
    *bar = 0;
    copyInto(globals->handlingMenuTitle, text);
    copyInto(globals->handlingItemName, bar + 1);
    return 0;
}

bool HaveDoubleClickString() {
    return gFoundDblClickMsg[0] != 0;
}

void AssumeMouseDown(std::uint32_t now) {
    g2ndMostRecentMouseDown = gMostRecentMouseDown;
    gMostRecentMouseDown = {now, platform::machine().input().mouse()};
}

void TransferUsersDoubleClickString() {
    copyInto(gFoundDblClickMsg, gLookingForDblClickMsg);
    gLookingForDblClickMsg[0] = 0;
    gFoundDblClickMsgTime = platform::machine().input().ticks();
}

static void forgetFoundMessage() {
    gFoundDblClickMsg[0] = 0;
    gFoundDblClickMsgTime = 0;
}

// Whether `later` is not before `earlier` and at most `limit` ticks after it.
static bool within(std::uint32_t later, std::uint32_t earlier, std::uint64_t limit) {
    return later >= earlier && later - earlier <= limit;
}

// Whether the two latest clicks are near enough to each other in time and place.
static bool isDoubleClick(std::uint32_t now, std::uint32_t interval) {
    const MouseDown& first = g2ndMostRecentMouseDown;
    const MouseDown& second = gMostRecentMouseDown;
    const std::uint64_t limit = std::uint64_t{interval} * 13 / 10;  // 1.3 times the platform's, for slow scripts
    return first.ticks != 0 && within(second.ticks, first.ticks, limit) &&
           within(now, second.ticks, kFoundMessageTicks) && std::abs(first.where.v - second.where.v) <= kNearby &&
           std::abs(first.where.h - second.where.h) <= kNearby;
}

std::int32_t MENU_WatchForDoubleClick(long /*funcNum*/, char** paramHandle, char** /*resultHandle*/) {
    platform::Input& input = platform::machine().input();
    const std::uint32_t now = input.ticks();
    const std::uint32_t interval = input.doubleClickTicks();
    char text[1024];
    strcpyFHandleToCStr(text, sizeof text, paramHandle);
    bool hasMessage = false;
    bool sameMessage = false;
    if (char* const bar = std::strchr(text, '|')) {
        *bar = 0;
        char message[sizeof gLookingForDblClickMsg];
        copyInto(message, bar + 1);
        hasMessage = message[0] != 0;
        sameMessage = std::strcmp(message, gLookingForDblClickMsg) == 0;
        copyInto(gLookingForDblClickMsg, message);
    }
    char key[sizeof sLookingForDblClickKey];
    copyInto(key, text);
    if (std::strcmp(key, gFoundDblClickMsg) != 0 || !within(now, gFoundDblClickMsgTime, kFoundMessageTicks)) {
        forgetFoundMessage();
    }
    copyInto(sLookingForDblClickKey, key);
    gLookingForDblClickTime = now;
    AssumeMouseDown(now);
    if (isDoubleClick(now, interval) && sameMessage && hasMessage) {
        gMostRecentMouseDown.ticks = 0;
        g2ndMostRecentMouseDown.ticks = 0;
        TransferUsersDoubleClickString();
        MenuItemInfo info;
        char script[kMenuTextSize];
        AddScriptToDoScriptQueue(GetMagicMenuItem(&info, script) ? script : "***");
    }
    return 0;
}

std::int32_t MENU_GetDoubleClickString(long funcNum, char** /*paramHandle*/, char** resultHandle) {
    const std::int32_t error = Answer(funcNum, resultHandle, gFoundDblClickMsg);
    forgetFoundMessage();
    return error;
}

std::int32_t MENU_SetWindowTitleOfWindowRequestingModalDialogEnforcement(long /*funcNum*/, char** paramHandle,
                                                                         char** /*resultHandle*/) {
    if (MenuGlobals* globals = menuGlobalsOrAlert()) {
        strcpyFHandleToCStr(globals->enforcedWindowTitle, sizeof globals->enforcedWindowTitle, paramHandle);
        gStarStarStarIdleCount = 0;
    }
    return 0;
}

std::int32_t MENU_DisableMouseWheel(long /*funcNum*/, char** paramHandle, char** /*resultHandle*/) {
    char text[256];
    strcpyFHandleToCStr(text, sizeof text, paramHandle);
    gDisableMouseWheel = StringToBoolean(text) || std::strcmp(text, "1") == 0 ? 1 : 0;
    return 0;
}

static std::string_view withoutExtension(std::string_view title) {
    const std::size_t dot = title.rfind('.');
    return dot != std::string_view::npos && title.size() - dot <= 4 ? title.substr(0, dot) : title;
}

bool MatchingFileWindowTitles(const char* a, const char* b) {
    return withoutExtension(a) == withoutExtension(b);
}

platform::Status my_deleteFileWithPath(const char* classicPath) {
    FSSpec spec;
    const OSErr error = GetFSSpecFromFullPath(classicPath, &spec);
    return error == platform::noErr ? platform::machine().files().remove(spec) : error;
}

// Watches that the window which wants to stay in front does so.
static void watchWindows(MenuGlobals& globals) {
    char title[255];
    GetFrontFileMakerFileWindowTitle(title, sizeof title);
    if (globals.enforcedWindowTitle[0] == 0 || MatchingFileWindowTitles(title, globals.enforcedWindowTitle)) {
        gStarStarStarIdleCount = 0;
        return;
    }
    ++gStarStarStarIdleCount;
    if (gStarStarStarIdleCount >= 2) {  // the first wrong window may be one that is just changing
        bool hit = false;
        bool queued = false;
        HitStarStarStarScriptIfItExists("", &hit, &queued);
        globals.enforcedWindowTitle[0] = 0;
    }
}

void MENU_Plugin_Startup() {}
void MENU_Plugin_Shutdown() {}

void MENU_Plugin_Idle() {
    if (sInMenuPlugin_Idle != 0 || gHaveInitedGlobals == 0 || gUserIsQuiting != 0) {
        return;
    }
    const RunningFlag running(sInMenuPlugin_Idle);
    watchWindows(*GetMenuGlobals());
}

}  // namespace quil
