// Receiving: events become lists in the slots of waiting messages.
#include <algorithm>
#include <cstring>
#include <memory>

#include "messaging/standard_messages.h"
#include "messaging/transport.h"
#include "platform/machine.h"
#include "util/charset.h"
#include "util/memory.h"

namespace quil {

static constexpr std::int32_t kTooLong = -1;
static constexpr std::int32_t kNoFreeSlot = -33;
static constexpr OSType kAnyType = "****"_4;
static constexpr long kLongestCode = 5;  // of "MSSG" and "SIGN": four characters and what may follow them
static constexpr long kLongestEncodingName = 63;

platform::Status myAEGetParamPtr(const platform::Event& event, OSType keyword, OSType desiredType, OSType* actualType,
                                 void* data, long maxSize, long* actualSize) {
    const auto found = std::find_if(event.parameters.begin(), event.parameters.end(),
                                    [keyword](const auto& parameter) { return parameter.keyword == keyword; });
    if (found == event.parameters.end()) {
        return platform::errAEDescNotFound;
    }
    if (desiredType != kAnyType && desiredType != found->type) {
        return platform::errAECoercionFail;
    }
    found->wasRead = true;
    if (actualType != nullptr) {
        *actualType = found->type;
    }
    if (actualSize != nullptr) {
        *actualSize = static_cast<long>(found->data.size());
    }
    if (data != nullptr && maxSize > 0) {
        found->data.copy(static_cast<char*>(data), static_cast<std::size_t>(maxSize));
    }
    return platform::noErr;
}

std::int32_t MyAEGetStrParam(const platform::Event& event, OSType keyword, char* buffer, long maxSize) {
    long size = 0;
    buffer[0] = 0;
    const platform::Status status = myAEGetParamPtr(event, keyword, "TEXT"_4, nullptr, buffer, maxSize, &size);
    if (status != platform::noErr) {
        return status;
    }
    if (size > maxSize) {
        buffer[0] = 0;
        return kTooLong;
    }
    buffer[size] = 0;
    return 0;
}

static short encodingOfEvent(const platform::Event& event) {
    char name[kLongestEncodingName + 1];
    static_cast<void>(MyAEGetStrParam(event, "NCOD"_4, name, kLongestEncodingName));  // empty when it fails
    if (std::strcmp(name, "utf-8") == 0) {
        return kEncodingUtf8;
    }
    return std::strcmp(name, "Windows-1252") == 0 ? kEncodingWindows1252 : kEncodingMacRoman;
}

namespace {
struct Release {
    void operator()(char* block) const { allocator().release(block); }
};
using Text = std::unique_ptr<char, Release>;
Text newText(std::size_t size) {
    return Text(static_cast<char*>(allocator().allocateZeroed(size)));
}
}  // namespace

char* AllocateAndGetAEStrParamAsUtf8Str(const platform::Event& event, OSType keyword) {
    long size = 0;
    if (myAEGetParamPtr(event, keyword, "TEXT"_4, nullptr, nullptr, 0, &size) != platform::noErr || size == 0) {
        return nullptr;
    }
    Text text = newText(static_cast<std::size_t>(size) + 1);
    if (text == nullptr) {
        return nullptr;
    }
    static_cast<void>(myAEGetParamPtr(event, keyword, "TEXT"_4, nullptr, text.get(), size, nullptr));
    if (my_IsUtf8(text.get())) {
        return text.release();
    }
    const short encoding = encodingOfEvent(event);
    const std::size_t room = 3 * static_cast<std::size_t>(size) + 1;
    Text utf8 = encoding == kEncodingUtf8 ? nullptr : newText(room);
    if (utf8 == nullptr) {
        platform::machine().dialogs().beep();
        return nullptr;
    }
    (encoding == kEncodingWindows1252 ? my_ConvertWindows1252ToUtf8 : my_ConvertMacRomanToUtf8)(text.get(), utf8.get(),
                                                                                                room);
    return utf8.release();
}

std::int32_t ArchiveEvent_ReadParams(const OSType* keywords, long count, const platform::Event& event,
                                     DataNode** list) {
    DisposeDataList(list);
    for (const OSType* keyword = keywords; keyword < keywords + count; ++keyword) {
        const Text text(AllocateAndGetAEStrParamAsUtf8Str(event, *keyword));
        if (text == nullptr) {
            continue;
        }
        char name[5];
        OSTypeToString(*keyword, name);
        if (const std::int32_t status = SetDataFromStr(name, 0, text.get(), list); status != 0) {
            DisposeDataList(list);
            return status;
        }
    }
    return 0;
}

std::int32_t ArchiveIncomingMessage(const platform::Event& event) {
    auto& slots = gArchivedIncomingMessageParameterDataNodeList;
    DataNode** const slot = std::find(std::begin(slots), std::end(slots), nullptr);
    if (slot == std::end(slots)) {
        return kNoFreeSlot;
    }
    char message[kLongestCode + 1];
    char sender[kLongestCode + 1];
    for (const auto& [keyword, text] : {std::pair{"MSSG"_4, message}, std::pair{"SIGN"_4, sender}}) {
        if (const std::int32_t status = MyAEGetStrParam(event, keyword, text, kLongestCode); status != 0) {
            return status;
        }
    }
    static_cast<void>(ArchiveEvent_ReadParams(kIncomingKeywords.data(), kIncomingKeywords.size(), event, slot));
    const OSType name = StringToOSType(message);
    bool consumed = false;
    const std::int32_t status = HandleKnownMessage(name, *slot, &consumed);
    if (status == 0 && !consumed && HaveFilemakerScriptForMessage(name)) {
        return 0;
    }
    DisposeDataList(slot);
    return status;
}

std::int32_t RequiredCheck(const platform::Event& event) {
    const bool missed = std::any_of(event.parameters.begin(), event.parameters.end(),
                                    [](const platform::EventParameter& parameter) { return !parameter.wasRead; });
    return missed ? platform::errAEEventNotHandled : 0;
}

}  // namespace quil
