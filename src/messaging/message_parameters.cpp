#include "messaging/message_parameters.h"

#include "util/fhandle.h"

namespace quil {

static constexpr std::int32_t kBadSelector = -2;

DataNode** OutgoingList(short selector) {
    switch (selector) {
        case kUserList:
            return &gOutgoingUserMessageParameterDataNodeList;
        case kStdBehaviorList:
            return &gOutgoingStdBevaviorMessageParameterDataNodeList;
        default:
            return nullptr;
    }
}

std::int32_t SetOutgoingMessageParameterInList(const char* name, char** value, short selector) {
    DataNode** list = OutgoingList(selector);
    return list == nullptr ? kBadSelector : SetDataInList(name, 0, value, list);
}

std::int32_t SetOutgoingMessageParameterFromStr(const char* name, const char* text, short selector) {
    DataNode** list = OutgoingList(selector);
    return list == nullptr ? kBadSelector : SetDataFromStr(name, 0, text, list);
}

std::int32_t AppendToOutgoingMessageParameterInList(const char* name, bool noDupes, char** value, short selector) {
    DataNode** list = OutgoingList(selector);
    return list == nullptr ? kBadSelector : AppendToDataInList(name, 0, noDupes, value, list);
}

std::int32_t RemoveOutgoingMessageParameterFromList(const char* name, short selector) {
    DataNode** list = OutgoingList(selector);
    return list == nullptr ? kBadSelector : RemoveDataFromList(name, list);
}

char** GetTheOutgoingMessageParameterDataHandleFromList_NotACopy(const char* name, short selector) {
    DataNode** list = OutgoingList(selector);
    return list == nullptr ? nullptr : GetTheDataHandleFromList_NotACopy(name, *list);
}

std::int32_t GetOutgoingMessageParameterInListAsStr(const char* name, char* buffer, unsigned long bufferSize,
                                                    short selector) {
    DataNode** list = OutgoingList(selector);
    const unsigned long length = GetDataFromListAsStr(name, buffer, bufferSize, list == nullptr ? nullptr : *list);
    if (list == nullptr) {
        return kBadSelector;
    }
    return length >= bufferSize ? 1 : 0;
}

OSType GetOutgoingMessageParameterInListAsOSType(const char* name, short selector) {
    DataNode** list = OutgoingList(selector);
    return list == nullptr ? "    "_4 : GetDataFromListAsOSType(name, *list);
}

void DisposeOutgoingMessageParameterList(short selector) {
    if (DataNode** list = OutgoingList(selector)) {
        DisposeDataList(list);
    }
}

void DisposeIncomingMessageParameterList() {
    DisposeDataList(&gIncomingMessageParameterDataNodeList);
}

std::int32_t SetIncomingMessageParameterFromStr(const char* name, const char* text) {
    return SetDataFromStr(name, 0, text, &gIncomingMessageParameterDataNodeList);
}

std::int32_t GetIncomingMessageParameterInListAsStr(const char* name, char* buffer, unsigned long bufferSize) {
    const unsigned long length = GetDataFromListAsStr(name, buffer, bufferSize, gIncomingMessageParameterDataNodeList);
    return length >= bufferSize ? 1 : 0;
}

std::int32_t GetIncomingMessageParameterInListAsResultHandle(const char* name, char** resultHandle) {
    return CopyFHandleToResultHandle(GetTheIncomingMessageParameterDataHandleFromList_NotACopy(name), resultHandle);
}

char** GetTheIncomingMessageParameterDataHandleFromList_NotACopy(const char* name) {
    return GetTheDataHandleFromList_NotACopy(name, gIncomingMessageParameterDataNodeList);
}

}  // namespace quil
