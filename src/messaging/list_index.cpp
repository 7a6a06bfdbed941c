#include "messaging/list_index.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "util/memory.h"

namespace quil {

static constexpr std::size_t kIndexedLength = 16;  // a search that passes so many nodes makes the index

namespace {
struct Slot {
    DataNode* node;
    std::uint32_t hash;
};
}  // namespace

// Open addressing, at most half full. The slots stand behind the record.
struct ListIndex {
    std::size_t capacity;  // a power of two
    std::size_t used;
    DataNode* tail;

    Slot* slots() { return reinterpret_cast<Slot*>(this + 1); }
};

// FNV-1a.
static std::uint32_t hashOf(std::string_view name) {
    std::uint32_t hash = 2166136261U;
    for (const char c : name) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
    }
    return hash ^ hash >> 16;
}

static bool hasName(const DataNode* node, std::string_view name) {
    return std::strncmp(node->name, name.data(), name.size()) == 0 && node->name[name.size()] == 0;
}

// The slot of the name, or the empty one where it belongs.
static Slot& slotOf(ListIndex& index, std::string_view name, std::uint32_t hash) {
    std::size_t at = hash & (index.capacity - 1);
    Slot* slots = index.slots();
    while (slots[at].node != nullptr && (slots[at].hash != hash || !hasName(slots[at].node, name))) {
        at = (at + 1) & (index.capacity - 1);
    }
    return slots[at];
}

static void enter(ListIndex& index, DataNode* node) {
    const std::string_view name = node->name;
    const std::uint32_t hash = hashOf(name);
    Slot& slot = slotOf(index, name, hash);
    if (slot.node == nullptr) {  // renaming can make two nodes of one name: the first counts
        slot = {node, hash};
        ++index.used;
    }
    index.tail = node;
}

static void makeIndex(DataNode* list) {
    const std::size_t capacity = std::bit_ceil(static_cast<std::size_t>(NumDataItemsInList(list)) * 4);
    void* block = allocator().allocateZeroed(sizeof(ListIndex) + capacity * sizeof(Slot));
    if (block == nullptr) {
        return;
    }
    list->index = static_cast<ListIndex*>(block);
    list->index->capacity = capacity;
    for (DataNode* node = list; node != nullptr; node = node->next) {
        enter(*list->index, node);
    }
}

FoundNode FindInList(DataNode* list, std::string_view name) {
    if (list == nullptr) {
        return {};
    }
    if (list->index != nullptr) {
        const Slot& slot = slotOf(*list->index, name, hashOf(name));
        return {slot.node, slot.node == nullptr ? list->index->tail : nullptr};
    }
    FoundNode found;
    std::size_t passed = 0;
    for (DataNode* node = list; node != nullptr && found.node == nullptr; node = node->next) {
        if (hasName(node, name)) {
            found = {node, nullptr};
        } else {
            found.last = node;
            ++passed;
        }
    }
    if (passed >= kIndexedLength) {
        makeIndex(list);
    }
    return found;
}

void NoteNewNode(DataNode* list, DataNode* node) {
    ListIndex* index = list->index;
    if (index == nullptr) {
        return;
    }
    if ((index->used + 1) * 2 > index->capacity) {
        DropListIndex(list);  // the next search makes a larger one
    } else {
        enter(*index, node);
    }
}

void DropListIndex(DataNode* list) {
    if (list != nullptr) {
        allocator().release(list->index);
        list->index = nullptr;
    }
}

}  // namespace quil
