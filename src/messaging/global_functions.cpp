// Script functions of the globals, the script queue and the characters that are hard to write in a calculation.

#include <cstring>
#include <string_view>

#include "messaging/globals.h"
#include "messaging/script_queue.h"
#include "util/alerts.h"
#include "util/fhandle.h"
#include "util/numbers.h"
#include "util/result.h"
#include "util/toolbox.h"

namespace quil {

static constexpr std::int32_t kNoBar = -222;
static constexpr std::int32_t kNoSuchGlobal = -2802;
static constexpr std::int32_t kNoScript = -1;
static constexpr std::size_t kLongestLine = 5000;  // with its terminator

// Passes a status on, telling the user of a failure.
static std::int32_t reported(long funcNum, std::int32_t status) {
    if (status != 0) {
        ReportErrorToUser(funcNum, static_cast<short>(status));
    }
    return status;
}

std::int32_t GLN1Version(long funcNum, char** /*paramHandle*/, char** resultHandle) {
    return reported(funcNum, GetGlobalInListAsResultHandle("Plugin Version", resultHandle));
}

std::int32_t GLN1TabChar(long funcNum, char** /*paramHandle*/, char** resultHandle) {
    return Answer(funcNum, resultHandle, "\t");
}

std::int32_t GLN1ReturnChar(long funcNum, char** /*paramHandle*/, char** resultHandle) {
    return Answer(funcNum, resultHandle, "\r");
}

std::int32_t GLN1DoubleQuoteChar(long funcNum, char** /*paramHandle*/, char** resultHandle) {
    return Answer(funcNum, resultHandle, "\"");
}

std::int32_t GLN1Ascii2Char(long funcNum, char** paramHandle, char** resultHandle) {
    char digits[32];
    strcpyFHandleToCStr(digits, sizeof digits, paramHandle);
    long number = 0;
    my_stringtonum(digits + std::strspn(digits, " \t"), &number);
    const auto code = static_cast<char>(static_cast<unsigned long>(number) & 0xFF);
    return Answer(funcNum, resultHandle, {&code, code == 0 ? 0U : 1U});
}

std::int32_t GLN1CallScript(long funcNum, char** paramHandle, char** /*resultHandle*/) {
    char script[256];
    strcpyFHandleToCStr(script, sizeof script, paramHandle);
    return reported(funcNum, AddScriptToDoScriptQueue(script));
}

std::int32_t GLN1SetScriptMenuName(long funcNum, char** paramHandle, char** /*resultHandle*/) {
    char name[256];
    strcpyFHandleToCStr(name, sizeof name, paramHandle);
    return reported(funcNum, SetGlobalFromStr("Script Menu Name", 1, name));
}

std::int32_t GLN1SetGlobal(long funcNum, char** paramHandle, char** /*resultHandle*/) {
    const std::string_view parameter = FHandleText(paramHandle);
    const std::size_t bar = parameter.find('|');
    if (bar == std::string_view::npos) {
        return reported(funcNum, kNoBar);
    }
    char name[kNameSize];
    my_strncpy(name, parameter.substr(0, bar), sizeof name);
    if (!AllowUserToChangeGlobal(name)) {
        return 0;
    }
    return reported(funcNum, SetGlobalFromStr(name, 0, *paramHandle + bar + 1));
}

std::int32_t GLN1AppendToGlobal(long funcNum, char** paramHandle, char** /*resultHandle*/) {
    char name[kNameSize];
    unsigned char noDupes = 0;
    std::int32_t status = GetAndStripNameAndDupes(paramHandle, name, &noDupes);
    if (status == 0) {
        status = AppendToGlobalInList(name, 0, noDupes != 0, paramHandle);
    }
    return reported(funcNum, status);
}

std::int32_t GLN1UnsetGlobal(long funcNum, char** paramHandle, char** /*resultHandle*/) {
    char name[kNameSize];
    strcpyFHandleToCStr(name, sizeof name, paramHandle);
    return reported(funcNum, RemoveGlobalFromList(name));
}

std::int32_t GLN1GetGlobal(long funcNum, char** paramHandle, char** resultHandle) {
    char name[kNameSize];
    strcpyFHandleToCStr(name, sizeof name, paramHandle);
    return reported(funcNum, GetGlobalInListAsResultHandle(name, resultHandle));
}

std::int32_t GLN1GetGlobalList(long funcNum, char** paramHandle, char** resultHandle) {
    return reported(funcNum, GetGlobalListInfo(paramHandle, resultHandle));
}

std::int32_t GLN1AttachScriptToGlobal(long funcNum, char** paramHandle, char** /*resultHandle*/) {
    char name[kNameSize];
    char script[kNameSize];
    unsigned char noDupes = 0;
    std::int32_t status = GetAndStripNameAndDupes(paramHandle, name, &noDupes);
    if (status == 0) {
        strcpyFHandleToCStr(script, sizeof script, paramHandle);
        if (name[0] == 0) {
            status = kNoSuchGlobal;
        } else if (script[0] == 0) {
            status = kNoScript;
        } else {
            status = AttachScriptToGlobalInList(name, script);
        }
    }
    return reported(funcNum, status);
}

static std::int32_t enableScript(long funcNum, char** paramHandle, std::uint8_t enable) {
    char name[kNameSize];
    strcpyFHandleToCStr(name, sizeof name, paramHandle);
    return reported(funcNum, SetEnableOfGlobalScript(name, enable));
}

std::int32_t GLN1EnableGlobalScript(long funcNum, char** paramHandle, char** /*resultHandle*/) {
    return enableScript(funcNum, paramHandle, 1);
}

std::int32_t GLN1DisableGlobalScript(long funcNum, char** paramHandle, char** /*resultHandle*/) {
    return enableScript(funcNum, paramHandle, 0);
}

std::int32_t GLN1GetNthLine(long funcNum, char** paramHandle, char** resultHandle) {
    char number[kNameSize];
    unsigned char noDupes = 0;
    if (const std::int32_t status = GetAndStripNameAndDupes(paramHandle, number, &noDupes); status != 0) {
        return reported(funcNum, status);
    }
    const std::int32_t n = DecimalPrefix(number);
    if (n < 1) {
        return 0;
    }
    char line[kLongestLine];
    return Answer(funcNum, resultHandle, NthLineInTextNonOptimized(*paramHandle, n - 1, line, sizeof line));
}

}  // namespace quil
