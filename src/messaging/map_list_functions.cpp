// Script functions about map lists, and small ones of the same group.
#include <algorithm>
#include <cstring>
#include <new>
#include <string>

#include "messaging/friends.h"
#include "messaging/globals.h"
#include "messaging/map_list.h"
#include "messaging/message_parameters.h"
#include "messaging/transport_launch.h"
#include "util/alerts.h"
#include "util/fhandle.h"
#include "util/result.h"

namespace quil {

static constexpr std::int32_t kOutOfMemory = -108;

static std::int32_t reported(long funcNum, std::int32_t status) {
    if (status != 0) {
        ReportErrorToUser(funcNum, static_cast<short>(status));
    }
    return status;
}

std::int32_t GLN1ShowOnMap(long funcNum, char** paramHandle, char** /*resultHandle*/) {
    std::int32_t status = SetOutgoingMessageParameterFromStr("MSSG", "SHOW", kUserList);
    if (status == 0) {
        char options[256];
        GetOutgoingMessageParameterInListAsStr("OPTN", options, sizeof options, kUserList);
        if (options[0] == 0) {
            GetGlobalInListAsStr("OPTN", options, sizeof options);
        }
        status =
            SetOutgoingMessageParameterFromStr("OPTN", options[0] == 0 ? "DRAW YESZOOM YESSELECT" : options, kUserList);
    }
    if (status == 0) {
        status = SetOutgoingMessageParameterInList("LST2", paramHandle, kUserList);
    }
    if (status == 0) {
        status = SendMessageToApp(kGeolens, kUserList);
    }
    return reported(funcNum, status);
}

std::int32_t GLN1GetAppPath(long funcNum, char** paramHandle, char** resultHandle) {
    char text[256];
    strcpyFHandleToCStr(text, sizeof text, paramHandle);
    const OSType signature = ConnvertIfPSIG(StringToOSType(text));
    GetFriendsPath(signature, text);
    if (text[0] == 0 && GetDefaultPath(signature, text) != 0) {
        text[0] = 0;
    }
    return Answer(funcNum, resultHandle, text);
}

std::int32_t GLN1ProcessLST2ParameterForGeolens(long funcNum, char** /*paramHandle*/, char** /*resultHandle*/) {
    char** const list = GetTheOutgoingMessageParameterDataHandleFromList_NotACopy("LST2", kUserList);
    if (list == nullptr) {
        return 0;
    }
    const std::int32_t status = EnsureHandleIsNullTerminated(list);
    return reported(funcNum, status != 0 ? status : CleanUpLST2(list));
}

std::int32_t GLN1CopyIncomingLST2ToOutgoingLST2(long funcNum, char** /*paramHandle*/, char** /*resultHandle*/) {
    char** const list = GetTheIncomingMessageParameterDataHandleFromList_NotACopy("LST2");
    std::int32_t status = list == nullptr ? 0 : EnsureHandleIsNullTerminated(list);
    if (status == 0) {
        status = SetOutgoingMessageParameterFromStr("LST2", list == nullptr ? "" : *list, kUserList);
    }
    return reported(funcNum, status);
}

std::int32_t GLN1RenameIncomingLSTAtoLST2(long /*funcNum*/, char** /*paramHandle*/, char** /*resultHandle*/) {
    return RenameDataInList(gIncomingMessageParameterDataNodeList, "LSTA", "LST2");
}

std::int32_t GLN1SetNoUserInterface(long /*funcNum*/, char** paramHandle, char** /*resultHandle*/) {
    char text[256];
    strcpyFHandleToCStr(text, sizeof text, paramHandle);
    StrToUpper(text);
    gNoUserInterface = std::strcmp(text, "FALSE") == 0 || std::strcmp(text, "0") == 0 ? 0 : 1;
    return 0;
}

std::int32_t GLN1SuppressExtendedAscii(long funcNum, char** paramHandle, char** resultHandle) {
    return paramHandle == nullptr ? 0 : Answer(funcNum, resultHandle, FHandleText(paramHandle));
}

std::int32_t GLN1FieldContentsToMerText(long funcNum, char** paramHandle, char** resultHandle) {
    const std::string_view text = FHandleText(paramHandle);
    if (text.empty()) {
        return 0;
    }
    try {
        std::string converted;
        const auto quotes = static_cast<std::size_t>(std::count(text.begin(), text.end(), '"'));
        converted.reserve(text.size() + quotes);
        for (const char c : text) {
            if (c == '"') {
                converted += '"';
            }
            converted += c == '\r' || c == '\n' ? '\v' : c;
        }
        return Answer(funcNum, resultHandle, converted);
    } catch (const std::bad_alloc&) {
        return reported(funcNum, kOutOfMemory);
    }
}

std::int32_t GLN1ShowMessage(long funcNum, char** paramHandle, char** resultHandle) {
    if (gNoUserInterface != 0 || paramHandle == nullptr) {
        return 0;
    }
    if (const std::int32_t status = EnsureHandleIsNullTerminated(paramHandle); status != 0) {
        return reported(funcNum, status);
    }
    const short pressed = VariableDlg('M', *paramHandle, "OK", "", "");
    return pressed > 0 ? AnswerNumber(funcNum, resultHandle, pressed) : 0;
}

}  // namespace quil
