#include "messaging/globals.h"

#include <cstring>

#include "messaging/script_queue.h"
#include "util/app_path.h"
#include "util/fhandle.h"

namespace quil {

std::int32_t GetGlobalListInfo(char** options, char** resultHandle) {
    return GetDataListInfo(options, resultHandle, gUserGlobalsDataNodeList);
}

std::int32_t AttachScriptToGlobalInList(const char* name, const char* scriptName) {
    return AttachScriptToDataInList(name, scriptName, gUserGlobalsDataNodeList);
}

std::int32_t SetEnableOfGlobalScript(const char* name, std::uint8_t enable) {
    return SetEnableOfDataScript(name, enable, gUserGlobalsDataNodeList);
}

std::int32_t SetGlobalFromStr(const char* name, std::uint8_t isSysEnv, const char* text) {
    return SetDataFromStr(name, isSysEnv, text, &gUserGlobalsDataNodeList);
}

std::int32_t SetGlobalInList(const char* name, std::uint8_t isSysEnv, char** value) {
    return SetDataInList(name, isSysEnv, value, &gUserGlobalsDataNodeList);
}

std::int32_t AppendToGlobalInList(const char* name, std::uint8_t isSysEnv, bool noDupes, char** value) {
    return AppendToDataInList(name, isSysEnv, noDupes, value, &gUserGlobalsDataNodeList);
}

std::int32_t RemoveGlobalFromList(const char* name) {
    return RemoveDataFromList(name, &gUserGlobalsDataNodeList);
}

std::int32_t GetGlobalInListAsStr(const char* name, char* buffer, unsigned long bufferSize) {
    return GetDataFromListAsStr(name, buffer, bufferSize, gUserGlobalsDataNodeList) >= bufferSize ? 1 : 0;
}

bool GetGlobalInListAsBoolean(const char* name) {
    return GetDataFromListAsBoolean(name, gUserGlobalsDataNodeList);
}

OSType GetGlobalInListAsOSType(const char* name) {
    return GetDataFromListAsOSType(name, gUserGlobalsDataNodeList);
}

std::int32_t GetGlobalInListAsResultHandle(const char* name, char** resultHandle) {
    return CopyFHandleToResultHandle(GetTheDataHandleFromList_NotACopy(name, gUserGlobalsDataNodeList), resultHandle);
}

bool AllowUserToChangeGlobal(const char* name) {
    return std::strcmp(name, "App Signature") != 0;
}

void CreateStartupGlobals() {
    char appName[256];
    char appPath[256];
    char appFolder[256];
    char version[32];
    char signature[5];
    GetAppName(appName);
    GetAppFullPathName(appPath);
    GetAppFolderPathWithDelimiter(appFolder);
    GetVersionString(version);
    OSTypeToString(GetAppSignature(), signature);
    const struct {
        const char* name;
        const char* value;
    } globals[] = {{"App Name", appName},
                   {"App Path", appPath},
                   {"App Folder with Delim", appFolder},
                   {"Error Dialogs", "TRUE"},
                   {"Handle Message Script", "GEOLENS"},
                   {"Plugin Version", version},
                   {"Script Menu Name", "Scripts"},
                   {"App Signature", signature},
                   {"App PSIG", signature},
                   {"App DOC", ""}};
    for (const auto& global : globals) {
        SetGlobalFromStr(global.name, 1, global.value);
    }
}

}  // namespace quil
