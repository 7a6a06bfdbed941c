#include "records/found_set.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "util/memory.h"

namespace quil {

// State of this file.
FoundSet gFoundSet{};                  // what scripts collect and read
FoundSet gSavedSet{};                  // one set put aside
FoundSet gBooleanSet[kBooleanSets]{};  // operands of AND and OR
std::uint32_t gTableSteps = 16;        // places that an ID may look at, on average

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
    id.copy(item.id, kFoundIDSize - 1);
}

std::size_t LengthOfID(const FoundItem& item) {
    // Behind its end the field is zeros, so the last byte that is none tells.
    static_assert(std::endian::native == std::endian::little && kFoundIDSize % sizeof(std::uint64_t) == 0);
    for (std::size_t at = kFoundIDSize; at != 0;) {
        at -= sizeof(std::uint64_t);
        std::uint64_t word = 0;
        std::memcpy(&word, item.id + at, sizeof word);
        if (word != 0) {
            return at + (static_cast<std::size_t>(std::bit_width(word)) + 7) / 8;
        }
    }
    return 0;
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

bool sameID(const FoundItem& a, const FoundItem& b) {
    return std::memcmp(a.id, b.id, kComparedIDBytes) == 0;
}

// --- by sorting, which needs no memory -------------------------------------------------------------------------------

// A light shuffle before each sort, so that a list that is sorted already, the usual case, is none for the sort. The
// last item is never picked, deliberately: the modulus is count - 1.
void MixItUpSome(FoundSet& set) {
    const std::uint32_t modulus = set.count - 1;
    for (std::uint32_t times = set.count / 40 + 1; times > 0; --times) {
        const std::uint32_t i = static_cast<std::uint32_t>(std::rand()) % modulus;
        const std::uint32_t j = static_cast<std::uint32_t>(std::rand()) % modulus;
        if (i != j) {
            std::swap(set.items[i], set.items[j]);
        }
    }
}

void sortByID(FoundSet& set) {
    if (set.count > 1) {
        MixItUpSome(set);
        std::sort(set.items, set.items + set.count,
                  [](const FoundItem& a, const FoundItem& b) { return CompareIDStrThenTempIndex(&a, &b) < 0; });
    }
}

void sortByTempIndex(FoundSet& set) {
    std::sort(set.items, set.items + set.count,
              [](const FoundItem& a, const FoundItem& b) { return CompareTempIndex(&a, &b) < 0; });
}

void removeDuplicatesBySorting(FoundSet& set) {
    SetTempIndex(set);
    sortByID(set);
    set.count = static_cast<std::uint32_t>(std::unique(set.items, set.items + set.count, sameID) - set.items);
    sortByTempIndex(set);
}

void intersectBySorting(FoundSet& a, FoundSet& b) {
    SetTempIndex(a);
    sortByID(a);
    sortByID(b);
    std::uint32_t kept = 0;
    std::uint32_t inB = 0;
    for (std::uint32_t inA = 0; inA < a.count; ++inA) {
        const FoundItem item = a.items[inA];
        while (inB < b.count && CompareIDStrOnly(&b.items[inB], &item) < 0) {
            ++inB;
        }
        if (inB == b.count) {
            break;
        }
        if (sameID(item, b.items[inB]) && (kept == 0 || !sameID(item, a.items[kept - 1]))) {
            a.items[kept++] = item;
        }
    }
    a.count = kept;
    sortByTempIndex(a);
}

// --- by a hash table, which takes as long as the sets ----------------------------------------------------------------

// The distinct IDs of a set, found by their text: places of a table at most half full, tried one behind the other. The
// set's array has to stay; items may move as long as the table is told where an ID is first put.
class IDTable {
  public:
    // For the IDs of a set, of which `questions` will be asked.
    IDTable(const FoundSet& set, std::uint64_t questions)
        : items_(set.items),
          size_(std::uint64_t{set.count} * 2 + 1),
          steps_(questions * gTableSteps),
          places_(static_cast<std::uint64_t*>(allocator().allocateZeroed(size_ * sizeof(std::uint64_t)))) {}
    ~IDTable() { allocator().release(places_); }
    IDTable(const IDTable&) = delete;
    IDTable& operator=(const IDTable&) = delete;

    // False without memory, and when the IDs meet in the same places so often that sorting them is faster.
    bool works() const { return places_ != nullptr && steps_ != 0; }

    // Calls `each` with the positions of a set's items in turn and the hashes of their IDs, as long as the table works.
    // Where an ID belongs is a place in memory that nobody foresees, so the memory is told of many ahead. Returns the
    // number of items that had their turn.
    template <typename Each>
    std::uint32_t forEach(const FoundSet& set, Each each) {
        std::array<std::uint64_t, 32> hashes;
        std::uint32_t start = 0;
        while (works() && start < set.count) {
            const std::uint32_t some = std::min(static_cast<std::uint32_t>(hashes.size()), set.count - start);
            for (std::uint32_t i = 0; i < some; ++i) {
                hashes[i] = hashOf(set.items[start + i]);
                __builtin_prefetch(&places_[firstPlace(hashes[i])], 1);
            }
            for (std::uint32_t i = 0; i < some; ++i) {
                __builtin_prefetch(&items_[places_[firstPlace(hashes[i])] & kPosition]);
            }
            for (std::uint32_t i = 0; i < some; ++i) {
                each(start + i, hashes[i]);
            }
            start += some;
        }
        return start;
    }

    // Whether the ID was not there; it is now, as that of item `position`.
    bool add(const FoundItem& item, std::uint64_t hash, std::uint32_t position) {
        std::uint64_t* const place = placeOf(item, hash);
        if (*place != 0) {
            return false;
        }
        *place = (hash & kTag) | (position + 1);
        return true;
    }

    // Whether the ID is there, the first time that it is asked for.
    bool take(const FoundItem& item, std::uint64_t hash) {
        std::uint64_t* const place = placeOf(item, hash);
        if (*place == 0 || (*place & kTaken) != 0) {
            return false;
        }
        *place |= kTaken;
        return true;
    }

  private:
    // In a place: the upper half of the hash, whether it was taken, the item's position from 1 on; 0 is empty.
    static constexpr std::uint64_t kTaken = 0x80000000;
    static constexpr std::uint64_t kPosition = kTaken - 1;  // a set of 4 GiB has fewer items
    static constexpr std::uint64_t kTag = 0xFFFFFFFF00000000;

    static std::uint64_t hashOf(const FoundItem& item) {
        const auto load = [&item](std::size_t at) {
            std::uint64_t value = 0;
            std::memcpy(&value, item.id + at, sizeof value);
            return value;
        };
        static_assert(kComparedIDBytes == 22);
        std::uint64_t hash = load(0) * 0x9E3779B97F4A7C15ULL + std::rotl(load(8) * 0xC2B2AE3D27D4EB4FULL, 29);
        hash = ((hash ^ hash >> 32) + load(14)) * 0x165667B19E3779F9ULL;
        return (hash ^ hash >> 29) * 0x9E3779B97F4A7C15ULL;
    }

    std::uint64_t firstPlace(std::uint64_t hash) const { return (hash & ~kTag) * size_ >> 32; }

    // The place that holds the ID, or the empty one where it belongs.
    std::uint64_t* placeOf(const FoundItem& item, std::uint64_t hash) {
        const std::uint64_t tag = hash & kTag;
        std::uint64_t at = firstPlace(hash);
        while (places_[at] != 0 &&
               ((places_[at] & kTag) != tag || !sameID(items_[(places_[at] & kPosition) - 1], item))) {
            at = at + 1 == size_ ? 0 : at + 1;
            steps_ -= steps_ != 0 ? 1 : 0;
        }
        steps_ -= steps_ != 0 ? 1 : 0;
        return &places_[at];
    }

    const FoundItem* items_;
    std::uint64_t size_;
    std::uint64_t steps_;  // left
    std::uint64_t* places_;
};

// Keeps those items of a set that `isKept` takes, in their order, each with its old position. It sees an item, the hash
// of its ID and the position that it will have. What the table did not come to stays.
template <typename IsKept>
void keepItems(FoundSet& set, IDTable& table, IsKept isKept) {
    std::uint32_t kept = 0;
    const std::uint32_t done = table.forEach(set, [&](std::uint32_t i, std::uint64_t hash) {
        FoundItem item = set.items[i];
        if (isKept(item, hash, kept)) {
            item.tempIndex = i;
            set.items[kept++] = item;
        }
    });
    std::copy(set.items + done, set.items + set.count, set.items + kept);
    set.count = kept + (set.count - done);
}

constexpr std::uint32_t kFewItems = 32;  // sorted before a table is made

}  // namespace

void SortAndRemoveDuplicates(FoundSet& set) {
    if (set.items == nullptr || set.count < 2) {
        return;
    }
    if (set.count > kFewItems) {
        IDTable table(set, set.count);
        keepItems(set, table, [&table](const FoundItem& item, std::uint64_t hash, std::uint32_t position) {
            return table.add(item, hash, position);
        });
        if (table.works()) {
            return;
        }
    }
    removeDuplicatesBySorting(set);
}

// Whether the table did it all; if not, the result is the same as if it had done nothing.
static bool intersectByTable(FoundSet& a, const FoundSet& b) {
    IDTable table(b, std::uint64_t{a.count} + b.count);
    table.forEach(b, [&](std::uint32_t i, std::uint64_t hash) { table.add(b.items[i], hash, i); });
    if (table.works()) {
        keepItems(a, table, [&table](const FoundItem& item, std::uint64_t hash, std::uint32_t) {
            return table.take(item, hash);
        });
    }
    return table.works();
}

std::int32_t AndBooleanSets(FoundSet& a, FoundSet& b) {
    if (a.count == 0 || b.count == 0) {
        DisposeSet(a);
    } else if (std::max(a.count, b.count) <= kFewItems || !intersectByTable(a, b)) {
        intersectBySorting(a, b);
    }
    DisposeSet(b);
    return 0;
}

std::int32_t OrBooleanSets(FoundSet& a, FoundSet& b) {
    if (a.count != 0 && b.count != 0) {
        FoundSet both{};
        const std::uint64_t total = std::uint64_t{a.count} + b.count;
        if (total > kMaxBlock || AllocateSet(both, static_cast<std::uint32_t>(total)) != 0) {
            DisposeSet(a);
            DisposeSet(b);
            return kOutOfMemory;
        }
        std::copy_n(a.items, a.count, both.items);
        std::copy_n(b.items, b.count, both.items + a.count);
        both.count = both.capacity;
        TransferSetFromTo(both, a);
    } else if (b.count != 0) {
        TransferSetFromTo(b, a);
    }
    DisposeSet(b);
    SortAndRemoveDuplicates(a);
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
