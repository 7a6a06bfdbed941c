// The transport of messages: a message is one event of class 'QUIL' and id 'AEVT', with one text parameter for each of
// its named values. Here outgoing parameter lists become events, and arriving events become lists that wait in one of
// 20 slots to be read.
//
// Status codes: 0 success, -108 out of memory, -123 a message without "MSSG", -2 bad selector or no signature of the
// sender, -33 all slots are taken, -1 an arriving "MSSG" or "SIGN" of more than 5 bytes, -1701 one that is missing,
// -1708 a parameter that nobody read; others are the machine's.
#pragma once

#include <array>
#include <cstdint>

#include "messaging/named_lists.h"
#include "platform/events.h"
#include "platform/resources.h"

namespace quil {

inline constexpr OSType kQuilEventClass = "QUIL"_4;
inline constexpr OSType kQuilEventID = "AEVT"_4;

// The parameters that are read of an arriving message, in this order; others are left unread.
inline constexpr std::array<OSType, 39> kIncomingKeywords = {
    "MSSG"_4, "SIGN"_4, "PSIG"_4, "XTRA"_4, "NCOD"_4, "ACTN"_4, "ANSR"_4, "ATBS"_4, "CAS "_4, "CODE"_4,
    "DOC "_4, "HLAT"_4, "HLNG"_4, "HWND"_4, "IDS "_4, "ITEM"_4, "LAT "_4, "LLAT"_4, "LLNG"_4, "LONG"_4,
    "LSTA"_4, "LSTB"_4, "LST2"_4, "NAME"_4, "QUIL"_4, "NUM "_4, "NUMU"_4, "OBJ2"_4, "OVID"_4, "PATH"_4,
    "PERM"_4, "STAT"_4, "TEXT"_4, "TYPE"_4, "UDOC"_4, "UPTH"_4, "VERS"_4, "VNUM"_4, "YRPS"_4};

// One parameter on its way from a list to an event.
struct AEdata {
    OSType keyword;
    OSType type;  // "TEXT"
    const char* data;
    std::int32_t size;  // bytes, without a terminator
};

// Installs the event handler.
std::int32_t InitIac();
// Removes it: the code may be unloaded once the plug-in is shut down.
void RemoveIac();
// The bundle whose resources are current while an event is handled; null: whichever is.
void SetOwnResourceFile(platform::BundleRef bundle);

// Encoding code for a message: UTF-8 for receivers that are known to read it, and for "HOLA" to those of whom nothing
// is known; else Mac Roman.
short EncodingToUseForIac(OSType receiver, OSType message);

// Completes "SIGN", "PSIG", "XTRA" and "NCOD" of an outgoing list, sends it and empties it. The receiver is launched
// when it does not run. The list is kept when there is no signature to send under, or no memory to assemble it.
std::int32_t SendMessageFromOutgoingMessageParameters(OSType receiver, short selector);
// Sends one event; texts are converted to `encoding`. A parameter for which there is no memory is left out.
std::int32_t myAESend(const AEdata* parameters, std::int16_t count, OSType receiver, short encoding);

// The event handler: -1708 when it left a parameter unread, -108 when memory ran out on the way, else 0.
platform::Status HandleQUILEvent(const platform::Event& event, platform::Event& reply, long reference);
// Reads a message into the first free slot and does what is to be done at once. It stays there when the solution has a
// script for it.
std::int32_t ArchiveIncomingMessage(const platform::Event& event);
// Replaces the list by the event's parameters of these keywords, as UTF-8; empty ones are left out.
std::int32_t ArchiveEvent_ReadParams(const OSType* keywords, long count, const platform::Event& event, DataNode** list);
// A text parameter as UTF-8, which the caller gives back to allocator().release; null when it is missing, empty, or
// malformed although the event claims UTF-8 (that beeps). "NCOD" tells the encoding of texts that are not UTF-8.
char* AllocateAndGetAEStrParamAsUtf8Str(const platform::Event& event, OSType keyword);
// A text parameter of at most maxSize bytes; `buffer` holds one more. -1: it is longer.
std::int32_t MyAEGetStrParam(const platform::Event& event, OSType keyword, char* buffer, long maxSize);
// AEGetParamPtr: copies at most maxSize bytes and marks the parameter as read. `data`, `actualType` and `actualSize`
// may be null; actualSize is that of the whole parameter. '****' asks for any type.
platform::Status myAEGetParamPtr(const platform::Event& event, OSType keyword, OSType desiredType, OSType* actualType,
                                 void* data, long maxSize, long* actualSize);
// 0 when every parameter was read, else -1708.
std::int32_t RequiredCheck(const platform::Event& event);

// Forgets the bundle.
void ResetTransport();

}  // namespace quil
