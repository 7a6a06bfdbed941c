#include "messaging/message_functions.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "messaging/friends.h"
#include "messaging/globals.h"
#include "messaging/message_parameters.h"
#include "messaging/script_queue.h"
#include "messaging/standard_messages.h"
#include "messaging/transport.h"
#include "messaging/transport_launch.h"
#include "platform/machine.h"
#include "util/alerts.h"
#include "util/fhandle.h"
#include "util/numbers.h"
#include "util/result.h"

namespace quil {

// State of this file.
std::uint32_t gLastSetParameterCallTicks;    // ticks of the last GLN1SetParameter
std::uint32_t gLastGetParameterCallTicks;    // of the last GLN1GetParameter
std::uint32_t gLastGetNextMessageCallTicks;  // of the last GLN1GetNextMessage

static constexpr std::int32_t kNoBar = -222;
static constexpr std::int32_t kNoFileMode = -3;
static constexpr std::int32_t kOutOfMemory = -108;
static constexpr std::int32_t kPositionTooLong = 1;
static constexpr std::size_t kLongestField = 64;  // of an LST2 line, with its terminator

void ResetMessageFunctions() {
    gLastSetParameterCallTicks = 0;
    gLastGetParameterCallTicks = 0;
    gLastGetNextMessageCallTicks = 0;
}

static std::int32_t reported(long funcNum, std::int32_t status) {
    if (status != 0) {
        ReportErrorToUser(funcNum, static_cast<short>(status));
    }
    return status;
}

static std::uint32_t now() {
    return platform::machine().input().ticks();
}

std::int32_t SetDocVersPathOutgoingMessageParameters(short selector) {
    char text[256];
    GetGlobalInListAsStr("VERS", text, sizeof text);
    std::int32_t status = SetOutgoingMessageParameterFromStr("VERS", text[0] == 0 ? "2" : text, selector);
    if (status == 0) {
        GetGlobalInListAsStr("App Path", text, sizeof text);
        status = SetOutgoingMessageParameterFromStr("PATH", text, selector);
    }
    if (status == 0) {
        GetGlobalInListAsStr("App DOC", text, sizeof text);
        status = text[0] == 0 ? 0 : SetOutgoingMessageParameterFromStr("DOC ", text, selector);
    }
    return status;
}

std::int32_t GLN1SetSIGNPSIG(long funcNum, char** paramHandle, char** /*resultHandle*/) {
    const std::string_view parameter = FHandleText(paramHandle);
    const std::size_t bar = std::min(parameter.find('|'), parameter.size());
    if (bar == 0) {
        return 0;
    }
    char sign[5];
    char psig[5];
    my_strncpy(sign, parameter.substr(0, bar), sizeof sign);
    my_strncpy(psig, parameter.substr(std::min(bar + 1, parameter.size())), sizeof psig);
    OSTypeToString(StringToOSType(sign), sign);
    OSTypeToString(StringToOSType(psig), psig);
    std::int32_t status = 0;
    if (AllowUserToChangeGlobal("App Signature")) {  // never: the signature stays the host's
        status = SetGlobalFromStr("App Signature", 1, sign);
    }
    return reported(funcNum, status != 0 ? status : SetGlobalFromStr("App PSIG", 1, psig));
}

std::int32_t GLN1InitIAC(long funcNum, char** /*paramHandle*/, char** /*resultHandle*/) {
    const std::int32_t status = InitIac();
    if (status == 0) {
        SayHolaToAllFriends();
    }
    return reported(funcNum, status);
}

std::int32_t GLN1CloseIAC(long /*funcNum*/, char** /*paramHandle*/, char** /*resultHandle*/) {
    return 0;  // messaging ends with the plug-in
}

std::int32_t GLN1ClearOutgoingMessage(long /*funcNum*/, char** /*paramHandle*/, char** /*resultHandle*/) {
    DisposeOutgoingMessageParameterList(kUserList);
    return 0;
}

std::int32_t GLN1SetParameter(long funcNum, char** paramHandle, char** /*resultHandle*/) {
    gLastSetParameterCallTicks = now();
    const std::string_view parameter = FHandleText(paramHandle);
    const std::size_t bar = parameter.find('|');
    if (bar == std::string_view::npos) {
        return reported(funcNum, kNoBar);
    }
    if (const std::int32_t status = EnsureHandleIsNullTerminated(paramHandle); status != 0) {
        return reported(funcNum, status);
    }
    char keyword[kNameSize];
    my_strncpy(keyword, std::string_view(*paramHandle, bar), sizeof keyword);
    return reported(funcNum, SetOutgoingMessageParameterFromStr(keyword, *paramHandle + bar + 1, kUserList));
}

std::int32_t GLN1AppendToParameter(long funcNum, char** paramHandle, char** /*resultHandle*/) {
    char keyword[kNameSize];
    unsigned char noDupes = 0;
    std::int32_t status = GetAndStripNameAndDupes(paramHandle, keyword, &noDupes);
    if (status == 0) {
        status = AppendToOutgoingMessageParameterInList(keyword, noDupes != 0, paramHandle, kUserList);
    }
    return reported(funcNum, status);
}

std::int32_t GLN1SendMessageTo(long funcNum, char** paramHandle, char** resultHandle) {
    char code[6];
    strcpyFHandleToCStr(code, sizeof code, paramHandle);
    const OSType receiver = ConnvertIfPSIG(StringToOSType(code));
    bool launched = false;
    const std::int32_t status = MakeSureAppIsRunning(receiver, &launched);
    if (status == kCannotLaunch) {
        return Answer(funcNum, resultHandle, "AskUserToLaunch");
    }
    if (status == 0 && launched) {
        static_cast<void>(GreetFriendAndSendMenus(receiver, "HOLA", true));
    }
    return reported(funcNum, SendMessageToApp(receiver, kUserList));
}

std::int32_t GLN1ClearIncomingMessage(long /*funcNum*/, char** /*paramHandle*/, char** /*resultHandle*/) {
    DisposeIncomingMessageParameterList();
    return 0;
}

std::int32_t GLN1GetNextMessage(long funcNum, char** /*paramHandle*/, char** resultHandle) {
    DisposeIncomingMessageParameterList();
    gLastGetNextMessageCallTicks = now();
    auto& slots = gArchivedIncomingMessageParameterDataNodeList;
    gIncomingMessageParameterDataNodeList = std::exchange(slots[0], nullptr);
    std::rotate(std::begin(slots), std::begin(slots) + 1, std::end(slots));
    return reported(funcNum, GetIncomingMessageParameterInListAsResultHandle("MSSG", resultHandle));
}

std::int32_t GLN1GetParameter(long funcNum, char** paramHandle, char** resultHandle) {
    gLastGetParameterCallTicks = now();
    char keyword[256];
    strcpyFHandleToCStr(keyword, sizeof keyword, paramHandle);
    return reported(funcNum, GetIncomingMessageParameterInListAsResultHandle(keyword, resultHandle));
}

std::int32_t GLN1GetParameterLatLong(long funcNum, char** /*paramHandle*/, char** resultHandle) {
    char text[2 * 64];
    if (GetIncomingMessageParameterInListAsStr("LAT ", text, 64) != 0) {
        return reported(funcNum, kPositionTooLong);
    }
    const std::size_t length = std::strlen(text);
    text[length] = ' ';
    if (GetIncomingMessageParameterInListAsStr("LONG", text + length + 1, 64) != 0) {
        return reported(funcNum, kPositionTooLong);
    }
    return Answer(funcNum, resultHandle, text);
}

// Takes the output words: at most ten set the output codes. Whether "FILE" was among them.
static bool setOutputCodes(char** paramHandle) {
    static constexpr std::pair<std::int16_t, const char*> kWords[] = {
        {1, "GEOLENSID"}, {2, "LAYERNAME"}, {3, "MAPNAME"}, {4, "SPACE"}, {5, "TAB"}, {6, "RETURN"}};
    CodeWord* next = gCodeWords;
    for (const auto& word : kWords) {
        *next++ = {word.first, word.second};
    }
    *next = {0, nullptr};
    ClearOutputCodes();

    char words[256];
    strcpyFHandleToCStr(words, sizeof words, paramHandle);
    StrToUpper(words);
    bool toFile = false;
    const char* word = words + std::strspn(words, " \t");
    for (std::size_t index = 0; index < kOutputCodes && *word != 0; ++index) {
        char text[sizeof words];
        const std::size_t length = std::strcspn(word, " \t");
        my_strncpy(text, std::string_view(word, length), sizeof text);
        if (std::strcmp(text, "FILE") == 0) {
            toFile = true;  // its code stays 0 and ends every line here
        } else {
            SetOutputCode(index, StrToCode(text));
        }
        word += length;
        word += std::strspn(word, " \t");
    }
    return toFile;
}

// The first three fields of an LST2 line, separated by tabs. Whether they are all there and of the right size.
static bool takeFields(std::string_view line, char (&fields)[3][kLongestField]) {
    for (std::size_t i = 0; i < 3; ++i) {
        const std::size_t tab = line.find('\t');
        const std::string_view field = line.substr(0, tab);
        if (i == 0 ? field.size() != 16 : field.size() >= kLongestField) {
            return false;
        }
        if (i < 2 && tab == std::string_view::npos) {
            return false;
        }
        my_strncpy(fields[i], field, kLongestField);
        line.remove_prefix(std::min(field.size() + 1, line.size()));
    }
    return true;
}

// Takes the next line off a text; lines end at CR, LF or CR LF.
static std::string_view takeLine(std::string_view& text) {
    const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end);
    if (!text.empty()) {
        text.remove_prefix(text.starts_with("\r\n") ? 2 : 1);
    }
    return line;
}

std::int32_t GLN1GetParameterLST2(long funcNum, char** paramHandle, char** resultHandle) {
    const bool toFile = setOutputCodes(paramHandle);
    if (const std::int32_t status = Answer(funcNum, resultHandle, ""); status != 0) {
        return status;
    }
    std::string_view list = FHandleText(GetTheIncomingMessageParameterDataHandleFromList_NotACopy("LST2"));
    try {
        std::string answer;
        while (!list.empty()) {
            char fields[3][kLongestField];
            if (!takeFields(takeLine(list), fields)) {
                continue;
            }
            if (toFile) {
                return reported(funcNum, kNoFileMode);
            }
            char line[kOutputCodes * kLongestField + 1];
            StrcpyOutputLine(line, fields[0], fields[1], fields[2]);
            answer += line;
        }
        return toFile ? 0 : Answer(funcNum, resultHandle, answer);
    } catch (const std::bad_alloc&) {
        return reported(funcNum, kOutOfMemory);
    }
}

std::int32_t GLN1GetParameterLST2Line(long funcNum, char** paramHandle, char** resultHandle) {
    char** const list = GetTheIncomingMessageParameterDataHandleFromList_NotACopy("LST2");
    if (list == nullptr) {
        return 0;
    }
    char digits[256];
    strcpyFHandleToCStr(digits, sizeof digits, paramHandle);
    const std::int32_t number = DecimalPrefix(digits);
    char line[1024] = "";
    if (number >= 0) {
        if (const std::int32_t status = EnsureHandleIsNullTerminated(list); status != 0) {
            return reported(funcNum, status);
        }
        NthLineInTextNonOptimized(*list, number, line, sizeof line);
    }
    return Answer(funcNum, resultHandle, line);
}

}  // namespace quil
