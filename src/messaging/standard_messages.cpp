#include "messaging/standard_messages.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "menu/menu_items.h"
#include "messaging/friends.h"
#include "messaging/globals.h"
#include "messaging/message_functions.h"
#include "messaging/message_parameters.h"
#include "platform/machine.h"
#include "util/fhandle.h"
#include "util/numbers.h"
#include "util/paths.h"

namespace quil {

// State of this file.
OSType sHandledMessage[kHandledMessages];      // message names
SharingMenu sGeolensMenuInfo;                  // shown by the mapping application
SharingMenu sSirocMenuInfo;                    // shown by the dispersion-model application
MapFolder sGeolensMapInfo[kMapFolders];        // for the mapping application
char sGeolensFirstViewLLAT[32];                // the view that it shows first: lowest latitude
char sGeolensFirstViewLLNG[32];                // lowest longitude
char sGeolensFirstViewHLAT[32];                // highest latitude
char sGeolensFirstViewHLNG[32];                // highest longitude
char sGeolensZeroYRODGetInfoMessage[256];      // get info, nothing selected
char sGeolensZeroYRODUnlinkMessage[256];       // unlink, nothing selected
char sGeolensZeroYRODLinkMessage[256];         // link, nothing selected
char sGeolensMoreThanOneYRODLinkMessage[256];  // link, several objects selected
char sSirocNoChemicalSelectedMessage[256];     // kept, shown by nothing

static constexpr std::int32_t kPartnerNotRunning = -234;
static constexpr std::int32_t kNoSuchMessage = 1;

void ResetStandardMessages() {
    std::fill(std::begin(sHandledMessage), std::end(sHandledMessage), OSType{0});
    sGeolensMenuInfo = {};
    sSirocMenuInfo = {};
    std::fill(std::begin(sGeolensMapInfo), std::end(sGeolensMapInfo), MapFolder{});
    for (char* text : {sGeolensFirstViewLLAT, sGeolensFirstViewLLNG, sGeolensFirstViewHLAT, sGeolensFirstViewHLNG,
                       sGeolensZeroYRODGetInfoMessage, sGeolensZeroYRODUnlinkMessage, sGeolensZeroYRODLinkMessage,
                       sGeolensMoreThanOneYRODLinkMessage, sSirocNoChemicalSelectedMessage}) {
        text[0] = 0;
    }
}

std::int16_t StringToStdAction(const char* word) {
    static constexpr std::array<const char*, 6> kWords = {"GETINFO",     "GOTOME", "GETINFOFILE",
                                                          "GETRIDSINFO", "LINK",   "UNLINK"};
    const auto found =
        std::find_if(kWords.begin(), kWords.end(), [word](const char* one) { return std::strcmp(one, word) == 0; });
    return found == kWords.end() ? std::int16_t{0} : static_cast<std::int16_t>(found - kWords.begin() + 1);
}

static void clearList() {
    DisposeOutgoingMessageParameterList(kStdBehaviorList);
}

static std::int32_t setParameters(std::initializer_list<StdParameter> parameters) {
    for (const StdParameter& one : parameters) {
        if (const std::int32_t status = SetOutgoingMessageParameterFromStr(one.name, one.text, kStdBehaviorList);
            status != 0) {
            return status;
        }
    }
    return 0;
}

std::int32_t SendStdMessage(OSType receiver, std::initializer_list<StdParameter> parameters) {
    const std::int32_t status = setParameters(parameters);
    return status != 0 ? status : SendMessageToApp(receiver, kStdBehaviorList);
}

std::int32_t SendStdGreetingTo(OSType signature, const char* name) {
    clearList();
    char application[256];
    static_cast<void>(GetGlobalInListAsStr("App Name", application, sizeof application));
    std::int32_t status = setParameters({{"MSSG", name}, {"NAME", application}});
    if (status == 0) {
        status = SetDocVersPathOutgoingMessageParameters(kStdBehaviorList);
    }
    if (status == 0) {
        status = SendMessageToApp(signature, kStdBehaviorList);
    }
    if (status != 0) {
        clearList();
    }
    return status;
}

static std::int32_t sendMenu(OSType receiver, const SharingMenu& menu) {
    clearList();
    const std::int32_t status = SetDocVersPathOutgoingMessageParameters(kStdBehaviorList);
    return status != 0 ? status
                       : SendStdMessage(receiver, {{"NAME", menu.name}, {"ITMS", menu.items}, {"MSSG", "MENU"}});
}

std::int32_t SendMenuToSiroc() {
    if (sSirocMenuInfo.name[0] == 0) {
        return 0;
    }
    const std::int32_t status = sendMenu(kSiroc, sSirocMenuInfo);
    if (status != 0) {
        platform::machine().dialogs().beep();
    }
    return status;
}

static bool holdsAMap(const char* folder) {
    static constexpr char kMapName[] = "Name.map";
    char path[256];
    const std::size_t length = std::strlen(folder);
    if (length == 0 || length + sizeof kMapName > sizeof path) {
        return false;
    }
    copyInto(path, folder);
    my_strncpy(path + length, kMapName, sizeof path - length);
    return FileExists(path);
}

std::int32_t SendMenuAndMapsToGeolens() {
    std::int32_t status = sGeolensMenuInfo.name[0] == 0 ? 0 : sendMenu(kGeolens, sGeolensMenuInfo);
    for (const MapFolder& map : sGeolensMapInfo) {
        if (holdsAMap(map.folder)) {
            clearList();
            status = SendStdMessage(kGeolens, {{"MSSG", "MAP "}, {"PATH", map.folder}, {"OPTN", map.options}});
        }
    }
    return status;
}

std::int32_t SendFirstViewToGeolens() {
    if (sGeolensFirstViewLLAT[0] == 0 || sGeolensFirstViewLLNG[0] == 0 || sGeolensFirstViewHLAT[0] == 0 ||
        sGeolensFirstViewHLNG[0] == 0) {
        return 0;
    }
    clearList();
    return SendStdMessage(kGeolens, {{"MSSG", "VIEW"},
                                     {"LLAT", sGeolensFirstViewLLAT},
                                     {"LLNG", sGeolensFirstViewLLNG},
                                     {"HLAT", sGeolensFirstViewHLAT},
                                     {"HLNG", sGeolensFirstViewHLNG}});
}

std::int32_t GreetFriendAndSendMenus(OSType signature, const char* name, bool firstView) {
    std::int32_t status = SendStdGreetingTo(signature, name);
    if (status != 0) {
        return status;
    }
    if (signature == kGeolens) {
        if (firstView) {
            status = SendFirstViewToGeolens();
        }
        const std::int32_t menus = SendMenuAndMapsToGeolens();
        return status != 0 ? status : menus;
    }
    return signature == kSiroc ? SendMenuToSiroc() : 0;
}

std::int32_t SendStdMYODToGeolens(std::int16_t action) {
    clearList();
    if (!AppIsRunning(kGeolens)) {
        return kPartnerNotRunning;
    }
    const char* what = nullptr;
    switch (action) {
        case kGetInfo:
            what = "GETINFO";
            break;
        case kGetInfoFile:
            what = "GETINFOFILE";
            break;
        case kLink:
            what = "LINK";
            break;
        case kUnlink:
            what = "UNLINK";
            break;
        default:
            return kNoSuchMessage;
    }
    const char* const options = action == kGetInfoFile ? "FILE SELECTED" : "SELECTED";
    return SendStdMessage(kGeolens, {{"XTRA", what}, {"OPTN", options}, {"MSSG", "MYOD"}});
}

std::int32_t SendStdCHMQToSIROC() {
    clearList();
    return AppIsRunning(kSiroc) ? SendStdMessage(kSiroc, {{"MSSG", "CHM?"}}) : kPartnerNotRunning;
}

std::int32_t SendStopAlertToGeolens(const char* text) {
    clearList();
    return AppIsRunning(kGeolens) ? SendStdMessage(kGeolens, {{"TEXT", text}, {"ICON", "0"}, {"MSSG", "ALRT"}})
                                  : kPartnerNotRunning;
}

std::int32_t SayGoodbye(OSType signature) {
    return AppIsRunning(signature) ? SendStdMessage(signature, {{"MSSG", "BYE "}}) : 0;
}

static std::int32_t numberOf(const char* name, DataNode* parameters) {
    char text[32];
    GetDataFromListAsStr(name, text, sizeof text, parameters);
    return DecimalPrefix(text);
}

// A chosen item of a sharing menu.
static std::int32_t handleMenuHit(OSType sender, std::int32_t item, bool* consumed) {
    if (item < 1 || item > static_cast<std::int32_t>(kMenuActions) || (sender != kGeolens && sender != kSiroc)) {
        return 0;
    }
    const SharingMenu& menu = sender == kGeolens ? sGeolensMenuInfo : sSirocMenuInfo;
    const std::int16_t action = menu.actions[item - 1];
    *consumed = true;
    if (action == kGoToMe) {
        static_cast<void>(BringMeForward(sender));  // the message is done with either way
        return 0;
    }
    if (sender == kSiroc && action == kGetRidsInfo) {
        return SendStdCHMQToSIROC();
    }
    if (sender == kGeolens && action != 0 && action != kGetRidsInfo) {
        return SendStdMYODToGeolens(action);
    }
    *consumed = false;
    return 0;
}

// The alert that the selected objects of the mapping application call for, or the empty text.
static const char* alertForSelection(std::int64_t count, const char* extra) {
    const bool link = std::strcmp(extra, "LINK") == 0;
    if (count > 1) {
        return link ? sGeolensMoreThanOneYRODLinkMessage : "";
    }
    if (count == 1) {
        return "";
    }
    if (std::strstr(extra, "GETINFO") != nullptr && sGeolensZeroYRODGetInfoMessage[0] != 0) {
        return sGeolensZeroYRODGetInfoMessage;
    }
    if (std::strcmp(extra, "UNLINK") == 0) {
        return sGeolensZeroYRODUnlinkMessage;
    }
    return link ? sGeolensZeroYRODLinkMessage : "";
}

// A greeting, which is answered when it is the first of the two.
static std::int32_t handleGreeting(OSType sender, OSType parent, DataNode* parameters, bool answer) {
    char path[256];
    char hwnd[32];
    char encoding[64];
    GetDataFromListAsStr("PATH", path, sizeof path, parameters);
    GetDataFromListAsStr("HWND", hwnd, sizeof hwnd, parameters);
    GetDataFromListAsStr("NCOD", encoding, sizeof encoding, parameters);
    AddFriend(sender, parent, path, hwnd, encoding[0] == 0 ? short{-1} : short{1});
    const std::int32_t status = answer ? GreetFriendAndSendMenus(sender, "OKHI", false) : 0;
    if (path[0] != 0) {
        bool hit = false;
        bool queued = false;
        HitStarStarStarScriptIfItExists("", &hit, &queued);
    }
    return status;
}

std::int32_t HandleKnownMessage(OSType message, DataNode* parameters, bool* consumed) {
    *consumed = false;
    const OSType sender = GetDataFromListAsOSType("SIGN", parameters);
    const OSType parent = GetDataFromListAsOSType("PSIG", parameters);
    switch (message) {
        case "MHIT"_4:
            return handleMenuHit(sender, numberOf("ITEM", parameters), consumed);
        case "YROD"_4: {
            if (sender != kGeolens) {
                return 0;
            }
            char extra[63];
            GetDataFromListAsStr("XTRA", extra, sizeof extra, parameters);
            const std::int64_t count = std::int64_t{numberOf("NUM ", parameters)} + numberOf("NUMU", parameters);
            const char* const alert = alertForSelection(count, extra);
            *consumed = alert[0] != 0;
            return *consumed ? SendStopAlertToGeolens(alert) : 0;
        }
        case "HOLA"_4:
        case "OKHI"_4:
            return handleGreeting(sender, parent, parameters, message == "HOLA"_4);
        case "RIDS"_4:
        case "CHM!"_4:
            static_cast<void>(BringMeForward(kSiroc));  // the message itself is the solution's
            return 0;
        default:
            return 0;
    }
}

bool HaveFilemakerScriptForMessage(OSType message) {
    return message != 0 &&
           std::find(std::begin(sHandledMessage), std::end(sHandledMessage), message) != std::end(sHandledMessage);
}

}  // namespace quil
