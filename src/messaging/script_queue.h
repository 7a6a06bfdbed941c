// Host scripts that are to run later, the one-second wait, and the lines that are built from output codes.
//
// The plug-in never runs a host script from inside a call: it queues the script's name and asks the host for it at an
// idle call.
#pragma once

#include <cstddef>
#include <cstdint>

#include "util/text.h"

namespace quil {

inline constexpr std::size_t kDeferredScripts = 10;
inline constexpr std::size_t kDeferredScriptSize = 64;  // of a script's name, with its terminator

// First in, first out; an empty slot ends the queue.
extern char gDeferredScript[kDeferredScripts][kDeferredScriptSize];

// 0 when queued, or in the queue already; -1 for a name of more than 63 bytes; -2 when the queue is full.
std::int32_t AddScriptToDoScriptQueue(const char* scriptName);
bool HaveDeferedScript();
// Asks the host to run the first script of the queue and takes it off, whatever comes of it.
void ProcessDoScriptQueue();
// Asks the application of that signature to run a script: a 'misc'/'dosc' event. 0 or the machine's status.
std::int32_t SendDoScript(const char* scriptName, OSType signature);

// Returns after 60 ticks, asleep until then; earlier when the tick counter wraps around.
void WaitOneSecond();

// Output codes: how a line is assembled. 1 to 3: that field, 4: blank, 5: tab, 6: CR; any other ends the line.
inline constexpr std::size_t kOutputCodes = 10;
extern std::int16_t gOutputCodes[kOutputCodes];

// The words of a caller's code language; a code of 0 or a null word ends the table.
struct CodeWord {
    std::int16_t code;
    const char* word;
};
inline constexpr std::size_t kCodeWords = 16;
extern CodeWord gCodeWords[kCodeWords];

std::int16_t StrToCode(const char* word);  // 0 when it is not in gCodeWords
void ClearOutputCodes();
void SetOutputCode(std::size_t index, std::int16_t code);  // an index above 9 is ignored
// Builds one line from the codes, cut at destSize - 1 bytes.
void StrcpyOutputLine(char* dest, std::size_t destSize, const char* first, const char* second, const char* third);
template <std::size_t N>
void StrcpyOutputLine(char (&dest)[N], const char* first, const char* second, const char* third) {
    StrcpyOutputLine(dest, N, first, second, third);
}

char* GetVersionString(char* buffer);  // at least 23 bytes

void ResetScriptQueue();

}  // namespace quil
