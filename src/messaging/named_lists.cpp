#include "messaging/named_lists.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "messaging/list_index.h"
#include "messaging/script_queue.h"
#include "util/fhandle.h"
#include "util/memory.h"

namespace quil {

// State of this file.
DataNode* gUserGlobalsDataNodeList = nullptr;                            // globals
DataNode* gOutgoingStdBevaviorMessageParameterDataNodeList = nullptr;    // message that the plug-in composes
DataNode* gOutgoingUserMessageParameterDataNodeList = nullptr;           // message that scripts compose
DataNode* gIncomingMessageParameterDataNodeList = nullptr;               // message that scripts read
DataNode* gArchivedIncomingMessageParameterDataNodeList[kArchiveSlots];  // messages that wait
char gNameOfGlobalThatTriggeredScript[kNameSize];                        // global whose change queued a script

static constexpr std::int32_t kOutOfMemory = -108;
static constexpr std::int32_t kSystemEnvironment = -117;
static constexpr std::int32_t kNoSuchName = -2802;
static constexpr std::int32_t kNoScript = -1;

// A name as the lists hold it.
static std::string_view cutName(const char* name) {
    return {name, strnlen(name, kNameSize - 1)};
}

static DataNode* findNode(const char* name, DataNode* list) {
    return FindInList(list, cutName(name)).node;
}

static void freeNode(DataNode* node) {
    DropListIndex(node);
    DisposeAndClearFHandle(&node->data);
    allocator().release(node);
}

void InitDataLists() {
    gUserGlobalsDataNodeList = nullptr;
    gOutgoingStdBevaviorMessageParameterDataNodeList = nullptr;
    gOutgoingUserMessageParameterDataNodeList = nullptr;
    gIncomingMessageParameterDataNodeList = nullptr;
    std::fill(std::begin(gArchivedIncomingMessageParameterDataNodeList),
              std::end(gArchivedIncomingMessageParameterDataNodeList), nullptr);
}

void DisposeDataList(DataNode** list) {
    while (*list != nullptr) {
        freeNode(std::exchange(*list, (*list)->next));
    }
}

void DisposeDataLists() {
    DisposeDataList(&gUserGlobalsDataNodeList);
    DisposeDataList(&gOutgoingStdBevaviorMessageParameterDataNodeList);
    DisposeDataList(&gOutgoingUserMessageParameterDataNodeList);
    DisposeDataList(&gIncomingMessageParameterDataNodeList);
    for (DataNode*& slot : gArchivedIncomingMessageParameterDataNodeList) {
        DisposeDataList(&slot);
    }
}

void ResetNamedLists() {
    DisposeDataLists();
    gNameOfGlobalThatTriggeredScript[0] = 0;
}

long NumDataItemsInList(const DataNode* list) {
    long count = 0;
    for (; list != nullptr; list = list->next) {
        ++count;
    }
    return count;
}

// The node of that name, made at the tail when there is none; null for want of memory.
static DataNode* findOrAddNode(const char* name, std::uint8_t isSysEnv, DataNode** list) {
    const FoundNode found = FindInList(*list, cutName(name));
    if (found.node != nullptr) {
        return found.node;
    }
    auto* node = static_cast<DataNode*>(allocator().allocateZeroed(sizeof(DataNode)));
    if (node == nullptr) {
        return nullptr;
    }
    copyInto(node->name, name);
    node->isSysEnv = isSysEnv;
    if (*list == nullptr) {
        *list = node;
    } else {
        found.last->next = node;
        NoteNewNode(*list, node);
    }
    return node;
}

static std::int32_t storeValue(DataNode* node, char** value, bool append, bool noDupes) {
    if (!append) {
        return SetHandleContentsAndIncludeTerminator(node->data, *value);
    }
    return noDupes ? MergeHandleContents(node->data, *value) : CatHandleContents(node->data, *value);
}

std::int32_t SetDataInListHelper(const char* name, std::uint8_t isSysEnv, char** value, DataNode** list, bool append,
                                 bool noDupes) {
    if (const std::int32_t error = EnsureHandleIsNullTerminated(value); error != 0) {
        return error;
    }
    DataNode* node = findOrAddNode(name, isSysEnv, list);
    if (node == nullptr) {
        return kOutOfMemory;
    }
    if (!append && strcmpFHandles(node->data, value) == 0) {
        return 0;  // an empty text set to a new name stores nothing either
    }
    if (node->data == nullptr) {
        node->data = NewFHandle(1);
        if (node->data == nullptr) {
            return kOutOfMemory;
        }
    }
    const std::int32_t error = storeValue(node, value, append, noDupes);
    if (node->scriptEnabled != 0 && node->scriptName[0] != 0) {
        // The script runs even when the value could not be stored, and its status is the one that counts.
        copyInto(gNameOfGlobalThatTriggeredScript, node->name);
        return AddScriptToDoScriptQueue(node->scriptName);
    }
    return error;
}

std::int32_t SetDataInList(const char* name, std::uint8_t isSysEnv, char** value, DataNode** list) {
    return SetDataInListHelper(name, isSysEnv, value, list, false, false);
}

std::int32_t AppendToDataInList(const char* name, std::uint8_t isSysEnv, bool noDupes, char** value, DataNode** list) {
    return SetDataInListHelper(name, isSysEnv, value, list, true, noDupes);
}

std::int32_t SetDataFromStr(const char* name, std::uint8_t isSysEnv, const char* text, DataNode** list) {
    char** value = NewFHandle(0);
    if (value == nullptr || SetHandleContentsAndIncludeTerminator(value, text) != 0) {
        DisposeAndClearFHandle(&value);
        return kOutOfMemory;
    }
    const std::int32_t error = SetDataInList(name, isSysEnv, value, list);
    DisposeAndClearFHandle(&value);
    return error;
}

std::int32_t RemoveDataFromList(const char* name, DataNode** list) {
    const std::string_view wanted = cutName(name);
    const bool all = wanted == "*";
    DropListIndex(*list);
    for (DataNode** link = list; *link != nullptr;) {
        DataNode* node = *link;
        const bool named = wanted == node->name;
        if (named && node->isSysEnv != 0) {
            return kSystemEnvironment;
        }
        if (named || (all && node->isSysEnv == 0)) {
            *link = node->next;
            freeNode(node);
        } else {
            link = &node->next;
        }
    }
    return 0;
}

char** GetTheDataHandleFromList_NotACopy(const char* name, DataNode* list) {
    const DataNode* node = findNode(name, list);
    return node == nullptr ? nullptr : node->data;
}

std::int32_t RenameDataInList(DataNode* list, const char* oldName, const char* newName) {
    DataNode* node = findNode(oldName, list);
    if (node == nullptr) {
        return 0;
    }
    DropListIndex(list);
    copyInto(node->name, newName);
    return 1;
}

unsigned long GetDataFromListAsStr(const char* name, char* buffer, unsigned long bufferSize, DataNode* list) {
    return strcpyFHandleToCStr(buffer, bufferSize, GetTheDataHandleFromList_NotACopy(name, list));
}

bool GetDataFromListAsBoolean(const char* name, DataNode* list) {
    char text[256];
    GetDataFromListAsStr(name, text, sizeof text, list);
    return StringToBoolean(text);
}

OSType GetDataFromListAsOSType(const char* name, DataNode* list) {
    char text[256];
    GetDataFromListAsStr(name, text, sizeof text, list);
    return StringToOSType(text);
}

namespace {

struct ListingOptions {
    bool sysEnv = false;
    bool detail = false;
};

ListingOptions listingOptions(char** options) {
    static constexpr std::string_view kBlanks = " \t";
    char text[256];
    strcpyFHandleToCStr(text, sizeof text, options);
    ListingOptions result;
    std::string_view rest = text;
    for (int word = 0; word < 2; ++word) {
        rest.remove_prefix(std::min(rest.find_first_not_of(kBlanks), rest.size()));
        const std::string_view option = rest.substr(0, rest.find_first_of(kBlanks));
        result.sysEnv = result.sysEnv || option == "SYSENV";
        result.detail = result.detail || option == "DETAIL";
        rest.remove_prefix(option.size());
    }
    return result;
}

void appendListing(std::string& listing, const DataNode& node, bool detail) {
    static constexpr std::size_t kPreview = 32;
    char preview[kPreview + 1];
    const unsigned long length = strcpyFHandleToCStr(preview, sizeof preview, node.data);
    listing.append("'").append(node.name).append("'\t'").append(preview);
    listing += length >= kPreview ? "...'" : "'";
    if (detail) {
        listing += node.isSysEnv != 0 ? "\tSysEnv" : "\tUser";
        if (node.scriptName[0] != 0) {
            listing.append("\t").append(node.scriptName).append(node.scriptEnabled != 0 ? "\tEnabled" : "\tDisabled");
        }
    }
    listing += '\r';
}

}  // namespace

std::int32_t GetDataListInfo(char** options, char** resultHandle, DataNode* list) {
    const ListingOptions wanted = listingOptions(options);
    try {
        std::string listing;
        for (const DataNode* node = list; node != nullptr; node = node->next) {
            if (wanted.sysEnv || node->isSysEnv == 0) {
                appendListing(listing, *node, wanted.detail);
            }
        }
        return listing.empty() ? 0 : SetResultsHandleText(resultHandle, listing);
    } catch (const std::bad_alloc&) {
        return kOutOfMemory;
    }
}

std::int32_t AttachScriptToDataInList(const char* name, const char* scriptName, DataNode* list) {
    DataNode* node = findNode(name, list);
    if (node == nullptr) {
        return kNoSuchName;
    }
    copyInto(node->scriptName, scriptName);
    return 0;
}

std::int32_t SetEnableOfDataScript(const char* name, std::uint8_t enable, DataNode* list) {
    DataNode* node = findNode(name, list);
    if (node == nullptr) {
        return kNoSuchName;
    }
    if (node->scriptName[0] == 0) {
        return kNoScript;
    }
    node->scriptEnabled = enable;
    return 0;
}

bool NeedToSwitchNodes(const DataNode* first, const DataNode* second) {
    for (const std::string_view leader : {"MSSG", "SIGN", "PSIG", "XTRA"}) {
        if (leader == first->name) {
            return false;
        }
        if (leader == second->name) {
            return true;
        }
    }
    return GetFHandleSize(first->data) > GetFHandleSize(second->data);
}

// Everything but the links.
static void swapContents(DataNode* a, DataNode* b) {
    std::swap(a->name, b->name);
    std::swap(a->isSysEnv, b->isSysEnv);
    std::swap(a->scriptName, b->scriptName);
    std::swap(a->scriptEnabled, b->scriptEnabled);
    std::swap(a->data, b->data);
}

// Sorts the first `count` nodes, 1 or more, by their links, and ends them there: the node that comes first.
static DataNode* sortLinks(DataNode* list, long count) {
    if (count == 1) {
        list->next = nullptr;
        return list;
    }
    DataNode* second = list;
    for (long i = 0; i < count / 2 && second->next != nullptr; ++i) {
        second = second->next;
    }
    second = sortLinks(second, count - count / 2);
    DataNode* first = sortLinks(list, count / 2);
    DataNode* sorted = nullptr;
    DataNode** end = &sorted;
    while (first != nullptr && second != nullptr) {
        DataNode*& next = NeedToSwitchNodes(first, second) ? second : first;
        *end = next;
        end = &next->next;
        next = next->next;
    }
    *end = first != nullptr ? first : second;
    return sorted;
}

void SortOutgoingMessageParameters(DataNode* list) {
    if (list == nullptr) {
        return;
    }
    DropListIndex(list);
    DataNode* const first = sortLinks(list, NumDataItemsInList(list));
    if (first == list) {
        return;
    }
    // The head stays the head: it trades contents and places with the node that came out first.
    DataNode* before = first;
    while (before->next != nullptr && before->next != list) {
        before = before->next;
    }
    swapContents(first, list);
    std::swap(first->next, list->next);
    (before == first ? list : before)->next = first;
}

// Deliberately nothing: handles do not move while a message is sent.
void LockAllOutgoingMessageParameters(DataNode* /*list*/) {}
void UnLockAllOutgoingMessageParameters(DataNode* /*list*/) {}

}  // namespace quil
