// Sending: outgoing lists become events.
#include "messaging/transport.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include "messaging/friends.h"
#include "messaging/globals.h"
#include "messaging/message_parameters.h"
#include "platform/machine.h"
#include "util/charset.h"
#include "util/fhandle.h"
#include "util/memory.h"

namespace quil {

// State of this file.
static platform::BundleRef sOwnResourceFile;  // the plug-in's own bundle

static constexpr std::int32_t kOutOfMemory = -108;
static constexpr std::int32_t kNoMessageName = -123;
static constexpr std::int32_t kNoSignature = -2;
static constexpr std::int32_t kBadSelector = -2;
static constexpr unsigned long kFirstDescriptorBytes = 100;

void ResetTransport() {
    sOwnResourceFile = nullptr;
}

void SetOwnResourceFile(platform::BundleRef bundle) {
    sOwnResourceFile = bundle;
}

std::int32_t InitIac() {
    return platform::machine().events().installHandler(kQuilEventClass, kQuilEventID, HandleQUILEvent, 0);
}

void RemoveIac() {
    platform::machine().events().installHandler(kQuilEventClass, kQuilEventID, nullptr, 0);
}

platform::Status HandleQUILEvent(const platform::Event& event, platform::Event& /*reply*/, long /*reference*/) {
    platform::Resources& resources = platform::machine().resources();
    const platform::BundleRef before = sOwnResourceFile == nullptr ? nullptr : resources.useBundle(sOwnResourceFile);
    bool outOfMemory = false;
    try {
        static_cast<void>(ArchiveIncomingMessage(event));  // the sender asked for no reply
    } catch (const std::bad_alloc&) {
        outOfMemory = true;
    }
    if (sOwnResourceFile != nullptr) {
        resources.useBundle(before);
    }
    return outOfMemory ? platform::memFullErr : static_cast<platform::Status>(RequiredCheck(event));
}

short EncodingToUseForIac(OSType receiver, OSType message) {
    const short canUseUtf8 = FriendCanUseUtf8Iac(receiver);
    if (canUseUtf8 == 0) {
        return message == "HOLA"_4 ? kEncodingUtf8 : kEncodingMacRoman;
    }
    return canUseUtf8 == 1 ? kEncodingUtf8 : kEncodingMacRoman;
}

static const char* encodingName(short encoding) {
    switch (encoding) {
        case kEncodingMacRoman:
            return "macRoman";
        case kEncodingWindows1252:
            return "Windows-1252";
        default:
            return "utf-8";
    }
}

static std::int32_t setCode(const char* name, OSType code, short selector) {
    char text[5];
    OSTypeToString(code, text);
    return SetOutgoingMessageParameterFromStr(name, text, selector);
}

// "SIGN", "PSIG", "XTRA" and "NCOD". -2: there is no signature to send under.
static std::int32_t completeParameters(OSType receiver, OSType message, short selector, short* encoding) {
    OSType sign = GetOutgoingMessageParameterInListAsOSType("SIGN", selector);
    std::int32_t status = 0;
    if (IsAllSpacesOSType(sign)) {
        sign = GetGlobalInListAsOSType("App Signature");
        if (IsAllSpacesOSType(sign)) {
            return kNoSignature;
        }
        status = setCode("SIGN", sign, selector);
    }
    if (status == 0 && IsAllSpacesOSType(GetOutgoingMessageParameterInListAsOSType("PSIG", selector))) {
        const OSType psig = GetGlobalInListAsOSType("App PSIG");
        status = setCode("PSIG", IsAllSpacesOSType(psig) ? sign : psig, selector);
    }
    if (status == 0 &&
        FHandleText(GetTheOutgoingMessageParameterDataHandleFromList_NotACopy("XTRA", selector)).empty()) {
        status = SetOutgoingMessageParameterFromStr("XTRA", "", selector);
    }
    if (status == 0) {
        *encoding = EncodingToUseForIac(receiver, message);
        status = SetOutgoingMessageParameterFromStr("NCOD", encodingName(*encoding), selector);
    }
    return status;
}

static void describe(const DataNode* list, AEdata* descriptors) {
    for (const DataNode* node = list; node != nullptr; node = node->next, ++descriptors) {
        const std::string_view text = FHandleText(node->data);
        descriptors->keyword = StringToOSType(node->name);
        descriptors->type = "TEXT"_4;
        descriptors->data = text.empty() ? "" : text.data();
        descriptors->size = static_cast<std::int32_t>(text.size());
    }
}

// Assembles the list and sends it. `assembled` tells that the list has served its turn.
static std::int32_t assembleAndSend(OSType receiver, short selector, char** descriptors, bool* assembled) {
    DataNode** list = OutgoingList(selector);
    if (list == nullptr) {
        return kBadSelector;
    }
    const OSType message = GetOutgoingMessageParameterInListAsOSType("MSSG", selector);
    if (IsAllSpacesOSType(message)) {
        *assembled = true;
        return kNoMessageName;
    }
    short encoding = kEncodingUtf8;
    if (const std::int32_t status = completeParameters(receiver, message, selector, &encoding); status != 0) {
        return status;
    }
    SortOutgoingMessageParameters(*list);
    const long count = NumDataItemsInList(*list);
    if (count > std::numeric_limits<std::int16_t>::max()) {
        return platform::paramErr;
    }
    const std::int32_t status = SetFHandleSize(descriptors, static_cast<unsigned long>(count) * sizeof(AEdata));
    if (status != 0) {
        return status;
    }
    auto* const records = reinterpret_cast<AEdata*>(*descriptors);
    LockAllOutgoingMessageParameters(*list);
    describe(*list, records);
    *assembled = true;
    const std::int32_t sent = myAESend(records, static_cast<std::int16_t>(count), receiver, encoding);
    UnLockAllOutgoingMessageParameters(*list);
    return sent;
}

std::int32_t SendMessageFromOutgoingMessageParameters(OSType receiver, short selector) {
    char** descriptors = NewFHandle(kFirstDescriptorBytes);
    if (descriptors == nullptr) {
        return kOutOfMemory;
    }
    bool assembled = false;
    const std::int32_t status = assembleAndSend(receiver, selector, descriptors, &assembled);
    if (assembled) {
        DisposeOutgoingMessageParameterList(selector);
    }
    DisposeAndClearFHandle(&descriptors);
    return status;
}

// Adds a text in the encoding of the message. Without memory the parameter is left out.
static void putText(const AEdata& parameter, short encoding, platform::Event& event) {
    const auto size = static_cast<std::size_t>(parameter.size);
    const bool isAscii =
        std::all_of(parameter.data, parameter.data + size, [](char c) { return static_cast<signed char>(c) > 0; });
    if (isAscii) {  // the same in every encoding
        try {
            event.parameters.push_back({parameter.keyword, parameter.type, {parameter.data, size}, false});
        } catch (const std::bad_alloc&) {
            // left out, as above
        }
        return;
    }
    const std::size_t room = 3 * size + 1;
    auto* const converted = static_cast<char*>(allocator().allocateZeroed(room));
    if (converted == nullptr) {
        return;
    }
    const std::size_t length =
        my_memcpy_encoding(converted, room, reinterpret_cast<const unsigned char*>(parameter.data), size, encoding);
    try {
        event.parameters.push_back({parameter.keyword, parameter.type, {converted, length}, false});
    } catch (const std::bad_alloc&) {
        // left out, as above
    }
    allocator().release(converted);
}

std::int32_t myAESend(const AEdata* parameters, std::int16_t count, OSType receiver, short encoding) {
    bool launched = false;
    if (const std::int32_t status = MakeSureAppIsRunning(receiver, &launched); status != 0) {
        return status;
    }
    try {
        platform::Event event;
        event.eventClass = kQuilEventClass;
        event.eventID = kQuilEventID;
        event.target = receiver;
        event.parameters.reserve(static_cast<std::size_t>(count));
        for (const AEdata* one = parameters; one < parameters + count; ++one) {
            if (one->data == nullptr) {
                continue;
            }
            if (one->type == "TEXT"_4) {
                putText(*one, encoding, event);
            } else {
                event.parameters.push_back(
                    {one->keyword, one->type, {one->data, static_cast<std::size_t>(one->size)}, false});
            }
        }
        return platform::machine().events().send(event);
    } catch (const std::bad_alloc&) {
        return kOutOfMemory;
    }
}

}  // namespace quil
