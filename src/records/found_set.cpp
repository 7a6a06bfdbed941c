#include "records/found_set.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

#include "util/memory.h"

namespace quil {

// State of this file.
FoundSet gFoundSet{};                  // what scripts collect and read
FoundSet gSavedSet{};                  // one set put aside
FoundSet gBooleanSet[kBooleanSets]{};  // operands of AND and OR

static constexpr std::int32_t kOutOfMemory = -108;
static constexpr std::uint64_t kMaxBlock = 0xFFFFFFFFULL;

std::int32_t AllocateSet(FoundSet& set, std::uint32_t capacity) {
    DisposeSet(set);
    const std::uint64_t bytes = std::uint64_t{capacity} * sizeof(FoundItem);
    if (bytes > kMaxBlock) {
        return kOutOfMemory;
    }
    set.items = static_cast<FoundItem*>(allocator().allocateZeroed(bytes));
    if (set.items == nullptr) {
        return kOutOfMemory;
    }
    set.capacity = capacity;
    return 0;
}

void DisposeSet(FoundSet& set) {
    allocator().release(set.items);
    set = FoundSet{};
}

void TransferSetFromTo(FoundSet& from, FoundSet& to) {
    if (&from == &to) {
        return;
    }
    DisposeSet(to);
    to = from;
    from = FoundSet{};
}

void AppendID(FoundSet& set, std::string_view id) {
    if (set.count >= set.capacity) {
        return;
    }
    FoundItem& item = set.items[set.count++];
    item = FoundItem{};
    std::memcpy(item.id, id.data(), std::min(id.size(), kFoundIDSize - 1));
}

static const FoundItem& asItem(const void* p) {
    return *static_cast<const FoundItem*>(p);
}

template <class T>
static int order(T a, T b) {
    return a < b ? -1 : (b < a ? 1 : 0);
}

int CompareIDStrOnly(const void* a, const void* b) {
    const char* idA = asItem(a).id;
    const char* idB = asItem(b).id;
    for (std::size_t i = 0; i < kComparedIDBytes / 2; ++i) {
        for (const std::size_t at : {i, kComparedIDBytes - 1 - i}) {
            if (const int result = order(static_cast<signed char>(idA[at]), static_cast<signed char>(idB[at]));
                result != 0) {
                return result;
            }
        }
    }
    return 0;
}

int CompareTempIndex(const void* a, const void* b) {
    return order(asItem(a).tempIndex, asItem(b).tempIndex);
}

int CompareIDStrThenTempIndex(const void* a, const void* b) {
    const int result = CompareIDStrOnly(a, b);
    return result != 0 ? result : CompareTempIndex(a, b);
}

void SetTempIndex(FoundSet& set) {
    for (std::uint32_t i = 0; i < set.count; ++i) {
        set.items[i].tempIndex = i;
    }
}

namespace {

// An item in the form that sorts fast: the compared bytes in the order of their weight, made unsigned, so that three
// 64-bit comparisons decide as CompareIDStrOnly does. Same size as an item.
struct SortKey {
    std::array<std::uint32_t, 6> words;  // heaviest first, as three pairs
    std::uint32_t index;                 // position in the set

    std::uint64_t part(std::size_t n) const { return std::uint64_t{words[2 * n]} << 32 | words[2 * n + 1]; }
    bool sameID(const SortKey& other) const { return words == other.words; }
    bool idLess(const SortKey& other) const {
        for (const std::size_t n : {0U, 1U, 2U}) {
            if (part(n) != other.part(n)) {
                return part(n) < other.part(n);
            }
        }
        return false;
    }
    bool operator<(const SortKey& other) const {
        for (const std::size_t n : {0U, 1U, 2U}) {
            if (part(n) != other.part(n)) {
                return part(n) < other.part(n);
            }
        }
        return index < other.index;
    }
};
static_assert(sizeof(SortKey) == sizeof(FoundItem));

SortKey makeKey(const FoundItem& item, std::uint32_t index) {
    SortKey key{};
    for (std::size_t i = 0; i < kComparedIDBytes; ++i) {
        const std::size_t at = i % 2 == 0 ? i / 2 : kComparedIDBytes - 1 - i / 2;
        const std::uint32_t byte = static_cast<unsigned char>(item.id[at]) ^ 0x80U;
        key.words[i / 4] |= byte << (24 - 8 * (i % 4));
    }
    key.index = index;
    return key;
}

struct Release {
    void operator()(SortKey* block) const { allocator().release(block); }
};
using Keys = std::unique_ptr<SortKey[], Release>;

// A light shuffle before each sort, so that a list that is sorted already, the usual case, is none for the sort. The
// last item is never picked, deliberately: the modulus is count - 1.
void MixItUpSome(std::span<SortKey> keys) {
    const std::size_t modulus = keys.size() - 1;
    for (std::size_t times = keys.size() / 40 + 1; times > 0; --times) {
        const std::size_t i = static_cast<std::size_t>(std::rand()) % modulus;
        const std::size_t j = static_cast<std::size_t>(std::rand()) % modulus;
        if (i != j) {
            std::swap(keys[i], keys[j]);
        }
    }
}

// The set's keys, sorted by ID and then by position. Null when memory cannot be had.
Keys sortedKeys(const FoundSet& set) {
    Keys keys(static_cast<SortKey*>(allocator().allocateZeroed(std::size_t{set.count} * sizeof(SortKey))));
    if (keys != nullptr) {
        for (std::uint32_t i = 0; i < set.count; ++i) {
            keys[i] = makeKey(set.items[i], i);
        }
        if (set.count > 1) {
            MixItUpSome({keys.get(), set.count});
            std::sort(keys.get(), keys.get() + set.count);
        }
    }
    return keys;
}

// Keeps the items whose mark is set, in their order. What is kept takes its position as tempIndex, like after a sort
// back.
void keepMarked(FoundSet& set) {
    std::uint32_t kept = 0;
    for (std::uint32_t i = 0; i < set.count; ++i) {
        if (set.items[i].tempIndex != 0) {
            set.items[kept] = set.items[i];
            set.items[kept].tempIndex = i;
            ++kept;
        }
    }
    set.count = kept;
}

void clearMarks(FoundSet& set) {
    for (std::uint32_t i = 0; i < set.count; ++i) {
        set.items[i].tempIndex = 0;
    }
}

}  // namespace

std::int32_t SortAndRemoveDuplicates(FoundSet& set) {
    if (set.items == nullptr || set.count < 2) {
        return 0;
    }
    const Keys keys = sortedKeys(set);
    if (keys == nullptr) {
        return kOutOfMemory;
    }
    clearMarks(set);
    for (std::uint32_t i = 0; i < set.count; ++i) {
        if (i == 0 || !keys[i].sameID(keys[i - 1])) {
            set.items[keys[i].index].tempIndex = 1;
        }
    }
    keepMarked(set);
    return 0;
}

std::int32_t AndBooleanSets(FoundSet& a, FoundSet& b) {
    if (a.count == 0 || b.count == 0) {
        DisposeSet(a);
        DisposeSet(b);
        return 0;
    }
    const Keys keysA = sortedKeys(a);
    const Keys keysB = keysA == nullptr ? nullptr : sortedKeys(b);
    if (keysB == nullptr) {
        return kOutOfMemory;
    }
    clearMarks(a);
    std::uint32_t j = 0;
    for (std::uint32_t i = 0; i < a.count; ++i) {
        if (i != 0 && keysA[i].sameID(keysA[i - 1])) {
            continue;
        }
        while (j < b.count && keysB[j].idLess(keysA[i])) {
            ++j;
        }
        if (j < b.count && keysB[j].sameID(keysA[i])) {
            a.items[keysA[i].index].tempIndex = 1;
        }
    }
    keepMarked(a);
    DisposeSet(b);
    return 0;
}

std::int32_t OrBooleanSets(FoundSet& a, FoundSet& b) {
    if (b.count == 0) {
        DisposeSet(b);
        return SortAndRemoveDuplicates(a);
    }
    if (a.count == 0) {
        TransferSetFromTo(b, a);
        return SortAndRemoveDuplicates(a);
    }
    FoundSet both{};
    const std::uint64_t total = std::uint64_t{a.count} + b.count;
    std::int32_t error = total > kMaxBlock ? kOutOfMemory : AllocateSet(both, static_cast<std::uint32_t>(total));
    if (error == 0) {
        std::copy_n(a.items, a.count, both.items);
        std::copy_n(b.items, b.count, both.items + a.count);
        both.count = both.capacity;
        DisposeSet(a);
        DisposeSet(b);
        error = SortAndRemoveDuplicates(both);
    }
    if (error != 0) {
        DisposeSet(both);
        DisposeSet(a);
        DisposeSet(b);
        return error;
    }
    TransferSetFromTo(both, a);
    return 0;
}

void ResetFoundSets() {
    DisposeSet(gFoundSet);
    DisposeSet(gSavedSet);
    for (FoundSet& set : gBooleanSet) {
        DisposeSet(set);
    }
}

}  // namespace quil
