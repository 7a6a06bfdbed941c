#include "messaging/friend_functions.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "files/base_directory.h"
#include "messaging/friends.h"
#include "messaging/globals.h"
#include "messaging/standard_messages.h"
#include "messaging/transport_launch.h"
#include "util/alerts.h"
#include "util/fhandle.h"
#include "util/result.h"

namespace quil {

static constexpr std::int32_t kMapFoldersInUse = -3;
static constexpr std::size_t kPathSize = 256;

static std::int32_t reported(long funcNum, std::int32_t status) {
    if (status != 0) {
        ReportErrorToUser(funcNum, static_cast<short>(status));
    }
    return status;
}

// Takes the text up to the next of `separators` off the front of `rest`, and the separator with it.
static std::string_view takeField(std::string_view& rest, const char* separators = "|") {
    const std::size_t end = rest.find_first_of(separators);
    const std::string_view field = rest.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    return field;
}

static OSType codeOf(std::string_view text) {
    char code[5];
    my_strncpy(code, text, sizeof code);
    return StringToOSType(code);
}

std::int32_t GLN1SetKnownFriend(long /*funcNum*/, char** paramHandle, char** /*resultHandle*/) {
    std::string_view rest = FHandleText(paramHandle);
    const std::string_view signature = takeField(rest);
    if (!signature.empty()) {
        char path[kPathSize];
        my_strncpy(path, rest, sizeof path);
        AddFriend(codeOf(signature), codeOf(signature), path, "", GuessCanUseUtf8IacFromPath(path));
    }
    return 0;
}

std::int32_t GLN1SetHandledMessages(long /*funcNum*/, char** paramHandle, char** /*resultHandle*/) {
    std::string_view rest = FHandleText(paramHandle).substr(0, 511);
    OSType* next = std::begin(sHandledMessage);
    while (!rest.empty() && next != std::end(sHandledMessage)) {
        if (const std::string_view name = takeField(rest); !name.empty()) {
            *next++ = codeOf(name);
        }
    }
    std::fill(next, std::end(sHandledMessage), OSType{0});
    return 0;
}

std::int32_t GLN1SetMessageHandlingScriptTo(long funcNum, char** paramHandle, char** /*resultHandle*/) {
    char script[256];
    strcpyFHandleToCStr(script, sizeof script, paramHandle);
    return script[0] == 0 ? 0 : reported(funcNum, SetGlobalFromStr("Handle Message Script", 1, script));
}

static std::int32_t setMenu(SharingMenu& menu, char** paramHandle) {
    std::string_view rest = FHandleText(paramHandle);
    const std::string_view name = takeField(rest);
    if (!name.empty() && !rest.empty()) {
        my_strncpy(menu.name, name, sizeof menu.name);
        my_strncpy(menu.items, rest, sizeof menu.items);
    }
    return 0;
}

std::int32_t GLN1SetGeolensSharingMenu(long /*funcNum*/, char** paramHandle, char** /*resultHandle*/) {
    return setMenu(sGeolensMenuInfo, paramHandle);
}

std::int32_t GLN1SetSirocSharingMenu(long /*funcNum*/, char** paramHandle, char** /*resultHandle*/) {
    return setMenu(sSirocMenuInfo, paramHandle);
}

static std::int32_t setActions(SharingMenu& menu, char** paramHandle) {
    std::string_view rest = FHandleText(paramHandle);
    for (std::int16_t& action : menu.actions) {
        char word[16];  // longer than any word
        my_strncpy(word, takeField(rest), sizeof word);
        action = StringToStdAction(word);
    }
    return 0;
}

std::int32_t GLN1SetGeolensSharingMenuActions(long /*funcNum*/, char** paramHandle, char** /*resultHandle*/) {
    return setActions(sGeolensMenuInfo, paramHandle);
}

std::int32_t GLN1SetSirocSharingMenuActions(long /*funcNum*/, char** paramHandle, char** /*resultHandle*/) {
    return setActions(sSirocMenuInfo, paramHandle);
}

template <std::size_t N>
static std::int32_t setText(char (&text)[N], char** paramHandle) {
    my_strncpy(text, FHandleText(paramHandle), N);
    return 0;
}

std::int32_t GLN1SetGeolensNoneSelectedGetInfoAlert(long /*funcNum*/, char** paramHandle, char** /*resultHandle*/) {
    return setText(sGeolensZeroYRODGetInfoMessage, paramHandle);
}

std::int32_t GLN1SetGeolensNoneSelectedUnlinkAlert(long /*funcNum*/, char** paramHandle, char** /*resultHandle*/) {
    return setText(sGeolensZeroYRODUnlinkMessage, paramHandle);
}

std::int32_t GLN1SetGeolensNoneSelectedLinkAlert(long /*funcNum*/, char** paramHandle, char** /*resultHandle*/) {
    return setText(sGeolensZeroYRODLinkMessage, paramHandle);
}

std::int32_t GLN1SetGeolensMoreThanOneSelectedLinkAlert(long /*funcNum*/, char** paramHandle, char** /*resultHandle*/) {
    return setText(sGeolensMoreThanOneYRODLinkMessage, paramHandle);
}

std::int32_t GLN1SetSirocNoneSelectedGetInfoAlert(long /*funcNum*/, char** paramHandle, char** /*resultHandle*/) {
    return setText(sSirocNoChemicalSelectedMessage, paramHandle);
}

std::int32_t GLN1SetGeolensMapInfo(long funcNum, char** paramHandle, char** /*resultHandle*/) {
    static constexpr char kUsualOptions[] = "NODEFAULT DELETEYES MOVEMAPYES MOVELAYERYES DRAGYES ADDYES";
    std::string_view rest = FHandleText(paramHandle).substr(0, 1023);
    char folder[kPathSize];
    char options[256];
    char base[kPathSize];
    my_strncpy(folder, takeField(rest), sizeof folder);
    my_strncpy(options, takeField(rest), sizeof options);
    my_strncpy(base, rest, sizeof base);

    char resolved[kPathSize] = "";
    if (folder[0] != 0) {
        if (const std::int32_t status = ResolvePossiblePartialPath(folder, base, true, resolved); status != 0) {
            return status;  // the user was told
        }
    }
    if (options[0] == 0) {
        copyInto(options, kUsualOptions);
    }
    const auto find = [](const char* path) {
        return std::find_if(std::begin(sGeolensMapInfo), std::end(sGeolensMapInfo),
                            [path](const MapFolder& map) { return std::strcmp(map.folder, path) == 0; });
    };
    MapFolder* record = find(resolved);
    if (record == std::end(sGeolensMapInfo)) {
        record = find("");
    }
    if (record == std::end(sGeolensMapInfo)) {
        return reported(funcNum, kMapFoldersInUse);
    }
    copyInto(record->folder, resolved);
    copyInto(record->options, options);
    return 0;
}

std::int32_t GLN1SetGeolensFirstView(long /*funcNum*/, char** paramHandle, char** /*resultHandle*/) {
    static constexpr std::size_t kNumbers = 4;
    std::string_view rest = FHandleText(paramHandle);
    std::string_view numbers[kNumbers];
    std::size_t count = 0;
    while (count < kNumbers && !rest.empty()) {
        if (const std::string_view number = takeField(rest, "|, \t"); !number.empty()) {
            numbers[count++] = number;
        }
    }
    if (count == kNumbers) {
        // The order is deliberate: the view's corners as the scripts give them.
        my_strncpy(sGeolensFirstViewLLNG, numbers[0], sizeof sGeolensFirstViewLLNG);
        my_strncpy(sGeolensFirstViewHLAT, numbers[1], sizeof sGeolensFirstViewHLAT);
        my_strncpy(sGeolensFirstViewHLNG, numbers[2], sizeof sGeolensFirstViewHLNG);
        my_strncpy(sGeolensFirstViewLLAT, numbers[3], sizeof sGeolensFirstViewLLAT);
    }
    return 0;
}

std::int32_t GLN1GeolensCanAutoplot(long funcNum, char** paramHandle, char** resultHandle) {
    char path[kPathSize];
    GetFriendsPath(kGeolens, path);
    if (path[0] == 0) {
        my_strncpy(path, FHandleText(paramHandle), sizeof path);
    }
    const bool canNot = FriendCanUseUtf8Iac(kGeolens) != 1 && LooksLikeOldGeolens(path);
    return Answer(funcNum, resultHandle, canNot ? "False" : "True");
}

std::int32_t GLN1BringMeForward(long funcNum, char** paramHandle, char** /*resultHandle*/) {
    std::string_view rest = FHandleText(paramHandle);
    const std::string_view signature = takeField(rest);
    return reported(funcNum, BringMeForward(signature.empty() ? kGeolens : codeOf(signature)));
}

std::int32_t GLN1GoToApp(long funcNum, char** paramHandle, char** resultHandle) {
    std::string_view rest = FHandleText(paramHandle);
    const OSType signature = ConnvertIfPSIG(codeOf(takeField(rest)));
    const bool ranBefore = AppIsRunning(signature);
    bool launched = false;
    const std::int32_t status = BringApplicationForward(signature, &launched);
    if (status == kCannotLaunch) {
        return Answer(funcNum, resultHandle, "AskUserToLaunch");
    }
    if (status != 0) {
        return reported(funcNum, status);
    }
    if (signature == kGeolens && !ranBefore && AppIsRunning(signature)) {
        static_cast<void>(GreetFriendAndSendMenus(signature, "HOLA", false));
    }
    char path[kPathSize];
    GetFriendsPath(signature, path);
    return Answer(funcNum, resultHandle, path[0] == 0 ? "unknown path" : path);
}

std::int32_t GLN1IsAppRunning(long funcNum, char** paramHandle, char** resultHandle) {
    const bool running = AppIsRunning(ConnvertIfPSIG(codeOf(FHandleText(paramHandle))));
    return Answer(funcNum, resultHandle, running ? "TRUE" : "FALSE");
}

std::int32_t GLN1SayGoodbyeToAllFriends(long /*funcNum*/, char** /*paramHandle*/, char** /*resultHandle*/) {
    SayGoodbyeToAllFriends();
    return 0;
}

}  // namespace quil
