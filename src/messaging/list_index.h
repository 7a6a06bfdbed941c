// The hash index over the names of a named data list. It stands at the list's first node and is dropped whenever the
// list changes in another way than by a node at its tail; the next search that walks far makes it anew. Without memory
// for it the list is walked.
#pragma once

#include <string_view>

#include "messaging/named_lists.h"

namespace quil {

struct FoundNode {
    DataNode* node = nullptr;  // the first of that name, or null
    DataNode* last = nullptr;  // the list's last node, when there is none of that name
};

// `name` has at most 255 bytes.
FoundNode FindInList(DataNode* list, std::string_view name);
// Takes note of a node that was linked behind the list's last one.
void NoteNewNode(DataNode* list, DataNode* node);
void DropListIndex(DataNode* list);  // null is allowed

}  // namespace quil
