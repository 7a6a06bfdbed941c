#include "messaging/script_queue.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>

#include "messaging/globals.h"
#include "platform/machine.h"

namespace quil {

// State of this file.
char gDeferredScript[kDeferredScripts][kDeferredScriptSize];  // names of scripts to run, first in slot 0
std::int16_t gOutputCodes[kOutputCodes];                      // how a line is assembled
CodeWord gCodeWords[kCodeWords];                              // words for the codes

static constexpr std::int32_t kNameTooLong = -1;
static constexpr std::int32_t kQueueFull = -2;
static constexpr std::uint32_t kTicksPerSecond = 60;

std::int32_t AddScriptToDoScriptQueue(const char* scriptName) {
    if (std::strlen(scriptName) >= kDeferredScriptSize) {
        return kNameTooLong;
    }
    for (auto& slot : gDeferredScript) {
        if (slot[0] == 0 || std::strcmp(slot, scriptName) == 0) {
            copyInto(slot, scriptName);
            return 0;
        }
    }
    return kQueueFull;
}

bool HaveDeferedScript() {
    return gDeferredScript[0][0] != 0;
}

void ProcessDoScriptQueue() {
    char script[kDeferredScriptSize];
    copyInto(script, gDeferredScript[0]);
    if (script[0] != 0) {
        SendDoScript(script, GetGlobalInListAsOSType("App Signature"));  // nobody is there to hear of a failure
    }
    std::memmove(gDeferredScript[0], gDeferredScript[1], sizeof gDeferredScript - sizeof gDeferredScript[0]);
    gDeferredScript[kDeferredScripts - 1][0] = 0;
}

std::int32_t SendDoScript(const char* scriptName, OSType signature) {
    try {
        platform::Event event;
        event.eventClass = "misc"_4;
        event.eventID = "dosc"_4;
        event.target = signature;
        event.parameters.push_back({.keyword = "----"_4, .type = "TEXT"_4, .data = scriptName});
        return platform::machine().events().send(event);
    } catch (const std::bad_alloc&) {
        return platform::memFullErr;
    }
}

void WaitOneSecond() {
    platform::Input& input = platform::machine().input();
    const std::uint32_t start = input.ticks();
    for (std::uint32_t now = start; now >= start && now - start < kTicksPerSecond; now = input.ticks()) {
        input.wait(kTicksPerSecond - (now - start));
    }
}

std::int16_t StrToCode(const char* word) {
    for (const CodeWord& entry : gCodeWords) {
        if (entry.code == 0 || entry.word == nullptr) {
            break;
        }
        if (std::strcmp(entry.word, word) == 0) {
            return entry.code;
        }
    }
    return 0;
}

void ClearOutputCodes() {
    std::fill(std::begin(gOutputCodes), std::end(gOutputCodes), std::int16_t{0});
}

void SetOutputCode(std::size_t index, std::int16_t code) {
    if (index < kOutputCodes) {
        gOutputCodes[index] = code;
    }
}

void StrcpyOutputLine(char* dest, std::size_t destSize, const char* first, const char* second, const char* third) {
    const char* const pieces[] = {first, second, third, " ", "\t", "\r"};
    dest[0] = 0;
    for (const std::int16_t code : gOutputCodes) {
        if (code < 1 || code > static_cast<std::int16_t>(std::size(pieces))) {
            return;
        }
        const std::size_t length = std::strlen(dest);
        my_strncpy(dest + length, pieces[code - 1], destSize - length);
    }
}

char* GetVersionString(char* buffer) {
    static constexpr char kVersion[] = "GEOLENS plugin ver 8.0";
    my_strncpy(buffer, kVersion, sizeof kVersion);
    return buffer;
}

void ResetScriptQueue() {
    std::fill_n(&gDeferredScript[0][0], sizeof gDeferredScript, '\0');
    ClearOutputCodes();
    std::fill(std::begin(gCodeWords), std::end(gCodeWords), CodeWord{});
}

}  // namespace quil
