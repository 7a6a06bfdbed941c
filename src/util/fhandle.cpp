#include "util/fhandle.h"

#include <algorithm>
#include <cstring>

#include "util/memory.h"

namespace quil {

// State of this file: the line-break buffers.
char gReturnString[4];
char gIbmReturnString[4];
char gMacReturnString[4];

namespace {
constexpr std::size_t kMostKept = 4;
FHandle* sKept[kMostKept];  // records with kKeptRoom that wait for the next call
std::size_t sKeptCount = 0;
}  // namespace

static constexpr std::int32_t kNullHandle = -1;
static constexpr std::int32_t kOutOfMemory = -108;
static constexpr unsigned long kMaxSize = 0xFFFFFFFFUL;

namespace {
// A first block of so few bytes stands behind the record too, without room to grow.
constexpr std::uint32_t kSmallBlock = 4;
// Every call makes three handles with room and disposes them. Their records go from call to call, unless a sanitizer
// shall see who uses one that is gone, or memory comes from elsewhere.
constexpr std::uint32_t kKeptRoom = 520;  // and nobody asks for just so much
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kKeepsRecords = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kKeepsRecords = false;
#else
constexpr bool kKeepsRecords = true;
#endif
#else
constexpr bool kKeepsRecords = true;
#endif

FHandle* record(char** handle) {
    return reinterpret_cast<FHandle*>(handle);
}
char* ownRoom(FHandle* h) {
    return reinterpret_cast<char*>(h + 1);
}
char* newBlock(unsigned long size) {
    return static_cast<char*>(allocator().allocateZeroed(size == 0 ? 1 : size));
}
void releaseBlock(FHandle* h) {
    if (h->data != ownRoom(h)) {
        allocator().release(h->data);
    }
}
bool endsWithNul(const FHandle* h) {
    return h->size != 0 && h->data[h->size - 1] == 0;
}
FHandle* newRecord(std::uint32_t room) {
    auto* h = static_cast<FHandle*>(allocator().allocateZeroed(sizeof(FHandle) + std::max(room, kSmallBlock)));
    if (h != nullptr) {
        h->data = ownRoom(h);
        h->room = room;
    }
    return h;
}
}  // namespace

char** NewFHandle(unsigned long size) {
    FHandle* h = size > kMaxSize ? nullptr : newRecord(0);
    if (h == nullptr) {
        return nullptr;
    }
    if (size > kSmallBlock) {
        h->data = newBlock(size);
        if (h->data == nullptr) {
            allocator().release(h);
            return nullptr;
        }
    }
    h->size = static_cast<std::uint32_t>(size);
    return &h->data;
}

char** NewFHandleWithRoom(std::uint32_t room) {
    const bool keeps = kKeepsRecords && room < kKeptRoom && usesHeap();
    if (keeps && sKeptCount != 0) {
        FHandle* h = sKept[--sKeptCount];
        h->size = 0;
        h->data[0] = 0;  // an empty handle reads as the empty text
        return &h->data;
    }
    FHandle* h = newRecord(keeps ? kKeptRoom : room);
    return h == nullptr ? nullptr : &h->data;
}

void ReleaseKeptHandles() {
    while (sKeptCount != 0) {
        allocator().release(sKept[--sKeptCount]);
    }
}

void DisposeAndClearFHandle(char*** handlePtr) {
    if (handlePtr == nullptr) {
        return;
    }
    if (FHandle* h = record(*handlePtr); h != nullptr) {
        releaseBlock(h);
        if (kKeepsRecords && h->room == kKeptRoom && sKeptCount < kMostKept) {
            h->data = ownRoom(h);
            sKept[sKeptCount++] = h;
        } else {
            allocator().release(h);
        }
    }
    *handlePtr = nullptr;
}

std::int32_t SetFHandleSize(char** handle, unsigned long newSize) {
    if (handle == nullptr) {
        return kNullHandle;
    }
    FHandle* h = record(handle);
    if (newSize <= h->size) {
        h->size = static_cast<std::uint32_t>(newSize);
        return 0;
    }
    if (newSize <= h->room && h->data == ownRoom(h)) {
        std::memset(h->data + h->size, 0, newSize - h->size);
        h->size = static_cast<std::uint32_t>(newSize);
        return 0;
    }
    if (newSize > kMaxSize) {
        return kOutOfMemory;
    }
    char* block = nullptr;
    if (h->data == ownRoom(h) || h->size == 0) {
        block = newBlock(newSize);
        if (block != nullptr) {
            std::memcpy(block, h->data, h->size);
            releaseBlock(h);
        }
    } else {
        block = static_cast<char*>(regrowBlock(h->data, h->size, newSize));
    }
    if (block == nullptr) {
        return kOutOfMemory;
    }
    h->data = block;
    h->size = static_cast<std::uint32_t>(newSize);
    return 0;
}

std::int32_t SetResultsHandle(char** handle, const char* text) {
    if (handle == nullptr) {
        return kNullHandle;
    }
    return text == nullptr ? 0 : SetResultsHandleText(handle, text);
}

std::int32_t SetResultsHandleText(char** handle, std::string_view text) {
    if (handle == nullptr) {
        return kNullHandle;
    }
    if (SetFHandleSize(handle, text.size()) != 0) {
        return kOutOfMemory;
    }
    std::copy(text.begin(), text.end(), *handle);
    return 0;
}

std::int32_t SetHandleContentsAndIncludeTerminator(char** handle, const char* text) {
    if (handle == nullptr) {
        return kNullHandle;
    }
    const std::string_view content = text == nullptr ? std::string_view() : std::string_view(text);
    const std::int32_t error = SetFHandleSize(handle, content.size() + 1);
    if (error == 0) {
        std::copy(content.begin(), content.end(), *handle);
        (*handle)[content.size()] = 0;
    }
    return error;
}

std::int32_t EnsureHandleIsNullTerminated(char** handle) {
    if (handle == nullptr) {
        return kNullHandle;
    }
    if (endsWithNul(record(handle))) {
        return 0;
    }
    const unsigned long size = record(handle)->size;
    if (SetFHandleSize(handle, size + 1) != 0) {
        return kOutOfMemory;
    }
    (*handle)[size] = 0;
    return 0;
}

void RemoveTrailingNullTerminator(char** handle) {
    if (handle != nullptr && record(handle)->size >= 2 && endsWithNul(record(handle))) {
        record(handle)->size -= 1;
    }
}

std::int32_t CatHandleContents(char** handle, const char* text) {
    if (handle == nullptr || text == nullptr) {
        return kNullHandle;
    }
    unsigned long size = record(handle)->size;
    bool terminated = true;
    if (size == 0) {
        size = 1;
    } else {
        terminated = endsWithNul(record(handle));
    }
    const std::size_t length = std::strlen(text);
    if (SetFHandleSize(handle, size + length) != 0) {
        return kOutOfMemory;
    }
    if (terminated) {
        std::memcpy(*handle + size - 1, text, length);
        (*handle)[size - 1 + length] = 0;
    } else {
        std::memcpy(*handle + size, text, length);
    }
    return 0;
}

std::int32_t AppendStructToHandle(char** handle, const void* bytes, long count) {
    if (handle == nullptr) {
        return kNullHandle;
    }
    if (count <= 0) {
        return 0;
    }
    const auto size = static_cast<unsigned long>(GetFHandleSize(handle));
    if (SetFHandleSize(handle, size + static_cast<unsigned long>(count)) != 0) {
        return kOutOfMemory;
    }
    std::copy_n(static_cast<const char*>(bytes), count, *handle + size);
    return 0;
}

std::int32_t strcmpFHandles(char** a, char** b) {
    const long sizeA = GetFHandleSize(a);
    const long sizeB = GetFHandleSize(b);
    const long both = std::min(sizeA, sizeB);
    const bool sameStart = both != 0 && std::memcmp(*a, *b, static_cast<std::size_t>(both)) == 0;
    for (long i = sameStart ? both : 0; i < std::max(sizeA, sizeB); ++i) {
        const auto byteA = static_cast<signed char>(i < sizeA ? (*a)[i] : 0);
        const auto byteB = static_cast<signed char>(i < sizeB ? (*b)[i] : 0);
        if (byteA != byteB) {
            return byteA < byteB ? -1 : 1;
        }
    }
    return 0;
}

unsigned long strcpyFHandleToCStr(char* dest, unsigned long destSize, char** handle) {
    if (dest != nullptr && destSize != 0) {
        dest[0] = 0;
    }
    if (handle == nullptr) {
        return 0;
    }
    auto length = static_cast<unsigned long>(GetFHandleSize(handle));
    if (length != 0 && (*handle)[length - 1] == 0) {
        --length;
    }
    if (dest != nullptr && destSize != 0) {
        const unsigned long count = std::min(length, destSize - 1);
        std::memcpy(dest, *handle, count);
        dest[count] = 0;
    }
    return length;
}

std::int32_t CopyFHandleToResultHandle(char** source, char** result) {
    if (result == nullptr) {
        return kNullHandle;
    }
    const unsigned long length = strcpyFHandleToCStr(nullptr, 0, source);
    const std::int32_t error = SetFHandleSize(result, length);
    if (error == 0 && length != 0) {
        std::memmove(*result, *source, length);
    }
    return error;
}

void mylong2str(long value, char* dest) {
    char digits[24];
    char* p = digits;
    auto rest = value < 0 ? 0UL - static_cast<unsigned long>(value) : static_cast<unsigned long>(value);
    do {
        *p++ = static_cast<char>('0' + rest % 10);
        rest /= 10;
    } while (rest != 0);
    if (value < 0) {
        *dest++ = '-';
    }
    dest = std::reverse_copy(digits, p, dest);
    *dest = 0;
}

static char* breakString(char* buffer, std::string_view text) {
    *std::copy(text.begin(), text.end(), buffer) = 0;
    return buffer;
}

char* ReturnString() {
    return breakString(gReturnString, "\r");
}
char* IbmReturnString() {
    return breakString(gIbmReturnString, "\r\n");
}
char* MacReturnString() {
    return breakString(gMacReturnString, "\r");
}

std::string_view FHandleText(char** handle) {
    const auto size = static_cast<std::size_t>(GetFHandleSize(handle));
    if (size == 0) {
        return {};
    }
    const void* nul = std::memchr(*handle, 0, size);
    return {*handle, nul == nullptr ? size : static_cast<std::size_t>(static_cast<const char*>(nul) - *handle)};
}

}  // namespace quil
