#include "records/found_set.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
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
    id.copy(item.id, kFoundIDSize - 1);
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
    std::array<std::uint32_t, 6> words;  // three pairs, the heaviest first; in a pair the heavier one second
    std::uint32_t index;                 // position in the set

    std::uint64_t part(std::size_t n) const { return std::uint64_t{words[2 * n + 1]} << 32 | words[2 * n]; }
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

std::uint32_t loadForward(const char* bytes) {
    const auto at = [bytes](int i) { return std::uint32_t{static_cast<unsigned char>(bytes[i])}; };
    return at(0) << 24 | at(1) << 16 | at(2) << 8 | at(3);
}

std::uint32_t loadBackward(const char* bytes) {
    const auto at = [bytes](int i) { return std::uint32_t{static_cast<unsigned char>(bytes[i])}; };
    return at(3) << 24 | at(2) << 16 | at(1) << 8 | at(0);
}

// The four bytes of each number by turns, those of `first` first.
std::uint64_t interleave(std::uint32_t first, std::uint32_t second) {
    const auto spread = [](std::uint64_t x) {
        x = (x | x << 16) & 0x0000FFFF0000FFFFULL;
        return (x | x << 8) & 0x00FF00FF00FF00FFULL;
    };
    return spread(first) << 8 | spread(second);
}

SortKey makeKey(const FoundItem& item, std::uint32_t index) {
    static constexpr std::uint64_t kSigns = 0x8080808080808080ULL;  // signed order as unsigned
    static constexpr std::uint32_t kThree = 0xFFFFFF00U;            // the last three bytes of each end
    const char* id = item.id;
    SortKey key{};
    const auto put = [&key](std::size_t n, std::uint64_t part) {
        key.words[2 * n] = static_cast<std::uint32_t>(part);
        key.words[2 * n + 1] = static_cast<std::uint32_t>(part >> 32);
    };
    put(0, interleave(loadForward(id), loadBackward(id + 18)) ^ kSigns);
    put(1, interleave(loadForward(id + 4), loadBackward(id + 14)) ^ kSigns);
    put(2, interleave(loadForward(id + 8) & kThree, loadBackward(id + 10) & kThree) ^ kSigns);
    key.index = index;
    return key;
}

// In which of 2^bits parts an ID belongs: any function of the compared bytes alone.
std::uint32_t partOf(const FoundItem& item, int bits) {
    const auto load = [&item](std::size_t at) {
        std::uint64_t value;
        std::memcpy(&value, item.id + at, sizeof value);
        return value;
    };
    static_assert(kComparedIDBytes == 22);
    std::uint64_t hash = load(0) * 0x9E3779B97F4A7C15ULL + load(8) * 0xC2B2AE3D27D4EB4FULL;
    hash = ((hash ^ hash >> 32) + load(14)) * 0x165667B19E3779F9ULL;
    return static_cast<std::uint32_t>(hash >> 32 & ((1U << bits) - 1));
}

struct Release {
    void operator()(void* block) const { allocator().release(block); }
};
template <class T>
std::unique_ptr<T[], Release> newBlock(std::size_t count) {
    return std::unique_ptr<T[], Release>(static_cast<T*>(allocator().allocateZeroed(count * sizeof(T))));
}

// A set's keys in parts, each sorted by ID and then by position. Equal IDs are in the same part, of whichever set, so
// sets are compared part by part; a part is small enough to be sorted in the processor's cache.
struct SortedKeys {
    std::unique_ptr<SortKey[], Release> keys;
    std::unique_ptr<std::uint32_t[], Release> ends;  // of the parts

    std::span<SortKey> part(std::uint32_t n) const {
        const std::uint32_t start = n == 0 ? 0 : ends[n - 1];
        return {keys.get() + start, keys.get() + ends[n]};
    }
};

// For sets of so many items: 2^bits parts of a few thousand.
int partBits(std::uint32_t count) {
    return static_cast<int>(std::bit_width(count >> 12));
}

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

// Sorts a set's keys in 2^bits parts. False when memory cannot be had.
bool sortKeys(const FoundSet& set, int bits, SortedKeys& sorted) {
    const std::uint32_t parts = 1U << bits;
    sorted.keys = newBlock<SortKey>(set.count);
    sorted.ends = newBlock<std::uint32_t>(parts);
    if (sorted.keys == nullptr || sorted.ends == nullptr) {
        return false;
    }
    for (std::uint32_t i = 0; i < set.count; ++i) {
        ++sorted.ends[partOf(set.items[i], bits)];
    }
    // First the parts' starts, which become their ends as the keys come in.
    std::exclusive_scan(sorted.ends.get(), sorted.ends.get() + parts, sorted.ends.get(), std::uint32_t{0});
    for (std::uint32_t i = 0; i < set.count; ++i) {
        sorted.keys[sorted.ends[partOf(set.items[i], bits)]++] = makeKey(set.items[i], i);
    }
    for (std::uint32_t n = 0; n < parts; ++n) {
        if (const std::span<SortKey> part = sorted.part(n); part.size() > 1) {
            MixItUpSome(part);
            std::sort(part.begin(), part.end());
        }
    }
    return true;
}

// One bit for each item of a set: whether it is kept.
class Kept {
  public:
    explicit Kept(std::uint32_t count) : bits_(newBlock<std::uint64_t>(std::size_t{count} / 64 + 1)) {}
    bool allocated() const { return bits_ != nullptr; }
    void add(std::uint32_t item) { bits_[item / 64] |= std::uint64_t{1} << item % 64; }

    // Adds those keys' items that are the first of their ID and that `isWanted` takes; it sees the IDs in their order.
    template <class IsWanted>
    void addFirsts(std::span<const SortKey> part, IsWanted isWanted) {
        for (std::size_t i = 0; i < part.size(); ++i) {
            if ((i == 0 || !part[i].sameID(part[i - 1])) && isWanted(part[i])) {
                add(part[i].index);
            }
        }
    }

    // Drops the other items of the set. What stays keeps its order and takes its old position as tempIndex, like after
    // a sort back.
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
    std::unique_ptr<std::uint64_t[], Release> bits_;
};

}  // namespace

std::int32_t SortAndRemoveDuplicates(FoundSet& set) {
    if (set.items == nullptr || set.count < 2) {
        return 0;
    }
    const int bits = partBits(set.count);
    Kept kept(set.count);
    SortedKeys sorted;
    if (!kept.allocated() || !sortKeys(set, bits, sorted)) {
        return kOutOfMemory;
    }
    for (std::uint32_t n = 0; n < 1U << bits; ++n) {
        kept.addFirsts(sorted.part(n), [](const SortKey&) { return true; });
    }
    kept.applyTo(set);
    return 0;
}

std::int32_t AndBooleanSets(FoundSet& a, FoundSet& b) {
    if (a.count == 0 || b.count == 0) {
        DisposeSet(a);
        DisposeSet(b);
        return 0;
    }
    const int bits = partBits(std::max(a.count, b.count));
    Kept kept(a.count);
    SortedKeys sortedA;
    SortedKeys sortedB;
    if (!kept.allocated() || !sortKeys(a, bits, sortedA) || !sortKeys(b, bits, sortedB)) {
        return kOutOfMemory;
    }
    for (std::uint32_t n = 0; n < 1U << bits; ++n) {
        const std::span<const SortKey> part = sortedB.part(n);
        kept.addFirsts(sortedA.part(n), [part, at = std::size_t{0}](const SortKey& key) mutable {
            while (at < part.size() && part[at].idLess(key)) {
                ++at;
            }
            return at < part.size() && part[at].sameID(key);
        });
    }
    kept.applyTo(a);
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
