#include "util/charset.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>

#include "util/charset_tables.h"
#include "util/memory.h"

namespace quil {
namespace {

using Byte = unsigned char;

constexpr charset::ToUtf8 kMacRomanToUtf8 = charset::makeToUtf8(charset::kMacRoman);
constexpr charset::ToUtf8 kWindows1252ToUtf8 = charset::makeToUtf8(charset::kWindows1252);
constexpr charset::FromUtf8 kMacRomanFromUtf8 = charset::makeFromUtf8(charset::kMacRoman);
constexpr charset::FromUtf8 kWindows1252FromUtf8 = charset::makeFromUtf8(charset::kWindows1252);

// UTF-8 is checked by a state machine whose states are shift counts: the row of a byte holds the following state of
// every state in six bits, so that one shift is all that a byte waits for of the byte before it.
enum State : unsigned {
    kBad = 0,
    kStart = 6,
    kNeed1 = 12,
    kNeed2 = 18,
    kNeed3 = 24,
    kAfterE0 = 30,
    kAfterED = 36,
    kAfterF0 = 42,
    kAfterF4 = 48
};

consteval std::array<std::uint64_t, 256> makeUtf8Machine() {
    std::array<std::uint64_t, 256> rows{};
    const auto add = [&rows](unsigned first, unsigned last, State from, State to) {
        for (unsigned byte = first; byte <= last; ++byte) {
            rows[byte] |= static_cast<std::uint64_t>(to) << from;
        }
    };
    add(0x00, 0x7F, kStart, kStart);
    add(0xC2, 0xDF, kStart, kNeed1);
    add(0xE0, 0xE0, kStart, kAfterE0);
    add(0xE1, 0xEC, kStart, kNeed2);
    add(0xED, 0xED, kStart, kAfterED);
    add(0xEE, 0xEF, kStart, kNeed2);
    add(0xF0, 0xF0, kStart, kAfterF0);
    add(0xF1, 0xF3, kStart, kNeed3);
    add(0xF4, 0xF4, kStart, kAfterF4);
    add(0x80, 0xBF, kNeed1, kStart);
    add(0x80, 0xBF, kNeed2, kNeed1);
    add(0x80, 0xBF, kNeed3, kNeed2);
    add(0xA0, 0xBF, kAfterE0, kNeed1);  // no overlong forms
    add(0x80, 0x9F, kAfterED, kNeed1);  // no surrogates
    add(0x90, 0xBF, kAfterF0, kNeed2);  // no overlong forms
    add(0x80, 0x8F, kAfterF4, kNeed2);  // nothing above U+10FFFF
    return rows;
}
constexpr std::array<std::uint64_t, 256> kUtf8Machine = makeUtf8Machine();

constexpr std::ptrdiff_t kBlock = 16;
constexpr std::uint64_t kHighBits = 0x8080808080808080ULL;

bool isAsciiBlock(const Byte* bytes) {
    std::uint64_t words[2];
    std::memcpy(words, bytes, kBlock);
    return ((words[0] | words[1]) & kHighBits) == 0;
}

bool isContinuation(Byte byte) {
    return (byte & 0xC0) == 0x80;
}

// Texts from this size on are read in two halves at once: what holds up either is the wait for its last byte.
constexpr std::size_t kWorthHalving = 512;

// The start of a character about the middle of a text; null when there is none, so that the text is malformed.
const Byte* middle(const Byte* bytes, std::size_t size) {
    const Byte* const half = bytes + size / 2;
    const Byte* const start = std::find_if_not(half, half + 4, isContinuation);
    return start == half + 4 ? nullptr : start;
}

bool isUtf8(const Byte* bytes, std::size_t size) {
    const Byte* const end = bytes + size;
    std::uint64_t state = kStart;
    if (size >= kWorthHalving) {
        const Byte* const half = middle(bytes, size);
        if (half == nullptr) {
            return false;
        }
        const Byte* second = half;
        std::uint64_t secondState = kStart;
        for (; half - bytes >= kBlock && end - second >= kBlock; bytes += kBlock, second += kBlock) {
            if ((state & 63) == kStart && (secondState & 63) == kStart && isAsciiBlock(bytes) && isAsciiBlock(second)) {
                continue;
            }
            for (std::ptrdiff_t i = 0; i < kBlock; ++i) {
                state = kUtf8Machine[bytes[i]] >> (state & 63);
                secondState = kUtf8Machine[second[i]] >> (secondState & 63);
            }
            if ((state & 63) == kBad || (secondState & 63) == kBad) {
                return false;
            }
        }
        for (; bytes < half; ++bytes) {
            state = kUtf8Machine[*bytes] >> (state & 63);
        }
        if ((state & 63) != kStart) {
            return false;
        }
        bytes = second;
        state = secondState;
    }
    for (; end - bytes >= kBlock; bytes += kBlock) {
        if ((state & 63) != kStart || !isAsciiBlock(bytes)) {
            for (std::ptrdiff_t i = 0; i < kBlock; ++i) {
                state = kUtf8Machine[bytes[i]] >> (state & 63);
            }
            if ((state & 63) == kBad) {
                return false;
            }
        }
    }
    for (; bytes < end; ++bytes) {
        state = kUtf8Machine[*bytes] >> (state & 63);
    }
    return (state & 63) == kStart;
}

void convertToUtf8(const charset::ToUtf8& forms, const char* src, char* dest, unsigned long destSize) {
    if (destSize == 0) {
        return;
    }
    dest[0] = 0;
    if (src == nullptr) {
        return;
    }
    const auto* in = reinterpret_cast<const Byte*>(src);
    const std::size_t length = std::strlen(src);
    if (isUtf8(in, length)) {
        if (length < destSize) {
            std::memcpy(dest, src, length + 1);
        }
        return;
    }
    const Byte* const inEnd = in + length;
    char* const destEnd = dest + destSize;
    const auto room = [&] { return static_cast<std::size_t>(destEnd - dest); };

    // While a block fits whatever it becomes, every character is stored as four bytes, of which the next covers the
    // rest.
    while (inEnd - in >= kBlock && destEnd - dest > 3 * kBlock + 1) {
        if (isAsciiBlock(in)) {
            std::memcpy(dest, in, kBlock);
            dest += kBlock;
        } else {
            for (std::ptrdiff_t i = 0; i < kBlock; ++i) {
                const charset::Utf8Form& form = forms[in[i]];
                std::memcpy(dest, form.bytes, 4);
                dest += form.length;
            }
        }
        in += kBlock;
    }
    for (; in < inEnd; ++in) {
        const charset::Utf8Form& form = forms[*in];
        if (room() < (form.length == 1 ? 2U : 3U)) {  // an ASCII byte also needs room for a terminator
            break;
        }
        std::memcpy(dest, form.bytes, form.length);
        dest += form.length;
    }
    if (room() != 0) {
        *dest = 0;
    }
}

// Bytes that are not the continuation of a character, counted eight at a time.
std::size_t countCharacters(const Byte* bytes, std::size_t size) {
    std::size_t count = size;
    std::size_t i = 0;
    for (; i + 8 <= size; i += 8) {
        std::uint64_t word;
        std::memcpy(&word, bytes + i, 8);
        const std::uint64_t continuations = (word >> 7 & ~(word >> 6)) & 0x0101010101010101ULL;
        count -= continuations * 0x0101010101010101ULL >> 56;
    }
    for (; i < size; ++i) {
        count -= isContinuation(bytes[i]);
    }
    return count;
}

// Number of ASCII bytes in front of the first high byte of eight; 7 when there is none.
unsigned asciiBytesInFront(const Byte* bytes) {
    std::uint64_t word;
    std::memcpy(&word, bytes, 8);
    if constexpr (std::endian::native == std::endian::little) {
        return static_cast<unsigned>(std::countr_zero((word & kHighBits) | 1ULL << 63)) / 8;
    } else {
        return static_cast<unsigned>(std::countl_zero((word & kHighBits) | 0x80U)) / 8;
    }
}

// The byte of a set for the character at `in`, which is not ASCII, and moves `in` behind it; 0 when the set lacks the
// character or it is malformed. Two bytes must follow the first. No branch depends on the length, which is not
// predictable.
Byte takeHighCharacter(const charset::FromUtf8& table, const Byte*& in) {
    const Byte* const next = in + 3 - (in[0] < 0xE0);
    const std::uint8_t page = table.pageOf[table.rowOf[in[0]]][in[1]];
    in = next;
    return table.pages[page][next[-1]];
}

// A stretch of a conversion from UTF-8: what is left of the source and the room for what it becomes.
struct Stretch {
    const Byte* in;
    const Byte* inEnd;
    char* out;
    char* outEnd;

    // Whether words may be stored whole: what they hold beyond their ASCII bytes is overwritten later, for 32 bytes of
    // source are at least 11 characters.
    bool hasRoomForWords() const { return inEnd - in >= 32 && outEnd - out >= kBlock; }
    bool atHighCharacter() const { return *in >= 0x80 && inEnd - in >= 3; }

    // Copies a block when it is ASCII, else what stands in front of its first high byte, at most 7 bytes.
    void copyAscii() {
        if (isAsciiBlock(in)) {
            std::memcpy(out, in, kBlock);
            out += kBlock;
            in += kBlock;
            return;
        }
        std::memcpy(out, in, 8);
        const unsigned ascii = asciiBytesInFront(in);
        in += ascii;
        out += ascii;
    }
    // False when the set lacks the character or it is malformed.
    bool takeHigh(const charset::FromUtf8& table) {
        const Byte found = takeHighCharacter(table, in);
        *out = static_cast<char>(found);
        ++out;
        return found != 0;
    }
};

bool convertStretch(const charset::FromUtf8& table, Stretch& text) {
    while (text.hasRoomForWords()) {
        text.copyAscii();
        while (text.atHighCharacter()) {
            if (!text.takeHigh(table)) {
                return false;
            }
        }
    }
    while (text.in < text.inEnd) {
        if (*text.in < 0x80) {
            *text.out++ = static_cast<char>(*text.in++);
        } else if (text.inEnd - text.in < 2 || !text.takeHigh(table)) {  // the byte behind the text is no continuation
            return false;
        }
    }
    return true;
}

// Two stretches as far as both go in step.
bool convertTogether(const charset::FromUtf8& table, Stretch& a, Stretch& b) {
    while (a.hasRoomForWords() && b.hasRoomForWords()) {
        a.copyAscii();
        b.copyAscii();
        while (a.atHighCharacter() && b.atHighCharacter()) {
            if (!a.takeHigh(table) || !b.takeHigh(table)) {
                return false;
            }
        }
        while (a.atHighCharacter()) {
            if (!a.takeHigh(table)) {
                return false;
            }
        }
        while (b.atHighCharacter()) {
            if (!b.takeHigh(table)) {
                return false;
            }
        }
    }
    return true;
}

// Only a well-formed character finds a byte in the table, so the text needs no check of its own; and as a malformed one
// ends the conversion, no more bytes are stored than there are characters.
bool convertWhole(const charset::FromUtf8& table, const Byte* in, std::size_t length, char* dest, std::size_t room) {
    if (length >= room && countCharacters(in, length) >= room) {
        return false;
    }
    Stretch text = {in, in + length, dest, dest + room};
    while (text.hasRoomForWords() && isAsciiBlock(text.in)) {
        text.copyAscii();
    }
    const auto rest = static_cast<std::size_t>(text.inEnd - text.in);
    if (rest >= kWorthHalving) {
        const Byte* const half = middle(text.in, rest);
        if (half == nullptr) {
            return false;
        }
        char* const outHalf = text.out + countCharacters(text.in, static_cast<std::size_t>(half - text.in));
        Stretch first = {text.in, half, text.out, outHalf};
        text.in = half;
        text.out = outHalf;
        if (!convertTogether(table, first, text) || !convertStretch(table, first)) {
            return false;
        }
    }
    if (!convertStretch(table, text)) {
        return false;
    }
    *text.out = 0;
    return true;
}

void convertFromUtf8(const charset::FromUtf8& table, const char* src, char* dest, long destSize) {
    if (destSize <= 0) {
        return;
    }
    dest[0] = 0;
    if (src != nullptr && !convertWhole(table, reinterpret_cast<const Byte*>(src), std::strlen(src), dest,
                                        static_cast<std::size_t>(destSize))) {
        dest[0] = 0;
    }
}

struct Release {
    void operator()(char* block) const { allocator().release(block); }
};
using WorkBuffer = std::unique_ptr<char, Release>;

WorkBuffer newWorkBuffer(std::size_t size) {
    return WorkBuffer(static_cast<char*>(allocator().allocateZeroed(size)));
}

}  // namespace

bool my_IsUtf8(const char* text) {
    return text != nullptr && my_IsUtf8(std::string_view(text));
}

bool my_IsUtf8(std::string_view text) {
    return isUtf8(reinterpret_cast<const Byte*>(text.data()), text.size());
}

void my_ConvertMacRomanToUtf8(const char* src, char* dest, unsigned long destSize) {
    convertToUtf8(kMacRomanToUtf8, src, dest, destSize);
}

void my_ConvertWindows1252ToUtf8(const char* src, char* dest, unsigned long destSize) {
    convertToUtf8(kWindows1252ToUtf8, src, dest, destSize);
}

void my_ConvertUtf8ToMacRoman(const char* src, char* dest, long destSize) {
    convertFromUtf8(kMacRomanFromUtf8, src, dest, destSize);
}

void my_ConvertUtf8ToWindows1252(const char* src, char* dest, long destSize) {
    convertFromUtf8(kWindows1252FromUtf8, src, dest, destSize);
}

unsigned long my_ConvertStringEncoding(const char* src, short srcEncoding, char* dest, short destEncoding,
                                       unsigned long destLen) {
    if (destLen == 0) {
        return 0;
    }
    dest[0] = 0;
    const std::size_t n = src == nullptr ? 0 : std::strlen(src);
    if (n == 0) {
        return 0;
    }
    const std::size_t workSize = 3 * n + 1;
    const WorkBuffer utf8 = newWorkBuffer(workSize);
    const WorkBuffer converted = newWorkBuffer(workSize);
    if (utf8 == nullptr || converted == nullptr) {
        return 0;
    }
    switch (srcEncoding) {
        case kEncodingUtf8:
            std::memcpy(utf8.get(), src, n);
            break;
        case kEncodingMacRoman:
            my_ConvertMacRomanToUtf8(src, utf8.get(), workSize);
            break;
        case kEncodingWindows1252:
            my_ConvertWindows1252ToUtf8(src, utf8.get(), workSize);
            break;
        default:
            return 0;
    }
    switch (destEncoding) {
        case kEncodingUtf8:
            std::memcpy(converted.get(), utf8.get(), std::strlen(utf8.get()));
            break;
        case kEncodingMacRoman:
            my_ConvertUtf8ToMacRoman(utf8.get(), converted.get(), static_cast<long>(workSize));
            break;
        case kEncodingWindows1252:
            my_ConvertUtf8ToWindows1252(utf8.get(), converted.get(), static_cast<long>(workSize));
            break;
        default:
            return 0;
    }
    const std::size_t stored = std::min<std::size_t>(std::strlen(converted.get()), destLen);
    std::memcpy(dest, converted.get(), stored);
    std::memset(dest + stored, 0, destLen - stored);
    return stored;
}

unsigned long my_memcpy_encoding(char* dest, unsigned long destLen, const unsigned char* src, unsigned long srcLen,
                                 short destEncoding) {
    if (destLen == 0) {
        return 0;
    }
    dest[0] = 0;
    const WorkBuffer text = newWorkBuffer(srcLen + 1);
    if (text == nullptr) {
        return 0;
    }
    if (srcLen != 0) {
        std::memcpy(text.get(), src, srcLen);
    }
    const short srcEncoding = my_IsUtf8(text.get()) ? kEncodingUtf8 : kEncodingMacRoman;
    return my_ConvertStringEncoding(text.get(), srcEncoding, dest, destEncoding, destLen);
}

}  // namespace quil
