// The parameters of messages: the two outgoing lists, chosen by a selector, and the incoming list.
#pragma once

#include <cstdint>

#include "messaging/named_lists.h"

namespace quil {

// Selectors of the outgoing lists. With any other selector a setter or remover answers -2, a getter nothing.
inline constexpr short kUserList = 1;         // the message that scripts compose
inline constexpr short kStdBehaviorList = 2;  // messages that the plug-in composes itself

// The list of a selector, or null.
DataNode** OutgoingList(short selector);

std::int32_t SetOutgoingMessageParameterInList(const char* name, char** value, short selector);
std::int32_t SetOutgoingMessageParameterFromStr(const char* name, const char* text, short selector);
std::int32_t AppendToOutgoingMessageParameterInList(const char* name, bool noDupes, char** value, short selector);
std::int32_t RemoveOutgoingMessageParameterFromList(const char* name, short selector);
char** GetTheOutgoingMessageParameterDataHandleFromList_NotACopy(const char* name, short selector);
// 1 when the value did not fit and was cut, else 0; -2 for a bad selector.
std::int32_t GetOutgoingMessageParameterInListAsStr(const char* name, char* buffer, unsigned long bufferSize,
                                                    short selector);
OSType GetOutgoingMessageParameterInListAsOSType(const char* name, short selector);  // four blanks: bad selector
void DisposeOutgoingMessageParameterList(short selector);

void DisposeIncomingMessageParameterList();
std::int32_t SetIncomingMessageParameterFromStr(const char* name, const char* text);
// 1 when the value did not fit and was cut, else 0.
std::int32_t GetIncomingMessageParameterInListAsStr(const char* name, char* buffer, unsigned long bufferSize);
std::int32_t GetIncomingMessageParameterInListAsResultHandle(const char* name, char** resultHandle);
char** GetTheIncomingMessageParameterDataHandleFromList_NotACopy(const char* name);

}  // namespace quil
