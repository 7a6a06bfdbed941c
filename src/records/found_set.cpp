#include "records/found_set.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <span>
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

// --- by hash tables, which take as long as the sets ------------------------------------------------------------------

struct Release {
    void operator()(void* block) const { allocator().release(block); }
};
template <class T>
using Block = std::unique_ptr<T[], Release>;
template <class T>
Block<T> newBlock(std::size_t count) {
    return Block<T>(static_cast<T*>(allocator().allocateZeroed(count * sizeof(T))));
}

std::uint64_t hashOf(const FoundItem& item) {
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

// Where an item of a set is, and some of the hash of its ID.
struct Entry {
    std::uint32_t hash;
    std::uint32_t index;
};

// A set's entries in 2^bits parts by hash, in each in the order of the set. Equal IDs are in the same part, of
// whichever set; a part and its table are small enough for the processor's cache.
class Parts {
  public:
    Parts(const FoundSet& set, int bits)
        : items_(set.items),
          entries_(newBlock<Entry>(set.count)),
          ends_(newBlock<std::uint32_t>(std::size_t{1} << bits)) {
        if (!allocated()) {
            return;
        }
        const auto partOf = [bits](std::uint64_t hash) { return hash >> 32 & ((std::uint64_t{1} << bits) - 1); };
        for (std::uint32_t i = 0; i < set.count; ++i) {
            fetchAhead(set, i);
            ++ends_[partOf(hashOf(set.items[i]))];
        }
        // First the parts' starts, which become their ends as the entries come in.
        std::exclusive_scan(ends_.get(), ends_.get() + (std::size_t{1} << bits), ends_.get(), std::uint32_t{0});
        for (std::uint32_t i = 0; i < set.count; ++i) {
            fetchAhead(set, i);
            const std::uint64_t hash = hashOf(set.items[i]);
            entries_[ends_[partOf(hash)]++] = {static_cast<std::uint32_t>(hash), i};
        }
    }
    bool allocated() const { return entries_ != nullptr && ends_ != nullptr; }

    std::span<const Entry> part(std::uint32_t n) const {
        return {entries_.get() + (n == 0 ? 0 : ends_[n - 1]), entries_.get() + ends_[n]};
    }
    const FoundItem& item(const Entry& entry) const { return items_[entry.index]; }

  private:
    // The processor itself does not look beyond a page of memory.
    static void fetchAhead(const FoundSet& set, std::uint32_t i) {
        __builtin_prefetch(&set.items[std::min(i + 64, set.count - 1)]);
    }

    const FoundItem* items_;
    Block<Entry> entries_;
    Block<std::uint32_t> ends_;
};

// For sets of so many items: parts of a few thousand.
int partBits(std::uint32_t count) {
    return static_cast<int>(std::bit_width(count >> 12));
}

// The distinct IDs of one part after the other, found by their text: places at most half full, tried in turn.
class PartTable {
  public:
    // `questions`: how many IDs will be looked for.
    PartTable(const Parts& parts, int bits, std::uint64_t questions) : parts_(parts), steps_(questions * gTableSteps) {
        std::size_t largest = 0;
        for (std::uint32_t n = 0; n < 1U << bits; ++n) {
            largest = std::max(largest, parts_.part(n).size());
        }
        mask_ = std::bit_ceil(largest * 2 + 1) - 1;
        places_ = newBlock<std::uint32_t>(mask_ + 1);
    }
    bool allocated() const { return places_ != nullptr; }
    // False when the IDs meet in the same places so often that sorting them is faster.
    bool works() const { return steps_ != 0; }

    void begin(std::uint32_t part) {
        entries_ = parts_.part(part);
        std::fill_n(places_.get(), mask_ + 1, 0);
    }
    // Whether an item of this part has the first such ID in it.
    bool addNext(std::uint32_t position) {
        std::uint32_t& place = placeOf(entries_[position], parts_.item(entries_[position]));
        if (place != 0) {
            return false;
        }
        place = position + 1;
        return true;
    }
    // Whether an item's ID is in this part, the first time that it is looked for.
    bool take(const Entry& entry, const FoundItem& item) {
        std::uint32_t& place = placeOf(entry, item);
        if (place == 0 || (place & kTaken) != 0) {
            return false;
        }
        place |= kTaken;
        return true;
    }

  private:
    static constexpr std::uint32_t kTaken = 0x80000000;  // a set of 4 GiB has fewer items

    // The place that holds the ID, or the empty one where it belongs.
    std::uint32_t& placeOf(const Entry& entry, const FoundItem& item) {
        for (std::size_t at = entry.hash & mask_;; at = (at + 1) & mask_) {
            steps_ -= steps_ != 0 ? 1 : 0;
            if (places_[at] == 0) {
                return places_[at];
            }
            const Entry& other = entries_[(places_[at] & ~kTaken) - 1];
            if (other.hash == entry.hash && sameID(parts_.item(other), item)) {
                return places_[at];
            }
        }
    }

    const Parts& parts_;
    std::uint64_t steps_;  // left
    std::size_t mask_ = 0;
    Block<std::uint32_t> places_;
    std::span<const Entry> entries_;
};

// One bit for each item of a set: whether it is kept.
class Kept {
  public:
    explicit Kept(std::uint32_t count) : bits_(newBlock<std::uint64_t>(std::size_t{count} / 64 + 1)) {}
    bool allocated() const { return bits_ != nullptr; }
    void add(const Entry& entry) { bits_[entry.index / 64] |= std::uint64_t{1} << entry.index % 64; }

    // Drops the other items. What stays keeps its order and its old position as tempIndex, like after sorting back.
    void applyTo(FoundSet& set) const {
        std::uint32_t kept = 0;
        for (std::uint32_t i = 0; i < set.count; ++i) {
            if ((bits_[i / 64] >> i % 64 & 1) != 0) {
                if (kept != i) {
                    set.items[kept] = set.items[i];
                }
                set.items[kept++].tempIndex = i;
            }
        }
        set.count = kept;
    }

  private:
    Block<std::uint64_t> bits_;
};

// False, with the set as it was, when sorting has to do it.
bool removeDuplicatesByTable(FoundSet& set) {
    const int bits = partBits(set.count);
    const Parts parts(set, bits);
    Kept kept(set.count);
    if (!parts.allocated() || !kept.allocated()) {
        return false;
    }
    PartTable table(parts, bits, set.count);
    if (!table.allocated()) {
        return false;
    }
    for (std::uint32_t n = 0; n < 1U << bits && table.works(); ++n) {
        table.begin(n);
        const std::span<const Entry> part = parts.part(n);
        for (std::uint32_t i = 0; i < part.size(); ++i) {
            if (table.addNext(i)) {
                kept.add(part[i]);
            }
        }
    }
    if (table.works()) {
        kept.applyTo(set);
    }
    return table.works();
}

bool intersectByTable(FoundSet& a, const FoundSet& b) {
    const int bits = partBits(std::max(a.count, b.count));
    const Parts partsOfA(a, bits);
    const Parts partsOfB(b, bits);
    Kept kept(a.count);
    if (!partsOfA.allocated() || !partsOfB.allocated() || !kept.allocated()) {
        return false;
    }
    PartTable table(partsOfB, bits, std::uint64_t{a.count} + b.count);
    if (!table.allocated()) {
        return false;
    }
    for (std::uint32_t n = 0; n < 1U << bits && table.works(); ++n) {
        table.begin(n);
        for (std::uint32_t i = 0; i < partsOfB.part(n).size(); ++i) {
            table.addNext(i);
        }
        for (const Entry& entry : partsOfA.part(n)) {
            if (table.take(entry, partsOfA.item(entry))) {
                kept.add(entry);
            }
        }
    }
    if (table.works()) {
        kept.applyTo(a);
    }
    return table.works();
}

constexpr std::uint32_t kFewItems = 32;  // sorted before a table is made

}  // namespace

void SortAndRemoveDuplicates(FoundSet& set) {
    if (set.items == nullptr || set.count < 2) {
        return;
    }
    if (set.count <= kFewItems || !removeDuplicatesByTable(set)) {
        removeDuplicatesBySorting(set);
    }
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
