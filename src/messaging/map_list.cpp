// The clean-up of LST2 lists.
#include "messaging/map_list.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>

#include "util/fhandle.h"
#include "util/memory.h"
#include "util/text.h"

namespace quil {

static constexpr std::int32_t kOutOfMemory = -108;
static constexpr char kDeleted = 1;            // marks text that is to be removed
static constexpr std::size_t kSmallGroup = 8;  // lines of one ID that are compared one by one

namespace {
template <typename T>
struct Release {
    void operator()(T* block) const { allocator().release(block); }
};
template <typename T>
using Array = std::unique_ptr<T[], Release<T>>;
template <typename T>
Array<T> newArray(std::size_t count) {
    return Array<T>(static_cast<T*>(allocator().allocateZeroed(count * sizeof(T))));
}
}  // namespace

// mytoupper from a table: every byte of a long list passes here.
static constexpr std::array<char, 256> kUpper = [] {
    std::array<char, 256> upper{};
    for (std::size_t i = 0; i < upper.size(); ++i) {
        upper[i] = static_cast<char>(i >= 'a' && i <= 'z' ? i - 'a' + 'A' : i);
    }
    return upper;
}();
static char upper(char c) {
    return kUpper[static_cast<unsigned char>(c)];
}

static bool isLineEnd(char c) {
    return c == '\r' || c == 0;
}

bool ValidLST2Line(const char* line) {
    for (std::size_t i = 0; i < kObjectKeySize; ++i) {
        if ((line[i] < '0' || line[i] > '9') && (line[i] < 'A' || line[i] > 'F')) {
            return false;
        }
    }
    return line[kObjectKeySize] == '\t';
}

void MarkLineForDeletion(char* line) {
    char* end = line + std::strcspn(line, "\r");
    end += *end == '\r' ? 1 : 0;
    std::fill(line, end, kDeleted);
}

bool LinesMatchNoCase(const char* a, const char* b) {
    for (;; ++a, ++b) {
        if (isLineEnd(*a) || isLineEnd(*b)) {
            return isLineEnd(*a) && isLineEnd(*b);
        }
        if (upper(*a) != upper(*b)) {
            return false;
        }
    }
}

bool GeolensIdStringsMatch(const char* a, const char* b) {
    return std::strncmp(a, b, kObjectKeySize) == 0;
}

// Eight bytes of a key as a number that is ordered as they are.
static std::uint64_t halfOfKey(const char* bytes) {
    std::uint64_t number;
    std::memcpy(&number, bytes, sizeof number);
    return std::endian::native == std::endian::little ? __builtin_bswap64(number) : number;
}

int CompareIndexRecords(const void* a, const void* b) {
    const auto* const first = static_cast<const LineRecord*>(a);
    const auto* const second = static_cast<const LineRecord*>(b);
    // Keys are padded with NULs, so comparing all 16 bytes is strcmp.
    for (std::size_t half = 0; half < kObjectKeySize; half += 8) {
        const std::uint64_t a8 = halfOfKey(first->key + half);
        const std::uint64_t b8 = halfOfKey(second->key + half);
        if (a8 != b8) {
            return a8 < b8 ? -1 : 1;
        }
    }
    return first->lineStart < second->lineStart ? -1 : static_cast<int>(first->lineStart > second->lineStart);
}

// One record for each counted line. There can be more of them than lines, for a LF counts too: the rest are empty.
static void indexLines(const char* text, std::span<LineRecord> records) {
    const char* line = text;
    for (LineRecord& record : records) {
        record.lineStart = static_cast<std::int32_t>(line - text);
        std::size_t i = 0;
        for (; i < kObjectKeySize && !isLineEnd(line[i]) && line[i] != '\t'; ++i) {
            record.key[i] = upper(line[i]);
        }
        line += i;
        line += std::strcspn(line, "\r");
        line += *line == '\r' ? 1 : 0;
    }
}

// Of a line in any letter case: FNV-1a, mixed.
static std::uint64_t hashOfLine(const char* line) {
    std::uint64_t hash = 14695981039346656037ULL;
    for (; !isLineEnd(*line); ++line) {
        hash = (hash ^ static_cast<unsigned char>(upper(*line))) * 1099511628211ULL;
    }
    return (hash ^ hash >> 32) * 0x9E3779B97F4A7C15ULL;
}

namespace {
// The lines of a large group that were kept: open addressing, at most half full.
struct KeptLine {
    std::uint32_t hash;
    std::int32_t start;  // counted from 1; 0: free
};
}  // namespace

// Marks the lines of one ID that are malformed or equal an earlier one. `table` is zeroed, and again at the end.
static void markGroup(char* text, std::span<const LineRecord> group, std::span<KeptLine> table) {
    std::size_t slots = 2;
    while (slots < 2 * group.size()) {
        slots *= 2;
    }
    for (const LineRecord& record : group) {
        char* const line = text + record.lineStart;
        if (!ValidLST2Line(line)) {
            MarkLineForDeletion(line);
            continue;
        }
        const std::uint64_t hash = hashOfLine(line);
        std::size_t slot = (hash >> 32) & (slots - 1);
        const auto low = static_cast<std::uint32_t>(hash);
        while (table[slot].start != 0 &&
               (table[slot].hash != low || !LinesMatchNoCase(text + table[slot].start - 1, line))) {
            slot = (slot + 1) & (slots - 1);
        }
        if (table[slot].start != 0) {
            MarkLineForDeletion(line);
        } else {
            table[slot] = {low, record.lineStart + 1};
        }
    }
    std::fill_n(table.begin(), slots, KeptLine{});
}

// The same for few lines.
static void markSmallGroup(char* text, std::span<const LineRecord> group) {
    for (std::size_t r = 0; r < group.size(); ++r) {
        char* const line = text + group[r].lineStart;
        const bool repeated = std::any_of(
            group.begin(), group.begin() + static_cast<std::ptrdiff_t>(r),
            [text, line](const LineRecord& earlier) { return LinesMatchNoCase(text + earlier.lineStart, line); });
        if (repeated || !ValidLST2Line(line)) {
            MarkLineForDeletion(line);
        }
    }
}

std::int32_t CleanUpLST2(char** text) {
    const auto lines = static_cast<std::size_t>(NumLinesInText(*text));
    if (lines < 2) {
        return 0;
    }
    const Array<LineRecord> memory = newArray<LineRecord>(lines);
    if (memory == nullptr) {
        return kOutOfMemory;
    }
    const std::span<LineRecord> records(memory.get(), lines);
    indexLines(*text, records);
    // Lists often come in order, and this sort has no bad order that would have to be shuffled away first.
    const auto before = [](const LineRecord& a, const LineRecord& b) { return CompareIndexRecords(&a, &b) < 0; };
    if (!std::is_sorted(records.begin(), records.end(), before)) {
        std::sort(records.begin(), records.end(), before);
    }

    const auto endOfGroup = [&records](std::size_t first) {
        std::size_t end = first + 1;
        while (end < records.size() && GeolensIdStringsMatch(records[first].key, records[end].key)) {
            ++end;
        }
        return end;
    };
    std::size_t largest = 0;
    for (std::size_t first = 0, end = 0; first < lines; first = end) {
        end = endOfGroup(first);
        largest = std::max(largest, end - first);
    }
    Array<KeptLine> table;
    if (largest > kSmallGroup) {
        table = newArray<KeptLine>(4 * largest);
        if (table == nullptr) {
            return kOutOfMemory;
        }
    }
    for (std::size_t first = 0, end = 0; first < lines; first = end) {
        end = endOfGroup(first);
        const std::span<const LineRecord> group = records.subspan(first, end - first);
        if (group.size() <= kSmallGroup) {
            markSmallGroup(*text, group);
        } else {
            markGroup(*text, group, {table.get(), 4 * largest});
        }
    }
    char* const textEnd = *text + std::strlen(*text);
    char* const newEnd = std::remove(*text, textEnd, kDeleted);
    *newEnd = 0;
    return SetFHandleSize(text, static_cast<unsigned long>(newEnd - *text) + 1);
}

}  // namespace quil
