// Named data lists: singly linked lists of named text values. The globals, the parameters of outgoing and incoming
// messages and the messages that wait to be read are all lists of this kind.
//
// Names are compared byte by byte and cut at 255 bytes. A list keeps the order in which its names were first set. A
// list of some length carries a hash index at its first node, so that finding a name does not walk the list.
//
// Status codes: 0 success, -108 out of memory, -117 a system-environment node cannot be removed, -2802 no such name,
// -1 no script attached, -2 bad selector, -345 a line too long to be merged.
#pragma once

#include <cstddef>
#include <cstdint>

#include "util/text.h"

namespace quil {

inline constexpr std::size_t kNameSize = 256;  // of names and script names, with their terminators

struct ListIndex;

// A named value. Zero-filled when made; the list owns the node and its value.
struct DataNode {
    DataNode* next;              // null at the tail
    char name[kNameSize];        // unique in its list
    std::uint8_t isSysEnv;       // made by the plug-in itself: cannot be removed
    char scriptName[kNameSize];  // host script attached to the value, or empty
    std::uint8_t scriptEnabled;  // whether a change of the value queues the script
    char** data;                 // terminated text; null until a text that is not empty was set
    ListIndex* index;            // of the list that this node heads; null in all other nodes and in short lists
};

inline constexpr std::size_t kArchiveSlots = 20;

// The lists, by their first nodes.
extern DataNode* gUserGlobalsDataNodeList;
extern DataNode* gOutgoingStdBevaviorMessageParameterDataNodeList;
extern DataNode* gOutgoingUserMessageParameterDataNodeList;
extern DataNode* gIncomingMessageParameterDataNodeList;
extern DataNode* gArchivedIncomingMessageParameterDataNodeList[kArchiveSlots];  // waiting messages, oldest first

// Name of the global whose change last queued a script.
extern char gNameOfGlobalThatTriggeredScript[kNameSize];

void InitDataLists();                   // empties every list without freeing anything
void DisposeDataList(DataNode** list);  // frees all nodes; the head becomes null
void DisposeDataLists();
long NumDataItemsInList(const DataNode* list);

// Sets the value of a name, or appends to it, and queues the attached script when that is enabled. Setting the value
// that is there already does nothing at all. A name that is not there yet gets a node at the tail, with the given
// sysEnv flag; an existing node keeps its own. With `append` and `noDupes`, only the lines that the value does not hold
// are added, and `value` is cut at its CRs. `value` gains a terminator when it has none. When a script is queued, the
// status is that of the queue.
std::int32_t SetDataInListHelper(const char* name, std::uint8_t isSysEnv, char** value, DataNode** list, bool append,
                                 bool noDupes);
std::int32_t SetDataInList(const char* name, std::uint8_t isSysEnv, char** value, DataNode** list);
std::int32_t AppendToDataInList(const char* name, std::uint8_t isSysEnv, bool noDupes, char** value, DataNode** list);
std::int32_t SetDataFromStr(const char* name, std::uint8_t isSysEnv, const char* text, DataNode** list);
// Removes a name, or with "*" all that are not of the system environment. A missing name is no error.
std::int32_t RemoveDataFromList(const char* name, DataNode** list);

// The list's own handle, valid until the list's next change; null when there is no such name, or no value.
char** GetTheDataHandleFromList_NotACopy(const char* name, DataNode* list);
// Renames the first node of that name, whether or not the new name is in use. 1 when there was one, else 0.
std::int32_t RenameDataInList(DataNode* list, const char* oldName, const char* newName);
// Copies the value, cut at bufferSize - 1 bytes; empty when there is none. Returns the whole value's length.
unsigned long GetDataFromListAsStr(const char* name, char* buffer, unsigned long bufferSize, DataNode* list);
bool GetDataFromListAsBoolean(const char* name, DataNode* list);
OSType GetDataFromListAsOSType(const char* name, DataNode* list);

// Lists names and values, a line each, ended by CR: 'name' TAB 'value', the value cut to 32 bytes and "...". Among the
// first two words of `options`, "SYSENV" lists the system environment too, and "DETAIL" adds a TAB and "SysEnv" or
// "User" and, where a script is attached, TAB, its name, TAB and "Enabled" or "Disabled". With nothing to list, the
// result handle stays as it is.
std::int32_t GetDataListInfo(char** options, char** resultHandle, DataNode* list);

// An attached script is not run before it is enabled; attaching another leaves the flag as it is.
std::int32_t AttachScriptToDataInList(const char* name, const char* scriptName, DataNode* list);
std::int32_t SetEnableOfDataScript(const char* name, std::uint8_t enable, DataNode* list);

// The order for sending: "MSSG", "SIGN", "PSIG", "XTRA", then by ascending size of the value.
bool NeedToSwitchNodes(const DataNode* first, const DataNode* second);
void SortOutgoingMessageParameters(DataNode* list);  // in place: the head stays the head
// Hooks around sending; nothing needs to be locked.
void LockAllOutgoingMessageParameters(DataNode* list);
void UnLockAllOutgoingMessageParameters(DataNode* list);

// Frees every list and forgets the triggering global.
void ResetNamedLists();

}  // namespace quil
