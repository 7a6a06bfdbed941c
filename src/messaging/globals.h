// The globals: values that scripts keep by name, and the system-environment globals that the plug-in sets at start-up.
#pragma once

#include <cstdint>

#include "messaging/named_lists.h"

namespace quil {

// Each is the operation of the same name in named_lists.h on the list of globals.
std::int32_t GetGlobalListInfo(char** options, char** resultHandle);
std::int32_t AttachScriptToGlobalInList(const char* name, const char* scriptName);
std::int32_t SetEnableOfGlobalScript(const char* name, std::uint8_t enable);
std::int32_t SetGlobalFromStr(const char* name, std::uint8_t isSysEnv, const char* text);
std::int32_t SetGlobalInList(const char* name, std::uint8_t isSysEnv, char** value);
std::int32_t AppendToGlobalInList(const char* name, std::uint8_t isSysEnv, bool noDupes, char** value);
std::int32_t RemoveGlobalFromList(const char* name);
// 1 when the value did not fit and was cut, else 0.
std::int32_t GetGlobalInListAsStr(const char* name, char* buffer, unsigned long bufferSize);
bool GetGlobalInListAsBoolean(const char* name);
OSType GetGlobalInListAsOSType(const char* name);
// Copies the value to a result handle, empty when there is none.
std::int32_t GetGlobalInListAsResultHandle(const char* name, char** resultHandle);

// Creates the system-environment globals from what the host says about itself.
void CreateStartupGlobals();

// Whether scripts may set the global: all but "App Signature".
bool AllowUserToChangeGlobal(const char* name);

// Script functions.
std::int32_t GLN1Version(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1TabChar(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1ReturnChar(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1DoubleQuoteChar(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1Ascii2Char(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1CallScript(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1SetScriptMenuName(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1SetGlobal(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1AppendToGlobal(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1UnsetGlobal(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1GetGlobal(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1GetGlobalList(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1AttachScriptToGlobal(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1EnableGlobalScript(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1DisableGlobalScript(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1GetNthLine(long funcNum, char** paramHandle, char** resultHandle);

}  // namespace quil
